// Shared pieces of the loop tests; every test runs in a forked child
// because the registry is process-wide and cannot be torn down.
#pragma once

#include <sys/select.h>

#include <initializer_list>
#include <vector>

#include <vxutil/loop.h>

namespace loop_test {

inline fd_set make_set(std::initializer_list<int> fds)
{
    fd_set s;
    FD_ZERO(&s);
    for (int fd : fds)
        FD_SET(fd, &s);
    return s;
}

// One callback invocation as the loop reported it.
struct call {
    int fd;
    int events;
    void *arg;
};

inline std::vector<call> g_calls;

inline void record_fd(int fd, int events, void *arg) { g_calls.push_back({fd, events, arg}); }

inline void ignore_fds(fd_set *, fd_set *, void *) {}

}  // namespace loop_test
