// Address text first; then the calls that reach the kernel or a name
// server, each test in a private network and mount namespace of its own.
#include <arpa/inet.h>
#include <fcntl.h>
#include <limits.h>
#include <linux/if_packet.h>
#include <netdb.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>

#include <fstream>
#include <memory>
#include <regex>
#include <thread>
#include <tuple>

#include <vxutil/frame.h>
#include <vxutil/net.h>

#include "common/test_support.hpp"

namespace {

namespace gt = testing::internal;

// The text parsers in one shape: they fill an 8-byte buffer that starts as
// ee..ee, shown in hex without the ee bytes left at its end.
using parser = int (*)(const char *, uint8_t *);
int strmac(const char *text, uint8_t *out) { return vxu_net_strmac(text, out, 8); }
int strip(const char *t, uint8_t *o) { return vxu_net_strip(t, reinterpret_cast<in_addr *>(o)); }
constexpr parser mac = vexmar_mac_to_char;

// A strict dotted quad has only digits and dots and four fields up to 255.
// strmac: runs of ':' are one separator, strtol's leniency holds (0x, sign,
// blanks), the low byte is kept, only 63 characters are read, and a failure
// leaves zeros; mac_to_char: one or two digits a field, and a failure leaves
// the output alone.
TEST(AddressText, TextToBytes)
{
    for (const char *ok : {"0.0.0.0", "1.2.3.4", "255.255.255.255", "01.002.3.4", "0001.2.3.4"})
        EXPECT_EQ(0, vexmar_ipv4_check(ok)) << ok;
    for (const char *bad :
         {"1.2.3", "1.2.3.", "256.1.1.1", "1.2.3.256", "1.2.3.4.", "1.2.3 4", "1..2.3.4",
          "+1.2.3.4", "1.2.3.4\n", "a.b.c.d", "1.2.3.4.5", "", "4294967296.1.2.3",
          "1.2.3.4294967300", static_cast<const char *>(nullptr)})
        EXPECT_EQ(-1, vexmar_ipv4_check(bad)) << bad;
    // clang-format off
    const std::tuple<parser, const char *, int, const char *> rows[] = {
        {strmac, "00:11:22:aa:BB:cc", 0, "001122aabbcc0000"},
        {strmac, "::0:1:2:3:4:5:", 0, "0001020304050000"},
        {strmac, "0x1:-1:1FF: a:2:3", 0, "01ffff0a02030000"},
        {strmac, "00:11:22:33:44", -1, "0000000000000000"},
        {strmac, "0:1:2:3:4:5:6", -1, "0000000000000000"},
        {strmac, "00:11:22:33:44:5g", -1, "0000000000000000"}, {strmac, "", -1, "0000000000000000"},
        {strmac, nullptr, -1, ""}, {mac, "a:b:c:d:e:f", 0, "0a0b0c0d0e0f"},
        {mac, "DE:ad:BE:ef:00:99 x", 0, "deadbeef0099"}, {mac, "001:22:33:44:55:66", -1, ""},
        {mac, "00:11:22:33:44", -1, ""}, {mac, nullptr, -1, ""},
        {strip, "192.168.10.254", 0, "c0a80afe"}, {strip, "10.1", 0, "0a000001"},
        {strip, "1.2.3.4x", -1, ""}, {strip, "", -1, ""}, {strip, nullptr, -1, ""}};
    // clang-format on
    for (const auto &[fn, text, rc, bytes] : rows) {
        uint8_t out[8];
        memset(out, 0xee, sizeof out);
        EXPECT_EQ(rc, fn(text, out)) << (text ? text : "(null)");
        char hex[17] = "";
        for (size_t i = 0; i < sizeof out; ++i)
            snprintf(hex + 2 * i, 3, "%02x", out[i]);
        EXPECT_EQ(bytes, std::regex_replace(hex, std::regex("(ee)*$"), "")) << (text ? text : "");
    }
    uint8_t out[6];
    EXPECT_EQ(-2, vxu_net_strmac("00:11:22:33:44:55", out, 5) +
                      vexmar_mac_to_char("00:11:22:33:44:55", nullptr))
        << "too small, no output";
    EXPECT_EQ(0, vxu_net_strip("0x7f.1", nullptr)) << "a null output only tests";
}

// Bytes into text, in a buffer of '#' guards read up to the first guard. The
// pointer results come from buffers of the calling thread.
const uint8_t kMac[7] = {0x0a, 0x1b, 0x2c, 0xd3, 0xe4, 0xff, 0x99};
const in_addr kV4 = {htonl(0xc0a80afe)};
const in6_addr kV6 = {{{0xfe, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 2}}};
int macstr(char *b, int size) { return vxu_net_macstr(kMac, 7, b, size); }
int ipstr(char *b, int size) { return vxu_net_ipstr(&kV4, b, size); }
int ip6str(char *b, int size) { return vxu_net_ip6str(&kV6, b, size); }

TEST(AddressText, BytesToText)
{
    // clang-format off
    const std::tuple<int (*)(char *, int), int, int, const char *> rows[] = {
        {macstr, 18, 0, "0A:1B:2C:D3:E4:FF"}, {macstr, 17, -1, ""},
        {ipstr, 16, 0, "192.168.10.254"}, {ipstr, 14, -1, ""}, {ipstr, 0, -1, ""},
        {ip6str, 46, 0, "fe80::1:2"}, {ip6str, 5, -1, ""}};
    // clang-format on
    char b[64];
    for (const auto &[fn, size, rc, text] : rows) {
        memset(b, '#', sizeof b);
        EXPECT_EQ(rc, fn(b, size)) << text;
        EXPECT_EQ(text, std::string(b, strcspn(b, "#"))) << text;
    }
    EXPECT_EQ(-6, vxu_net_macstr(nullptr, 6, b, 18) + vxu_net_macstr(kMac, 6, nullptr, 18) +
                      vxu_net_macstr(kMac, 5, b, 18) + vxu_net_ipstr(nullptr, b, 16) +
                      vxu_net_ipstr(&kV4, nullptr, 16) + vxu_net_ip6str(nullptr, b, 46))
        << "-1 for each null pointer, and for five bytes";
    const char *v4 = vexmar_ip_int_to_string(0x0101a8c0);  // the lowest byte first
    EXPECT_STREQ("192.168.10.254", vexmar_ipv4_ntoa(kV4));
    std::thread([&] {
        EXPECT_STREQ("255.255.255.255", vexmar_ip_int_to_string(0xffffffff));
        EXPECT_STREQ("::1", vexmar_ipv6_ntop(in6addr_loopback)) << "a buffer per thread";
    }).join();
    EXPECT_STREQ("192.168.1.1", v4) << "another thread's call left this one alone";
    EXPECT_EQ(v4, vexmar_ip_int_to_string(0)) << "one buffer per thread";
}

// From inside a sandbox: says why on stderr and ends the child as skipped.
[[noreturn]] void skip(const std::string &why)
{
    fprintf(stderr, "SKIPPED: %s\n", why.c_str());
    _exit(77);
}

bool shell(const std::string &command) { return system(command.c_str()) == 0; }

// Mounts an empty tmpfs on /tmp. A build tree that lives under /tmp stays
// visible through it (bound back from a descriptor taken before): coverage
// counters are written into it when the child ends.
bool mount_fresh_tmp()
{
    char exe[PATH_MAX] = "";
    const ssize_t n = readlink("/proc/self/exe", exe, sizeof exe - 1);
    const std::string self(exe, n > 0 ? n : 0);
    const std::string tree = self.rfind("/tmp/", 0) == 0 ? self.substr(0, self.find('/', 5)) : "";
    const int held = tree.empty() ? -1 : open(tree.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    bool ok = mount("tmpfs", "/tmp", "tmpfs", 0, nullptr) == 0;
    if (ok && !tree.empty()) {
        const std::string from = "/proc/self/fd/" + std::to_string(held);
        ok = held >= 0 && mkdir(tree.c_str(), 0755) == 0 &&
             mount(from.c_str(), tree.c_str(), "none", MS_BIND | MS_REC, nullptr) == 0;
    }
    if (held >= 0)
        close(held);
    return ok;
}

// Runs body in a forked child with its own network namespace (loopback up)
// and mount namespace with a fresh /tmp and /sys: the tests use fixed
// ports, paths and interface names, and all they make goes away with it.
void in_sandbox(const std::function<void()> &body)
{
    const int status = vxu_test::run_in_child([&] {
        if (unshare(CLONE_NEWNET | CLONE_NEWNS) != 0 ||
            mount("none", "/", "none", MS_REC | MS_PRIVATE, nullptr) != 0 || !mount_fresh_tmp() ||
            mount("sysfs", "/sys", "sysfs", 0, nullptr) != 0 || !shell("ip link set lo up"))
            skip(std::string("private namespaces or `ip`: ") + strerror(errno));
        body();
    });
    if (status == 77)
        GTEST_SKIP() << "the machine refused part of the setup (reason on stderr)";
    vxu_test::expect_child_passed(status, __FILE__, __LINE__);
}

// A socket address as text; a port the kernel chose shows as *.
std::string address(const sockaddr_storage &a)
{
    const auto &in = reinterpret_cast<const sockaddr_in &>(a);
    const auto &ll = reinterpret_cast<const sockaddr_ll &>(a);
    const char *path = reinterpret_cast<const sockaddr_un &>(a).sun_path;
    const unsigned port = ntohs(in.sin_port);
    if (a.ss_family == AF_INET)
        return inet_ntoa(in.sin_addr) + (port >= 32768 ? ":*" : ":" + std::to_string(port));
    if (a.ss_family == AF_UNIX)
        return std::string(path, strnlen(path, sizeof(sockaddr_un::sun_path)));
    return std::to_string(ntohs(ll.sll_protocol)) + "@" + std::to_string(ll.sll_ifindex);
}

// What a call gave: a failure's code and errno name (0: no system call
// failed), else the socket's type, local and peer address, and whether it
// listens or does not block.
std::string describe(int fd)
{
    if (fd < 0)
        return std::to_string(fd) + " " + strerrorname_np(errno);
    int type = 0, listening = 0;
    socklen_t len = sizeof(int);
    getsockopt(fd, SOL_SOCKET, SO_TYPE, &type, &len);
    getsockopt(fd, SOL_SOCKET, SO_ACCEPTCONN, &listening, &len);
    sockaddr_storage a{};
    getsockname(fd, reinterpret_cast<sockaddr *>(&a), &(len = sizeof a));
    std::string s = (type == SOCK_STREAM  ? "stream "
                     : type == SOCK_DGRAM ? "dgram "
                                          : "raw ") +
                    address(a);
    if (getpeername(fd, reinterpret_cast<sockaddr *>(&a), &(len = sizeof a)) == 0)
        s += " ->" + address(a);
    return s + (listening ? " listening" : "") +
           (fcntl(fd, F_GETFL) & O_NONBLOCK ? " nonblocking" : "");
}

const std::string kLong = "/tmp/" + std::string(103, 'x');  // fills sun_path, no terminator
const std::string kTooLong = kLong + "y";
constexpr auto tcp_server = vexmar_create_tcp_server;
constexpr auto tcp_client = vexmar_create_tcp_client;
constexpr auto unix_server = vexmar_create_unix_server;
constexpr auto udp = vexmar_create_udp, packet = vexmar_packet_listen;
constexpr auto unix_client = vexmar_create_unix_client, unix_dgram = vexmar_create_unix_udp_server;
constexpr auto ipc_server = vxu_net_ipc_server, ipc_client = vxu_net_ipc_client;

// Every call that makes a descriptor, servers before their clients, and what
// it gives (a TCP client with local port 0 binds nothing, whatever the local
// address). /tmp/plain is a file where nobody listens; /tmp/s and /tmp/ipc
// are files left behind that the servers replace.
// clang-format off
const std::vector<std::pair<std::string, std::function<int()>>> kCalls = {
    {"stream 127.0.0.1:7001 listening", [] { return tcp_server("127.0.0.1", 7001, 8); }},
    {"stream 0.0.0.0:7002 listening", [] { return tcp_server(nullptr, 7002, 1); }},
    {"stream 127.0.0.1:* ->127.0.0.1:7001",
     [] { return tcp_client("127.0.0.9", 0, "127.0.0.1", 7001, 1, 0); }},
    {"stream 127.0.0.1:7003 ->127.0.0.1:7001 nonblocking",
     [] { return tcp_client("127.0.0.1", 7003, "127.0.0.1", 7001, 0, 5); }},
    {"-1 ECONNREFUSED", [] { return tcp_client(nullptr, 0, "127.0.0.1", 7009, 1, 0); }},
    {"-1 ECONNREFUSED", [] { return tcp_client(nullptr, 0, "127.0.0.1", 7009, 0, 5); }},
    {"-1 EADDRNOTAVAIL", [] { return tcp_client("192.0.2.1", 7004, "127.0.0.1", 7001, 1, 0); }},
    {"-1 0", [] { return tcp_client(nullptr, 0, nullptr, 7001, 1, 0); }},
    {"dgram 127.0.0.1:7004", [] { return udp("127.0.0.1", 7004); }},
    {"-1 EADDRINUSE", [] { return udp(nullptr, 7004); }},
    {"stream /tmp/s listening", [] { return unix_server("/tmp/s", 2); }},
    {"stream  ->/tmp/s", [] { return unix_client("/tmp/s"); }},
    {"stream " + kLong + " listening", [] { return unix_server(kLong.c_str(), 1); }},
    {"-1 ECONNREFUSED", [] { return unix_client("/tmp/plain"); }},
    {"-1 ENOENT", [] { return unix_server("/tmp/no/dir", 1); }},
    {"-1 0", [] { return unix_server(kTooLong.c_str(), 1); }},
    {"dgram /tmp/d", [] { return unix_dgram("/tmp/d"); }},
    {"-1 EADDRINUSE", [] { return unix_dgram("/tmp/d"); }},
    {"raw 34997@1", [] { return packet("lo", 0x88b5); }},
    {"-1 ENODEV", [] { return packet("vxnone", 0x88b5); }},
    {"stream /tmp/ipc listening", [] { return ipc_server("/tmp/ipc"); }},
    {"stream  ->/tmp/ipc", [] { return ipc_client("/tmp/ipc"); }},
    {"-2 0", [] { return ipc_server(""); }}, {"-2 0", [] { return ipc_server(nullptr); }},
    {"-1 ENOENT", [] { return ipc_server("/tmp/no/dir"); }},
    {"-1 ENOENT", [] { return ipc_client("/tmp/missing"); }},
    {"-1 ECONNREFUSED", [] { return ipc_client("/tmp/plain"); }},
    {"-1 0", [] { return ipc_client(kLong.c_str()); }}};
// clang-format on

// The timed connect to a neighbour that never answers gives up after its
// time-out.
TEST(SocketFactories, EachCallGivesOneDescriptorOrNone)
{
    in_sandbox([] {
        ASSERT_TRUE(shell("touch /tmp/s /tmp/plain /tmp/ipc " + kTooLong));
        for (const auto &[want, call] : kCalls) {
            const int before = vxu_test::count_open_fds();
            errno = 0;
            const int fd = call();
            EXPECT_EQ(want, describe(fd));
            EXPECT_EQ(before + (fd >= 0), vxu_test::count_open_fds()) << want;
        }
        EXPECT_TRUE(shell("test $(stat -c %a /tmp/ipc) = 777")) << "open to every user";
        EXPECT_EQ(0, access(kTooLong.c_str(), F_OK)) << "a path too long is refused untouched";
        if (!shell("ip link add vxt0 type veth peer name vxt1 && ip link set vxt1 up && "
                   "ip addr add 192.0.2.1/24 dev vxt0 && ip link set vxt0 up && ip neigh add "
                   "192.0.2.2 lladdr 02:00:00:00:00:02 dev vxt0 nud permanent"))
            skip("cannot create a veth pair");
        const uint64_t start = vxu_com_get_uptime_ms();
        EXPECT_EQ("-1 ETIMEDOUT", describe(tcp_client(nullptr, 0, "192.0.2.2", 80, 0, 1)));
        EXPECT_LE(900u, vxu_com_get_uptime_ms() - start);
    });
}

int g_peer = -1;
char g_buf[1 << 16];

// SIGALRM, without SA_RESTART, interrupts a blocked transfer; the handler
// then empties the peer and writes it a byte, so the repeated call succeeds.
void release(int)
{
    const int saved = errno;
    while (read(g_peer, g_buf, sizeof g_buf) > 0) {
    }
    (void)!write(g_peer, "z", 1);
    errno = saved;
}

TEST(IpcTransfer, RetriesOnlyInterruptions)
{
    EXPECT_IN_CHILD([] {
        struct sigaction sa = {};
        sa.sa_handler = release;
        ASSERT_EQ(0, sigaction(SIGALRM, &sa, nullptr));
        const itimerval in_50ms = {{0, 0}, {0, 50 * 1000}};
        vxu_test::socket_pair sp;
        const int fd = sp.fd[0];
        fcntl(g_peer = sp.fd[1], F_SETFL, O_NONBLOCK);
        setitimer(ITIMER_REAL, &in_50ms, nullptr);
        EXPECT_EQ(1, vxu_net_recv(fd, g_buf, 8)) << "the handler's byte, after the interruption";
        EXPECT_EQ(0, vxu_net_send(fd, "", 0) + vxu_net_recv(fd, g_buf, 0)) << "zero bytes";
        fcntl(fd, F_SETFL, O_NONBLOCK);
        EXPECT_EQ("-1 EAGAIN", describe(vxu_net_recv(fd, g_buf, 8)));
        while (write(fd, g_buf, sizeof g_buf) > 0) {
        }
        EXPECT_EQ("-1 EAGAIN", describe(vxu_net_send(fd, "x", 1)));
        fcntl(fd, F_SETFL, 0);
        setitimer(ITIMER_REAL, &in_50ms, nullptr);
        EXPECT_EQ(0, vxu_net_send(fd, "y", 1)) << "blocked on a full buffer until the handler";
        shutdown(g_peer, SHUT_WR);
        EXPECT_EQ(1, vxu_net_recv(fd, g_buf, 8));
        EXPECT_EQ(0, vxu_net_recv(fd, g_buf, 8)) << "end of stream";
        EXPECT_EQ(-2, vxu_net_send(-1, "x", 1) + vxu_net_recv(fd, g_buf, -1));
    });
}

// An interface attribute as the kernel shows it.
std::string sys(const std::string &dev, const char *attr)
{
    std::string line;
    std::getline(std::ifstream("/sys/class/net/" + dev + "/" + attr), line);
    return line;
}

const char kName15[] = "vxlongname12345";  // the longest name an interface has
const uint8_t kHw[6] = {0x02, 0x11, 0x22, 0x33, 0x44, 0x55};
constexpr auto up = vxu_net_set_ifup, down = vxu_net_set_ifdown;
constexpr auto mtu = vxu_net_set_ifmtu;
constexpr auto flags = vxu_net_set_ifflag;
constexpr auto set_mac = vxu_net_set_ifmac;
constexpr auto get_flags = vxu_net_get_ifflag, get_mtu = vxu_net_get_ifmtu,
               get_index = vxu_net_get_ifindex;
using std::bind;

TEST(InterfaceControl, ChangesAndReadsReachTheKernel)
{
    in_sandbox([] {
        if (!shell(std::string("ip link add vxa type veth peer name vxb && ip link add ") +
                   kName15 + " address 02:00:00:00:00:0f type veth peer name vxc"))
            skip("cannot create veth pairs");
        vxu_test::fd_leak_check leaks;
        // Each change, then vxa's flag word and MTU; 0x8000 (IFF_DYNAMIC) is bit 15.
        // clang-format off
        const std::tuple<std::function<int()>, int, const char *> changes[] = {
            {bind(set_mac, "vxa", kHw, 6), 0, "0x1002 1500"}, {bind(up, "vxa"), 0, "0x1003 1500"},
            {bind(up, "vxa"), 0, "0x1003 1500"}, {bind(mtu, "vxa", 1400), 0, "0x1003 1400"},
            {bind(mtu, "vxa", 10), -1, "0x1003 1400"},
            {bind(flags, "vxa", 0x9003), 0, "0x9003 1400"}, {bind(down, "vxa"), 0, "0x9002 1400"},
            {bind(down, "vxa"), 0, "0x9002 1400"},
            {bind(set_mac, "vxa", kHw + 1, 5), -1, "0x9002 1400"},
            {bind(set_mac, "", kHw + 1, 6), -1, "0x9002 1400"},
            {bind(flags, "vxnone", 0), -1, "0x9002 1400"}, {bind(up, "vxnone"), -1, "0x9002 1400"}};
        // clang-format on
        for (const auto &[change, rc, state] : changes) {
            EXPECT_EQ(rc, change()) << state;
            EXPECT_EQ(state, sys("vxa", "flags") + " " + sys("vxa", "mtu"));
        }
        EXPECT_EQ("02:11:22:33:44:55", sys("vxa", "address")) << "refused changes left it";

        // Reads: the code and the value stored (7: none). Names are cut to
        // their first 15 bytes, except by the MAC requests, which take 16.
        int v = 7;
        const int index = std::stoi(sys(kName15, "ifindex"));
        const char *lg = "vxlongname12345XYZ";
        // clang-format off
        const std::tuple<std::function<int()>, int, int> reads[] = {
            {bind(get_flags, "vxa", &v), 0, -28670}, {bind(get_flags, "vxnone", &v), -1, 7},
            {bind(get_flags, "vxa", nullptr), -1, 7}, {bind(get_mtu, "vxa", &v), 0, 1400},
            {bind(get_mtu, "vxa", nullptr), 0, 7}, {bind(get_mtu, "vxnone", &v), -1, 7},
            {bind(get_index, "vxa", nullptr), 0, 7}, {bind(get_index, "vxnone", &v), -1, 7},
            {bind(get_index, lg, &v), 0, index}, {bind(get_flags, lg, &v), 0, 0x1002},
            {bind(get_mtu, lg, &v), 0, 1500}};
        // clang-format on
        for (const auto &[read, rc, value] : reads) {
            v = 7;
            EXPECT_EQ(rc, read()) << value;
            EXPECT_EQ(value, v);
        }
        uint8_t m[8] = {0xee, 0xee, 0xee, 0xee, 0xee, 0xee, 0xee, 0xee};
        EXPECT_EQ(-3, vxu_net_get_ifmac("vxa", m, 5) + vxu_net_get_ifmac("", m, 6) +
                          vxu_net_get_ifmac("vxnone", m, 6));
        EXPECT_EQ(0, vxu_net_get_ifmac("vxa", m, 6));
        EXPECT_EQ(std::string(kHw, kHw + 6) + "\xee\xee", std::string(m, m + 8)) << "six bytes";

        // Names are cut and terminated at buffer[size - 1]; '#' guards show
        // what was left alone.
        char b[18];
        for (int size : {0, 1, 5, 16}) {
            memset(b, '#', sizeof b);
            EXPECT_EQ(size ? 0 : -1, vxu_net_get_ifname(index, b, size)) << size;
            EXPECT_EQ((size ? std::string(kName15, size - 1) + '\0' : "") + "#",
                      std::string(b, size + 1))
                << size;
        }
        EXPECT_EQ(-2, vxu_net_get_ifname(99999, b + 16, 1) + vxu_net_get_ifname(index, nullptr, 8));
        EXPECT_EQ('#', b[16]) << "a failure leaves the buffer alone";
        // Without CAP_NET_ADMIN every change fails: a 0 proves none was asked for.
        EXPECT_IN_CHILD([] {
            ASSERT_EQ(0, setuid(65534));
            EXPECT_EQ(0, down("vxa") + up("lo"));
            EXPECT_EQ(-2, up("vxa") + down("lo"));
        });
    });
}

// Replaces an /etc file inside the sandbox.
void mount_over(const char *target, const std::string &text)
{
    const std::string copy = "/tmp/" + std::string(target).substr(5);
    std::ofstream(copy) << text;
    if (mount(copy.c_str(), target, "none", MS_BIND, nullptr) != 0)
        skip(std::string("cannot bind-mount over ") + target);
}

// gethostbyurl's result and what it printed up to the list's address.
std::string lookup(const char *host)
{
    gt::CaptureStdout();
    const char *text = vexmar_gethostbyurl(host);
    const std::string out = gt::GetCapturedStdout();
    return std::string(text ? text : "(null)") + " | " + out.substr(0, out.find("0x"));
}

// The system resolver passes over entries of other families ahead of the
// first IPv4 one. Through adns, with a configuration text of its own (debug
// lines on standard output) or the system's (the environment ignored,
// diagnostics on standard error), the answer's status is not examined: no A
// record leaves the output alone.
TEST(NameResolution, SystemResolverAndAdns)
{
    in_sandbox([] {
        // dnsmasq on 127.0.0.1:53 with records of its own; it answers once the
        // start command returns, and is stopped by its pid.
        if (!shell("dnsmasq --conf-file=/dev/null --no-resolv --no-hosts --user=root "
                   "--pid-file=/tmp/dns.pid --listen-address=127.0.0.1 --bind-interfaces "
                   "--local=/test/ --log-facility=/dev/null --host-record=two.test,10.1.1.1 "
                   "--host-record=two.test,10.1.1.2 --host-record=six.test,fd00::6"))
            skip("dnsmasq (package dnsmasq-base) did not start");
        pid_t pid = 0;
        std::ifstream("/tmp/dns.pid") >> pid;
        const std::shared_ptr<void> stop(nullptr, [pid](void *) { kill(pid, SIGTERM); });
        mount_over("/etc/hosts", "fd00::5 mixed.test\n10.9.8.7 mixed.test\nfd00::6 v6.test\n");
        mount_over("/etc/resolv.conf", "nameserver 127.0.0.1\nsortlist 10.1.1.2/32\n");
        setenv("RES_CONF_TEXT", "nameserver not-an-address", 1);
        vxu_test::fd_leak_check leaks;
        EXPECT_EQ("127.0.0.1 | ===host name :127.0.0.1\n====res:", lookup("127.0.0.1"));
        EXPECT_EQ("10.9.8.7 | ===host name :mixed.test\n====res:", lookup("mixed.test"));
        EXPECT_EQ("(null) | ===host name :v6.test\n====res:", lookup("v6.test"));
        EXPECT_EQ("(null) | ====error:-2," + std::string(gai_strerror(-2)), lookup(nullptr));
        const char *ns = "nameserver 127.0.0.1";
        // clang-format off
        const std::tuple<const char *, const char *, const char *, const char *> rows[] = {
            {"nameserver 127.0.0.1\nsortlist 10.1.1.2/32", "two.test", "0 10.1.1.2", ""},
            {ns, "six.test", "0 1.2.3.4", ""}, {ns, "missing.test", "0 1.2.3.4", ""},
            {"nameserver x", "two.test", "-1 1.2.3.4", "==adns_init_strcfg failure====\n"},
            {ns, nullptr, "-1 1.2.3.4", ""}, {nullptr, "two.test", "0 10.1.1.2", ""}};
        // clang-format on
        for (const auto &[config, host, want, line] : rows) {
            in_addr out = {htonl(0x01020304)};
            gt::CaptureStdout();
            const int rc = vexmar_resolver_dns(config, host, &out);
            const std::string printed = gt::GetCapturedStdout();
            EXPECT_EQ(want, std::to_string(rc) + " " + inet_ntoa(out)) << config;
            EXPECT_NE(std::string::npos, printed.find(line)) << printed;
            EXPECT_TRUE(config || printed.empty()) << "diagnostics go to standard error";
        }
    });
}

// Every call that opens a descriptor fails cleanly when none is free, and the
// timed connect waits on a descriptor at 1024 or above.
TEST(Networking, DescriptorPressure)
{
    SKIP_UNDER_VALGRIND(vxu_test::kDescriptorLimits);
    in_sandbox([] {
        ASSERT_TRUE(shell("touch /tmp/s /tmp/plain /tmp/ipc"));
        int v = 7, i = 0;
        uint8_t buf[16] = {};  // a name, a MAC address or an IPv4 address
        gt::CaptureStdout();
        {
            vxu_test::fds_taken none(vxu_test::leaving_free{0});
            ASSERT_TRUE(none.ok());
            for (const auto &[want, call] : kCalls)
                EXPECT_GT(0, call()) << want;
            for (int rc :
                 {vxu_net_get_ifname(1, reinterpret_cast<char *>(buf), 16),
                  vxu_net_get_ifindex("lo", &v), get_flags("lo", &v), vxu_net_set_ifflag("lo", 0),
                  up("lo"), down("lo"), mtu("lo", 1500), get_mtu("lo", &v),
                  vxu_net_set_ifmac("lo", buf, 6), vxu_net_get_ifmac("lo", buf, 6),
                  vexmar_resolver_dns(nullptr, "two.test", buf),
                  vexmar_resolver_dns("nameserver 127.0.0.1", "two.test", buf),
                  vexmar_gethostbyurl("localhost") ? 0 : -1})
                EXPECT_EQ(-1, rc) << "call " << i++;
        }
        const std::string printed = gt::GetCapturedStdout();
        EXPECT_EQ(7, v) << "nothing stored";
        EXPECT_TRUE(std::regex_search(printed, std::regex("===adns init failure====\n(.|\n)*"
                                                          "==adns_init_strcfg failure====\n")))
            << printed;

        ASSERT_LE(0, tcp_server("127.0.0.1", 7001, 1));
        vxu_test::fds_taken taken(vxu_test::taken_below{1024});
        ASSERT_TRUE(taken.ok());
        const int fd = tcp_client(nullptr, 0, "127.0.0.1", 7001, 0, 5);
        EXPECT_LE(1024, fd);
        EXPECT_EQ("stream 127.0.0.1:* ->127.0.0.1:7001 nonblocking", describe(fd));
        close(fd);
    });
}

}  // namespace
