// The WLAN MAC file lives at a fixed path under /lib/firmware. Every test
// runs in a forked child inside a private mount namespace with a tmpfs over
// /lib/firmware, so the machine's firmware directory is never touched.
#include <sched.h>
#include <stdio.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <functional>
#include <string>

#include <vxutil/files.h>

#include "common/test_support.hpp"

namespace {

constexpr int kRefused = 77;
constexpr const char kDir[] = "/lib/firmware/wlan/qca_cld";
constexpr const char kFile[] = "/lib/firmware/wlan/qca_cld/wlan_mac.bin";

// Runs body in a child that sees an empty tmpfs at /lib/firmware; the
// child exits with kRefused when the machine denies the namespace or mount.
int run_in_firmware_sandbox(const std::function<void()> &body)
{
    return vxu_test::run_in_child([&] {
        if (unshare(CLONE_NEWNS) != 0 ||
            mount("none", "/", "none", MS_REC | MS_PRIVATE, nullptr) != 0 ||
            mount("tmpfs", "/lib/firmware", "tmpfs", 0, "size=1m") != 0)
            _exit(kRefused);
        body();
    });
}

#define EXPECT_IN_FIRMWARE_SANDBOX(...)                                                            \
    do {                                                                                           \
        const int status_ = run_in_firmware_sandbox(__VA_ARGS__);                                  \
        if (status_ == kRefused)                                                                   \
            GTEST_SKIP() << "no private mount namespace with a tmpfs on /lib/firmware "            \
                            "(needs CAP_SYS_ADMIN and an existing /lib/firmware)";                 \
        EXPECT_EQ(0, status_);                                                                     \
    } while (0)

void make_dir()
{
    ASSERT_EQ(0, mkdir("/lib/firmware/wlan", 0755));
    ASSERT_EQ(0, mkdir(kDir, 0755));
}

std::string file_contents()
{
    FILE *f = fopen(kFile, "rb");
    if (!f)
        return "<missing>";
    char buf[128];
    const size_t n = fread(buf, 1, sizeof buf, f);
    fclose(f);
    return std::string(buf, n);
}

void put_file(const char *text)
{
    FILE *f = fopen(kFile, "wb");
    ASSERT_NE(nullptr, f);
    fputs(text, f);
    fclose(f);
}

TEST(WlanMacFile, WritesTheExactTwoLinesAndReadsThemBack)
{
    EXPECT_IN_FIRMWARE_SANDBOX([] {
        make_dir();
        put_file("a stale and much longer file that must be truncated by the writer\n");
        const struct {
            uint8_t mac[6];
            const char *line;
        } cases[] = {
            {{0x00, 0x0A, 0xF5, 0x12, 0x34, 0x56}, "Intf0MacAddress=000AF5123456\n"},
            {{0xAB, 0xCD, 0xEF, 0xfa, 0xbc, 0xde}, "Intf0MacAddress=ABCDEFFABCDE\n"},
            {{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}, "Intf0MacAddress=FFFFFFFFFFFF\n"},
            {{0, 0, 0, 0, 0, 0}, "Intf0MacAddress=000000000000\n"},
        };
        for (const auto &c : cases) {
            vxu_test::fd_leak_check no_leaks;
            ASSERT_EQ(0, vexmar_wlan_mac_bin_write(c.mac));
            const std::string text = file_contents();
            EXPECT_EQ(33u, text.size());
            EXPECT_EQ(std::string(c.line) + "END\n", text);
            uint8_t back[6] = {};
            ASSERT_EQ(0, vexmar_wlan_mac_bin_read(back));
            EXPECT_EQ(0, memcmp(back, c.mac, 6)) << c.line;
        }
        EXPECT_EQ(-1, vexmar_wlan_mac_bin_write(nullptr));
        EXPECT_EQ(-1, vexmar_wlan_mac_bin_read(nullptr));
    });
}

TEST(WlanMacFile, ReaderChecksTheFirstLine)
{
    EXPECT_IN_FIRMWARE_SANDBOX([] {
        make_dir();
        vxu_test::fd_leak_check no_leaks;
        const uint8_t want[6] = {0xab, 0xcd, 0xef, 0x01, 0x23, 0x45};
        uint8_t mac[6] = {};
        // Lower-case digits, no end marker, and trailing bytes are all fine.
        for (const char *good :
             {"Intf0MacAddress=abcdef012345\nEND\n", "Intf0MacAddress=aBcDeF012345",
              "Intf0MacAddress=abcdef01234567\n"}) {
            put_file(good);
            memset(mac, 0, sizeof mac);
            EXPECT_EQ(0, vexmar_wlan_mac_bin_read(mac)) << good;
            EXPECT_EQ(0, memcmp(mac, want, 6)) << good;
        }

        const uint8_t sentinel[6] = {1, 2, 3, 4, 5, 6};
        // Another key (interface 1, or the key in other letter case), eleven
        // digits, blanks or a prefix that scanf alone would take, no line.
        for (const char *bad :
             {"Intf1MacAddress=abcdef012345\n", "intf0MacAddress=abcdef012345\n",
              "Intf0MacAddress=abcdef01234\nEND\n", "Intf0MacAddress= abcdef012345\n",
              "Intf0MacAddress=0xcdef012345\n", ""}) {
            put_file(bad);
            memcpy(mac, sentinel, sizeof mac);
            EXPECT_EQ(-1, vexmar_wlan_mac_bin_read(mac)) << '"' << bad << '"';
            EXPECT_EQ(0, memcmp(mac, sentinel, 6)) << "output changed for " << bad;
        }
    });
}

TEST(WlanMacFile, MissingFileOrDirectory)
{
    EXPECT_IN_FIRMWARE_SANDBOX([] {
        vxu_test::fd_leak_check no_leaks;
        const uint8_t mac[6] = {1, 2, 3, 4, 5, 6};
        uint8_t out[6] = {9, 9, 9, 9, 9, 9};
        EXPECT_EQ(-1, vexmar_wlan_mac_bin_read(out));
        EXPECT_EQ(-1, vexmar_wlan_mac_bin_write(mac));
        struct stat st;
        EXPECT_NE(0, stat("/lib/firmware/wlan", &st)) << "the writer must not create directories";

        make_dir();
        EXPECT_EQ(-1, vexmar_wlan_mac_bin_read(out)) << "directory without the file";
        EXPECT_EQ(9, out[0]);
    });
}

TEST(WlanMacFile, NoDescriptorLeft)
{
    SKIP_UNDER_VALGRIND(vxu_test::kDescriptorLimits);
    EXPECT_IN_FIRMWARE_SANDBOX([] {
        make_dir();
        const uint8_t mac[6] = {1, 2, 3, 4, 5, 6};
        ASSERT_EQ(0, vexmar_wlan_mac_bin_write(mac));
        const std::string before = file_contents();
        {
            vxu_test::fds_taken none(vxu_test::leaving_free{0});
            ASSERT_TRUE(none.ok());
            const uint8_t other[6] = {6, 5, 4, 3, 2, 1};
            uint8_t out[6] = {9, 9, 9, 9, 9, 9};
            EXPECT_EQ(-1, vexmar_wlan_mac_bin_write(other));
            EXPECT_EQ(-1, vexmar_wlan_mac_bin_read(out));
            EXPECT_EQ(9, out[0]);
        }
        EXPECT_EQ(before, file_contents());
    });
}

}  // namespace
