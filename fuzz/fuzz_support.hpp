// Shared pieces of the fuzz targets: an exact-size copy of the input as a C
// string and exact-size output buffers (so AddressSanitizer sees any access
// past their ends), and a property check that stops the run with a message.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

namespace vxu_fuzz {

// The input up to its first NUL byte, in a heap block of exactly its length
// plus the terminator.
class c_string {
public:
    c_string(const uint8_t *data, size_t size)
    {
        const size_t len = strnlen(reinterpret_cast<const char *>(data), size);
        text_ = static_cast<char *>(malloc(len + 1));
        memcpy(text_, data, len);
        text_[len] = '\0';
        len_ = len;
    }
    c_string(const c_string &) = delete;
    c_string &operator=(const c_string &) = delete;
    ~c_string() { free(text_); }

    const char *get() const { return text_; }
    size_t size() const { return len_; }

private:
    char *text_;
    size_t len_;
};

// A heap block of exactly n bytes, every byte set to fill.
class exact_buffer {
public:
    exact_buffer(size_t n, unsigned char fill) : p_(static_cast<unsigned char *>(malloc(n)))
    {
        memset(p_, fill, n);
    }
    exact_buffer(const exact_buffer &) = delete;
    exact_buffer &operator=(const exact_buffer &) = delete;
    ~exact_buffer() { free(p_); }

    char *get() const { return reinterpret_cast<char *>(p_); }
    uint8_t *bytes() const { return p_; }

private:
    unsigned char *p_;
};

inline bool ascii_space(char c) { return c == ' ' || c == '\r' || c == '\t' || c == '\n'; }
// isspace in the C locale, which is what strtol and scanf skip.
inline bool c_space(char c) { return ascii_space(c) || c == '\v' || c == '\f'; }
inline bool ascii_digit(char c) { return c >= '0' && c <= '9'; }
inline bool ascii_hex(char c)
{
    return ascii_digit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}
inline unsigned hex_nibble(char c)
{
    if (ascii_digit(c))
        return static_cast<unsigned>(c - '0');
    return static_cast<unsigned>((c | 0x20) - 'a' + 10);
}

}  // namespace vxu_fuzz

#define FUZZ_CHECK(cond)                                                                           \
    do {                                                                                           \
        if (!(cond)) {                                                                             \
            fprintf(stderr, "%s:%d: property failed: %s\n", __FILE__, __LINE__, #cond);            \
            abort();                                                                               \
        }                                                                                          \
    } while (0)
