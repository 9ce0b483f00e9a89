// vexmar_ipv4_check accepts exactly four dot-separated runs of decimal
// digits whose values are at most 255, leading zeros allowed. Reference:
// with each field's leading zeros dropped, inet_pton reads the text. The
// lenient reader and the printer agree with it on that canonical text.
#include <arpa/inet.h>

#include "fuzz_support.hpp"

FUZZ_TEXT(0)
{
    std::string canon;  // the text without leading zeros in its fields
    bool lead = true;
    for (const char *p = text; *p; ++p) {
        if (!(lead && *p == '0' && p[1] && p[1] != '.'))
            canon += *p;
        lead = *p == '.' || (lead && *p == '0');
    }
    struct in_addr want, addr;
    const bool valid = inet_pton(AF_INET, canon.c_str(), &want) == 1;
    FUZZ_CHECK(vexmar_ipv4_check(text) == (valid ? 0 : -1));
    if (!valid)
        return;
    FUZZ_CHECK(vxu_net_strip(canon.c_str(), &addr) == 0 && addr.s_addr == want.s_addr);
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    FUZZ_CHECK(canon == vexmar_ip_int_to_string(addr.s_addr));
#endif
}
