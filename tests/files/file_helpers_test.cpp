#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include <vxutil/files.h>

#include "common/test_support.hpp"

namespace {

class FileHelpers : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_NE(nullptr, mkdtemp(dir_)); }
    void TearDown() override
    {
        const std::string cmd = std::string("rm -rf ") + dir_;
        ASSERT_EQ(0, system(cmd.c_str()));
    }

    std::string path(const char *name) const { return std::string(dir_) + "/" + name; }

    static std::string contents(const std::string &p)
    {
        FILE *f = fopen(p.c_str(), "rb");
        if (!f)
            return "<missing>";
        std::string s = vxu_test::read_stream(f);
        fclose(f);
        return s;
    }

    static void put(const std::string &p, const std::string &text)
    {
        FILE *f = fopen(p.c_str(), "wb");
        ASSERT_NE(nullptr, f);
        fwrite(text.data(), 1, text.size(), f);
        fclose(f);
    }

    char dir_[32] = "/tmp/vxu_files_XXXXXX";
    vxu_test::fd_leak_check no_leaks_;
};

TEST_F(FileHelpers, WriteIntReplacesTheFileWithOneLine)
{
    const std::string p = path("value");
    put(p, "a much longer previous content\n");
    EXPECT_EQ(0, vexmar_file_write_int(p.c_str(), 16, 255));
    EXPECT_EQ("ff\n", contents(p));
    EXPECT_EQ(0, vexmar_file_write_int(p.c_str(), 16, -1));
    EXPECT_EQ("ffffffff\n", contents(p));
    EXPECT_EQ(0, vexmar_file_write_int(p.c_str(), 8, 8));
    EXPECT_EQ("10\n", contents(p));
    EXPECT_EQ(0, vexmar_file_write_int(p.c_str(), 10, -1));
    EXPECT_EQ("-1\n", contents(p));

    // An unknown base still truncates: the file is left empty.
    EXPECT_EQ(-1, vexmar_file_write_int(p.c_str(), 2, 5));
    EXPECT_EQ("", contents(p));
    EXPECT_EQ(-1, vexmar_file_write_int(nullptr, 10, 1));
    EXPECT_EQ(-1, vexmar_file_write_int(path("no/such/dir").c_str(), 10, 1));
}

TEST_F(FileHelpers, WriteStringAndThePlaceholders)
{
    const std::string p = path("text");
    EXPECT_EQ(0, vexmar_file_write_string(p.c_str(), "hello world"));
    EXPECT_EQ("hello world\n", contents(p));
    EXPECT_EQ(0, vexmar_file_write_string(p.c_str(), ""));
    EXPECT_EQ("\n", contents(p));
    EXPECT_EQ(-1, vexmar_file_write_string(p.c_str(), nullptr));
    EXPECT_EQ("\n", contents(p)) << "refused before the open";
    EXPECT_EQ(-1, vexmar_file_write_string(nullptr, "x"));

    EXPECT_EQ(-1, vexmar_file_write_short(p.c_str(), 3));
    EXPECT_EQ(-1, vexmar_file_write_long(path("long").c_str(), 3));
    EXPECT_EQ("\n", contents(p)) << "placeholders touch no file";
    EXPECT_EQ("<missing>", contents(path("long")));
}

TEST_F(FileHelpers, SizeAndExistence)
{
    const std::string p = path("five");
    put(p, "12345");
    EXPECT_EQ(5, vxu_com_file_get_size(p.c_str()));
    struct stat st;
    ASSERT_EQ(0, stat(dir_, &st));
    EXPECT_EQ(static_cast<int>(st.st_size), vxu_com_file_get_size(dir_));
    ASSERT_EQ(0, symlink(p.c_str(), path("link").c_str()));
    EXPECT_EQ(5, vxu_com_file_get_size(path("link").c_str())) << "links are followed";

    // Only the low 32 bits of a large size are reported.
    const std::string big = path("sparse");
    const int fd = open(big.c_str(), O_CREAT | O_WRONLY, 0600);
    ASSERT_GE(fd, 0);
    const bool sized = ftruncate(fd, (off_t{1} << 32) + 7) == 0;
    close(fd);
    if (sized) {
        EXPECT_EQ(7, vxu_com_file_get_size(big.c_str()));
    }

    EXPECT_EQ(-1, vxu_com_file_get_size(path("missing").c_str()));
    EXPECT_EQ(-1, vxu_com_file_get_size(""));
    EXPECT_EQ(-1, vxu_com_file_get_size(nullptr));

    EXPECT_EQ(0, vxu_com_file_exist(p.c_str()));
    EXPECT_EQ(0, vxu_com_file_exist(dir_));
    EXPECT_EQ(1, vxu_com_file_exist(path("missing").c_str()));
    EXPECT_EQ(1, vxu_com_file_exist((p + "/under_a_file").c_str()));
    EXPECT_EQ(-1, vxu_com_file_exist(""));
    EXPECT_EQ(-1, vxu_com_file_exist(nullptr));
}

TEST_F(FileHelpers, NoDescriptorLeft)
{
    SKIP_UNDER_VALGRIND(vxu_test::kDescriptorLimits);
    const std::string p = path("value"), fresh = path("fresh");
    put(p, "text\n");
    EXPECT_IN_CHILD([&] {
        vxu_test::fds_taken none(vxu_test::leaving_free{0});
        ASSERT_TRUE(none.ok());
        char buf[8];
        EXPECT_EQ(-1, vxu_com_read_file(p.c_str(), buf, sizeof buf));
        EXPECT_EQ(-1, vexmar_file_write_string(p.c_str(), "new"));
        EXPECT_EQ(-1, vexmar_file_write_int(p.c_str(), 10, 5));
        EXPECT_EQ(-1, vexmar_file_write_int(fresh.c_str(), 10, 5));
        EXPECT_EQ(0, vxu_com_file_exist(p.c_str())) << "needs no descriptor";
        EXPECT_EQ(5, vxu_com_file_get_size(p.c_str())) << "needs no descriptor";
    });
    EXPECT_EQ("text\n", contents(p)) << "left as it was";
    EXPECT_EQ("<missing>", contents(fresh));
}

TEST_F(FileHelpers, ReadFileStaysInsideTheBuffer)
{
    const std::string p = path("data");
    put(p, "0123456789");
    char buf[16];
    memset(buf, '#', sizeof buf);
    EXPECT_EQ(4, vxu_com_read_file(p.c_str(), buf, 4));
    EXPECT_EQ(0, memcmp(buf, "0123####", 8)) << "no terminator, nothing past the size";
    EXPECT_EQ(10, vxu_com_read_file(p.c_str(), buf, sizeof buf));
    EXPECT_EQ(0, memcmp(buf, "0123456789", 10));
    EXPECT_EQ(0, vxu_com_read_file(p.c_str(), buf, 0));

    put(path("empty"), "");
    EXPECT_EQ(0, vxu_com_read_file(path("empty").c_str(), buf, sizeof buf));

    memset(buf, '#', sizeof buf);
    EXPECT_EQ(-1, vxu_com_read_file(p.c_str(), buf, -1));
    EXPECT_EQ(-1, vxu_com_read_file(p.c_str(), nullptr, 4));
    EXPECT_EQ(-1, vxu_com_read_file(path("missing").c_str(), buf, 4));
    EXPECT_EQ(-1, vxu_com_read_file("", buf, 4));
    EXPECT_EQ(-1, vxu_com_read_file(nullptr, buf, 4));
    EXPECT_EQ('#', buf[0]);
}

}  // namespace
