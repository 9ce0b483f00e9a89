#include <arpa/inet.h>
#include <stdio.h>
#include <string.h>

#include <string>
#include <thread>
#include <tuple>

#include <vxutil/net.h>

#include "common/test_support.hpp"

namespace {

TEST(AddressText, StrictDottedQuad)
{
    for (const char *ok :
         {"0.0.0.0", "1.2.3.4", "255.255.255.255", "01.002.3.4", "0000000001.2.3.4"})
        EXPECT_EQ(0, vexmar_ipv4_check(ok)) << ok;
    for (const char *bad :
         {"1.2.3", "1.2.3.", "256.1.1.1", "1.2.3.256", "1.2.3.4.", "1.2.3 4", "1..2.3.4",
          "+1.2.3.4", "1.2.3.4\n", "a.b.c.d", "1.2.3.4.5", ".1.2.3.4", "99999999999.1.1.1",
          "4294967296.1.2.3", "1.2.3.4294967300", "", static_cast<const char *>(nullptr)})
        EXPECT_EQ(-1, vexmar_ipv4_check(bad)) << (bad ? bad : "(null)");
}

// Text into bytes: each parser fills an 8-byte buffer that starts as ee..ee,
// shown in hex afterwards.
using parser = int (*)(const char *, uint8_t *);
int strmac(const char *t, uint8_t *out) { return vxu_net_strmac(t, out, 8); }
int strmac5(const char *t, uint8_t *out) { return vxu_net_strmac(t, out, 5); }
int strip(const char *t, uint8_t *out)
{
    return vxu_net_strip(t, reinterpret_cast<in_addr *>(out));
}
int strip_test(const char *t, uint8_t *) { return vxu_net_strip(t, nullptr); }
int mac_to_null(const char *t, uint8_t *) { return vexmar_mac_to_char(t, nullptr); }
constexpr parser mac_to_char = vexmar_mac_to_char;

std::string hex8(const uint8_t *p)
{
    char s[17];
    for (int i = 0; i < 8; ++i)
        snprintf(s + 2 * i, 3, "%02x", p[i]);
    return s;
}

// strmac: runs of ':' are one separator, strtol's leniency holds (0x, sign,
// blanks), the low byte is kept, only 63 characters are read, and a failure
// leaves zeros; mac_to_char: one or two digits per field, a failure leaves
// the output alone.
TEST(AddressText, TextToBytes)
{
    // clang-format off
    const std::tuple<parser, const char *, int, const char *> rows[] = {
        {strmac, "00:11:22:aa:BB:cc", 0, "001122aabbcc0000"},
        {strmac, "::0:1:2:3:4:5:", 0, "0001020304050000"},
        {strmac, "0x1:-1:1FF: a:2:3", 0, "01ffff0a02030000"},
        {strmac, "00:11:22:33:44:55::::::::::::::::::::::::::::::::::::::::::::::66", 0, "0011223344550000"},
        {strmac, "00:11:22:33:44", -1, "0000000000000000"},
        {strmac, "00:11:22:33:44:55:66", -1, "0000000000000000"},
        {strmac, "00:11:22:33:44:5g", -1, "0000000000000000"}, {strmac, "", -1, "0000000000000000"},
        {strmac, nullptr, -1, "eeeeeeeeeeeeeeee"},
        {strmac5, "00:11:22:33:44:55", -1, "eeeeeeeeeeeeeeee"},
        {mac_to_char, "a:b:c:d:e:f", 0, "0a0b0c0d0e0feeee"},
        {mac_to_char, "DE:ad:BE:ef:00:99 x", 0, "deadbeef0099eeee"},
        {mac_to_char, "001:22:33:44:55:66", -1, "eeeeeeeeeeeeeeee"},
        {mac_to_char, "00:11:22:33:44", -1, "eeeeeeeeeeeeeeee"},
        {mac_to_char, nullptr, -1, "eeeeeeeeeeeeeeee"},
        {mac_to_null, "00:11:22:33:44:55", -1, "eeeeeeeeeeeeeeee"},
        {strip, "192.168.10.254", 0, "c0a80afeeeeeeeee"}, {strip, "10.1", 0, "0a000001eeeeeeee"},
        {strip, "1.2.3.4x", -1, "eeeeeeeeeeeeeeee"}, {strip, "", -1, "eeeeeeeeeeeeeeee"},
        {strip, nullptr, -1, "eeeeeeeeeeeeeeee"}, {strip_test, "0x7f.1", 0, "eeeeeeeeeeeeeeee"}};
    // clang-format on
    for (const auto &[fn, text, rc, bytes] : rows) {
        uint8_t out[8];
        memset(out, 0xee, sizeof out);
        EXPECT_EQ(rc, fn(text, out)) << (text ? text : "(null)");
        EXPECT_EQ(bytes, hex8(out)) << (text ? text : "(null)");
    }
}

// Bytes into text, in a buffer of '#' guards read up to the first guard.
const uint8_t kMac[7] = {0x0a, 0x1b, 0x2c, 0xd3, 0xe4, 0xff, 0x99};
const in_addr kV4 = {htonl(0xc0a80afe)};
const in6_addr kV6 = {{{0xfe, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 2}}};
int put(const char *text, char *buf) { return text ? (strcpy(buf, text), 0) : -1; }

TEST(AddressText, BytesToText)
{
    // clang-format off
    const std::tuple<int (*)(char *), int, const char *> rows[] = {
        {[](char *b) { return vxu_net_macstr(kMac, 7, b, 18); }, 0, "0A:1B:2C:D3:E4:FF"},
        {[](char *b) { return vxu_net_macstr(kMac, 7, b, 17); }, -1, ""},
        {[](char *b) { return vxu_net_macstr(kMac, 5, b, 18); }, -1, ""},
        {[](char *b) { return vxu_net_macstr(nullptr, 6, b, 18); }, -1, ""},
        {[](char *) { return vxu_net_macstr(kMac, 6, nullptr, 18); }, -1, ""},
        {[](char *b) { return vxu_net_ipstr(&kV4, b, 16); }, 0, "192.168.10.254"},
        {[](char *b) { return vxu_net_ipstr(&kV4, b, 14); }, -1, ""},
        {[](char *b) { return vxu_net_ipstr(&kV4, b, 0); }, -1, ""},
        {[](char *b) { return vxu_net_ipstr(nullptr, b, 16); }, -1, ""},
        {[](char *) { return vxu_net_ipstr(&kV4, nullptr, 16); }, -1, ""},
        {[](char *b) { return vxu_net_ip6str(&kV6, b, 46); }, 0, "fe80::1:2"},
        {[](char *b) { return vxu_net_ip6str(&kV6, b, 5); }, -1, ""},
        {[](char *b) { return vxu_net_ip6str(nullptr, b, 46); }, -1, ""},
        {[](char *b) { return put(vexmar_ip_int_to_string(0x0101a8c0), b); }, 0, "192.168.1.1"},
        {[](char *b) { return put(vexmar_ip_int_to_string(0xffffffff), b); }, 0, "255.255.255.255"},
        {[](char *b) { return put(vexmar_ipv6_ntop(kV6), b); }, 0, "fe80::1:2"},
        {[](char *b) { return put(vexmar_ipv4_ntoa(kV4), b); }, 0, "192.168.10.254"}};
    // clang-format on
    for (const auto &[fn, rc, text] : rows) {
        char buf[64];
        memset(buf, '#', sizeof buf);
        EXPECT_EQ(rc, fn(buf)) << text;
        EXPECT_EQ(text, std::string(buf, strcspn(buf, "#"))) << text;
    }
}

TEST(AddressText, ResultBuffersArePerThread)
{
    const char *v4 = vexmar_ip_int_to_string(0x0101a8c0);
    const char *v6 = vexmar_ipv6_ntop(in6addr_loopback);
    std::thread([&] {
        EXPECT_NE(v4, vexmar_ip_int_to_string(0x0200000a));
        EXPECT_NE(v6, vexmar_ipv6_ntop(kV6));
    }).join();
    EXPECT_STREQ("192.168.1.1", v4) << "another thread's call left this one alone";
    EXPECT_STREQ("::1", v6);
    EXPECT_EQ(v4, vexmar_ip_int_to_string(0)) << "one buffer per thread";
}

}  // namespace
