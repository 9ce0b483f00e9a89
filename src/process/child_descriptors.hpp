// Descriptor clean-up in a freshly forked child before it executes another
// program.
#pragma once

namespace vxu::process {

// Keeps descriptors 0 to 2 as inherited, opening "/dev/null" into any of
// them that is closed, and closes every other descriptor below bound.
// Costs a handful of system calls whatever the bound.
void reset_child_descriptors(long bound);

// The same with the bound of open descriptors, sysconf(_SC_OPEN_MAX).
void reset_child_descriptors();

}  // namespace vxu::process
