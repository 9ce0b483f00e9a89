// vexmar_mac_to_char against a model of six "%02x" conversions joined by
// ':': each field may start with blanks, then holds a sign and one digit or
// one to two hexadecimal digits; text after the sixth field is ignored. The
// output is an exact six-byte block, untouched on failure.
#include <vxutil/net.h>

#include "fuzz_support.hpp"

using vxu_fuzz::ascii_hex;
using vxu_fuzz::hex_nibble;

namespace {

enum class verdict { reject, accept, libc_choice };

struct mac_model {
    verdict result = verdict::reject;
    uint8_t bytes[6] = {};
};

// One "%2x" conversion at *p; false on a matching failure. A field of "0x"
// fills the width with a prefix that no digit follows: C calls that a
// matching failure, glibc reads it as 0. The model takes glibc's reading and
// marks the text as one the C library decides.
bool scan_field(const char **p, uint8_t *out, bool *libc_choice)
{
    const char *s = *p;
    while (vxu_fuzz::c_space(*s))
        ++s;
    bool negative = false;
    unsigned value = 0;
    if (*s == '+' || *s == '-') {
        negative = *s++ == '-';
        if (!ascii_hex(*s))
            return false;
        value = hex_nibble(*s++);
    } else if (s[0] == '0' && (s[1] | 0x20) == 'x') {
        *libc_choice = true;
        s += 2;
    } else if (ascii_hex(*s)) {
        value = hex_nibble(*s++);
        if (ascii_hex(*s))
            value = value << 4 | hex_nibble(*s++);
    } else {
        return false;
    }
    // Stored as an unsigned int: a minus sign wraps it.
    *out = static_cast<uint8_t>(negative ? 0u - value : value);
    *p = s;
    return true;
}

mac_model parse(const char *text)
{
    mac_model m;
    bool libc_choice = false;
    const char *p = text;
    for (int i = 0; i < 6; ++i) {
        if (i > 0 && *p++ != ':')
            return m;
        if (!scan_field(&p, &m.bytes[i], &libc_choice))
            return m;
    }
    m.result = libc_choice ? verdict::libc_choice : verdict::accept;
    return m;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const vxu_fuzz::c_string in(data, size);
    const mac_model want = parse(in.get());

    const uint8_t sentinel[6] = {0xde, 0xad, 0xbe, 0xef, 0x01, 0x02};
    vxu_fuzz::exact_buffer mac(6, 0);
    memcpy(mac.bytes(), sentinel, 6);
    const int rc = vexmar_mac_to_char(in.get(), mac.bytes());
    FUZZ_CHECK(rc == 0 || rc == -1);
    if (want.result == verdict::accept)
        FUZZ_CHECK(rc == 0);
    if (want.result == verdict::reject)
        FUZZ_CHECK(rc == -1);
    if (rc == 0)
        FUZZ_CHECK(memcmp(mac.bytes(), want.bytes, 6) == 0);
    else
        FUZZ_CHECK(memcmp(mac.bytes(), sentinel, 6) == 0);
    return 0;
}
