// vexmar_double_quotes_to_string copies what lies between a leading and a
// trailing '"', cut to the destination's size and not terminated, into a
// destination of exactly the size it is told (the first input byte picks
// it), and writes nothing else.
#include "fuzz_support.hpp"

FUZZ_TEXT(1)
{
    vxu_fuzz::bytes dst(1 + pick % 48, 'U'), want(dst);
    const bool quoted = len >= 2 && text[0] == '"' && text[len - 1] == '"';
    std::copy_n(text + 1, quoted ? std::min(len - 2, dst.size()) : 0, want.begin());
    const int size = static_cast<int>(dst.size());
    FUZZ_CHECK(vexmar_double_quotes_to_string(vxu_fuzz::chars(dst), text, size) == -!quoted);
    FUZZ_CHECK(dst == want);
}
