// Every signal blocked in the calling thread while a child of it lives.
#pragma once

#include <signal.h>

namespace vxu::process {

// Blocks every signal for its lifetime and puts the previous mask back when
// it ends, so signals that arrive meanwhile stay pending until then. A forked
// child calls restore_in_child() before it executes its program, so the
// program starts with the mask its launcher had.
class all_signals_blocked {
public:
    all_signals_blocked()
    {
        sigset_t all;
        sigfillset(&all);
        sigprocmask(SIG_SETMASK, &all, &saved_);
    }
    all_signals_blocked(const all_signals_blocked &) = delete;
    all_signals_blocked &operator=(const all_signals_blocked &) = delete;
    ~all_signals_blocked() { sigprocmask(SIG_SETMASK, &saved_, nullptr); }

    void restore_in_child() const { sigprocmask(SIG_SETMASK, &saved_, nullptr); }

private:
    sigset_t saved_;
};

}  // namespace vxu::process
