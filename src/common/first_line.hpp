// The first line of a small file (a /proc entry, a pid file) read with plain
// system calls, keeping what fgets into the same buffer would keep: at most
// size-1 bytes, ending after the first newline, always terminated.
#pragma once

#include <errno.h>
#include <fcntl.h>
#include <stddef.h>
#include <string.h>
#include <sys/types.h>
#include <unistd.h>

#include "common/unique_fd.hpp"

namespace vxu {

// Returns the length kept in buf (0 when the file is empty), or -1 when the
// file cannot be opened; a read error keeps what arrived before it. A
// relative path is taken from the directory dir_fd (openat).
inline ssize_t read_first_line(const char *path, char *buf, size_t size, int dir_fd = AT_FDCWD)
{
    if (size == 0)
        return -1;
    buf[0] = '\0';
    const unique_fd fd(::openat(dir_fd, path, O_RDONLY | O_CLOEXEC));
    if (!fd)
        return -1;
    size_t used = 0;
    while (used < size - 1) {
        const ssize_t n = ::read(fd.get(), buf + used, size - 1 - used);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;
        const void *newline = memchr(buf + used, '\n', static_cast<size_t>(n));
        if (newline) {
            used = static_cast<size_t>(static_cast<const char *>(newline) - buf) + 1;
            break;
        }
        used += static_cast<size_t>(n);
    }
    buf[used] = '\0';
    return static_cast<ssize_t>(used);
}

}  // namespace vxu
