// Shared pieces of the fuzz targets. Inputs and outputs live in heap blocks
// of exactly their size (std::vector allocates no more), so AddressSanitizer
// sees any access past their ends; a property that fails stops the run.
#pragma once

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <string>
#include <vector>

#include <vxutil/vxutil.h>

namespace vxu_fuzz {

using bytes = std::vector<uint8_t>;
constexpr const char kHex[] = "0123456789abcdefABCDEF";

inline char *chars(bytes &b) { return reinterpret_cast<char *>(b.data()); }
inline unsigned nibble(char c) { return c <= '9' ? c - '0' : (c | 0x20) - 'a' + 10; }

// n bytes of text and a terminator, in a block of exactly that size.
inline std::vector<char> c_string(const char *text, size_t n)
{
    std::vector<char> s(n + 1, '\0');
    memcpy(s.data(), text, n);
    return s;
}

// Hands check the input after its first `skip` bytes, up to its first NUL,
// as an exact-size C string and its length, and the first byte when skipped.
using check_fn = void (*)(const char *text, size_t len, unsigned pick);
inline int run(const uint8_t *data, size_t size, size_t skip, check_fn check)
{
    if (size < skip)
        return 0;
    const char *in = reinterpret_cast<const char *>(data) + skip;
    const auto text = c_string(in, strnlen(in, size - skip));
    check(text.data(), text.size() - 1, skip ? data[0] : 0);
    return 0;
}

}  // namespace vxu_fuzz

#define FUZZ_CHECK(cond)                                                                           \
    ((cond)                                                                                        \
         ? (void)0                                                                                 \
         : (fprintf(stderr, "%s:%d: property failed: %s\n", __FILE__, __LINE__, #cond), abort()))

// The entry point, followed by the body of the check of one input:
// FUZZ_TEXT(0) { ... } sees the text; FUZZ_TEXT(1) also `pick`, a size.
#define FUZZ_TEXT(skip)                                                                            \
    static void fuzz_one(const char *text, size_t len, unsigned pick);                             \
    extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)                        \
    {                                                                                              \
        return vxu_fuzz::run(data, size, skip, fuzz_one);                                          \
    }                                                                                              \
    static void fuzz_one(const char *text, size_t len, unsigned pick)
