// Whole-string validators.
#include <regex.h>
#include <string.h>

#include <vxutil/text.h>

#include "text/ascii.hpp"

using vxu::text::all_of_nonempty;

extern "C" {

VXU_API int vexmar_string_isdigit(const char *text)
{
    return all_of_nonempty(text, vxu::text::is_digit) ? 0 : -1;
}

VXU_API int vexmar_isalpha_upper(char c) { return vxu::text::is_upper(c) ? 0 : -1; }

VXU_API int vexmar_string_isalpha_upper(const char *text)
{
    return all_of_nonempty(text, vxu::text::is_upper) ? 0 : -1;
}

VXU_API int vexmar_hexdump_string_check(const char *text)
{
    // A hex dump is whole bytes: two digits each.
    if (!text || strlen(text) % 2 != 0)
        return -1;
    regex_t re;
    if (regcomp(&re, "^[0-9A-Fa-f]+$", REG_EXTENDED) != 0)
        return -1;
    regmatch_t match[1];
    const int rc = regexec(&re, text, 1, match, 0);
    regfree(&re);
    // Only a definite "no match" refuses; any other outcome counts as one.
    return rc == REG_NOMATCH ? -1 : 0;
}

}  // extern "C"
