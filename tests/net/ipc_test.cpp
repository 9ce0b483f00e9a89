#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <string>

#include <vxutil/net.h>

#include "common/test_support.hpp"
#include "net/net_test_util.hpp"

namespace {

using vxu_test::fd_leak_check;

TEST(IpcEndpoint, ServerClientRoundTrip)
{
    vxu_net_test::scratch_dir dir;
    const std::string path = dir.path() + "/ipc.sock";
    vxu_net_test::write_file(path);
    chmod(path.c_str(), 0600);

    const int server = vxu_net_ipc_server(path.c_str());
    ASSERT_GE(server, 0);
    struct stat st;
    ASSERT_EQ(0, stat(path.c_str(), &st));
    EXPECT_TRUE(S_ISSOCK(st.st_mode)) << "the stale file was replaced";
    EXPECT_EQ(0777u, st.st_mode & 0777u) << "open to every user";

    const int client = vxu_net_ipc_client(path.c_str());
    ASSERT_GE(client, 0);
    EXPECT_EQ(0, fcntl(client, F_GETFL) & O_NONBLOCK);
    const int peer = accept(server, nullptr, nullptr);
    ASSERT_GE(peer, 0);

    EXPECT_EQ(0, vxu_net_send(client, "status?", 7));
    char buf[16] = {};
    EXPECT_EQ(7, vxu_net_recv(peer, buf, sizeof buf));
    EXPECT_STREQ("status?", buf);
    EXPECT_EQ(0, vxu_net_send(peer, "ok", 2));
    EXPECT_EQ(2, vxu_net_recv(client, buf, sizeof buf));

    close(peer);
    EXPECT_EQ(0, vxu_net_recv(client, buf, sizeof buf)) << "end of stream";
    close(client);
    close(server);
    EXPECT_EQ(0, access(path.c_str(), F_OK)) << "the socket file outlives the descriptor";
    const int again = vxu_net_ipc_server(path.c_str());
    EXPECT_GE(again, 0) << "a restart removes the old file first";
    close(again);
}

TEST(IpcEndpoint, RefusedPathsLeaveNothingOpen)
{
    vxu_net_test::scratch_dir dir;
    fd_leak_check leaks;
    EXPECT_EQ(-2, vxu_net_ipc_server(""));
    EXPECT_EQ(-2, vxu_net_ipc_server(nullptr));
    EXPECT_EQ(-1, vxu_net_ipc_server((dir.path() + "/no/such/dir").c_str()));

    EXPECT_EQ(-1, vxu_net_ipc_client(nullptr));
    EXPECT_EQ(-1, vxu_net_ipc_client((dir.path() + "/missing").c_str()));
    EXPECT_EQ(ENOENT, errno) << "refused by the existence test";

    // A socket file with nobody behind it.
    const std::string stale = dir.path() + "/stale.sock";
    const int server = vxu_net_ipc_server(stale.c_str());
    ASSERT_GE(server, 0);
    close(server);
    EXPECT_EQ(-1, vxu_net_ipc_client(stale.c_str()));
    EXPECT_EQ(ECONNREFUSED, errno);

    // 108 bytes leave no room for the terminator.
    const std::string long_path = dir.path_of_length(108);
    vxu_net_test::write_file(long_path);
    EXPECT_EQ(-1, vxu_net_ipc_client(long_path.c_str()));
}

TEST(IpcTransfer, OnlyInterruptionsAreRetried)
{
    vxu_test::socket_pair sp;
    ASSERT_EQ(0, fcntl(sp.fd[0], F_SETFL, O_NONBLOCK));
    char buf[8];
    EXPECT_EQ(-1, vxu_net_recv(sp.fd[0], buf, sizeof buf));
    EXPECT_EQ(EAGAIN, errno);
    // Fill the pair until a write would block.
    static char chunk[4096];
    while (write(sp.fd[0], chunk, sizeof chunk) > 0) {
    }
    EXPECT_EQ(-1, vxu_net_send(sp.fd[0], "x", 1));
    EXPECT_EQ(EAGAIN, errno);
    EXPECT_EQ(-1, vxu_net_send(-1, "x", 1));
    EXPECT_EQ(-1, vxu_net_recv(sp.fd[1], buf, -1));
}

std::atomic<int> g_signals{0};
void count_signal(int) { g_signals++; }

struct interrupter {
    pthread_t target;
    int peer;
    bool drain;  // true: empty the peer's buffer, false: send one byte to it
};

// Interrupts the blocked call of target, then lets that call complete.
void *interrupt_then_release(void *arg)
{
    auto *it = static_cast<interrupter *>(arg);
    for (int i = 0; i < 3; ++i) {
        usleep(50 * 1000);
        pthread_kill(it->target, SIGUSR1);
    }
    usleep(50 * 1000);
    if (it->drain) {
        static char sink[65536];
        fcntl(it->peer, F_SETFL, O_NONBLOCK);
        while (read(it->peer, sink, sizeof sink) > 0) {
        }
    } else {
        (void)!write(it->peer, "z", 1);
    }
    return nullptr;
}

TEST(IpcTransfer, InterruptedCallsAreRepeated)
{
    EXPECT_IN_CHILD([] {
        struct sigaction sa = {};
        sa.sa_handler = count_signal;  // no SA_RESTART: blocked calls fail with EINTR
        ASSERT_EQ(0, sigaction(SIGUSR1, &sa, nullptr));

        vxu_test::socket_pair sp;
        interrupter it = {pthread_self(), sp.fd[1], false};
        pthread_t th;
        ASSERT_EQ(0, pthread_create(&th, nullptr, interrupt_then_release, &it));
        char c = 0;
        EXPECT_EQ(1, vxu_net_recv(sp.fd[0], &c, 1));
        EXPECT_EQ('z', c);
        pthread_join(th, nullptr);
        EXPECT_GE(g_signals.load(), 1);

        // Send on a full buffer: blocked, interrupted, then room appears.
        fcntl(sp.fd[0], F_SETFL, O_NONBLOCK);
        static char chunk[4096];
        while (write(sp.fd[0], chunk, sizeof chunk) > 0) {
        }
        fcntl(sp.fd[0], F_SETFL, 0);
        g_signals = 0;
        it.drain = true;
        ASSERT_EQ(0, pthread_create(&th, nullptr, interrupt_then_release, &it));
        EXPECT_EQ(0, vxu_net_send(sp.fd[0], "y", 1));
        pthread_join(th, nullptr);
        EXPECT_GE(g_signals.load(), 1);
    });
}

}  // namespace
