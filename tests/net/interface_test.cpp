#include <algorithm>
#include <fstream>
#include <tuple>

#include <vxutil/net.h>

#include "net/sandbox.hpp"

namespace {

using std::bind;

// An interface attribute as the kernel shows it.
std::string sys(const std::string &dev, const char *attr)
{
    std::string line;
    std::getline(std::ifstream("/sys/class/net/" + dev + "/" + attr), line);
    return line;
}

// Bytes as the kernel shows a hardware address.
std::string mac_text(const uint8_t *m, int n)
{
    std::string s;
    char b[4];
    for (int i = 0; i < n; ++i)
        s += std::string(b, snprintf(b, sizeof b, ":%02x", m[i])).substr(i == 0);
    return s;
}

const std::string kLong = "vxlongname12345";  // 15 bytes, the longest an interface name has
const uint8_t kMac[6] = {0x02, 0x11, 0x22, 0x33, 0x44, 0x55};
constexpr auto up = vxu_net_set_ifup, down = vxu_net_set_ifdown;
constexpr auto mtu = vxu_net_set_ifmtu;
constexpr auto flags = vxu_net_set_ifflag;
constexpr auto set_mac = vxu_net_set_ifmac;
constexpr auto get_flags = vxu_net_get_ifflag, get_mtu = vxu_net_get_ifmtu,
               get_index = vxu_net_get_ifindex;

TEST(InterfaceControl, ChangesAndReadsReachTheKernel)
{
    EXPECT_IN_SANDBOX([] {
        if (!vxu_net_test::shell("ip link add vxa type veth peer name vxb && ip link add " + kLong +
                                 " type veth peer name vxc"))
            vxu_net_test::skip_child("cannot create veth pairs");
        vxu_test::fd_leak_check leaks;
        // Each change, then vxa's flag word and MTU; 0x8000 (IFF_DYNAMIC) is bit 15.
        // clang-format off
        const std::tuple<std::function<int()>, int, const char *> changes[] = {
            {bind(set_mac, "vxa", kMac, 6), 0, "0x1002 1500"}, {bind(up, "vxa"), 0, "0x1003 1500"},
            {bind(up, "vxa"), 0, "0x1003 1500"}, {bind(mtu, "vxa", 1400), 0, "0x1003 1400"},
            {bind(mtu, "vxa", 10), -1, "0x1003 1400"}, {bind(flags, "vxa", 0x9003), 0, "0x9003 1400"},
            {bind(down, "vxa"), 0, "0x9002 1400"}, {bind(down, "vxa"), 0, "0x9002 1400"},
            {bind(set_mac, "vxa", kMac + 1, 5), -1, "0x9002 1400"},
            {bind(set_mac, "", kMac + 1, 6), -1, "0x9002 1400"},
            {bind(set_mac, "vxnone", kMac, 6), -1, "0x9002 1400"},
            {bind(flags, "vxnone", 0), -1, "0x9002 1400"}, {bind(mtu, "vxnone", 1400), -1, "0x9002 1400"},
            {bind(up, "vxnone"), -1, "0x9002 1400"}, {bind(down, "vxnone"), -1, "0x9002 1400"}};
        // clang-format on
        for (const auto &[change, rc, state] : changes) {
            EXPECT_EQ(rc, change()) << state;
            EXPECT_EQ(state, sys("vxa", "flags") + " " + sys("vxa", "mtu"));
        }
        EXPECT_EQ("02:11:22:33:44:55", sys("vxa", "address")) << "refused changes left it";

        // Reads: the code and the value stored (7: none). Longer names are cut
        // to their first 15 bytes.
        int v = 7;
        const int index = std::stoi(sys(kLong, "ifindex"));
        const std::string longer = kLong + "XYZ";
        // clang-format off
        const std::tuple<std::function<int()>, int, int> reads[] = {
            {bind(get_flags, "vxa", &v), 0, -28670}, {bind(get_flags, "vxnone", &v), -1, 7},
            {bind(get_flags, "vxa", nullptr), -1, 7}, {bind(get_mtu, "vxa", &v), 0, 1400},
            {bind(get_mtu, "vxa", nullptr), 0, 7}, {bind(get_mtu, "vxnone", &v), -1, 7},
            {bind(get_index, "vxa", nullptr), 0, 7}, {bind(get_index, "vxnone", &v), -1, 7},
            {bind(get_index, "", &v), -1, 7}, {bind(get_index, longer.c_str(), &v), 0, index},
            {bind(get_flags, longer.c_str(), &v), 0, 0x1002}, {bind(get_mtu, longer.c_str(), &v), 0, 1500}};
        // clang-format on
        for (const auto &[read, rc, value] : reads) {
            v = 7;
            EXPECT_EQ(rc, read()) << value;
            EXPECT_EQ(value, v);
        }

        // Names are cut and terminated at buffer[size - 1]; '#' guards show
        // what was left alone, '|' a zero byte.
        const std::tuple<int, int, int, const char *> names[] = {{index, 16, 0, "vxlongname12345|"},
                                                                 {index, 5, 0, "vxlo|"},
                                                                 {index, 1, 0, "|"},
                                                                 {index, 0, -1, ""},
                                                                 {99999, 16, -1, ""}};
        for (const auto &[i, size, rc, left] : names) {
            std::string b(17, '#');
            EXPECT_EQ(rc, vxu_net_get_ifname(i, &b[0], size)) << size;
            b.erase(b.find('#'));
            std::replace(b.begin(), b.end(), '\0', '|');
            EXPECT_EQ(left, b);
        }
        EXPECT_EQ(-1, vxu_net_get_ifname(index, nullptr, 8));

        // Exactly six bytes; the MAC requests take a name of 16 bytes whole.
        const std::tuple<std::string, int, int, std::string> macs[] = {
            {"vxa", 6, 0, "02:11:22:33:44:55:ee:ee"},
            {kLong + "Q", 8, 0, sys(kLong, "address") + ":ee:ee"},
            {"vxa", 5, -1, "ee:ee:ee:ee:ee:ee:ee:ee"},
            {"", 6, -1, "ee:ee:ee:ee:ee:ee:ee:ee"},
            {"vxnone", 6, -1, "ee:ee:ee:ee:ee:ee:ee:ee"}};
        for (const auto &[name, len, rc, bytes] : macs) {
            uint8_t m[8];
            memset(m, 0xee, sizeof m);
            EXPECT_EQ(rc, vxu_net_get_ifmac(name.c_str(), m, len)) << name;
            EXPECT_EQ(bytes, mac_text(m, 8)) << name;
        }

        // Without CAP_NET_ADMIN every change fails: a 0 proves none was asked for.
        EXPECT_IN_CHILD([] {
            ASSERT_EQ(0, setuid(65534));
            EXPECT_EQ(0, vxu_net_set_ifdown("vxa"));
            EXPECT_EQ(-1, vxu_net_set_ifup("vxa"));
            EXPECT_EQ(0, vxu_net_set_ifup("lo"));
            EXPECT_EQ(-1, vxu_net_set_ifdown("lo"));
        });
    });
}

TEST(InterfaceControl, FailsWithoutAFreeDescriptor)
{
    SKIP_UNDER_VALGRIND(vxu_test::kDescriptorLimits);
    EXPECT_IN_SANDBOX([] {
        int v = 7, i = 0;
        char name[16] = "";
        uint8_t mac[6] = {};
        vxu_test::fds_taken none(vxu_test::leaving_free{0});
        ASSERT_TRUE(none.ok());
        for (int rc : {vxu_net_get_ifname(1, name, 16), get_index("lo", &v), get_flags("lo", &v),
                       flags("lo", 0), up("lo"), down("lo"), mtu("lo", 1500), get_mtu("lo", &v),
                       set_mac("lo", mac, 6), vxu_net_get_ifmac("lo", mac, 6)})
            EXPECT_EQ(-1, rc) << "call " << i++;
        EXPECT_EQ(7, v) << "nothing stored";
    });
}

}  // namespace
