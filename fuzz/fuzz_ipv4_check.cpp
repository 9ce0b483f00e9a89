// vexmar_ipv4_check accepts exactly four dot-separated runs of decimal
// digits whose values are at most 255, leading zeros allowed; what it
// accepts in canonical form reads back to the same address.
#include <arpa/inet.h>

#include <vxutil/net.h>

#include "fuzz_support.hpp"

namespace {

struct dotted_quad {
    bool valid = false;
    bool canonical = true;  // no field with a leading zero
    uint8_t octet[4] = {};
};

// A field's value by its digits, however many: at most three significant
// digits and at most 255.
bool octet_value(const char *begin, const char *end, uint8_t *out)
{
    if (begin == end)
        return false;
    const char *sig = begin;
    while (sig + 1 < end && *sig == '0')
        ++sig;
    if (end - sig > 3)
        return false;
    unsigned v = 0;
    for (const char *p = sig; p < end; ++p) {
        if (!vxu_fuzz::ascii_digit(*p))
            return false;
        v = v * 10 + static_cast<unsigned>(*p - '0');
    }
    if (v > 255)
        return false;
    *out = static_cast<uint8_t>(v);
    return true;
}

dotted_quad parse(const char *text, size_t len)
{
    dotted_quad q;
    const char *field = text;
    const char *const end = text + len;
    for (int i = 0; i < 4; ++i) {
        const char *stop = field;
        while (stop < end && *stop != '.')
            ++stop;
        if ((i < 3) != (stop < end) || !octet_value(field, stop, &q.octet[i]))
            return q;
        if (stop - field > 1 && *field == '0')
            q.canonical = false;
        field = stop + 1;
    }
    q.valid = true;
    return q;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const vxu_fuzz::c_string in(data, size);
    const dotted_quad want = parse(in.get(), in.size());

    const int rc = vexmar_ipv4_check(in.get());
    FUZZ_CHECK(rc == 0 || rc == -1);
    if (rc == 0)
        FUZZ_CHECK(want.valid);
    if (want.valid)
        FUZZ_CHECK(rc == 0);
    if (!want.valid || !want.canonical)
        return 0;

    // Canonical text is read by the lenient parser as the same four bytes,
    // and printed back unchanged.
    struct in_addr addr;
    FUZZ_CHECK(vxu_net_strip(in.get(), &addr) == 0);
    FUZZ_CHECK(memcmp(&addr.s_addr, want.octet, 4) == 0);
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    FUZZ_CHECK(strcmp(vexmar_ip_int_to_string(addr.s_addr), in.get()) == 0);
#endif
    return 0;
}
