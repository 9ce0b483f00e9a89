/**
 * @file text.h
 * @brief Text utilities: string helpers and value/name tables.
 *
 * Plain ASCII rules on single bytes, no locale (except the digit tests of
 * vxu_str_atoi_ext()). Every function is reentrant and may be called from
 * any thread; only vexmar_strdup() allocates.
 */
#ifndef VXUTIL_TEXT_H
#define VXUTIL_TEXT_H

#include <stdint.h>

#include <vxutil/base.h>

VXU_BEGIN_DECLS

/* ---- String helpers ------------------------------------------------------
 * Sizes are byte counts of the destination buffer, terminator included.
 * Every vxu_str_ writer leaves its destination terminated. Whitespace, for
 * the trims, is exactly blank, CR, tab and LF (not vertical tab or form
 * feed).
 */

/**
 * @brief Bounded copy: strncpy of @p size bytes (zero-filling the rest),
 *        then dst[size - 1] = 0.
 * @param dst Destination.
 * @param src Source string.
 * @param size Size of @p dst; at most @p size - 1 characters are kept.
 * @return 0; -1 for a NULL pointer or @p size below 1.
 */
VXU_API int vxu_str_strncpy(char *dst, const char *src, int size);

/**
 * @brief NULL-safe strcmp.
 *
 * -2 can also be a genuine comparison result: test the arguments first
 * when the difference matters. The same holds for the other three compare
 * wrappers.
 * @param a Left string.
 * @param b Right string.
 * @return strcmp's result; -2 when either is NULL.
 */
VXU_API int vxu_str_strcmp(const char *a, const char *b);

/**
 * @brief NULL-safe strncmp.
 * @param a Left string.
 * @param b Right string.
 * @param count Most bytes to compare, 1 or more.
 * @return strncmp's result; -2 when either string is NULL or @p count is
 *         below 1.
 */
VXU_API int vxu_str_strncmp(const char *a, const char *b, int count);

/**
 * @brief NULL-safe strcasecmp.
 * @param a Left string.
 * @param b Right string.
 * @return strcasecmp's result; -2 when either is NULL.
 */
VXU_API int vxu_str_strcasecmp(const char *a, const char *b);

/**
 * @brief NULL-safe strncasecmp.
 * @param a Left string.
 * @param b Right string.
 * @param count Most bytes to compare, 1 or more.
 * @return strncasecmp's result; -2 when either string is NULL or @p count
 *         is below 1.
 */
VXU_API int vxu_str_strncasecmp(const char *a, const char *b, int count);

/**
 * @brief Copies a string with 'a' to 'z' made upper case; other bytes
 *        (digits, punctuation, bytes above 127) are kept.
 * @param src Source string.
 * @param dst Destination; at most @p size - 1 bytes, then a terminator.
 * @param size Size of @p dst.
 * @return 0; -1 for a NULL pointer or @p size below 1.
 */
VXU_API int vxu_str_toupper(const char *src, char *dst, int size);

/**
 * @brief Copies a string with 'A' to 'Z' made lower case; other bytes are
 *        kept.
 * @param src Source string.
 * @param dst Destination; at most @p size - 1 bytes, then a terminator.
 * @param size Size of @p dst.
 * @return 0; -1 for a NULL pointer or @p size below 1.
 */
VXU_API int vxu_str_tolower(const char *src, char *dst, int size);

/**
 * @brief Copies a string without its leading and trailing whitespace;
 *        interior whitespace stays.
 * @param src Source string.
 * @param dst Destination; at most @p size - 1 bytes, trimmed again at the
 *            cut, then terminated. All whitespace gives "".
 * @param size Size of @p dst.
 * @return 0; -1 for a NULL pointer or @p size below 1.
 */
VXU_API int vxu_str_strip(const char *src, char *dst, int size);

/**
 * @brief Copies a string without any whitespace byte, wherever it stands.
 * @param src Source string; read only as far as the copy needs, so it may be
 *            unterminated beyond that.
 * @param dst Destination; at most @p size - 1 bytes, then a terminator.
 * @param size Size of @p dst.
 * @return 0; -1 for a NULL pointer or @p size below 1.
 */
VXU_API int vxu_str_stripall(const char *src, char *dst, int size);

/**
 * @brief Reads a whole text as a decimal number that starts with a digit
 *        (no sign, no blank, nothing behind it).
 * @param text The text, e.g. "007".
 * @param out Receives the value cut to 32 bits; NULL only validates.
 * @return 0; -1 when @p text is NULL or not such a number (@p out then
 *         untouched).
 */
VXU_API int vxu_str_atoi(const char *text, int *out);

/**
 * @brief Reads a decimal number, or a hexadecimal one after a lower-case
 *        "0x", in wrapping unsigned 32-bit arithmetic.
 *
 * "0x" alone is 0; "0X10" fails; each digit must pass isdigit (decimal) or
 * isxdigit (hexadecimal) and nothing may follow.
 * @param text The text, e.g. "123" or "0x1F".
 * @param out Receives the value, only on success (required).
 * @return 0; -1 when an argument is NULL or the text is not such a number.
 */
VXU_API int vxu_str_atoi_ext(const char *text, uint32_t *out);

/**
 * @brief Reads a non-empty text of decimal digits only.
 * @param text The text.
 * @param out Receives the value cut to 32 bits (required); untouched on
 *            failure.
 * @return 0; -1 when an argument is NULL, the text is empty or holds a
 *         byte other than '0' to '9'.
 */
VXU_API int vexmar_atoi(const char *text, int *out);

/**
 * @brief Tests that a text is non-empty and all '0' to '9'.
 * @param text The text.
 * @return 0 when it is; -1 otherwise, also for NULL.
 */
VXU_API int vexmar_string_isdigit(const char *text);

/**
 * @brief Tests that a text is non-empty and all 'A' to 'Z'.
 * @param text The text.
 * @return 0 when it is; -1 otherwise, also for NULL.
 */
VXU_API int vexmar_string_isalpha_upper(const char *text);

/**
 * @brief Tests one byte for 'A' to 'Z'.
 * @param c The byte.
 * @return 0 when it is; -1 otherwise.
 */
VXU_API int vexmar_isalpha_upper(char c);

/**
 * @brief Tests for a hex dump: a non-empty, even-length run of hexadecimal
 *        digits of either case (whole bytes).
 * @param text The text, e.g. "0aFF".
 * @return 0 when it is; -1 otherwise (NULL, empty, odd length, another
 *         byte, or the pattern cannot be compiled).
 */
VXU_API int vexmar_hexdump_string_check(const char *text);

/**
 * @brief Copies the text between the double quotes that start and end
 *        @p src.
 *
 * Copies the smaller of @p size and the inner length in bytes and writes
 * no terminator of its own: pass a cleared buffer larger than the inner
 * text. A pair of quotes with nothing between copies nothing.
 * @param dst Destination.
 * @param src Source text, quotes included.
 * @param size Most bytes to copy, 1 or more.
 * @return 0; -1 for a NULL pointer, an empty @p src, @p size below 1 or a
 *         @p src not enclosed in double quotes (a lone quote included).
 */
VXU_API int vexmar_double_quotes_to_string(char *dst, const char *src, int size);

/**
 * @brief Formats printf-style into a newly allocated string.
 * @param format printf format.
 * @param ... Its arguments.
 * @return The string, from malloc: the caller releases it with free(). NULL
 *         for a NULL @p format, an empty result or a failed allocation.
 */
VXU_API char *vexmar_strdup(const char *format, ...) __attribute__((format(printf, 1, 2)));

/* ---- Value/name tables ---------------------------------------------------- */

/**
 * @brief One entry of a value/name table: a caller's array, usually
 *        constant, that ends at the first entry whose @c name is NULL.
 *
 * The library only reads the table: lookups may run from any thread while
 * nobody changes it.
 */
typedef struct vxu_v2n_t {
    int value;        /**< Numeric code. Avoid -1 if vxu_n2v() must tell it from a miss. */
    const char *name; /**< Printable name; NULL ends the table (its value is not read). */
} vxu_v2n_t;

/**
 * @brief Looks a value up.
 * @param table The table.
 * @param value Value to find.
 * @return The name of the first entry holding @p value (the table's own
 *         pointer); else the static string "null_unknow", also for an empty
 *         or NULL table. Never NULL; never free it.
 */
VXU_API const char *vxu_v2n(const vxu_v2n_t *table, int value);

/**
 * @brief Looks a name up, case-sensitively (strcmp).
 * @param table The table.
 * @param name Name to find.
 * @return The value of the first entry whose name equals @p name; -1 when
 *         none does, for a NULL or empty @p name, or a NULL table.
 */
VXU_API int vxu_n2v(const vxu_v2n_t *table, const char *name);

VXU_END_DECLS

#endif /* VXUTIL_TEXT_H */
