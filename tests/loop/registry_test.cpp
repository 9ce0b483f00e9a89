#include <sys/socket.h>
#include <unistd.h>

#include <vxutil/loop.h>

#include "common/test_support.hpp"
#include "loop/loop_test_util.hpp"

using namespace loop_test;

namespace {

// Fills the registry with single-descriptor entries 100, 101, ... and
// returns how many it took.
int fill_with_fds(int limit = 200)
{
    int n = 0;
    while (n < limit && vxu_loop_add(100 + n, VXU_LOOP_EV_READ, record_fd, nullptr) == 0)
        ++n;
    return n;
}

TEST(LoopRegistry, EverythingFailsBeforeInit)
{
    EXPECT_IN_CHILD([] {
        fd_set r = make_set({1});
        EXPECT_EQ(-3, vxu_loop_add(5, VXU_LOOP_EV_READ, record_fd, nullptr));
        EXPECT_EQ(-3, vxu_loop_add_fds(&r, 2, nullptr, 0, ignore_fds, nullptr));
        EXPECT_EQ(-2, vxu_loop_remove(5));
        EXPECT_EQ(-2, vxu_loop_remove_fds(&r, nullptr));
        EXPECT_EQ(-1, vxu_loop_run(0));
    });
}

TEST(LoopRegistry, CapacityDefaultsAndFirstInitWins)
{
    for (int arg : {0, -1}) {
        EXPECT_IN_CHILD([arg] {
            ASSERT_EQ(0, vxu_loop_init(arg));
            EXPECT_EQ(20, fill_with_fds());
        });
    }
    EXPECT_IN_CHILD([] {
        ASSERT_EQ(0, vxu_loop_init(3));
        EXPECT_EQ(0, vxu_loop_init(50));
        EXPECT_EQ(3, fill_with_fds());
    });
}

TEST(LoopRegistry, FullRegistryRefusesBothKindsUntilOneIsRemoved)
{
    EXPECT_IN_CHILD([] {
        ASSERT_EQ(0, vxu_loop_init(0));
        fd_set r = make_set({3});
        ASSERT_EQ(0, vxu_loop_add_fds(&r, 3, nullptr, 0, ignore_fds, nullptr));
        EXPECT_EQ(19, fill_with_fds());
        EXPECT_EQ(-1, vxu_loop_add(7, VXU_LOOP_EV_READ, record_fd, nullptr));
        fd_set other = make_set({4});
        EXPECT_EQ(-1, vxu_loop_add_fds(&other, 4, nullptr, 0, ignore_fds, nullptr));
        EXPECT_EQ(0, vxu_loop_remove_fds(&r, nullptr));
        EXPECT_EQ(0, vxu_loop_add(7, VXU_LOOP_EV_READ, record_fd, nullptr));
        EXPECT_EQ(-1, vxu_loop_add(8, VXU_LOOP_EV_READ, record_fd, nullptr));
    });
}

TEST(LoopRegistry, ArgumentChecks)
{
    EXPECT_IN_CHILD([] {
        ASSERT_EQ(0, vxu_loop_init(0));
        EXPECT_EQ(-3, vxu_loop_add(-1, VXU_LOOP_EV_READ, record_fd, nullptr));
        EXPECT_EQ(-3, vxu_loop_add(5, 0, record_fd, nullptr));
        EXPECT_EQ(-3, vxu_loop_add(5, VXU_LOOP_EV_READ, nullptr, nullptr));
        // Descriptors that do not fit a select set are refused up front.
        EXPECT_EQ(-3, vxu_loop_add(1024, VXU_LOOP_EV_READ, record_fd, nullptr));
        EXPECT_EQ(0, vxu_loop_add(1023, VXU_LOOP_EV_READ, record_fd, nullptr));
        // Unknown event bits are stored; such an entry is simply never watched.
        EXPECT_EQ(0, vxu_loop_add(5, 4, record_fd, nullptr));

        fd_set r = make_set({5});
        EXPECT_EQ(-3, vxu_loop_add_fds(nullptr, 5, nullptr, 5, ignore_fds, nullptr));
        EXPECT_EQ(-3, vxu_loop_add_fds(&r, 5, nullptr, 0, nullptr, nullptr));
        // Bounds are not checked at registration.
        EXPECT_EQ(0, vxu_loop_add_fds(&r, 100000, nullptr, -7, ignore_fds, nullptr));

        EXPECT_EQ(-2, vxu_loop_remove(-1));
        EXPECT_EQ(-2, vxu_loop_remove_fds(nullptr, nullptr));
    });
}

TEST(LoopRegistry, SingleDescriptorsAreUniqueButMayShareWithSets)
{
    EXPECT_IN_CHILD([] {
        ASSERT_EQ(0, vxu_loop_init(3));
        EXPECT_EQ(-1, vxu_loop_remove(5)) << "empty registry";
        EXPECT_EQ(0, vxu_loop_add(5, VXU_LOOP_EV_READ, record_fd, nullptr));
        EXPECT_EQ(-2, vxu_loop_add(5, VXU_LOOP_EV_WRITE, record_fd, nullptr));
        fd_set r = make_set({5, 6});
        EXPECT_EQ(0, vxu_loop_add_fds(&r, 6, nullptr, 0, ignore_fds, nullptr));
        // A refused duplicate took no room: exactly one slot is left.
        EXPECT_EQ(0, vxu_loop_add(9, VXU_LOOP_EV_READ, record_fd, nullptr));
        EXPECT_EQ(-1, vxu_loop_add(10, VXU_LOOP_EV_READ, record_fd, nullptr));

        EXPECT_EQ(0, vxu_loop_remove(5));
        EXPECT_EQ(-1, vxu_loop_remove(5));
        EXPECT_EQ(-1, vxu_loop_remove(6)) << "6 is only inside a set entry";
        EXPECT_EQ(0, vxu_loop_remove_fds(&r, nullptr));
    });
}

TEST(LoopRegistry, SetEntriesMatchOnWholeSets)
{
    EXPECT_IN_CHILD([] {
        ASSERT_EQ(0, vxu_loop_init(0));
        fd_set r = make_set({3, 4});
        fd_set w = make_set({8});
        fd_set zero = make_set({});
        fd_set unrelated = make_set({11});

        ASSERT_EQ(0, vxu_loop_add_fds(&r, 4, nullptr, 0, ignore_fds, nullptr));
        // Same read set, another write set: the read copy already matches.
        EXPECT_EQ(-2, vxu_loop_add_fds(&r, 9, &w, 8, ignore_fds, nullptr));
        // A read set that differs in one bit is another entry.
        fd_set r2 = make_set({3});
        EXPECT_EQ(-1, vxu_loop_remove_fds(&r2, nullptr));
        // Its stored write copy is all zero, so any read set with a zero
        // write set finds it.
        EXPECT_EQ(0, vxu_loop_remove_fds(&unrelated, &zero));
        EXPECT_EQ(-1, vxu_loop_remove_fds(&r, nullptr));

        ASSERT_EQ(0, vxu_loop_add_fds(nullptr, 0, &w, 8, ignore_fds, nullptr));
        EXPECT_EQ(-1, vxu_loop_remove_fds(&r, nullptr)) << "read copy is zero, not r";
        EXPECT_EQ(-2, vxu_loop_add_fds(nullptr, 0, &w, 20, ignore_fds, nullptr))
            << "bounds do not take part in matching";
        EXPECT_EQ(0, vxu_loop_remove_fds(nullptr, &w));
        EXPECT_EQ(-1, vxu_loop_remove_fds(nullptr, &w));
    });
}

TEST(LoopRegistry, NewestEntryIsWalkedFirst)
{
    EXPECT_IN_CHILD([] {
        ASSERT_EQ(0, vxu_loop_init(0));
        int a[2], b[2];
        ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM, 0, a));
        ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM, 0, b));
        ASSERT_EQ(0, vxu_loop_add(a[0], VXU_LOOP_EV_READ, record_fd, nullptr));
        ASSERT_EQ(0, vxu_loop_add(b[0], VXU_LOOP_EV_READ, record_fd, nullptr));
        ASSERT_EQ(1, write(a[1], "x", 1));
        ASSERT_EQ(1, write(b[1], "x", 1));
        EXPECT_EQ(2, vxu_loop_run(0));
        ASSERT_EQ(2u, g_calls.size());
        EXPECT_EQ(b[0], g_calls[0].fd);
        EXPECT_EQ(a[0], g_calls[1].fd);
    });
}

}  // namespace
