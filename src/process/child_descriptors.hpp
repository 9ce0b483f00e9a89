// Descriptor clean-up in a freshly forked child before it executes another
// program.
#pragma once

namespace vxu::process {

// Keeps descriptors 0 to 2 as inherited, opening "/dev/null" into any of
// them that is closed, and closes every other descriptor, also those above
// the current soft limit (a caller may have lowered it after opening them).
void reset_child_descriptors();

}  // namespace vxu::process
