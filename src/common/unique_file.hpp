// Owning holder for a stdio stream: closes it unless released.
#pragma once

#include <stdio.h>

namespace vxu {

class unique_file {
public:
    explicit unique_file(FILE *f) : f_(f) {}
    unique_file(const unique_file &) = delete;
    unique_file &operator=(const unique_file &) = delete;
    ~unique_file() { reset(); }

    FILE *get() const { return f_; }
    explicit operator bool() const { return f_ != nullptr; }

    // Closes now (for instance before parsing what was read).
    void reset()
    {
        if (f_)
            (void)fclose(f_);  // nothing to do about a failed close here
        f_ = nullptr;
    }

private:
    FILE *f_;
};

}  // namespace vxu
