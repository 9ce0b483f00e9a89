#include <vxutil/text.h>

#include "common/test_support.hpp"

namespace {

const vxu_v2n_t kStates[] = {
    {0, "idle"},    {3, "dialing"}, {7, "online"},     {3, "dialing_again"},
    {-1, "broken"}, {9, nullptr},   {11, "after_end"},
};

TEST(ValueName, ValueToName)
{
    EXPECT_EQ(kStates[2].name, vxu_v2n(kStates, 7)) << "the table's own pointer";
    EXPECT_STREQ("dialing", vxu_v2n(kStates, 3)) << "first of two equal values";
    EXPECT_STREQ("null_unknow", vxu_v2n(kStates, 9)) << "the terminator is no entry";
    EXPECT_STREQ("null_unknow", vxu_v2n(kStates, 11)) << "nothing after the terminator";
    EXPECT_STREQ("null_unknow", vxu_v2n(kStates, 5));

    const vxu_v2n_t empty[] = {{0, nullptr}};
    EXPECT_STREQ("null_unknow", vxu_v2n(empty, 0));
    EXPECT_STREQ("null_unknow", vxu_v2n(nullptr, 0));
}

TEST(ValueName, NameToValue)
{
    EXPECT_EQ(7, vxu_n2v(kStates, "online"));
    EXPECT_EQ(3, vxu_n2v(kStates, "dialing_again"));
    EXPECT_EQ(0, vxu_n2v(kStates, "idle"));
    EXPECT_EQ(-1, vxu_n2v(kStates, "Online")) << "case matters";
    EXPECT_EQ(-1, vxu_n2v(kStates, "onlin"));
    EXPECT_EQ(-1, vxu_n2v(kStates, "after_end"));
    EXPECT_EQ(-1, vxu_n2v(kStates, ""));
    EXPECT_EQ(-1, vxu_n2v(kStates, nullptr));

    const vxu_v2n_t empty[] = {{5, nullptr}};
    EXPECT_EQ(-1, vxu_n2v(empty, "x"));
    EXPECT_EQ(-1, vxu_n2v(nullptr, "x"));
    // An empty name is refused before the table is looked at.
    EXPECT_EQ(-1, vxu_n2v(reinterpret_cast<const vxu_v2n_t *>(16), ""));
}

}  // namespace
