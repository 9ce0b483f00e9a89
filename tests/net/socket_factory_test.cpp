#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <string>

#include <vxutil/frame.h>
#include <vxutil/net.h>

#include "common/test_support.hpp"
#include "net/net_test_util.hpp"

namespace {

using vxu_test::fd_leak_check;

uint16_t local_port_of(int fd)
{
    sockaddr_in a{};
    socklen_t len = sizeof a;
    EXPECT_EQ(0, getsockname(fd, reinterpret_cast<sockaddr *>(&a), &len));
    return ntohs(a.sin_port);
}

std::string local_ip_of(int fd)
{
    sockaddr_in a{};
    socklen_t len = sizeof a;
    EXPECT_EQ(0, getsockname(fd, reinterpret_cast<sockaddr *>(&a), &len));
    return inet_ntoa(a.sin_addr);
}

// A loopback port nobody listens on (bound once by the kernel's choice, then freed).
uint16_t unused_port()
{
    const int fd = vexmar_create_udp("127.0.0.1", 0);
    const uint16_t port = local_port_of(fd);
    close(fd);
    return port;
}

bool is_nonblocking(int fd) { return (fcntl(fd, F_GETFL) & O_NONBLOCK) != 0; }

TEST(TcpFactories, ServerAndClientsConnect)
{
    const int server = vexmar_create_tcp_server("127.0.0.1", 0, 4);
    ASSERT_GE(server, 0);
    const uint16_t port = local_port_of(server);
    EXPECT_EQ("127.0.0.1", local_ip_of(server));

    const int blocking = vexmar_create_tcp_client(nullptr, 0, "127.0.0.1", port, 1, 0);
    ASSERT_GE(blocking, 0);
    EXPECT_FALSE(is_nonblocking(blocking));

    const uint16_t chosen = unused_port();
    const int bound = vexmar_create_tcp_client("127.0.0.1", chosen, "127.0.0.1", port, 0, 5);
    ASSERT_GE(bound, 0);
    EXPECT_TRUE(is_nonblocking(bound)) << "the timed path leaves O_NONBLOCK set";
    EXPECT_EQ(chosen, local_port_of(bound)) << "a non-zero local port is bound";

    // Local port 0: the local address is ignored and the kernel chooses.
    const int unbound = vexmar_create_tcp_client("127.0.0.9", 0, "127.0.0.1", port, 1, 0);
    ASSERT_GE(unbound, 0);
    EXPECT_EQ("127.0.0.1", local_ip_of(unbound));

    for (int i = 0; i < 3; ++i) {
        const int peer = accept(server, nullptr, nullptr);
        EXPECT_GE(peer, 0);
        close(peer);
    }
    for (int fd : {blocking, bound, unbound, server})
        close(fd);
}

TEST(TcpFactories, FailuresCloseTheirSocket)
{
    fd_leak_check leaks;
    const uint16_t closed = unused_port();
    EXPECT_EQ(-1, vexmar_create_tcp_client(nullptr, 0, "127.0.0.1", closed, 1, 0));
    EXPECT_EQ(ECONNREFUSED, errno);
    EXPECT_EQ(-1, vexmar_create_tcp_client(nullptr, 0, "127.0.0.1", closed, 0, 2));
    EXPECT_EQ(ECONNREFUSED, errno) << "refusal seen at once or through SO_ERROR";
    EXPECT_EQ(-1, vexmar_create_tcp_client(nullptr, 0, nullptr, closed, 1, 0));
    EXPECT_EQ(-1, vexmar_create_tcp_client("192.0.2.1", 4000, "127.0.0.1", closed, 1, 0))
        << "bind to an address this host does not have";

    const int server = vexmar_create_tcp_server(nullptr, 0, 1);
    ASSERT_GE(server, 0);
    EXPECT_EQ("0.0.0.0", local_ip_of(server)) << "absent text is the any-address";
    EXPECT_EQ(-1, vexmar_create_tcp_server(nullptr, local_port_of(server), 1)) << "port taken";
    EXPECT_EQ(-1, vexmar_create_tcp_server("192.0.2.1", 0, 1));
    close(server);
}

TEST(TcpFactories, TimedConnectGivesUpAfterTheTimeout)
{
    EXPECT_IN_NETNS([] {
        // The peer end has no address, so the SYN reaches it and dies there:
        // nothing ever answers.
        if (!vxu_net_test::shell("ip link add vxt0 type veth peer name vxt1 && "
                                 "ip addr add 192.0.2.1/24 dev vxt0 && ip link set vxt0 up && "
                                 "ip link set vxt1 up && ip neigh add 192.0.2.2 lladdr "
                                 "02:00:00:00:00:02 dev vxt0 nud permanent"))
            vxu_net_test::skip_child("cannot create a veth pair");
        fd_leak_check leaks;
        const uint64_t start = vxu_com_get_uptime_ms();
        EXPECT_EQ(-1, vexmar_create_tcp_client(nullptr, 0, "192.0.2.2", 80, 0, 1));
        const uint64_t waited = vxu_com_get_uptime_ms() - start;
        EXPECT_EQ(ETIMEDOUT, errno);
        EXPECT_GE(waited, 900u);
        EXPECT_LT(waited, 20000u);
    });
}

TEST(TcpFactories, TimedConnectOnDescriptorsBeyondTheSelectLimit)
{
    SKIP_UNDER_VALGRIND(vxu_test::kDescriptorLimits);
    EXPECT_IN_CHILD([] {
        const int server = vexmar_create_tcp_server("127.0.0.1", 0, 1);
        ASSERT_GE(server, 0);
        const uint16_t closed = unused_port();
        {
            vxu_test::fds_taken taken(vxu_test::taken_below{1024});
            ASSERT_TRUE(taken.ok());
            EXPECT_EQ(-1, vexmar_create_tcp_client(nullptr, 0, "127.0.0.1", closed, 0, 5));
            EXPECT_EQ(ECONNREFUSED, errno) << "the wait on a socket at 1024 sees the refusal";
            const int client =
                vexmar_create_tcp_client(nullptr, 0, "127.0.0.1", local_port_of(server), 0, 5);
            ASSERT_GE(client, 1024);
            const int peer = accept(server, nullptr, nullptr);
            EXPECT_GE(peer, 1024);
            EXPECT_EQ(1, write(client, "k", 1));
            char c = 0;
            EXPECT_EQ(1, read(peer, &c, 1));
            EXPECT_EQ('k', c);
            close(peer);
            close(client);
        }
        close(server);
    });
}

TEST(SocketFactories, EveryOneFailsCleanlyWithoutADescriptor)
{
    SKIP_UNDER_VALGRIND(vxu_test::kDescriptorLimits);
    EXPECT_IN_CHILD([] {
        vxu_net_test::scratch_dir dir;
        const int server = vexmar_create_tcp_server("127.0.0.1", 0, 1);
        ASSERT_GE(server, 0);
        const uint16_t port = local_port_of(server);
        const std::string path = dir.path() + "/s.sock";
        const int unix_server = vexmar_create_unix_server(path.c_str(), 1);
        ASSERT_GE(unix_server, 0);
        {
            vxu_test::fds_taken none(vxu_test::leaving_free{0});
            ASSERT_TRUE(none.ok());
            EXPECT_EQ(-1, vexmar_create_tcp_server("127.0.0.1", 0, 1));
            EXPECT_EQ(EMFILE, errno);
            EXPECT_EQ(-1, vexmar_create_udp("127.0.0.1", 0));
            EXPECT_EQ(-1, vexmar_create_tcp_client(nullptr, 0, "127.0.0.1", port, 1, 0));
            EXPECT_EQ(-1, vexmar_create_tcp_client(nullptr, 0, "127.0.0.1", port, 0, 5));
            EXPECT_EQ(-1, vexmar_create_unix_client(path.c_str()));
            EXPECT_EQ(-1, vexmar_create_unix_server((dir.path() + "/t.sock").c_str(), 1));
            EXPECT_EQ(-1, vexmar_create_unix_udp_server((dir.path() + "/u.sock").c_str()));
            EXPECT_EQ(-1, vexmar_packet_listen("lo", 0x88b5));
            EXPECT_EQ(-1, vxu_net_ipc_client(path.c_str()));
            EXPECT_EQ(-1, vxu_net_ipc_server((dir.path() + "/i.sock").c_str()));
            int index = 0, mtu = 0;
            EXPECT_EQ(-1, vxu_net_get_ifindex("lo", &index));
            EXPECT_EQ(-1, vxu_net_get_ifmtu("lo", &mtu));
            EXPECT_EQ(0, index + mtu) << "nothing stored";
        }
        close(unix_server);
        close(server);
    });
}

TEST(UdpFactory, BoundSocketReceives)
{
    const int udp = vexmar_create_udp("127.0.0.1", 0);
    ASSERT_GE(udp, 0);
    const int sender = vexmar_create_udp(nullptr, 0);
    ASSERT_GE(sender, 0);
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(local_port_of(udp));
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(3, sendto(sender, "dgm", 3, 0, reinterpret_cast<sockaddr *>(&to), sizeof to));
    char buf[8] = {};
    EXPECT_EQ(3, recv(udp, buf, sizeof buf, 0));
    EXPECT_STREQ("dgm", buf);
    {
        fd_leak_check leaks;
        EXPECT_EQ(-1, vexmar_create_udp("127.0.0.1", local_port_of(udp)));
        EXPECT_EQ(-1, vexmar_create_udp("192.0.2.1", 0));
    }
    close(sender);
    close(udp);
}

TEST(UnixFactories, StreamServerReplacesStaleFile)
{
    vxu_net_test::scratch_dir dir;
    const std::string path = dir.path() + "/stream.sock";
    vxu_net_test::write_file(path);

    const int server = vexmar_create_unix_server(path.c_str(), 2);
    ASSERT_GE(server, 0);
    struct stat st;
    ASSERT_EQ(0, stat(path.c_str(), &st));
    EXPECT_TRUE(S_ISSOCK(st.st_mode));

    const int client = vexmar_create_unix_client(path.c_str());
    ASSERT_GE(client, 0);
    const int peer = accept(server, nullptr, nullptr);
    ASSERT_GE(peer, 0);
    EXPECT_EQ(2, write(client, "hi", 2));
    char buf[4] = {};
    EXPECT_EQ(2, read(peer, buf, sizeof buf));
    for (int fd : {peer, client, server})
        close(fd);
    EXPECT_EQ(0, access(path.c_str(), F_OK)) << "the socket file stays after close";

    fd_leak_check leaks;
    EXPECT_EQ(-1, vexmar_create_unix_client((dir.path() + "/missing").c_str()));
    EXPECT_EQ(-1, vexmar_create_unix_client(path.c_str())) << "nobody listens any more";
    EXPECT_EQ(-1, vexmar_create_unix_server(nullptr, 1));
    EXPECT_EQ(-1, vexmar_create_unix_server((dir.path() + "/no/dir").c_str(), 1));
}

TEST(UnixFactories, DatagramServerKeepsExistingFile)
{
    vxu_net_test::scratch_dir dir;
    const std::string path = dir.path() + "/dgram.sock";
    const int server = vexmar_create_unix_udp_server(path.c_str());
    ASSERT_GE(server, 0);

    const int sender = socket(AF_UNIX, SOCK_DGRAM, 0);
    sockaddr_un to{};
    to.sun_family = AF_UNIX;
    memcpy(to.sun_path, path.c_str(), path.size());
    ASSERT_EQ(4, sendto(sender, "ping", 4, 0, reinterpret_cast<sockaddr *>(&to), sizeof to));
    char buf[8] = {};
    EXPECT_EQ(4, recv(server, buf, sizeof buf, 0));
    close(sender);
    close(server);

    fd_leak_check leaks;
    EXPECT_EQ(-1, vexmar_create_unix_udp_server(path.c_str()))
        << "the file of the last run is in the way";
    EXPECT_EQ(EADDRINUSE, errno);
    EXPECT_EQ(-1, vexmar_create_unix_udp_server(nullptr));
}

TEST(UnixFactories, PathLengthLimits)
{
    vxu_net_test::scratch_dir dir;
    // 108 bytes fill sun_path whole, without a terminator.
    const std::string full = dir.path_of_length(108);
    const int server = vexmar_create_unix_server(full.c_str(), 1);
    ASSERT_GE(server, 0);
    EXPECT_EQ(0, access(full.c_str(), F_OK)) << "bound under its full name";
    sockaddr_un bound{};
    socklen_t len = sizeof bound;
    ASSERT_EQ(0, getsockname(server, reinterpret_cast<sockaddr *>(&bound), &len));
    EXPECT_EQ(full, std::string(bound.sun_path, strnlen(bound.sun_path, sizeof bound.sun_path)));
    const int client = vexmar_create_unix_client(full.c_str());
    EXPECT_GE(client, 0);
    close(client);
    close(server);

    // 109 bytes are refused before anything happens: the file is not removed.
    const std::string too_long = dir.path_of_length(109);
    vxu_net_test::write_file(too_long);
    fd_leak_check leaks;
    EXPECT_EQ(-1, vexmar_create_unix_server(too_long.c_str(), 1));
    EXPECT_EQ(0, access(too_long.c_str(), F_OK));
    EXPECT_EQ(-1, vexmar_create_unix_client(too_long.c_str()));
    EXPECT_EQ(-1, vexmar_create_unix_udp_server(dir.path_of_length(200).c_str()));
}

}  // namespace
