// vxu_str_strip and vxu_str_stripall into destinations of exactly the size
// they are told; the first input byte picks the size.
#include <string>

#include <vxutil/text.h>

#include "fuzz_support.hpp"

using vxu_fuzz::ascii_space;
using vxu_fuzz::exact_buffer;

namespace {

void check_strip(const std::string &src, size_t size)
{
    exact_buffer dst(size, 'U');
    FUZZ_CHECK(vxu_str_strip(src.c_str(), dst.get(), static_cast<int>(size)) == 0);
    const std::string out(dst.get(), strnlen(dst.get(), size));
    FUZZ_CHECK(out.size() < size);
    FUZZ_CHECK(out.empty() || (!ascii_space(out.front()) && !ascii_space(out.back())));
    FUZZ_CHECK(src.find(out) != std::string::npos);

    // Model: drop the leading run, keep size-1 bytes, drop the trailing run.
    size_t b = 0;
    while (b < src.size() && ascii_space(src[b]))
        ++b;
    std::string want = src.substr(b, size - 1);
    while (!want.empty() && ascii_space(want.back()))
        want.pop_back();
    FUZZ_CHECK(out == want);
}

void check_stripall(const std::string &src, size_t size)
{
    exact_buffer dst(size, 'U');
    FUZZ_CHECK(vxu_str_stripall(src.c_str(), dst.get(), static_cast<int>(size)) == 0);
    const std::string out(dst.get(), strnlen(dst.get(), size));
    FUZZ_CHECK(out.size() < size);
    std::string want;
    for (char c : src) {
        if (!ascii_space(c) && want.size() < size - 1)
            want += c;
    }
    FUZZ_CHECK(out == want);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    const size_t dst_size = 1 + data[0] % 48;
    const vxu_fuzz::c_string in(data + 1, size - 1);
    const std::string src(in.get(), in.size());
    check_strip(src, dst_size);
    check_stripall(src, dst_size);
    return 0;
}
