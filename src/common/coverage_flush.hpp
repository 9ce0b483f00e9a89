// Coverage builds: a forked child that leaves through execve or _exit never
// runs the exit handlers that write its coverage counters, so it writes them
// itself first. Other builds compile this to nothing.
#pragma once

#ifdef VXU_COVERAGE_FLUSH
extern "C" void __gcov_dump(void);
extern "C" void __gcov_reset(void);
#endif

namespace vxu {

inline void flush_coverage_counters()
{
#ifdef VXU_COVERAGE_FLUSH
    __gcov_dump();
    __gcov_reset();  // a later flush adds only what ran since
#endif
}

}  // namespace vxu
