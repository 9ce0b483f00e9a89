// Clocks, descriptor helpers and the memory wrapper. Where a check needs a
// fixed or failing clock, the test program's stand-ins provide it.
#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

#include <vxutil/frame.h>

#include "common/test_support.hpp"
#include "frame/fake_clock.hpp"

namespace {

TEST(Clock, DeadlinesAndDifferencesOverAFixedWallClock)
{
    const struct {
        timeval now;
        int ms;
        timeval want;
    } stamps[] = {{{10, 700000}, 1500, {12, 200000}},
                  {{10, 500000}, 500, {11, 0}},
                  {{10, 999999}, 1, {11, 999}},
                  {{10, 100000}, 61234, {71, 334000}},
                  {{10, 0}, 0, {10, 0}},
                  {{10, 200000}, -2500, {8, -300000}}};
    for (const auto &row : stamps) {  // one carry at most; negative microseconds stay
        fake_clock::wall = &row.now;
        timeval got;
        vxu_get_timestamp(&got, row.ms);
        EXPECT_EQ(row.want.tv_sec * 1000000 + row.want.tv_usec, got.tv_sec * 1000000 + got.tv_usec)
            << row.ms << " ms after " << row.now.tv_sec << " s " << row.now.tv_usec << " us";
        EXPECT_EQ(row.want.tv_usec, got.tv_usec) << row.ms;
    }

    const timeval now = {100, 500000};
    fake_clock::wall = &now;
    const struct {
        timeval deadline;
        int reached;
    } deadlines[] = {{{100, 500999}, 1}, {{100, 501999}, 0}, {{100, 502000}, 0},
                     {{99, 999999}, 1},  {{101, 0}, 0},      {{0, 0}, 1}};
    for (const auto &row : deadlines) {  // partial milliseconds are dropped
        EXPECT_EQ(row.reached, vxu_time_timeout(&row.deadline))
            << row.deadline.tv_sec << " s " << row.deadline.tv_usec << " us";
    }
    const timeval wall = {1700000000, 123456};
    fake_clock::wall = &wall;
    timeval t;
    EXPECT_EQ(&t, vxu_get_uptime(&t));
    EXPECT_EQ(1700000000, t.tv_sec);
    EXPECT_EQ(123456, t.tv_usec);
    EXPECT_EQ(1700000000123u, vxu_com_get_tmr_ms());
    fake_clock::wall = nullptr;

    const struct {
        timeval a, b;
        int ms, sec;
    } diffs[] = {{{12, 200000}, {10, 700000}, 1500, 1},
                 {{10, 700000}, {12, 200000}, -1500, -1},
                 {{5, 999}, {5, 0}, 0, 0},
                 {{0, 999000}, {1, 0}, -1, 0},
                 {{2147484, 0}, {0, 0}, -2147483296, -2147483}};  // wraps as 32 bits
    for (const auto &row : diffs) {
        EXPECT_EQ(row.ms, vxu_time_diff(&row.a, &row.b)) << row.ms;
        EXPECT_EQ(row.sec, vxu_time_sec_diff(&row.a, &row.b)) << row.ms;
    }
}

TEST(Clock, UptimeReaders)
{
    timespec mono;
    ASSERT_EQ(0, clock_gettime(CLOCK_MONOTONIC, &mono));
    uint32_t sec = 0, usec = 0, boot_sec = 0, boot_usec = 0;
    ASSERT_EQ(0, vxu_com_get_uptime(&sec, &usec));
    const uint64_t ms = vxu_com_get_uptime_ms();
    ASSERT_EQ(0, vxu_com_get_uptime_all(&boot_sec, &boot_usec));
    EXPECT_LE(uint32_t(mono.tv_sec), sec);
    EXPECT_LE(sec * 1000ull + usec / 1000, ms);
    EXPECT_LT(ms - sec * 1000ull, 2000u);
    EXPECT_GE(boot_sec * 1000000ull + boot_usec, sec * 1000000ull + usec) << "boot time runs ahead";

    // Seconds are taken as 32 bits; either pointer may be null. A failed
    // reading writes nothing.
    fake_clock::uptime = [](timespec *ts) { return *ts = {(1ll << 32) + 5, 7654321}, 0; };
    EXPECT_EQ(5007u, vxu_com_get_uptime_ms());
    for (auto get : {vxu_com_get_uptime, vxu_com_get_uptime_all}) {
        sec = usec = 1;
        EXPECT_EQ(0, get(&sec, nullptr));
        EXPECT_EQ(0, get(nullptr, &usec));
        EXPECT_EQ(0, get(nullptr, nullptr));
        EXPECT_EQ(5u, sec);
        EXPECT_EQ(7654u, usec);
    }
    fake_clock::uptime = [](timespec *) { return errno = EINVAL, -1; };
    EXPECT_EQ(0u, vxu_com_get_uptime_ms());
    for (auto get : {vxu_com_get_uptime, vxu_com_get_uptime_all}) {
        sec = usec = 1;
        EXPECT_EQ(-1, get(&sec, &usec));
        EXPECT_EQ(1u, sec + usec - 1);
    }
    fake_clock::uptime = nullptr;
}

TEST(Clock, SystimeIsTheLocalCalendar)
{
    EXPECT_IN_CHILD([] {
        static const timeval now = {1772719629, 0};  // 2026-03-05 14:07:09 UTC, a Thursday
        fake_clock::wall = &now;
        const struct {
            const char *tz;
            std::vector<int> want;  // sec, min, hour, day, mon, wday, year
        } zones[] = {{"UTC0", {9, 7, 14, 5, 3, 4, 2026}},
                     {"XXX-12", {9, 7, 2, 6, 3, 5, 2026}},
                     {"XXX+15", {9, 7, 23, 4, 3, 3, 2026}}};
        for (const auto &row : zones) {
            setenv("TZ", row.tz, 1);
            tzset();
            vxu_systime_t t;
            memset(&t, 0xff, sizeof t);
            vxu_get_systime(&t);
            EXPECT_EQ(row.want,
                      std::vector<int>({t.sec, t.min, t.hour, t.day, t.mon, t.wday, t.year}))
                << row.tz;
        }
    });
}

TEST(FdFlags, EachSwitchesOneFlagAndLeavesTheRest)
{
    EXPECT_IN_CHILD([] {
        int p[2];
        ASSERT_EQ(0, pipe(p));
        ASSERT_EQ(0, dup2(p[0], 0));  // descriptor 0 is a descriptor like any other
        char path[] = "/tmp/vxu_fd_XXXXXX";
        const int file = mkstemp(path);
        ASSERT_GE(file, 0);
        unlink(path);
        ASSERT_EQ(0, fcntl(file, F_SETFL, O_APPEND));
        const struct {
            int (*set)(int, int);
            int on, nonblock, cloexec;
        } steps[] = {{vxu_com_fd_noblock, 1, O_NONBLOCK, 0},
                     {vxu_com_fd_cloexec, 1, O_NONBLOCK, FD_CLOEXEC},
                     {vxu_com_fd_noblock, 0, 0, FD_CLOEXEC},
                     {vxu_com_fd_cloexec, 0, 0, 0},
                     {vxu_com_fd_cloexec, 7, 0, FD_CLOEXEC},
                     {vxu_com_fd_noblock, 7, O_NONBLOCK, FD_CLOEXEC}};
        for (int fd : {0, file}) {
            for (const auto &s : steps) {
                SCOPED_TRACE(testing::Message() << "descriptor " << fd << ", step " << &s - steps);
                EXPECT_EQ(0, s.set(fd, s.on));
                EXPECT_EQ(s.nonblock | (fd ? O_APPEND : 0),
                          fcntl(fd, F_GETFL) & (O_NONBLOCK | O_APPEND));
                EXPECT_EQ(s.cloexec, fcntl(fd, F_GETFD) & FD_CLOEXEC);
            }
            EXPECT_EQ(-1, vxu_com_fd_noblock(-1, 1));
            EXPECT_EQ(-1, vxu_com_fd_cloexec(-1, 0));
        }
    });
}

TEST(FdHasData, DataOrEndOfFileWithinTheSet)
{
    EXPECT_IN_CHILD([] {
        int p[2];
        ASSERT_EQ(0, pipe(p));
        const uint64_t start = vxu_com_get_uptime_ms();
        EXPECT_EQ(0, vxu_com_fd_has_data(p[0])) << "empty";
        EXPECT_LT(vxu_com_get_uptime_ms() - start, 1000u) << "must not block";
        char c = 1;
        ASSERT_EQ(1, write(p[1], &c, 1));
        EXPECT_EQ(1, vxu_com_fd_has_data(p[0])) << "one byte";
        ASSERT_EQ(1, read(p[0], &c, 1));
        EXPECT_EQ(0, vxu_com_fd_has_data(p[0])) << "read";
        close(p[1]);
        EXPECT_EQ(1, vxu_com_fd_has_data(p[0])) << "end of file";
        EXPECT_EQ(0, vxu_com_fd_has_data(p[1])) << "closed";
        EXPECT_EQ(0, vxu_com_fd_has_data(-1));
        if (vxu_test::under_valgrind())
            return;  // it keeps the descriptors from 1024 up for itself
        ASSERT_TRUE(vxu_test::raise_fd_limit(2048));
        for (int fd : {1023, 1024, 1500}) {  // at the end of file too, but only 1023 fits a set
            ASSERT_EQ(fd, dup2(p[0], fd));
            EXPECT_EQ(fd == 1023, vxu_com_fd_has_data(fd)) << fd;
        }
    });
}

TEST(Memory, ZeroFilledBlocksAndFixedDumps)
{
    EXPECT_EQ(nullptr, _vxu_mem_alloc("t", 1, 0));
    EXPECT_EQ(nullptr, _vxu_mem_alloc("t", 1, -5));
    _vxu_mem_free("t", 1, nullptr);
    for (int size : {1, 7, 4096, 1 << 20}) {
        auto *p = static_cast<char *>(vxu_mem_alloc(size));
        ASSERT_NE(nullptr, p);
        EXPECT_EQ(size, std::count(p, p + size, 0)) << size;
        memset(p, 0xab, size_t(size));  // dirty, in case the next block reuses it
        vxu_mem_free(p);
    }
    FILE *f = tmpfile();
    ASSERT_NE(nullptr, f);
    EXPECT_EQ(30, vxu_mem_dump(f));
    EXPECT_EQ(0, vxu_mutex_dump(f));
    rewind(f);
    EXPECT_EQ("mem tracking is not supported\nmutex tracking is not supported\n",
              vxu_test::read_stream(f));
    fclose(f);
    f = fopen("/dev/null", "r");  // takes no line: the write reports 0 items
    ASSERT_NE(nullptr, f);
    EXPECT_EQ(0, vxu_mem_dump(f));
    EXPECT_EQ(0, vxu_mutex_dump(f));
    fclose(f);
}

TEST(Memory, ExhaustionGivesNullAndFreedBlocksGoBack)
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "sanitizers reserve more address space than the limit allows";
#else
    SKIP_UNDER_EMULATION("RLIMIT_AS for the guest");
    EXPECT_IN_CHILD([] {
        const struct rlimit limit = {256u << 20, 256u << 20};
        ASSERT_EQ(0, setrlimit(RLIMIT_AS, &limit));
        EXPECT_EQ(nullptr, vxu_mem_alloc(1 << 30));
        for (int i = 0; i < 16; ++i) {  // 1 GiB in all, in blocks that must go back
            void *p = vxu_mem_alloc(64 << 20);
            ASSERT_NE(nullptr, p) << "block " << i;
            vxu_mem_free(p);
        }
    });
#endif
}

}  // namespace
