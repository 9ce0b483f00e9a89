#include <arpa/inet.h>
#include <pthread.h>
#include <string.h>

#include <string>

#include <vxutil/net.h>

#include "common/test_support.hpp"

namespace {

TEST(Ipv4Check, StrictDottedQuadOnly)
{
    for (const char *ok :
         {"0.0.0.0", "1.2.3.4", "255.255.255.255", "01.002.3.4", "0000000001.2.3.4"})
        EXPECT_EQ(0, vexmar_ipv4_check(ok)) << ok;
    for (const char *bad : {"1.2.3", "1.2.3.", "256.1.1.1", "1.2.3.256", "1.2.3.4.", "1.2.3 4",
                            "1..2.3.4", "+1.2.3.4", "1.2.3.4\n", "a.b.c.d", "1.2.3.4.5", ".1.2.3.4",
                            "99999999999.1.1.1", "4294967296.1.2.3", "1.2.3.4294967300", ""})
        EXPECT_EQ(-1, vexmar_ipv4_check(bad)) << '"' << bad << '"';
    EXPECT_EQ(-1, vexmar_ipv4_check(nullptr));
}

TEST(StrMac, ColonFieldsWithStrtolLeniency)
{
    uint8_t mac[8];
    ASSERT_EQ(0, vxu_net_strmac("00:11:22:aa:BB:cc", mac, sizeof mac));
    const uint8_t expect[] = {0x00, 0x11, 0x22, 0xaa, 0xbb, 0xcc, 0, 0};
    EXPECT_EQ(0, memcmp(expect, mac, sizeof mac)) << "the tail of the buffer is cleared";

    ASSERT_EQ(0, vxu_net_strmac("::0:1:2:3:4:5:", mac, 6)) << "runs of separators are one";
    EXPECT_EQ(0x05, mac[5]);
    ASSERT_EQ(0, vxu_net_strmac("0x1:-1:1FF: a:2:3", mac, 6));
    const uint8_t lenient[] = {0x01, 0xff, 0xff, 0x0a, 0x02, 0x03};
    EXPECT_EQ(0, memcmp(lenient, mac, 6)) << "prefix, sign, blanks accepted; low byte kept";

    for (const char *bad : {"00:11:22:33:44", "00:11:22:33:44:55:66", "00:11:22:33:44:5g",
                            "00:11:22:33:44:0x", "", ":::"}) {
        memset(mac, 0xee, sizeof mac);
        EXPECT_EQ(-1, vxu_net_strmac(bad, mac, sizeof mac)) << bad;
        EXPECT_EQ(0, mac[0] | mac[3] | mac[5] | mac[7]) << "a failure leaves zeros: " << bad;
    }
    memset(mac, 0xee, sizeof mac);
    EXPECT_EQ(-1, vxu_net_strmac("00:11:22:33:44:55", mac, 5));
    EXPECT_EQ(-1, vxu_net_strmac(nullptr, mac, 6));
    EXPECT_EQ(0xee, mac[0]) << "guards leave the buffer untouched";

    // Only the first 63 characters are read.
    std::string padded = "00:11:22:33:44:55" + std::string(46, ':') + "66";
    EXPECT_EQ(0, vxu_net_strmac(padded.c_str(), mac, 6));
}

TEST(MacToChar, TwoHexDigitFields)
{
    uint8_t mac[6];
    ASSERT_EQ(0, vexmar_mac_to_char("a:b:c:d:e:f", mac));
    const uint8_t short_fields[] = {0x0a, 0x0b, 0x0c, 0x0d, 0x0e, 0x0f};
    EXPECT_EQ(0, memcmp(short_fields, mac, 6));
    ASSERT_EQ(0, vexmar_mac_to_char("DE:ad:BE:ef:00:99 trailing", mac));
    const uint8_t mixed[] = {0xde, 0xad, 0xbe, 0xef, 0x00, 0x99};
    EXPECT_EQ(0, memcmp(mixed, mac, 6));

    memset(mac, 0x77, sizeof mac);
    EXPECT_EQ(-1, vexmar_mac_to_char("001:22:33:44:55:66", mac));
    EXPECT_EQ(-1, vexmar_mac_to_char("00:11:22:33:44", mac));
    EXPECT_EQ(0x77, mac[0]) << "failure leaves the output untouched";
    EXPECT_EQ(-1, vexmar_mac_to_char(nullptr, mac));
    EXPECT_EQ(-1, vexmar_mac_to_char("00:11:22:33:44:55", nullptr));
}

TEST(MacStr, UpperCaseTextNeedsEighteenBytes)
{
    const uint8_t mac[] = {0x0a, 0x1b, 0x2c, 0xd3, 0xe4, 0xff, 0x99};
    char buf[18];
    memset(buf, '#', sizeof buf);
    EXPECT_EQ(-1, vxu_net_macstr(mac, 7, buf, 17));
    EXPECT_EQ('#', buf[0]);
    EXPECT_EQ(-1, vxu_net_macstr(mac, 5, buf, 18));
    EXPECT_EQ(-1, vxu_net_macstr(nullptr, 6, buf, 18));
    EXPECT_EQ(-1, vxu_net_macstr(mac, 6, nullptr, 18));
    ASSERT_EQ(0, vxu_net_macstr(mac, 7, buf, 18));
    EXPECT_STREQ("0A:1B:2C:D3:E4:FF", buf);
}

TEST(IpText, CallerBuffers)
{
    in_addr v4;
    ASSERT_EQ(1, inet_pton(AF_INET, "192.168.10.254", &v4));
    char buf[INET6_ADDRSTRLEN];
    ASSERT_EQ(0, vxu_net_ipstr(&v4, buf, 16));
    EXPECT_STREQ("192.168.10.254", buf);
    EXPECT_EQ(-1, vxu_net_ipstr(&v4, buf, 14)) << "text does not fit";
    EXPECT_EQ(-1, vxu_net_ipstr(&v4, buf, 0));
    EXPECT_EQ(-1, vxu_net_ipstr(nullptr, buf, 16));
    EXPECT_EQ(-1, vxu_net_ipstr(&v4, nullptr, 16));

    in6_addr v6;
    ASSERT_EQ(1, inet_pton(AF_INET6, "fe80::1:2", &v6));
    ASSERT_EQ(0, vxu_net_ip6str(&v6, buf, sizeof buf));
    EXPECT_STREQ("fe80::1:2", buf);
    EXPECT_EQ(-1, vxu_net_ip6str(&v6, buf, 5));
    EXPECT_EQ(-1, vxu_net_ip6str(nullptr, buf, sizeof buf));

    in_addr out{};
    EXPECT_EQ(0, vxu_net_strip("10.1", &out)) << "inet_aton's short form";
    EXPECT_EQ(htonl(0x0a000001), out.s_addr);
    EXPECT_EQ(0, vxu_net_strip("0x7f.1", nullptr)) << "a null output only tests";
    EXPECT_EQ(-1, vxu_net_strip("1.2.3.4x", &out));
    EXPECT_EQ(-1, vxu_net_strip("", &out));
    EXPECT_EQ(-1, vxu_net_strip(nullptr, &out));
}

struct thread_texts {
    const char *v4 = nullptr;
    std::string v4_text;
    const char *v6 = nullptr;
    std::string v6_text;
};

void *convert_in_thread(void *arg)
{
    auto *t = static_cast<thread_texts *>(arg);
    t->v4 = vexmar_ip_int_to_string(htonl(0x0a000002));
    t->v4_text = t->v4;
    t->v6 = vexmar_ipv6_ntop(in6addr_loopback);
    t->v6_text = t->v6 ? t->v6 : "";
    return nullptr;
}

TEST(IpText, PerThreadResultBuffers)
{
    const uint32_t lowest_first = 192u | 168u << 8 | 1u << 16 | 1u << 24;
    const char *mine = vexmar_ip_int_to_string(lowest_first);
    EXPECT_STREQ("192.168.1.1", mine);
    EXPECT_STREQ("255.255.255.255", vexmar_ip_int_to_string(0xffffffffu));
    EXPECT_EQ(mine, vexmar_ip_int_to_string(lowest_first)) << "one buffer per thread";

    in6_addr v6;
    ASSERT_EQ(1, inet_pton(AF_INET6, "2001:db8::ff", &v6));
    const char *mine6 = vexmar_ipv6_ntop(v6);
    ASSERT_NE(nullptr, mine6);
    EXPECT_STREQ("2001:db8::ff", mine6);

    thread_texts other;
    pthread_t th;
    ASSERT_EQ(0, pthread_create(&th, nullptr, convert_in_thread, &other));
    ASSERT_EQ(0, pthread_join(th, nullptr));
    EXPECT_EQ("10.0.0.2", other.v4_text);
    EXPECT_EQ("::1", other.v6_text);
    EXPECT_NE(mine, other.v4);
    EXPECT_NE(mine6, other.v6);
    EXPECT_STREQ("192.168.1.1", mine) << "another thread's call left this one alone";
    EXPECT_STREQ("2001:db8::ff", mine6);

    in_addr a;
    a.s_addr = htonl(0x7f000001);
    EXPECT_STREQ("127.0.0.1", vexmar_ipv4_ntoa(a));
}

}  // namespace
