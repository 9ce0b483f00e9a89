// File helper tests. The WLAN MAC file lives at a fixed path under
// /lib/firmware, so its tests run in a forked child inside a private mount
// namespace with a tmpfs over /lib/firmware: the machine's is never touched.
#include <sched.h>
#include <string.h>
#include <sys/mount.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include <vxutil/files.h>

#include "common/test_support.hpp"

namespace {

std::string read_text(const std::string &path)
{
    return std::string(std::istreambuf_iterator<char>(std::ifstream(path).rdbuf()), {});
}
void write_text(const std::string &path, const char *text) { std::ofstream(path) << text; }

TEST(FileHelpers, ValuesSizesExistenceAndReads)
{
    const std::string dir = mkdtemp(std::string("/tmp/vxu_files_XXXXXX").data());
    const std::string p = dir + "/value", data = p + "_data", missing = p + "_none";
    const std::string under = data + "/x";
    vxu_test::fd_leak_check fds;
    // clang-format off
    const std::tuple<int, int, int, const char *> ints[] = {  // a bad base leaves the file empty
        {16, 255, 0, "ff\n"}, {16, -1, 0, "ffffffff\n"}, {8, 8, 0, "10\n"}, {10, -1, 0, "-1\n"},
        {2, 5, -1, ""}};
    // clang-format on
    for (const auto &[base, value, rc, text] : ints) {
        EXPECT_EQ(rc, vexmar_file_write_int(p.c_str(), base, value)) << base << " " << value;
        EXPECT_EQ(text, read_text(p)) << base << " " << value;
    }
    EXPECT_EQ(0, vexmar_file_write_string(p.c_str(), ""));  // a lone line feed, read back below
    EXPECT_EQ(0, vexmar_file_write_string(data.c_str(), "012345678"));
    for (int rc :
         {vexmar_file_write_int(nullptr, 10, 1), vexmar_file_write_string(under.c_str(), "x"),
          vexmar_file_write_string(p.c_str(), nullptr), vexmar_file_write_short(p.c_str(), 3),
          vexmar_file_write_long(missing.c_str(), 3), vxu_com_read_file(data.c_str(), nullptr, 4)})
        EXPECT_EQ(-1, rc) << "refused: no path or text, no directory, not supported, no buffer";
    // clang-format off
    // Path, size to read, result, buffer head (no terminator added), file size, existence.
    const std::tuple<const char *, int, int, const char *, int, int> rows[] = {
        {data.c_str(), 4, 4, "0123####", 10, 0}, {data.c_str(), 16, 10, "012345678\n######", 10, 0},
        {data.c_str(), 0, 0, "#", 10, 0}, {p.c_str(), 16, 1, "\n#", 1, 0}, {"", 4, -1, "#", -1, -1},
        {data.c_str(), -1, -1, "#", 10, 0}, {missing.c_str(), 4, -1, "#", -1, 1},
        {under.c_str(), 4, -1, "#", -1, 1}, {nullptr, 4, -1, "#", -1, -1}};
    // clang-format on
    for (const auto &[path, size, rc, head, file_size, exist] : rows) {
        char buf[17] = "################";
        SCOPED_TRACE(std::string(path ? path : "null") + ", " + std::to_string(size));
        EXPECT_EQ(rc, vxu_com_read_file(path, buf, size));
        EXPECT_EQ(head, std::string(buf, strlen(head)));
        EXPECT_EQ(file_size, vxu_com_file_get_size(path));
        EXPECT_EQ(exist, vxu_com_file_exist(path));
    }
    std::filesystem::remove_all(dir);
}

constexpr const char kFile[] = "/lib/firmware/wlan/qca_cld/wlan_mac.bin";

// Runs body in a child that sees an empty tmpfs at /lib/firmware.
void in_firmware_sandbox(const std::function<void()> &body)
{
    const int status = vxu_test::run_in_child([&] {
        if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", "none", MS_REC | MS_PRIVATE, nullptr) ||
            mount("tmpfs", "/lib/firmware", "tmpfs", 0, "size=1m") != 0)
            _exit(77);
        body();
    });
    if (status == 77)
        GTEST_SKIP() << "no private mount namespace with a tmpfs on /lib/firmware";
    vxu_test::expect_child_passed(status, __FILE__, __LINE__);
}

TEST(WlanMacFile, WritesTwoExactLinesAndReadsTheFirstBack)
{
    in_firmware_sandbox([] {
        const uint8_t mac[6] = {0x0a, 0xbc, 0xde, 0xf1, 0x23, 0x9d};
        uint8_t out[6] = {1, 2, 3, 4, 5, 6};
        vxu_test::fd_leak_check fds;
        for (int rc : {vexmar_wlan_mac_bin_read(out), vexmar_wlan_mac_bin_write(mac),
                       vexmar_wlan_mac_bin_write(nullptr), vexmar_wlan_mac_bin_read(nullptr)})
            EXPECT_EQ(-1, rc) << "no file, no directory, no address";
        // Fails when the writer made any directory of it.
        ASSERT_TRUE(std::filesystem::create_directories("/lib/firmware/wlan/qca_cld"));
        ASSERT_EQ(0, vexmar_wlan_mac_bin_write(mac));
        EXPECT_EQ("Intf0MacAddress=0ABCDEF1239D\nEND\n", read_text(kFile));
        EXPECT_EQ(0, vexmar_wlan_mac_bin_read(out));
        EXPECT_EQ(0, memcmp(mac, out, 6));
        // The key in this letter case, then twelve digits of either case; the
        // rest is not read. A refused line leaves the output alone.
        const uint8_t want[6] = {0xab, 0xcd, 0xef, 0x01, 0x23, 0x49}, kept[6] = {1, 2, 3, 4, 5, 6};
        // clang-format off
        const std::pair<const char *, bool> lines[] = {
            {"Intf0MacAddress=abcdef012349\nEND\n", true}, {"Intf0MacAddress=aBcDeF012349", true},
            {"Intf0MacAddress=abcdef01234999\n", true}, {"Intf1MacAddress=abcdef012349\n", false},
            {"intf0MacAddress=abcdef012349\n", false}, {"Intf0MacAddress=abcdef01234\n", false},
            {"Intf0MacAddress= abcdef012349\n", false}, {"Intf0MacAddress=0xcdef012349\n", false},
            {"Intf0MacAddress=abcdef01234g\n", false}, {"", false}};
        // clang-format on
        for (const auto &[line, good] : lines) {
            write_text(kFile, line);
            memcpy(out, kept, 6);
            EXPECT_EQ(good ? 0 : -1, vexmar_wlan_mac_bin_read(out)) << line;
            EXPECT_EQ(0, memcmp(out, good ? want : kept, 6)) << line;
        }
    });
}

TEST(Files, WithoutADescriptorEveryOpenFailsAndNothingChanges)
{
    SKIP_UNDER_VALGRIND(vxu_test::kDescriptorLimits);
    in_firmware_sandbox([] {
        ASSERT_TRUE(std::filesystem::create_directories("/lib/firmware/wlan/qca_cld"));
        write_text(kFile, "Intf0MacAddress=0ABCDEF1239D\nEND\n");
        const vxu_test::fds_taken none(vxu_test::leaving_free{0});
        ASSERT_TRUE(none.ok());
        uint8_t out[8] = {};
        for (int rc : {vexmar_wlan_mac_bin_write(out), vexmar_wlan_mac_bin_read(out),
                       vxu_com_read_file(kFile, out, 8), vexmar_file_write_string(kFile, "new"),
                       vexmar_file_write_int("/lib/firmware/fresh", 10, 5)})
            EXPECT_EQ(-1, rc);
        EXPECT_EQ(33, vxu_com_file_get_size(kFile)) << "left as it was; needs no descriptor";
        EXPECT_EQ(1, vxu_com_file_exist("/lib/firmware/fresh")) << "nothing created";
    });
}

}  // namespace
