// Decimal and hexadecimal number parsers with their own acceptance rules.
#include <ctype.h>
#include <stdint.h>
#include <stdlib.h>

#include <vxutil/text.h>

#include "text/ascii.hpp"

namespace {

// strtol's value cut to its low 32 bits (values past 32 bits wrap).
int low_32_bits(long value) { return static_cast<int>(static_cast<uint32_t>(value)); }

// The system's class tests, which this parser alone uses.
bool sys_isdigit(char c) { return isdigit(static_cast<unsigned char>(c)) != 0; }
bool sys_isxdigit(char c) { return isxdigit(static_cast<unsigned char>(c)) != 0; }

uint32_t digit_value(char c)
{
    if (c >= 'a' && c <= 'f')
        return static_cast<uint32_t>(c - 'a' + 10);
    if (c >= 'A' && c <= 'F')
        return static_cast<uint32_t>(c - 'A' + 10);
    return static_cast<uint32_t>(c - '0');
}

// Digits of one base in wrapping unsigned 32-bit arithmetic; false when a
// byte fails the base's class test.
template <typename IsDigit>
bool accumulate(const char *digits, uint32_t base, IsDigit is_digit, uint32_t *value)
{
    uint32_t v = 0;
    for (; *digits; ++digits) {
        if (!is_digit(*digits))
            return false;
        v = v * base + digit_value(*digits);
    }
    *value = v;
    return true;
}

}  // namespace

extern "C" {

VXU_API int vxu_str_atoi(const char *text, int *out)
{
    if (!text || !vxu::text::is_digit(*text))
        return -1;
    char *end = nullptr;
    const long value = strtol(text, &end, 10);
    if (*end != '\0')
        return -1;
    if (out)
        *out = low_32_bits(value);
    return 0;
}

VXU_API int vexmar_atoi(const char *text, int *out)
{
    if (!out || !vxu::text::all_of_nonempty(text, vxu::text::is_digit))
        return -1;
    *out = low_32_bits(strtol(text, nullptr, 10));
    return 0;
}

VXU_API int vxu_str_atoi_ext(const char *text, uint32_t *out)
{
    if (!text || !out || !vxu::text::is_digit(*text))
        return -1;
    uint32_t value = 0;
    // Only a lower-case x introduces hexadecimal; "0X" fails as a decimal.
    const bool ok = text[0] == '0' && text[1] == 'x'
                        ? accumulate(text + 2, 16, sys_isxdigit, &value)
                        : accumulate(text, 10, sys_isdigit, &value);
    if (!ok)
        return -1;
    *out = value;
    return 0;
}

}  // extern "C"
