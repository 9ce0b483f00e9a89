// Locale-free single-byte character classes shared by the string helpers.
#pragma once

namespace vxu::text {

// The four bytes the trims treat as whitespace; vertical tab and form feed
// are deliberately not among them.
constexpr bool is_space(char c) { return c == ' ' || c == '\r' || c == '\t' || c == '\n'; }

constexpr bool is_digit(char c) { return c >= '0' && c <= '9'; }

constexpr bool is_upper(char c) { return c >= 'A' && c <= 'Z'; }

constexpr bool is_lower(char c) { return c >= 'a' && c <= 'z'; }

// True when text is non-empty and every byte passes pred.
template <typename Pred>
bool all_of_nonempty(const char *text, Pred pred)
{
    if (!text || !*text)
        return false;
    for (; *text; ++text) {
        if (!pred(*text))
            return false;
    }
    return true;
}

}  // namespace vxu::text
