#include <fcntl.h>
#include <unistd.h>

#include <vxutil/frame.h>

#include "common/test_support.hpp"

namespace {

struct pipe_pair {
    int rd = -1, wr = -1;
    pipe_pair()
    {
        int fds[2];
        EXPECT_EQ(0, pipe(fds));
        rd = fds[0];
        wr = fds[1];
    }
    ~pipe_pair()
    {
        if (rd >= 0)
            close(rd);
        if (wr >= 0)
            close(wr);
    }
};

TEST(FdFlags, RefuseNegativeDescriptors)
{
    EXPECT_EQ(-1, vxu_com_fd_noblock(-1, 1));
    EXPECT_EQ(-1, vxu_com_fd_cloexec(-1, 1));
    EXPECT_EQ(0, vxu_com_fd_has_data(-1));
}

TEST(FdFlags, NonBlockingTogglesOnlyItsBit)
{
    char path[] = "/tmp/vxu_fd_testXXXXXX";
    const int fd = mkstemp(path);
    ASSERT_GE(fd, 0);
    unlink(path);
    ASSERT_EQ(0, fcntl(fd, F_SETFL, O_APPEND));

    EXPECT_EQ(0, vxu_com_fd_noblock(fd, 1));
    EXPECT_EQ(O_NONBLOCK | O_APPEND, fcntl(fd, F_GETFL) & (O_NONBLOCK | O_APPEND));
    EXPECT_EQ(0, vxu_com_fd_noblock(fd, 0));
    EXPECT_EQ(O_APPEND, fcntl(fd, F_GETFL) & (O_NONBLOCK | O_APPEND));
    close(fd);
}

TEST(FdFlags, CloseOnExecLeavesStatusFlags)
{
    pipe_pair p;
    ASSERT_EQ(0, vxu_com_fd_noblock(p.rd, 1));
    EXPECT_EQ(0, vxu_com_fd_cloexec(p.rd, 1));
    EXPECT_EQ(FD_CLOEXEC, fcntl(p.rd, F_GETFD) & FD_CLOEXEC);
    EXPECT_TRUE(fcntl(p.rd, F_GETFL) & O_NONBLOCK);
    EXPECT_EQ(0, vxu_com_fd_cloexec(p.rd, 0));
    EXPECT_EQ(0, fcntl(p.rd, F_GETFD) & FD_CLOEXEC);
    EXPECT_TRUE(fcntl(p.rd, F_GETFL) & O_NONBLOCK);
}

TEST(FdHasData, PipeStates)
{
    pipe_pair p;
    const uint64_t start = vxu_com_get_uptime_ms();
    EXPECT_EQ(0, vxu_com_fd_has_data(p.rd));
    EXPECT_LT(vxu_com_get_uptime_ms() - start, 1000u) << "must not block";
    ASSERT_EQ(1, write(p.wr, "x", 1));
    EXPECT_EQ(1, vxu_com_fd_has_data(p.rd));
    char c;
    ASSERT_EQ(1, read(p.rd, &c, 1));
    EXPECT_EQ(0, vxu_com_fd_has_data(p.rd));
    close(p.wr);
    p.wr = -1;
    EXPECT_EQ(1, vxu_com_fd_has_data(p.rd)) << "end of file is readable";
}

TEST(FdHasData, DescriptorsBeyondTheSetAreNotProbed)
{
    SKIP_UNDER_VALGRIND("raising RLIMIT_NOFILE");
    EXPECT_IN_CHILD([] {
        ASSERT_TRUE(vxu_test::raise_fd_limit(2048));
        pipe_pair p;
        ASSERT_EQ(1, write(p.wr, "x", 1));
        ASSERT_EQ(1500, dup2(p.rd, 1500));
        ASSERT_EQ(1024, dup2(p.rd, 1024));
        // Readable, but outside a 1024-bit set: reported as no data.
        EXPECT_EQ(0, vxu_com_fd_has_data(1500));
        EXPECT_EQ(0, vxu_com_fd_has_data(1024));
        ASSERT_EQ(1023, dup2(p.rd, 1023));
        EXPECT_EQ(1, vxu_com_fd_has_data(1023));
    });
}

TEST(FdHasData, ClosedDescriptorIsNoData)
{
    pipe_pair p;
    const int fd = p.rd;
    close(p.rd);
    p.rd = -1;
    EXPECT_EQ(0, vxu_com_fd_has_data(fd));
}

}  // namespace
