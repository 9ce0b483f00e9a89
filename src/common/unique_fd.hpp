// Owning holder for a file descriptor: closes it unless released.
#pragma once

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

namespace vxu {

// True while the number names an open descriptor (a failure other than
// EBADF still means one is there).
inline bool fd_is_open(int fd) { return fd >= 0 && (fcntl(fd, F_GETFD) != -1 || errno != EBADF); }

class unique_fd {
public:
    unique_fd() = default;
    explicit unique_fd(int fd) : fd_(fd) {}
    unique_fd(const unique_fd &) = delete;
    unique_fd &operator=(const unique_fd &) = delete;
    unique_fd(unique_fd &&other) noexcept : fd_(other.release()) {}
    unique_fd &operator=(unique_fd &&other) noexcept
    {
        reset(other.release());
        return *this;
    }
    ~unique_fd() { reset(); }

    int get() const { return fd_; }
    bool valid() const { return fd_ >= 0; }
    explicit operator bool() const { return valid(); }

    // Gives up ownership; the caller now closes the descriptor.
    int release()
    {
        const int fd = fd_;
        fd_ = -1;
        return fd;
    }

    void reset(int fd = -1)
    {
        if (fd_ >= 0)
            ::close(fd_);
        fd_ = fd;
    }

private:
    int fd_ = -1;
};

}  // namespace vxu
