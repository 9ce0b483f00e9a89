// Leak check inside forked children, which end with _exit and so never
// reach LeakSanitizer's own check at exit. A no-op without the sanitizer.
#pragma once

#include <gtest/gtest.h>

extern "C" int __lsan_do_recoverable_leak_check(void) __attribute__((weak));

namespace vxu_test {

inline void expect_no_leaks()
{
    if (__lsan_do_recoverable_leak_check) {
        EXPECT_EQ(0, __lsan_do_recoverable_leak_check()) << "LeakSanitizer found leaks";
    }
}

}  // namespace vxu_test
