#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <tuple>

#include <vxutil/text.h>

#include "common/test_support.hpp"

namespace {

// Every string helper in one shape: a source, a caller's buffer and its size.
using helper = int (*)(const char *src, char *dst, int size);
int copy(const char *s, char *d, int n) { return vxu_str_strncpy(d, s, n); }
int unquote(const char *s, char *d, int n) { return vexmar_double_quotes_to_string(d, s, n); }
constexpr helper up = vxu_str_toupper, low = vxu_str_tolower;
constexpr helper strip = vxu_str_strip, all = vxu_str_stripall;
// The parsers show their value, preset to 99, in the buffer; a size of 1
// means no place to store it (a null pointer).
template <typename T, int (*F)(const char *, T *)>
int parse(const char *text, char *dst, int size)
{
    T v = 99;
    const int rc = F(text, size == 1 ? nullptr : &v);
    std::to_string(v).copy(dst, 16);
    return rc;
}
constexpr helper dec = parse<int, vxu_str_atoi>, digits = parse<int, vexmar_atoi>;
constexpr helper hex = parse<uint32_t, vxu_str_atoi_ext>;
int isdigits(const char *s, char *, int) { return vexmar_string_isdigit(s); }
int upper(const char *s, char *, int) { return vexmar_string_isalpha_upper(s); }
int upper_char(const char *s, char *, int) { return vexmar_isalpha_upper(*s); }
int hexdump(const char *s, char *, int) { return vexmar_hexdump_string_check(s); }

// The compare wrappers, results as signs; -2 is a bad argument.
int cmp(const char *a, const char *b, int) { return vxu_str_strcmp(a, b); }
int casecmp(const char *a, const char *b, int) { return vxu_str_strcasecmp(a, b); }
constexpr auto ncmp = vxu_str_strncmp, ncase = vxu_str_strncasecmp;

// Each call gets a buffer of '#' guards; what it left is read up to the first
// guard, a zero byte shown as '|' ("ab||" is ab and two zero bytes).
// Whitespace is exactly blank, CR, tab and LF, and a cut is trimmed again;
// quote removal writes no terminator of its own; hex keeps only its last
// eight digits and decimal wraps.
TEST(Text, StringHelpers)
{
    // clang-format off
    const std::tuple<helper, const char *, int, int, const char *> rows[] = {
        {copy, "abcdef", 4, 0, "abc|"}, {copy, "ab", 6, 0, "ab||||"}, {copy, "xyz", 1, 0, "|"},
        {up, "az@[`{\xE9", 32, 0, "AZ@[`{\xE9|"}, {low, "AZ@[`{\xC9", 32, 0, "az@[`{\xC9|"},
        {up, "abcdef", 4, 0, "ABC|"}, {low, "ABC", 1, 0, "|"}, {up, "", 8, 0, "|"},
        {strip, "  ab\t\n", 32, 0, "ab|||"}, {strip, "  ab\t\n", 3, 0, "ab|"},
        {strip, " a   b", 4, 0, "a|||"}, {strip, "\r \vx\f \n", 32, 0, "\vx\f|||"},
        {strip, " \t\r\n ", 32, 0, "|"}, {strip, "ab", 1, 0, "|"},
        {all, " a b\t\r\n\vc ", 32, 0, "ab\vc|"}, {all, " a b\tc\r\nd ", 3, 0, "ab|"},
        {unquote, "\"abcde\"", 3, 0, "abc"}, {unquote, "\"\"", 8, 0, ""},
        {unquote, "\"", 8, -1, ""}, {unquote, "", 8, -1, ""}, {unquote, "\"abc", 8, -1, ""},
        {unquote, "abc\"", 8, -1, ""}, {dec, "007", 0, 0, "7"}, {dec, "12a", 0, -1, "99"},
        {dec, "-5", 0, -1, "99"}, {dec, " 5", 0, -1, "99"}, {dec, "", 0, -1, "99"},
        {digits, "4294967297", 0, 0, "1"}, {digits, "12a", 0, -1, "99"}, {digits, "", 0, -1, "99"},
        {hex, "0x", 0, 0, "0"}, {hex, "0x1F", 0, 0, "31"}, {hex, "123", 0, 0, "123"},
        {hex, "4294967296", 0, 0, "0"}, {hex, "0x1fffffffe", 0, 0, "4294967294"},
        {hex, "0xg", 0, -1, "99"}, {hex, "0X10", 0, -1, "99"}, {hex, "12 ", 0, -1, "99"},
        {hex, "x1", 0, -1, "99"}, {isdigits, "0123456789", 0, 0, ""}, {isdigits, "12a", 0, -1, ""},
        {isdigits, "", 0, -1, ""}, {upper, "AZ", 0, 0, ""}, {upper, "A@", 0, -1, ""},
        {upper, nullptr, 0, -1, ""}, {upper_char, "Z", 0, 0, ""}, {upper_char, "A", 0, 0, ""},
        {upper_char, "q", 0, -1, ""}, {hexdump, "0123456789abcdefABCDEF", 0, 0, ""},
        {hexdump, "0aF", 0, -1, ""}, {hexdump, "0g", 0, -1, ""}, {hexdump, "", 0, -1, ""},
        {hexdump, "0a\n", 0, -1, ""}, {hexdump, nullptr, 0, -1, ""}, {dec, "42", 1, 0, "99"},
        {digits, "12", 1, -1, "99"}, {hex, "1", 1, -1, "99"}};
    // clang-format on
    for (const auto &[fn, src, size, rc, left] : rows) {
        std::string b(48, '#');
        EXPECT_EQ(rc, fn(src, &b[0], size)) << src << " size " << size;
        b.erase(b.find('#'));
        std::replace(b.begin(), b.end(), '\0', '|');
        EXPECT_EQ(left, b) << src << " size " << size;
    }
    // -1 each for no buffer, a size of 0 and no source.
    char b[8] = "";
    for (helper fn : {copy, unquote, up, low, strip, all})
        EXPECT_EQ(-3, fn("\"a\"", nullptr, 8) + fn("\"a\"", b, 0) + fn(nullptr, b, 8));
    char *s = vexmar_strdup("%s-%.1f-%05000d", "id", 3.14159, 7);
    EXPECT_EQ("id-3.1-" + std::string(4999, '0') + "7", s ? s : "") << "formatted at any length";
    free(s);
    EXPECT_EQ(nullptr, vexmar_strdup("%s", ""));
    EXPECT_EQ(nullptr, vexmar_strdup(nullptr));
    // clang-format off
    const std::tuple<int (*)(const char *, const char *, int), const char *, const char *, int,
                     int> cmps[] = {
        {cmp, "abc", "abd", 0, -1}, {casecmp, "HeLLo", "hello", 0, 0}, {ncmp, "abz", "abc", 3, 1},
        {ncmp, "abz", "abc", 2, 0}, {ncase, "ABCx", "abcy", 3, 0}, {ncase, "ABx", "abc", 3, 1},
        {cmp, nullptr, "a", 0, -2}, {casecmp, "a", nullptr, 0, -2}, {ncmp, "a", "a", 0, -2},
        {ncmp, nullptr, nullptr, 3, -2}, {ncase, "a", "a", -1, -2}, {ncase, "a", nullptr, 3, -2}};
    // clang-format on
    for (const auto &[fn, a, s2, n, want] : cmps) {
        const int got = fn(a, s2, n);
        EXPECT_EQ(want, got == -2 ? -2 : (got > 0) - (got < 0)) << a << " " << s2 << " " << n;
    }
}

// The first of equal values wins, nothing at or past the terminator is found,
// and an empty name is refused before the table is looked at.
TEST(Text, ValueNameTables)
{
    const vxu_v2n_t states[] = {{0, "idle"},    {3, "dialing"}, {7, "online"},    {3, "again"},
                                {-1, "broken"}, {9, nullptr},   {11, "after_end"}};
    const vxu_v2n_t *empty = states + 5;  // a table that starts at its terminator
    EXPECT_EQ(states[2].name, vxu_v2n(states, 7)) << "the table's own pointer";
    const std::tuple<const vxu_v2n_t *, int, const char *> names[] = {
        {states, 3, "dialing"},      {states, -1, "broken"},    {states, 9, "null_unknow"},
        {states, 11, "null_unknow"}, {empty, 9, "null_unknow"}, {nullptr, 0, "null_unknow"}};
    for (const auto &[table, value, name] : names)
        EXPECT_STREQ(name, vxu_v2n(table, value)) << value;
    // clang-format off
    const std::tuple<const vxu_v2n_t *, const char *, int> values[] = {
        {states, "online", 7}, {states, "again", 3}, {states, "idle", 0}, {states, "Online", -1},
        {states, "onlin", -1}, {states, "after_end", -1}, {states, nullptr, -1}, {empty, "x", -1},
        {nullptr, "x", -1}, {reinterpret_cast<const vxu_v2n_t *>(16), "", -1}};
    // clang-format on
    for (const auto &[table, name, value] : values)
        EXPECT_EQ(value, vxu_n2v(table, name)) << name;
}

// The source ends at a page the process may not read: any byte read past
// what the copy needs faults, in every build.
TEST(Text, StripallReadsNoFurtherThanItCopies)
{
    const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    auto *map = static_cast<char *>(
        mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(MAP_FAILED, map);
    ASSERT_EQ(0, mprotect(map + page, page, PROT_NONE));
    char *src = map + page - 4;
    memcpy(src, " a b", 4);  // unterminated
    char dst[3];
    EXPECT_EQ(0, vxu_str_stripall(src, dst, sizeof dst));
    EXPECT_STREQ("ab", dst);
    munmap(map, 2 * page);
}

}  // namespace
