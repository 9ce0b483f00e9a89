// Command lines that go through fixed buffers keep their first 255
// characters; the rest is cut without notice.
#pragma once

#include <stddef.h>

namespace vxu::process {

constexpr size_t kCommandSize = 256;

}  // namespace vxu::process
