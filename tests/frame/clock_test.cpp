#include <stdlib.h>
#include <time.h>

#include <vxutil/frame.h>

#include "common/test_support.hpp"

namespace {

timeval tv(long sec, long usec)
{
    timeval t;
    t.tv_sec = sec;
    t.tv_usec = usec;
    return t;
}

TEST(Uptime, PointersAreOptional)
{
    EXPECT_EQ(0, vxu_com_get_uptime(nullptr, nullptr));
    uint32_t sec = 0xdeadbeef;
    EXPECT_EQ(0, vxu_com_get_uptime(&sec, nullptr));
    EXPECT_NE(0xdeadbeefu, sec);
    uint32_t usec = 0xdeadbeef;
    EXPECT_EQ(0, vxu_com_get_uptime(nullptr, &usec));
    EXPECT_LT(usec, 1000000u);
    EXPECT_EQ(0, vxu_com_get_uptime_all(nullptr, nullptr));
}

TEST(Uptime, ClocksAgree)
{
    timespec mono;
    ASSERT_EQ(0, clock_gettime(CLOCK_MONOTONIC, &mono));
    uint32_t sec = 0, usec = 0;
    ASSERT_EQ(0, vxu_com_get_uptime(&sec, &usec));
    const uint64_t ms = vxu_com_get_uptime_ms();
    const uint64_t pair_ms = uint64_t(sec) * 1000 + usec / 1000;
    EXPECT_GE(pair_ms, uint64_t(mono.tv_sec) * 1000 + uint64_t(mono.tv_nsec) / 1000000);
    EXPECT_GE(ms, pair_ms);
    EXPECT_LT(ms - pair_ms, 1000u);

    // Boot time includes time spent suspended, so it never runs behind.
    uint32_t boot_sec = 0, boot_usec = 0;
    ASSERT_EQ(0, vxu_com_get_uptime_all(&boot_sec, &boot_usec));
    EXPECT_GE(uint64_t(boot_sec) * 1000000 + boot_usec, uint64_t(sec) * 1000000 + usec);
}

TEST(Uptime, MeasuresIntervals)
{
    const uint64_t a = vxu_com_get_uptime_ms();
    vxu_os_wait(0, 300000);
    const uint64_t b = vxu_com_get_uptime_ms();
    EXPECT_GE(b - a, 290u);
    EXPECT_LT(b - a, 5000u);
}

TEST(WallClock, MillisecondsSinceEpoch)
{
    timeval now;
    gettimeofday(&now, nullptr);
    const uint64_t ms = vxu_com_get_tmr_ms();
    const uint64_t expect = uint64_t(now.tv_sec) * 1000 + uint64_t(now.tv_usec) / 1000;
    EXPECT_GE(ms, expect);
    EXPECT_LT(ms - expect, 1000u);

    timeval t;
    EXPECT_EQ(&t, vxu_get_uptime(&t));
    EXPECT_LE(now.tv_sec, t.tv_sec);
    EXPECT_LT(t.tv_sec - now.tv_sec, 2);
}

TEST(TimeDiff, MillisecondsAndSeconds)
{
    const timeval a = tv(12, 200000), b = tv(10, 700000);
    EXPECT_EQ(1500, vxu_time_diff(&a, &b));
    EXPECT_EQ(-1500, vxu_time_diff(&b, &a));
    EXPECT_EQ(1, vxu_time_sec_diff(&a, &b));
    EXPECT_EQ(-1, vxu_time_sec_diff(&b, &a));

    // Partial milliseconds are dropped.
    const timeval c = tv(5, 999), d = tv(5, 0);
    EXPECT_EQ(0, vxu_time_diff(&c, &d));

    // Wraps as a 32-bit value beyond about 24.8 days.
    const timeval far = tv(2147484, 0), zero = tv(0, 0);
    EXPECT_EQ(int(uint32_t(2147484000u)), vxu_time_diff(&far, &zero));
    EXPECT_LT(vxu_time_diff(&far, &zero), 0);
}

// Deadline arithmetic relative to the wall clock read just before.
long long deadline_offset_us(int ms)
{
    timeval before, deadline;
    gettimeofday(&before, nullptr);
    vxu_get_timestamp(&deadline, ms);
    EXPECT_LT(deadline.tv_usec, 1000000);
    return (deadline.tv_sec - before.tv_sec) * 1000000LL + (deadline.tv_usec - before.tv_usec);
}

TEST(Timestamp, AddsMillisecondsWithCarry)
{
    for (int ms : {0, 1, 500, 999, 1000, 1500, 61234}) {
        const long long off = deadline_offset_us(ms);
        EXPECT_GE(off, ms * 1000LL) << ms;
        EXPECT_LT(off, ms * 1000LL + 200000) << ms;
    }
    timeval past;
    vxu_get_timestamp(&past, -2500);
    timeval now;
    gettimeofday(&now, nullptr);
    EXPECT_LT(vxu_time_diff(&past, &now), -2000);
}

TEST(Timestamp, Timeout)
{
    timeval past = tv(1, 0);
    EXPECT_EQ(1, vxu_time_timeout(&past));

    timeval ahead;
    vxu_get_timestamp(&ahead, 2000);
    EXPECT_EQ(0, vxu_time_timeout(&ahead));

    // Less than a millisecond ahead in the same second counts as reached.
    for (int tries = 0; tries < 100; ++tries) {
        timeval now;
        gettimeofday(&now, nullptr);
        if (now.tv_usec > 990000) {
            vxu_os_wait(0, 20000);
            continue;
        }
        timeval near = tv(now.tv_sec, now.tv_usec + 500);
        EXPECT_EQ(1, vxu_time_timeout(&near));
        break;
    }
}

TEST(Systime, MatchesLocalCalendar)
{
    EXPECT_IN_CHILD([] {
        setenv("TZ", "UTC0", 1);
        tzset();
        for (int tries = 0; tries < 3; ++tries) {
            const time_t before = time(nullptr);
            vxu_systime_t st;
            memset(&st, 0xff, sizeof st);
            vxu_get_systime(&st);
            if (time(nullptr) != before)
                continue;  // the second turned over between the readings
            struct tm tm;
            gmtime_r(&before, &tm);
            EXPECT_EQ(tm.tm_sec % 60, st.sec);
            EXPECT_EQ(tm.tm_min, st.min);
            EXPECT_EQ(tm.tm_hour, st.hour);
            EXPECT_EQ(tm.tm_mday, st.day);
            EXPECT_EQ(tm.tm_mon + 1, st.mon);
            EXPECT_EQ(tm.tm_wday, st.wday);
            EXPECT_EQ(tm.tm_year + 1900, st.year);
            return;
        }
        ADD_FAILURE() << "clock kept turning over";
    });
}

TEST(Systime, FollowsTheLocalZone)
{
    EXPECT_IN_CHILD([] {
        for (int tries = 0; tries < 3; ++tries) {
            setenv("TZ", "XXX-12", 1);  // twelve hours east of UTC
            tzset();
            vxu_systime_t east;
            vxu_get_systime(&east);
            setenv("TZ", "UTC0", 1);
            tzset();
            vxu_systime_t utc;
            vxu_get_systime(&utc);
            if (east.min != utc.min)
                continue;  // an hour may have turned over between the readings
            EXPECT_EQ(12, (east.hour - utc.hour + 24) % 24);
            return;
        }
        ADD_FAILURE() << "clock kept turning over";
    });
}

}  // namespace
