/* vxutil text: string helpers and value/name tables. */
#ifndef VXUTIL_TEXT_H
#define VXUTIL_TEXT_H

#include <stdint.h>

#include <vxutil/base.h>

VXU_BEGIN_DECLS

/* ---- String helpers ------------------------------------------------------
 * Sizes are byte counts of the destination buffer, terminator included.
 * Unless told otherwise: 0 on success, -1 for a NULL pointer or a size
 * below 1. Every vxu_str_ writer leaves its destination terminated.
 * Whitespace, for the trims, is exactly blank, CR, tab and LF.
 */

/* strncpy of size bytes, then dst[size-1] = 0. */
VXU_API int vxu_str_strncpy(char *dst, const char *src, int size);

/* The libc comparison result, or -2 for a NULL argument (or count < 1).
 * -2 can also be a genuine comparison result: test the arguments first
 * when the difference matters. */
VXU_API int vxu_str_strcmp(const char *a, const char *b);
VXU_API int vxu_str_strncmp(const char *a, const char *b, int count);
VXU_API int vxu_str_strcasecmp(const char *a, const char *b);
VXU_API int vxu_str_strncasecmp(const char *a, const char *b, int count);

/* ASCII case folding of at most size-1 bytes; other bytes are kept. */
VXU_API int vxu_str_toupper(const char *src, char *dst, int size);
VXU_API int vxu_str_tolower(const char *src, char *dst, int size);

/* Copies src without its leading and trailing whitespace (at most size-1
 * bytes, trimmed again at the cut). */
VXU_API int vxu_str_strip(const char *src, char *dst, int size);
/* Copies src without any whitespace byte (at most size-1 bytes). */
VXU_API int vxu_str_stripall(const char *src, char *dst, int size);

/* Whole text a decimal number starting with a digit (no sign, no blank);
 * the value, cut to 32 bits, goes to *out unless out is NULL. */
VXU_API int vxu_str_atoi(const char *text, int *out);
/* Decimal, or hexadecimal after a lower-case "0x" ("0x" alone is 0), in
 * wrapping unsigned 32-bit arithmetic; *out is written only on success. */
VXU_API int vxu_str_atoi_ext(const char *text, uint32_t *out);
/* Non-empty, all decimal digits; the value, cut to 32 bits, goes to *out. */
VXU_API int vexmar_atoi(const char *text, int *out);

/* 0 when text is non-empty and all '0'..'9' (resp. 'A'..'Z'), else -1. */
VXU_API int vexmar_string_isdigit(const char *text);
VXU_API int vexmar_string_isalpha_upper(const char *text);
/* 0 when c is 'A'..'Z', else -1. */
VXU_API int vexmar_isalpha_upper(char c);
/* 0 for a non-empty, even-length run of hexadecimal digits, else -1. */
VXU_API int vexmar_hexdump_string_check(const char *text);

/* Copies the text between the double quotes that start and end src: the
 * smaller of size and its length in bytes, with no terminator of its own
 * (pass a cleared buffer larger than the text). -1 for NULL pointers, an
 * empty src, size < 1 or a src not enclosed in double quotes. */
VXU_API int vexmar_double_quotes_to_string(char *dst, const char *src, int size);

/* The formatted text in a malloc'd buffer the caller frees with free();
 * NULL for a NULL format, an empty result or a failed allocation. */
VXU_API char *vexmar_strdup(const char *format, ...) __attribute__((format(printf, 1, 2)));

/* ---- Value/name tables ---------------------------------------------------
 * A caller's array of pairs that ends at the first entry whose name is NULL.
 */
typedef struct vxu_v2n_t {
    int value;
    const char *name;
} vxu_v2n_t;

/* The name of the first entry holding value (the table's own pointer), or
 * the static string "null_unknow". */
VXU_API const char *vxu_v2n(const vxu_v2n_t *table, int value);
/* The value of the first entry whose name equals name exactly, or -1 (also
 * for a NULL or empty name). */
VXU_API int vxu_n2v(const vxu_v2n_t *table, const char *name);

VXU_END_DECLS

#endif /* VXUTIL_TEXT_H */
