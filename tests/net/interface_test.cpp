#include <arpa/inet.h>
#include <linux/capability.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <poll.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <string>

#include <vxutil/net.h>

#include "common/test_support.hpp"
#include "net/net_test_util.hpp"

namespace {

using vxu_net_test::shell;
using vxu_net_test::skip_child;
using vxu_test::fd_leak_check;

constexpr char kLongName[] = "vxlongname12345";  // 15 bytes, the longest a kernel name can be

// One veth pair (vxa, vxb) plus a second pair with a 15-byte name.
void make_veths()
{
    if (!shell(std::string("ip link add vxa type veth peer name vxb && ip link add ") + kLongName +
               " type veth peer name vxc"))
        skip_child("cannot create veth pairs");
}

std::string ip_link(const char *dev)
{
    return vxu_net_test::shell_output(std::string("ip -o link show dev ") + dev);
}

// Flags as the kernel reports them, read without the library.
short kernel_flags(const char *dev)
{
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    ifreq ifr{};
    strcpy(ifr.ifr_name, dev);
    EXPECT_EQ(0, ioctl(fd, SIOCGIFFLAGS, &ifr));
    close(fd);
    return ifr.ifr_flags;
}

// Drops CAP_NET_ADMIN from the effective set: reads still work, changes fail.
void drop_net_admin()
{
    __user_cap_header_struct hdr = {_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct data[2] = {};
    ASSERT_EQ(0, syscall(SYS_capget, &hdr, data));
    data[CAP_NET_ADMIN / 32].effective &= ~(1u << (CAP_NET_ADMIN % 32));
    ASSERT_EQ(0, syscall(SYS_capset, &hdr, data));
}

TEST(InterfaceControl, NamesAndIndexes)
{
    EXPECT_IN_NETNS([] {
        make_veths();
        fd_leak_check leaks;
        int index = -5;
        ASSERT_EQ(0, vxu_net_get_ifindex("vxa", &index));
        EXPECT_EQ(static_cast<int>(if_nametoindex("vxa")), index);
        EXPECT_EQ(0, vxu_net_get_ifindex("vxa", nullptr)) << "existence test";
        index = -5;
        EXPECT_EQ(-1, vxu_net_get_ifindex("vxnone", &index));
        EXPECT_EQ(-5, index);
        EXPECT_EQ(-1, vxu_net_get_ifindex("", nullptr));
        EXPECT_EQ(-1, vxu_net_get_ifindex(nullptr, &index));

        // Longer names are cut to their first 15 bytes.
        const std::string longer = std::string(kLongName) + "XYZ";
        ASSERT_EQ(0, vxu_net_get_ifindex(longer.c_str(), &index));
        EXPECT_EQ(static_cast<int>(if_nametoindex(kLongName)), index);
        int mtu = 0;
        EXPECT_EQ(0, vxu_net_get_ifmtu(longer.c_str(), &mtu));
        EXPECT_EQ(1500, mtu);
        int flags = 0;
        EXPECT_EQ(0, vxu_net_get_ifflag(longer.c_str(), &flags));

        char name[IFNAMSIZ];
        ASSERT_EQ(0, vxu_net_get_ifname(index, name, sizeof name));
        EXPECT_STREQ(kLongName, name);
        memset(name, '#', sizeof name);
        ASSERT_EQ(0, vxu_net_get_ifname(index, name, 5));
        EXPECT_STREQ("vxlo", name) << "cut and terminated at the last byte";
        ASSERT_EQ(0, vxu_net_get_ifname(index, name, 1));
        EXPECT_EQ('\0', name[0]);
        EXPECT_EQ(-1, vxu_net_get_ifname(index, name, 0));
        EXPECT_EQ(-1, vxu_net_get_ifname(index, nullptr, 8));
        memset(name, '#', sizeof name);
        EXPECT_EQ(-1, vxu_net_get_ifname(999999, name, sizeof name));
        EXPECT_EQ('#', name[0]) << "a failure leaves the buffer alone";
    });
}

TEST(InterfaceControl, FlagsMtuAndMac)
{
    EXPECT_IN_NETNS([] {
        make_veths();
        fd_leak_check leaks;
        ASSERT_EQ(0, vxu_net_set_ifup("vxa"));
        EXPECT_NE(std::string::npos, ip_link("vxa").find(",UP")) << ip_link("vxa");
        int flags = 0;
        ASSERT_EQ(0, vxu_net_get_ifflag("vxa", &flags));
        EXPECT_TRUE(flags & IFF_UP);
        ASSERT_EQ(0, vxu_net_set_ifdown("vxa"));
        EXPECT_FALSE(kernel_flags("vxa") & IFF_UP);
        EXPECT_EQ(0, vxu_net_set_ifdown("vxa")) << "already down";

        // Bit 15 (IFF_DYNAMIC) makes the 16-bit word negative as an int.
        const int before = kernel_flags("vxa");
        ASSERT_EQ(0, vxu_net_set_ifflag("vxa", static_cast<uint16_t>(before | IFF_DYNAMIC)));
        EXPECT_TRUE(kernel_flags("vxa") & IFF_DYNAMIC);
        EXPECT_NE(std::string::npos, ip_link("vxa").find("DYNAMIC"));
        ASSERT_EQ(0, vxu_net_get_ifflag("vxa", &flags));
        EXPECT_LT(flags, 0);
        EXPECT_EQ(static_cast<short>(before | IFF_DYNAMIC), flags);
        EXPECT_EQ(-1, vxu_net_get_ifflag("vxa", nullptr));
        EXPECT_EQ(-1, vxu_net_set_ifflag("vxnone", 0));

        ASSERT_EQ(0, vxu_net_set_ifmtu("vxa", 1400));
        EXPECT_NE(std::string::npos, ip_link("vxa").find(" mtu 1400 ")) << ip_link("vxa");
        int mtu = 0;
        EXPECT_EQ(0, vxu_net_get_ifmtu("vxa", &mtu));
        EXPECT_EQ(1400, mtu);
        EXPECT_EQ(0, vxu_net_get_ifmtu("vxa", nullptr));
        EXPECT_EQ(-1, vxu_net_set_ifmtu("vxa", 10)) << "below the minimum";
        EXPECT_EQ(-1, vxu_net_get_ifmtu("vxnone", &mtu));

        const uint8_t mac[6] = {0x02, 0x11, 0x22, 0x33, 0x44, 0x55};
        ASSERT_EQ(0, vxu_net_set_ifmac("vxa", mac, 6));
        EXPECT_NE(std::string::npos, ip_link("vxa").find("link/ether 02:11:22:33:44:55"));
        uint8_t read_back[8] = {};
        memset(read_back, 0xee, sizeof read_back);
        ASSERT_EQ(0, vxu_net_get_ifmac("vxa", read_back, sizeof read_back));
        EXPECT_EQ(0, memcmp(mac, read_back, 6));
        EXPECT_EQ(0xee, read_back[6]) << "exactly six bytes are copied";
        // The MAC requests take a name of 16 bytes without terminator.
        const std::string sixteen = std::string(kLongName) + "Q";
        EXPECT_EQ(0, vxu_net_get_ifmac(sixteen.c_str(), read_back, 6));

        const uint8_t other[6] = {0x02, 0, 0, 0, 0, 0x99};
        EXPECT_EQ(-1, vxu_net_set_ifmac("vxa", other, 5));
        EXPECT_EQ(-1, vxu_net_set_ifmac("", other, 6));
        EXPECT_EQ(-1, vxu_net_get_ifmac("", read_back, 6));
        EXPECT_EQ(-1, vxu_net_get_ifmac("vxa", read_back, 5));
        EXPECT_EQ(-1, vxu_net_get_ifmac("vxnone", read_back, 6));
        ASSERT_EQ(0, vxu_net_get_ifmac("vxa", read_back, 6));
        EXPECT_EQ(0, memcmp(mac, read_back, 6)) << "refused requests changed nothing";
    });
}

TEST(InterfaceControl, UpAndDownChangeOnlyWhenNeeded)
{
    EXPECT_IN_NETNS([] {
        make_veths();
        ASSERT_TRUE(shell("ip link set vxa up"));
        ASSERT_TRUE(kernel_flags("vxa") & IFF_UP);
        // Without CAP_NET_ADMIN any flag change fails, so a 0 proves that
        // no change was requested.
        EXPECT_IN_CHILD([] {
            drop_net_admin();
            fd_leak_check leaks;
            EXPECT_EQ(0, vxu_net_set_ifup("vxa"));
            EXPECT_EQ(-1, vxu_net_set_ifdown("vxa"));
            EXPECT_EQ(0, vxu_net_set_ifdown("vxb"));
            EXPECT_EQ(-1, vxu_net_set_ifup("vxb"));
            EXPECT_EQ(-1, vxu_net_set_ifup("vxnone"));
        });
        // Up keeps the other flags as they were.
        ASSERT_TRUE(shell("ip link set vxb dynamic on"));
        ASSERT_EQ(0, vxu_net_set_ifup("vxb"));
        EXPECT_EQ(IFF_UP | IFF_DYNAMIC, kernel_flags("vxb") & (IFF_UP | IFF_DYNAMIC));
    });
}

constexpr uint16_t kProtocol = 0x88b5;  // local experimental EtherType

// Sends one Ethernet frame out of dev to dst with the given EtherType.
void send_frame(const char *dev, const uint8_t dst[6], uint16_t type, const char *payload)
{
    const int fd = socket(AF_PACKET, SOCK_RAW, 0);
    ASSERT_GE(fd, 0);
    uint8_t frame[64] = {};
    memcpy(frame, dst, 6);
    const uint8_t src[6] = {0x02, 0, 0, 0, 0, 0x01};
    memcpy(frame + 6, src, 6);
    frame[12] = static_cast<uint8_t>(type >> 8);
    frame[13] = static_cast<uint8_t>(type);
    strcpy(reinterpret_cast<char *>(frame + 14), payload);
    sockaddr_ll to{};
    to.sll_family = AF_PACKET;
    to.sll_ifindex = static_cast<int>(if_nametoindex(dev));
    to.sll_halen = 6;
    memcpy(to.sll_addr, dst, 6);
    EXPECT_EQ(static_cast<ssize_t>(sizeof frame),
              sendto(fd, frame, sizeof frame, 0, reinterpret_cast<sockaddr *>(&to), sizeof to));
    close(fd);
}

TEST(PacketSocket, ReceivesItsProtocolOnItsInterfaceOnly)
{
    EXPECT_IN_NETNS([] {
        make_veths();
        ASSERT_TRUE(shell(std::string("ip link set vxa up && ip link set vxb up && ip link set ") +
                          kLongName + " up && ip link set vxc up"));
        const int fd = vexmar_packet_listen("vxa", kProtocol);
        ASSERT_GE(fd, 0);
        sockaddr_ll bound{};
        socklen_t len = sizeof bound;
        ASSERT_EQ(0, getsockname(fd, reinterpret_cast<sockaddr *>(&bound), &len));
        EXPECT_EQ(htons(kProtocol), bound.sll_protocol);
        EXPECT_EQ(static_cast<int>(if_nametoindex("vxa")), bound.sll_ifindex);

        uint8_t mac_a[6], mac_long[6];
        ASSERT_EQ(0, vxu_net_get_ifmac("vxa", mac_a, 6));
        ASSERT_EQ(0, vxu_net_get_ifmac(kLongName, mac_long, 6));
        send_frame("vxb", mac_a, kProtocol + 1, "other protocol");
        send_frame("vxc", mac_long, kProtocol, "other interface");
        send_frame("vxb", mac_a, kProtocol, "for vxa");

        pollfd p = {fd, POLLIN, 0};
        ASSERT_EQ(1, poll(&p, 1, 5000));
        char buf[128] = {};
        const ssize_t n = recv(fd, buf, sizeof buf, 0);
        ASSERT_GE(n, 14 + 7);
        EXPECT_STREQ("for vxa", buf + 14) << "the first frame to arrive is the matching one";
        EXPECT_EQ(0, poll(&p, 1, 200)) << "nothing else was delivered";
        close(fd);

        fd_leak_check leaks;
        EXPECT_EQ(-1, vexmar_packet_listen("vxnone", kProtocol));
        EXPECT_EQ(-1, vexmar_packet_listen((std::string(kLongName) + "x").c_str(), kProtocol));
        EXPECT_EQ(-1, vexmar_packet_listen(nullptr, kProtocol));
    });
}

}  // namespace
