/**
 * @file files.h
 * @brief Files: one-line value files, file size, existence and reads, and
 *        the WLAN MAC file.
 *
 * Each call opens, acts and closes; nothing stays open, nothing is logged,
 * nothing is locked (two writers of one file: the last one wins). Every
 * function may be called from any thread.
 */
#ifndef VXUTIL_FILES_H
#define VXUTIL_FILES_H

#include <stdint.h>

#include <vxutil/base.h>

VXU_BEGIN_DECLS

/* ---- Small file helpers --------------------------------------------------
 * The writers replace the whole file (mode "wb": created or truncated)
 * with one value and a line feed. Only the open is checked: a value that a
 * kernel control file rejects on write still returns 0.
 */

/**
 * @brief Replaces a file with "<text>\n".
 * @param path File path.
 * @param text Text to write; "" writes a lone line feed.
 * @return 0; -1 when @p path or @p text is NULL or the open fails.
 */
VXU_API int vexmar_file_write_string(const char *path, const char *text);

/**
 * @brief Replaces a file with a number and a line feed.
 * @param path File path.
 * @param base 10: "%d" (signed decimal); 16: "%x" (lower case, no prefix);
 *             8: "%o" (no prefix).
 * @param value The number.
 * @return 0; -1 when @p path is NULL, the open fails, or @p base is another
 *         value (the file is then left empty).
 */
VXU_API int vexmar_file_write_int(const char *path, int base, int value);

/**
 * @brief Not supported: touches no file.
 * @param path Ignored.
 * @param value Ignored.
 * @return Always -1.
 */
VXU_API int vexmar_file_write_short(const char *path, short value);

/**
 * @brief Not supported: touches no file.
 * @param path Ignored.
 * @param value Ignored.
 * @return Always -1.
 */
VXU_API int vexmar_file_write_long(const char *path, long value);

/**
 * @brief Size of what a path names, following symbolic links (stat).
 * @param path File path.
 * @return The size's low 32 bits as an int (a directory gives its own
 *         st_size); -1 for a NULL or empty @p path or a failed stat.
 */
VXU_API int vxu_com_file_get_size(const char *path);

/**
 * @brief Tells whether a path exists (access F_OK).
 * @param path File path.
 * @return 0 exists; 1 does not (also when a directory on the way cannot be
 *         searched); -1 for a NULL or empty @p path.
 */
VXU_API int vxu_com_file_exist(const char *path);

/**
 * @brief Reads the head of a file, adding no terminator.
 *
 * For a string, pass one byte less than the buffer and terminate at the
 * returned count. End of file and a read error both give a short count.
 * @param path File path.
 * @param buf Receives the bytes.
 * @param size Most bytes to read.
 * @return The number of bytes read (0 to @p size); -1 for a NULL or empty
 *         @p path, a NULL @p buf, a negative @p size or a failed open.
 */
VXU_API int vxu_com_read_file(const char *path, void *buf, int size);

/* ---- WLAN MAC file ------------------------------------------------------- */

/**
 * @brief Writes the file from which the Wi-Fi driver takes interface 0's
 *        MAC address, "/lib/firmware/wlan/qca_cld/wlan_mac.bin".
 *
 * Despite its name the file is text, exactly two lines:
 * "Intf0MacAddress=" and twelve upper-case hexadecimal digits, then "END".
 * Once opened the file is truncated: a failed write can leave it short.
 * @param mac The 6 address bytes, first byte first.
 * @return 0; -1 when @p mac is NULL or the open fails (the directory is not
 *         created).
 */
VXU_API int vexmar_wlan_mac_bin_write(const uint8_t *mac);

/**
 * @brief Reads interface 0's MAC address back from the WLAN MAC file.
 *
 * Only the first line is read: the key in this exact letter case, then
 * twelve hexadecimal digits of either case. The "END" line is not checked.
 * @param mac Receives the 6 bytes; untouched on failure.
 * @return 0; -1 when @p mac is NULL, the file cannot be opened, is empty or
 *         its first line does not have that form (another key included).
 */
VXU_API int vexmar_wlan_mac_bin_read(uint8_t *mac);

VXU_END_DECLS

#endif /* VXUTIL_FILES_H */
