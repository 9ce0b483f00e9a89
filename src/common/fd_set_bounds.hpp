// select() sets hold descriptors 0..FD_SETSIZE-1; nothing outside may be set.
#pragma once

#include <sys/select.h>

namespace vxu {

constexpr int kFdSetLimit = FD_SETSIZE;  // 1024

constexpr bool fits_fd_set(int fd) { return fd >= 0 && fd < kFdSetLimit; }

}  // namespace vxu
