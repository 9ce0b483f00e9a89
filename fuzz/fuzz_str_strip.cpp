// vxu_str_strip drops the leading blanks, keeps what fits (size - 1 bytes)
// and drops the trailing blanks of that; vxu_str_stripall drops every blank
// and keeps what fits. Both write a terminated string into a destination of
// exactly the size they are told (the first input byte picks it).
#include "fuzz_support.hpp"

FUZZ_TEXT(1)
{
    const char *blank = " \t\r\n";
    const size_t size = 1 + pick % 48;
    const std::string src(text, len);
    std::string strip = src.substr(std::min(src.find_first_not_of(blank), len), size - 1);
    strip.erase(strip.find_last_not_of(blank) + 1);  // npos + 1: all of it
    std::string all;
    for (char c : src) {
        if (!strchr(blank, c) && all.size() + 1 < size)
            all += c;
    }
    const auto check = [&](int (*fn)(const char *, char *, int), const std::string &want) {
        vxu_fuzz::bytes dst(size, 'U');
        FUZZ_CHECK(fn(text, vxu_fuzz::chars(dst), static_cast<int>(size)) == 0);
        FUZZ_CHECK(memchr(dst.data(), '\0', size) && want == vxu_fuzz::chars(dst));
    };
    check(vxu_str_strip, strip);
    check(vxu_str_stripall, all);
}
