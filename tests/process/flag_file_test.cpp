#include <errno.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <regex>
#include <string>

#include <vxutil/frame.h>
#include <vxutil/process.h>

#include "process/process_test_util.hpp"

using namespace vxu_test;

namespace {

// Flags under a name of this test run, in the shared flag directory; only
// the files this fixture names are removed afterwards.
class FlagFiles : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (mkdir("/tmp/vx_flags", 0777) != 0 && errno != EEXIST)
            GTEST_SKIP() << "cannot create /tmp/vx_flags";
        name_ = "vxutest_" + std::to_string(getpid()) + "_" +
                ::testing::UnitTest::GetInstance()->current_test_info()->name();
    }
    void TearDown() override
    {
        unlink(flag().c_str());
        unlink(removal().c_str());
    }
    std::string flag() const { return "/tmp/vx_flags/" + name_ + ".flag"; }
    std::string removal() const { return "/tmp/vx_flags/" + name_ + ".remove"; }

    // The stamp in path, checked for its form and taken in milliseconds.
    static long long stamp_ms(const std::string &path)
    {
        const std::string text = read_text(path);
        std::smatch m;
        if (!std::regex_match(text, m, std::regex("([1-9][0-9]*|0)\\.([0-9]{3})\n"))) {
            ADD_FAILURE() << path << " holds '" << text << "'";
            return -1;
        }
        return std::stoll(m[1]) * 1000 + std::stoll(m[2]);
    }

    std::string name_;
    fd_leak_check fds_;
};

TEST_F(FlagFiles, RaiseWritesTheUptimeInSecondsAndMilliseconds)
{
    const auto before = static_cast<long long>(vxu_com_get_uptime_ms());
    EXPECT_EQ(0, vxu_com_add_flag_file(name_.c_str()));
    const auto after = static_cast<long long>(vxu_com_get_uptime_ms());
    const long long stamp = stamp_ms(flag());
    EXPECT_LE(before, stamp);
    EXPECT_GE(after, stamp);
    EXPECT_FALSE(exists(removal()));
}

TEST_F(FlagFiles, FourStates)
{
    EXPECT_EQ(-2, vxu_com_del_flag_file(name_.c_str())) << "none";
    EXPECT_FALSE(exists(removal()));

    EXPECT_EQ(0, vxu_com_add_flag_file(name_.c_str()));
    const long long raised = stamp_ms(flag());
    usleep(20000);
    EXPECT_EQ(0, vxu_com_add_flag_file(name_.c_str()));
    EXPECT_LT(raised, stamp_ms(flag())) << "raised again: new time";

    usleep(20000);
    EXPECT_EQ(0, vxu_com_del_flag_file(name_.c_str()));
    EXPECT_FALSE(exists(flag()));
    const long long lowered = stamp_ms(removal());
    EXPECT_LT(raised, lowered);

    EXPECT_EQ(-2, vxu_com_del_flag_file(name_.c_str())) << "removal file only";
    EXPECT_EQ(lowered, stamp_ms(removal()));

    usleep(20000);
    EXPECT_EQ(0, vxu_com_add_flag_file(name_.c_str()));
    EXPECT_LT(lowered, stamp_ms(flag()));
    EXPECT_EQ(lowered, stamp_ms(removal())) << "raising leaves the removal file";

    usleep(20000);
    EXPECT_EQ(0, vxu_com_del_flag_file(name_.c_str())) << "both files";
    EXPECT_FALSE(exists(flag()));
    EXPECT_LT(lowered, stamp_ms(removal()));
}

TEST_F(FlagFiles, FailuresAndCutNames)
{
    EXPECT_EQ(-1, vxu_com_add_flag_file(nullptr));
    EXPECT_EQ(-1, vxu_com_del_flag_file(nullptr));

    const std::string in_missing_dir = name_ + "_dir/x";
    EXPECT_EQ(-1, vxu_com_add_flag_file(in_missing_dir.c_str()));
    EXPECT_EQ(-2, vxu_com_del_flag_file(in_missing_dir.c_str()));
    EXPECT_FALSE(exists("/tmp/vx_flags/" + name_ + "_dir"));

    // The removal file cannot be opened: the flag is gone all the same.
    ASSERT_EQ(0, mkdir(removal().c_str(), 0700));
    EXPECT_EQ(0, vxu_com_add_flag_file(name_.c_str()));
    EXPECT_EQ(-1, vxu_com_del_flag_file(name_.c_str()));
    EXPECT_FALSE(exists(flag()));
    rmdir(removal().c_str());

    // Paths keep 255 characters: 14 + 240 + "." here.
    const std::string long_name = name_ + std::string(240 - name_.size(), 'n');
    const std::string cut = "/tmp/vx_flags/" + long_name + ".";
    EXPECT_EQ(0, vxu_com_add_flag_file(long_name.c_str()));
    EXPECT_TRUE(exists(cut));
    unlink(cut.c_str());
}

TEST_F(FlagFiles, NoDescriptorForTheStamp)
{
    SKIP_UNDER_VALGRIND(kDescriptorLimits);
    // No descriptor for the stamp: nothing raised, and a lowered flag is
    // gone without its removal file.
    ASSERT_EQ(0, vxu_com_add_flag_file(name_.c_str()));
    const std::string name = name_, other = name_ + "_other";
    EXPECT_IN_CHILD([&] {
        fds_taken none(leaving_free{0});
        ASSERT_TRUE(none.ok());
        EXPECT_EQ(-1, vxu_com_add_flag_file(other.c_str()));
        EXPECT_EQ(-1, vxu_com_del_flag_file(name.c_str()));
    });
    EXPECT_FALSE(exists("/tmp/vx_flags/" + other + ".flag"));
    EXPECT_FALSE(exists(flag()));
    EXPECT_FALSE(exists(removal()));
}

}  // namespace
