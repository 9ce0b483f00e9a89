// vxu_net_strmac against a model of its rules: the first 63 characters,
// split at runs of ':', each field read as strtol base 16 reads it (blanks,
// a sign, a 0x prefix, saturation) and cut to its low byte, exactly six
// fields. The first input byte picks the size of the exact-size output.
#include <vxutil/net.h>

#include "fuzz_support.hpp"

using vxu_fuzz::ascii_hex;
using vxu_fuzz::hex_nibble;

namespace {

constexpr size_t kWorkChars = 63;

struct mac_model {
    bool valid = false;
    uint8_t bytes[6] = {};
};

// The low byte of what strtol(field, &end, 16) returns, when it consumes the
// whole field. strtol saturates: at least 2^63 gives LONG_MAX (low byte FF),
// minus more than 2^63 gives LONG_MIN (low byte 00).
bool strtol16_low_byte(const char *p, const char *end, uint8_t *out)
{
    while (p < end && vxu_fuzz::c_space(*p))
        ++p;
    bool negative = false;
    if (p < end && (*p == '+' || *p == '-'))
        negative = *p++ == '-';
    if (end - p >= 3 && p[0] == '0' && (p[1] | 0x20) == 'x' && ascii_hex(p[2]))
        p += 2;
    const char *const digits = p;
    while (p < end && ascii_hex(*p))
        ++p;
    if (p == digits || p != end)
        return false;

    p = digits;
    while (end - p > 1 && *p == '0')
        ++p;
    const bool saturated = end - p > 16 || (end - p == 16 && hex_nibble(*p) >= 8);
    unsigned low = hex_nibble(end[-1]);
    if (end - digits >= 2)
        low |= hex_nibble(end[-2]) << 4;
    if (saturated)
        *out = negative ? 0x00 : 0xff;
    else
        *out = static_cast<uint8_t>(negative ? 0u - low : low);
    return true;
}

mac_model parse(const char *text, size_t len)
{
    mac_model m;
    const char *const end = text + (len < kWorkChars ? len : kWorkChars);
    size_t stored = 0;
    for (const char *p = text; p < end;) {
        if (*p == ':') {
            ++p;
            continue;
        }
        const char *stop = p;
        while (stop < end && *stop != ':')
            ++stop;
        uint8_t byte = 0;
        if (stored == 6 || !strtol16_low_byte(p, stop, &byte))
            return m;
        m.bytes[stored++] = byte;
        p = stop;
    }
    m.valid = stored == 6;
    return m;
}

bool all_zero(const uint8_t *p, size_t n)
{
    for (size_t i = 0; i < n; ++i) {
        if (p[i] != 0)
            return false;
    }
    return true;
}

// The upper-case text of the bytes reads back to the same bytes through
// both MAC parsers.
void check_round_trip(const uint8_t mac[6])
{
    vxu_fuzz::exact_buffer text(18, 'U');
    FUZZ_CHECK(vxu_net_macstr(mac, 6, text.get(), 18) == 0);
    FUZZ_CHECK(strlen(text.get()) == 17);
    vxu_fuzz::exact_buffer back(6, 0xa5);
    FUZZ_CHECK(vxu_net_strmac(text.get(), back.bytes(), 6) == 0);
    FUZZ_CHECK(memcmp(back.bytes(), mac, 6) == 0);
    memset(back.bytes(), 0xa5, 6);
    FUZZ_CHECK(vexmar_mac_to_char(text.get(), back.bytes()) == 0);
    FUZZ_CHECK(memcmp(back.bytes(), mac, 6) == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    // -2 to 13: the refused sizes and a few beyond six.
    const int out_size = data[0] % 16 - 2;
    const size_t alloc = out_size > 0 ? static_cast<size_t>(out_size) : 0;
    const vxu_fuzz::c_string in(data + 1, size - 1);
    vxu_fuzz::exact_buffer out(alloc, 0xa5);

    const int rc = vxu_net_strmac(in.get(), out.bytes(), out_size);
    if (out_size <= 5) {
        FUZZ_CHECK(rc == -1);
        for (size_t i = 0; i < alloc; ++i)
            FUZZ_CHECK(out.bytes()[i] == 0xa5);
        return 0;
    }

    const mac_model want = parse(in.get(), in.size());
    FUZZ_CHECK(rc == (want.valid ? 0 : -1));
    // Success leaves the six bytes and zeros after them; failure all zeros.
    if (want.valid)
        FUZZ_CHECK(memcmp(out.bytes(), want.bytes, 6) == 0);
    else
        FUZZ_CHECK(all_zero(out.bytes(), 6));
    FUZZ_CHECK(all_zero(out.bytes() + 6, alloc - 6));
    if (want.valid)
        check_round_trip(out.bytes());
    return 0;
}
