// Every signal blocked in the calling thread while a child of it lives.
#pragma once

#include <signal.h>

namespace vxu::process {

// Blocks every signal for its lifetime and puts the previous mask back when
// it ends, so signals that arrive meanwhile stay pending until then. A forked
// child calls restore_in_child() before it executes its program, so the
// program starts with the mask its launcher had. The mask is the calling
// thread's own: sigprocmask is unspecified once a process has threads.
class all_signals_blocked {
public:
    all_signals_blocked()
    {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &saved_);
    }
    all_signals_blocked(const all_signals_blocked &) = delete;
    all_signals_blocked &operator=(const all_signals_blocked &) = delete;
    ~all_signals_blocked() { pthread_sigmask(SIG_SETMASK, &saved_, nullptr); }

    void restore_in_child() const { pthread_sigmask(SIG_SETMASK, &saved_, nullptr); }

private:
    sigset_t saved_;
};

}  // namespace vxu::process
