#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#include <vxutil/text.h>

#include "common/test_support.hpp"

namespace {

// A destination with guard bytes: writes past the size given to the call
// show up as changed guards.
struct guarded {
    static constexpr int kCap = 32;
    char buf[kCap];
    guarded() { memset(buf, '#', sizeof buf); }
    bool guards_intact(int size) const
    {
        for (int i = size; i < kCap; ++i) {
            if (buf[i] != '#')
                return false;
        }
        return true;
    }
};

using writer = int (*)(const char *, char *, int);

// Runs a (source, destination, size) writer and returns what it left.
std::string run(writer fn, const char *src, int size)
{
    guarded g;
    EXPECT_EQ(0, fn(src, g.buf, size)) << src;
    EXPECT_TRUE(g.guards_intact(size)) << "wrote past " << size << " for " << src;
    EXPECT_LT(strnlen(g.buf, sizeof g.buf), static_cast<size_t>(size)) << "not terminated";
    return g.buf;
}

TEST(StrCopy, AlwaysTerminatesWithinTheSize)
{
    guarded g;
    EXPECT_EQ(0, vxu_str_strncpy(g.buf, "abcdef", 4));
    EXPECT_STREQ("abc", g.buf);
    EXPECT_TRUE(g.guards_intact(4));
    EXPECT_EQ(0, vxu_str_strncpy(g.buf, "ab", 6));
    EXPECT_EQ(0, memcmp(g.buf, "ab\0\0\0\0", 6)) << "the rest is zero-filled";
    EXPECT_TRUE(g.guards_intact(6));
    EXPECT_EQ(0, vxu_str_strncpy(g.buf, "xyz", 1));
    EXPECT_EQ('\0', g.buf[0]);

    guarded untouched;
    EXPECT_EQ(-1, vxu_str_strncpy(untouched.buf, "a", 0));
    EXPECT_EQ(-1, vxu_str_strncpy(untouched.buf, nullptr, 4));
    EXPECT_EQ(-1, vxu_str_strncpy(nullptr, "a", 4));
    EXPECT_TRUE(untouched.guards_intact(0));
}

TEST(StrCompare, ResultsAndBadArguments)
{
    EXPECT_EQ(0, vxu_str_strcmp("abc", "abc"));
    EXPECT_LT(vxu_str_strcmp("abc", "abd"), 0);
    EXPECT_GT(vxu_str_strncmp("abz", "abc", 3), 0);
    EXPECT_EQ(0, vxu_str_strncmp("abz", "abc", 2));
    EXPECT_EQ(0, vxu_str_strcasecmp("HeLLo", "hello"));
    EXPECT_NE(0, vxu_str_strcmp("HeLLo", "hello"));
    EXPECT_EQ(0, vxu_str_strncasecmp("ABCx", "abcy", 3));
    EXPECT_NE(0, vxu_str_strncasecmp("ABCx", "abcy", 4));

    EXPECT_EQ(-2, vxu_str_strcmp(nullptr, "a"));
    EXPECT_EQ(-2, vxu_str_strcasecmp("a", nullptr));
    EXPECT_EQ(-2, vxu_str_strncmp("a", "a", 0));
    EXPECT_EQ(-2, vxu_str_strncmp(nullptr, nullptr, 3));
    EXPECT_EQ(-2, vxu_str_strncasecmp("a", "a", -1));
    EXPECT_EQ(-2, vxu_str_strncasecmp("a", nullptr, 3));
}

TEST(StrCase, FoldsOnlyAsciiLetters)
{
    EXPECT_EQ("AZ09 @[`{~\xE9\xFF"
              "AZ",
              run(vxu_str_toupper,
                  "az09 @[`{~\xE9\xFF"
                  "AZ",
                  32));
    EXPECT_EQ("az09 @[`{~\xC9\xFF"
              "az",
              run(vxu_str_tolower,
                  "AZ09 @[`{~\xC9\xFF"
                  "az",
                  32));
    EXPECT_EQ("ABC", run(vxu_str_toupper, "abcdef", 4));
    EXPECT_EQ("", run(vxu_str_tolower, "ABC", 1));
    EXPECT_EQ("", run(vxu_str_toupper, "", 8));

    guarded g;
    EXPECT_EQ(-1, vxu_str_toupper("a", g.buf, 0));
    EXPECT_EQ(-1, vxu_str_tolower(nullptr, g.buf, 4));
    EXPECT_EQ(-1, vxu_str_tolower("a", nullptr, 4));
    EXPECT_TRUE(g.guards_intact(0));
}

// The parsers, trims and quote removal also run under fuzz/ against models
// of their rules; these are the cases worth reading.
TEST(StrTrim, WhitespaceIsExactlyFourBytes)
{
    EXPECT_EQ("ab", run(vxu_str_strip, "  ab\t\n", 32));
    EXPECT_EQ("ab", run(vxu_str_strip, "  ab\t\n", 3));
    EXPECT_EQ("a", run(vxu_str_strip, " a   b", 4)) << "trimmed again at the cut";
    EXPECT_EQ("\vx\f", run(vxu_str_strip, "\r \vx\f \n", 32));
    EXPECT_EQ("", run(vxu_str_strip, " \t\r\n ", 32));
    EXPECT_EQ("ab\vc", run(vxu_str_stripall, " a b\t\r\n\vc ", 32));
    EXPECT_EQ("ab", run(vxu_str_stripall, " a b\tc\r\nd ", 3));
    EXPECT_EQ(-1, vxu_str_strip("a", nullptr, 4));
    EXPECT_EQ(-1, vxu_str_stripall(nullptr, nullptr, 4));
}

TEST(StrNumber, ThreeParsersThreeRules)
{
    int v = 99;
    EXPECT_EQ(0, vxu_str_atoi("007", &v));
    EXPECT_EQ(7, v);
    EXPECT_EQ(0, vxu_str_atoi("42", nullptr)) << "validation only";
    EXPECT_EQ(0, vexmar_atoi("4294967297", &v));
    EXPECT_EQ(1, v) << "cut to the low 32 bits";
    v = 99;
    for (const char *bad : {"12a", "-5", " 5", ""}) {
        EXPECT_EQ(-1, vxu_str_atoi(bad, &v)) << bad;
        EXPECT_EQ(-1, vexmar_atoi(bad, &v)) << bad;
    }
    EXPECT_EQ(99, v) << "untouched on failure";
    EXPECT_EQ(-1, vexmar_atoi("12", nullptr));

    uint32_t u = 1;
    EXPECT_EQ(0, vxu_str_atoi_ext("0x", &u));
    EXPECT_EQ(0u, u);
    EXPECT_EQ(0, vxu_str_atoi_ext("0x1deadbeeF", &u));
    EXPECT_EQ(0xdeadbeefu, u) << "only the last eight digits count";
    EXPECT_EQ(0, vxu_str_atoi_ext("4294967296", &u));
    EXPECT_EQ(0u, u) << "decimal wraps";
    u = 77;
    for (const char *bad : {"0xg", "0X10", "12 ", "x1"})
        EXPECT_EQ(-1, vxu_str_atoi_ext(bad, &u)) << bad;
    EXPECT_EQ(77u, u);
    EXPECT_EQ(-1, vxu_str_atoi_ext("1", nullptr));
}

TEST(StrValidate, DigitsUpperCaseAndHexDumps)
{
    EXPECT_EQ(0, vexmar_string_isdigit("0123456789"));
    EXPECT_EQ(-1, vexmar_string_isdigit("12a"));
    EXPECT_EQ(-1, vexmar_string_isdigit(""));
    EXPECT_EQ(0, vexmar_string_isalpha_upper("AZ"));
    EXPECT_EQ(-1, vexmar_string_isalpha_upper("A@"));
    EXPECT_EQ(-1, vexmar_string_isalpha_upper(nullptr));
    EXPECT_EQ(0, vexmar_isalpha_upper('Q'));
    EXPECT_EQ(-1, vexmar_isalpha_upper('q'));

    EXPECT_EQ(0, vexmar_hexdump_string_check("0123456789abcdefABCDEF"));
    for (const char *bad : {"0aF", "0g", "", "0a\n"})
        EXPECT_EQ(-1, vexmar_hexdump_string_check(bad)) << bad;
    EXPECT_EQ(-1, vexmar_hexdump_string_check(nullptr));
}

TEST(StrQuotes, CopiesTheInnerTextWithoutTerminator)
{
    guarded g;
    EXPECT_EQ(0, vexmar_double_quotes_to_string(g.buf, "\"abcdef\"", 3));
    EXPECT_EQ(0, memcmp(g.buf, "abc", 3));
    EXPECT_TRUE(g.guards_intact(3)) << "nothing beyond the size";

    guarded empty;
    EXPECT_EQ(0, vexmar_double_quotes_to_string(empty.buf, "\"\"", 8));
    EXPECT_TRUE(empty.guards_intact(0)) << "nothing copied";
    for (const char *bad : {"\"", "", "\"abc", "abc\""})
        EXPECT_EQ(-1, vexmar_double_quotes_to_string(empty.buf, bad, 8)) << bad;
    EXPECT_EQ(-1, vexmar_double_quotes_to_string(empty.buf, "\"a\"", 0));
    EXPECT_EQ(-1, vexmar_double_quotes_to_string(nullptr, "\"a\"", 8));
}

TEST(StrDup, FormatsIntoAFreshBuffer)
{
    char *s = vexmar_strdup("%s-%d-%05.1f", "id", 42, 3.14159);
    ASSERT_NE(nullptr, s);
    EXPECT_STREQ("id-42-003.1", s);
    free(s);

    const std::string big(5000, 'x');
    s = vexmar_strdup("<%s>", big.c_str());
    ASSERT_NE(nullptr, s);
    EXPECT_EQ("<" + big + ">", s);
    free(s);

    EXPECT_EQ(nullptr, vexmar_strdup("%s", ""));
    EXPECT_EQ(nullptr, vexmar_strdup(nullptr));
}

}  // namespace
