// vxu_net_strmac against a reference: the first 63 characters, split at
// runs of ':', each field read whole by strtol base 16 (blanks, a sign, a
// 0x prefix, saturation) and cut to its low byte, exactly six fields. The
// first input byte picks the size of the exact-size output (-2 to 13):
// below six it is refused untouched; otherwise success leaves the six bytes
// and zeros after them, failure only zeros. Accepted bytes round-trip
// through vxu_net_macstr and both MAC readers.
#include "fuzz_support.hpp"

using vxu_fuzz::bytes;

FUZZ_TEXT(1)
{
    const int size = static_cast<int>(pick % 16) - 2;
    bytes out(size > 0 ? static_cast<size_t>(size) : 0, 0xa5);
    const int rc = vxu_net_strmac(text, out.data(), size);
    FUZZ_CHECK(size > 5 || (rc == -1 && out == bytes(out.size(), 0xa5)));
    if (size <= 5)
        return;
    const std::string work(text, std::min<size_t>(len, 63));
    bytes want;
    bool valid = true;
    for (size_t b = 0, e; valid && (b = work.find_first_not_of(':', b)) != work.npos; b = e) {
        e = work.find(':', b);
        char *end;
        const std::string field = work.substr(b, e - b);
        want.push_back(static_cast<uint8_t>(strtol(field.c_str(), &end, 16)));
        valid = *end == '\0' && want.size() <= 6;
    }
    valid = valid && want.size() == 6;
    want.resize(valid ? 6 : 0);
    want.resize(out.size(), 0);
    FUZZ_CHECK(rc == (valid ? 0 : -1) && out == want);
    if (!valid)
        return;
    const bytes six(out.begin(), out.begin() + 6);
    bytes mac_text(18, 'U'), back(6, 0xa5);
    char *t = vxu_fuzz::chars(mac_text);
    FUZZ_CHECK(vxu_net_macstr(six.data(), 6, t, 18) == 0 && strlen(t) == 17);
    FUZZ_CHECK(vxu_net_strmac(t, back.data(), 6) == 0 && back == six);
    back.assign(6, 0xa5);
    FUZZ_CHECK(vexmar_mac_to_char(t, back.data()) == 0 && back == six);
}
