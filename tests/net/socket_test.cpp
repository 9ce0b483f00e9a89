#include <arpa/inet.h>
#include <fcntl.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <atomic>
#include <thread>
#include <vector>

#include <vxutil/frame.h>
#include <vxutil/net.h>

#include "net/sandbox.hpp"

namespace {

using vxu_net_test::shell;

std::string address(const sockaddr_storage &a)
{
    char text[160] = "";
    if (a.ss_family == AF_INET) {
        const auto &in = reinterpret_cast<const sockaddr_in &>(a);
        const unsigned port = ntohs(in.sin_port);  // a port the kernel chose shows as *
        snprintf(text, sizeof text, port >= 32768 ? "%s:*" : "%s:%u", inet_ntoa(in.sin_addr), port);
    } else if (a.ss_family == AF_UNIX) {
        snprintf(text, sizeof text, "%.108s", reinterpret_cast<const sockaddr_un &>(a).sun_path);
    } else if (a.ss_family == AF_PACKET) {
        const auto &ll = reinterpret_cast<const sockaddr_ll &>(a);
        char name[IF_NAMESIZE] = "?";
        snprintf(text, sizeof text, "%04x@%s", ntohs(ll.sll_protocol),
                 if_indextoname(ll.sll_ifindex, name) ? name : "?");
    }
    return text;
}

// What a call gave: "-1 <errno text>" on failure, else the socket's kind,
// local and peer address, and whether it listens or does not block.
std::string describe(int fd)
{
    if (fd < 0)
        return std::to_string(fd) + " " + strerror(errno);
    int type = 0, listening = 0;
    socklen_t len = sizeof(int);
    getsockopt(fd, SOL_SOCKET, SO_TYPE, &type, &len);
    getsockopt(fd, SOL_SOCKET, SO_ACCEPTCONN, &listening, &len);
    sockaddr_storage local{}, peer{};
    socklen_t llen = sizeof local, plen = sizeof peer;
    getsockname(fd, reinterpret_cast<sockaddr *>(&local), &llen);
    std::string s = type == SOCK_STREAM ? "stream " : type == SOCK_DGRAM ? "dgram " : "raw ";
    s += address(local);
    if (getpeername(fd, reinterpret_cast<sockaddr *>(&peer), &plen) == 0)
        s += " ->" + address(peer);
    return s + (listening ? " listening" : "") +
           (fcntl(fd, F_GETFL) & O_NONBLOCK ? " nonblocking" : "");
}

const std::string kLong = "/tmp/" + std::string(103, 'x');  // fills sun_path, no terminator
const std::string kTooLong = kLong + "y";

// Every call that makes a descriptor, in an order where servers come up
// before their clients: what it gives, and the errno text of a failure.
// /tmp/plain is a regular file where nobody listens; /tmp/s and /tmp/ipc
// are files left behind that the servers replace.
const std::vector<std::pair<std::string, std::function<int()>>> &calls()
{
    // clang-format off
    static const std::vector<std::pair<std::string, std::function<int()>>> list = {
        {"stream 127.0.0.1:7001 listening",
         [] { return vexmar_create_tcp_server("127.0.0.1", 7001, 8); }},
        {"stream 0.0.0.0:7002 listening",
         [] { return vexmar_create_tcp_server(nullptr, 7002, 1); }},
        {"-1 Address already in use", [] { return vexmar_create_tcp_server(nullptr, 7001, 1); }},
        {"-1 Cannot assign requested address",
         [] { return vexmar_create_tcp_server("192.0.2.1", 0, 1); }},
        {"stream 127.0.0.1:* ->127.0.0.1:7001",
         [] { return vexmar_create_tcp_client(nullptr, 0, "127.0.0.1", 7001, 1, 0); }},
        // local port 0: no bind, the local address is ignored
        {"stream 127.0.0.1:* ->127.0.0.1:7001",
         [] { return vexmar_create_tcp_client("127.0.0.9", 0, "127.0.0.1", 7001, 1, 0); }},
        {"stream 127.0.0.1:7003 ->127.0.0.1:7001 nonblocking",
         [] { return vexmar_create_tcp_client("127.0.0.1", 7003, "127.0.0.1", 7001, 0, 5); }},
        {"-1 Connection refused",
         [] { return vexmar_create_tcp_client(nullptr, 0, "127.0.0.1", 7009, 1, 0); }},
        {"-1 Connection refused",
         [] { return vexmar_create_tcp_client(nullptr, 0, "127.0.0.1", 7009, 0, 5); }},
        {"-1 Cannot assign requested address",
         [] { return vexmar_create_tcp_client("192.0.2.1", 7004, "127.0.0.1", 7001, 1, 0); }},
        {"-1 Invalid argument",
         [] { return vexmar_create_tcp_client(nullptr, 0, "127.0.0.1", 7001, 0, -1); }},
        {"-1 Success", [] { return vexmar_create_tcp_client(nullptr, 0, nullptr, 7001, 1, 0); }},
        {"dgram 127.0.0.1:7004", [] { return vexmar_create_udp("127.0.0.1", 7004); }},
        {"dgram 0.0.0.0:*", [] { return vexmar_create_udp(nullptr, 0); }},
        {"-1 Address already in use", [] { return vexmar_create_udp(nullptr, 7004); }},
        {"-1 Cannot assign requested address", [] { return vexmar_create_udp("192.0.2.1", 0); }},
        {"stream /tmp/s listening", [] { return vexmar_create_unix_server("/tmp/s", 2); }},
        {"stream  ->/tmp/s", [] { return vexmar_create_unix_client("/tmp/s"); }},
        {"stream " + kLong + " listening",
         [] { return vexmar_create_unix_server(kLong.c_str(), 1); }},
        {"stream  ->" + kLong, [] { return vexmar_create_unix_client(kLong.c_str()); }},
        {"-1 Connection refused", [] { return vexmar_create_unix_client("/tmp/plain"); }},
        {"-1 No such file or directory", [] { return vexmar_create_unix_client("/tmp/missing"); }},
        {"-1 No such file or directory",
         [] { return vexmar_create_unix_server("/tmp/no/dir", 1); }},
        {"-1 Success", [] { return vexmar_create_unix_server(kTooLong.c_str(), 1); }},
        {"-1 Success", [] { return vexmar_create_unix_client(kTooLong.c_str()); }},
        {"-1 Success", [] { return vexmar_create_unix_server(nullptr, 1); }},
        {"dgram /tmp/d", [] { return vexmar_create_unix_udp_server("/tmp/d"); }},
        {"-1 Address already in use", [] { return vexmar_create_unix_udp_server("/tmp/d"); }},
        {"-1 Success", [] { return vexmar_create_unix_udp_server(nullptr); }},
        {"raw 88b5@lo", [] { return vexmar_packet_listen("lo", 0x88b5); }},
        {"-1 No such device", [] { return vexmar_packet_listen("vxnone", 0x88b5); }},
        {"-1 Success", [] { return vexmar_packet_listen("sixteen-bytes-xx", 0x88b5); }},
        {"-1 Success", [] { return vexmar_packet_listen(nullptr, 0x88b5); }},
        {"stream /tmp/ipc listening", [] { return vxu_net_ipc_server("/tmp/ipc"); }},
        {"stream  ->/tmp/ipc", [] { return vxu_net_ipc_client("/tmp/ipc"); }},
        {"-2 Success", [] { return vxu_net_ipc_server(""); }},
        {"-2 Success", [] { return vxu_net_ipc_server(nullptr); }},
        {"-1 No such file or directory", [] { return vxu_net_ipc_server("/tmp/no/dir"); }},
        {"-1 No such file or directory", [] { return vxu_net_ipc_client("/tmp/missing"); }},
        {"-1 Connection refused", [] { return vxu_net_ipc_client("/tmp/plain"); }},
        {"-1 Success", [] { return vxu_net_ipc_client(kLong.c_str()); }},
        {"-1 Success", [] { return vxu_net_ipc_client(nullptr); }}};
    // clang-format on
    return list;
}

void leave_files() { ASSERT_TRUE(shell("touch /tmp/s /tmp/plain " + kTooLong + " /tmp/ipc")); }

TEST(SocketFactories, EachCallGivesOneDescriptorOrNone)
{
    EXPECT_IN_SANDBOX([] {
        leave_files();
        std::vector<int> open;
        for (const auto &[want, call] : calls()) {
            const int before = vxu_test::count_open_fds();
            errno = 0;
            const int fd = call();
            EXPECT_EQ(want, describe(fd));
            EXPECT_EQ(before + (fd >= 0), vxu_test::count_open_fds()) << want;
            if (fd >= 0)
                open.push_back(fd);
        }
        struct stat st = {};
        EXPECT_EQ(0, stat("/tmp/ipc", &st));
        EXPECT_EQ(0777u, st.st_mode & 0777u) << "the IPC endpoint is open to every user";
        EXPECT_EQ(0, access(kTooLong.c_str(), F_OK)) << "a path too long is refused untouched";
    });
}

TEST(SocketFactories, FailCleanlyWithoutAFreeDescriptor)
{
    SKIP_UNDER_VALGRIND(vxu_test::kDescriptorLimits);
    EXPECT_IN_SANDBOX([] {
        leave_files();
        vxu_test::fds_taken none(vxu_test::leaving_free{0});
        ASSERT_TRUE(none.ok());
        for (const auto &[want, call] : calls())
            EXPECT_GT(0, call()) << want;
    });
}

TEST(TcpClient, TimedConnectAboveTheSelectLimit)
{
    SKIP_UNDER_VALGRIND(vxu_test::kDescriptorLimits);
    EXPECT_IN_SANDBOX([] {
        ASSERT_LE(0, vexmar_create_tcp_server("127.0.0.1", 7001, 1));
        vxu_test::fds_taken taken(vxu_test::taken_below{1024});
        ASSERT_TRUE(taken.ok());
        EXPECT_EQ("-1 Connection refused",
                  describe(vexmar_create_tcp_client(nullptr, 0, "127.0.0.1", 7009, 0, 5)));
        const int fd = vexmar_create_tcp_client(nullptr, 0, "127.0.0.1", 7001, 0, 5);
        EXPECT_LE(1024, fd);
        EXPECT_EQ("stream 127.0.0.1:* ->127.0.0.1:7001 nonblocking", describe(fd));
        close(fd);
    });
}

TEST(TcpClient, TimedConnectGivesUp)
{
    EXPECT_IN_SANDBOX([] {
        // The SYN leaves through vxt0 towards a neighbour that never answers.
        if (!shell("ip link add vxt0 type veth peer name vxt1 && ip link set vxt1 up && "
                   "ip addr add 192.0.2.1/24 dev vxt0 && ip link set vxt0 up && ip neigh add "
                   "192.0.2.2 lladdr 02:00:00:00:00:02 dev vxt0 nud permanent"))
            vxu_net_test::skip_child("cannot create a veth pair");
        vxu_test::fd_leak_check leaks;
        const uint64_t start = vxu_com_get_uptime_ms();
        EXPECT_EQ("-1 Connection timed out",
                  describe(vexmar_create_tcp_client(nullptr, 0, "192.0.2.2", 80, 0, 1)));
        EXPECT_LE(900u, vxu_com_get_uptime_ms() - start);
    });
}

std::atomic<int> g_interrupts{0};

// Runs call while another thread interrupts it three times (SIGUSR1, no
// SA_RESTART) and then lets it finish with release.
int interrupted(const std::function<int()> &call, const std::function<void()> &release)
{
    const pthread_t self = pthread_self();
    std::thread helper([&] {
        for (int i = 0; i < 3; ++i) {
            usleep(30 * 1000);
            pthread_kill(self, SIGUSR1);
        }
        release();
    });
    const int rc = call();
    helper.join();
    return rc;
}

TEST(IpcTransfer, RetriesOnlyInterruptions)
{
    EXPECT_IN_CHILD([] {
        struct sigaction sa = {};
        sa.sa_handler = [](int) { g_interrupts++; };
        ASSERT_EQ(0, sigaction(SIGUSR1, &sa, nullptr));
        vxu_test::socket_pair sp;
        const int fd = sp.fd[0], peer = sp.fd[1];
        char buf[8] = {};
        EXPECT_EQ(1, interrupted([&] { return vxu_net_recv(fd, buf, sizeof buf); },
                                 [&] { (void)!write(peer, "z", 1); }));
        EXPECT_EQ(0, vxu_net_send(fd, "", 0));
        fcntl(fd, F_SETFL, O_NONBLOCK);
        EXPECT_EQ("-1 Resource temporarily unavailable", describe(vxu_net_recv(fd, buf, 8)));
        static char chunk[1 << 16];
        while (write(fd, chunk, sizeof chunk) > 0) {
        }
        EXPECT_EQ("-1 Resource temporarily unavailable", describe(vxu_net_send(fd, "x", 1)));
        fcntl(fd, F_SETFL, 0);
        fcntl(peer, F_SETFL, O_NONBLOCK);
        EXPECT_EQ(0, interrupted([&] { return vxu_net_send(fd, "y", 1); },
                                 [&] {
                                     while (read(peer, chunk, sizeof chunk) > 0) {
                                     }
                                 }));
        EXPECT_LE(2, g_interrupts.load());
        shutdown(peer, SHUT_WR);
        EXPECT_EQ(0, vxu_net_recv(fd, buf, sizeof buf)) << "end of stream";
        EXPECT_EQ(-1, vxu_net_send(-1, "x", 1));
        EXPECT_EQ(-1, vxu_net_recv(fd, buf, -1));
    });
}

}  // namespace
