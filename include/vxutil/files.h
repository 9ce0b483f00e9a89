/* vxutil files: small file helpers and the WLAN MAC file. */
#ifndef VXUTIL_FILES_H
#define VXUTIL_FILES_H

#include <stdint.h>

#include <vxutil/base.h>

VXU_BEGIN_DECLS

/* ---- Small file helpers --------------------------------------------------
 * Each call opens, acts and closes. The writers replace the whole file with
 * one value and a line feed; only the open is checked.
 */

/* Writes "%s\n". 0; -1 for a NULL path or text or a failed open. */
VXU_API int vexmar_file_write_string(const char *path, const char *text);
/* Writes "%d\n" (base 10), "%x\n" (16) or "%o\n" (8). 0; -1 for a NULL path,
 * a failed open or another base (the file is then left empty). */
VXU_API int vexmar_file_write_int(const char *path, int base, int value);
/* Not supported: always -1, no file is touched. */
VXU_API int vexmar_file_write_short(const char *path, short value);
VXU_API int vexmar_file_write_long(const char *path, long value);

/* The size (low 32 bits) of what path names, following links; -1 for a
 * NULL or empty path or a failed stat. */
VXU_API int vxu_com_file_get_size(const char *path);
/* 0 when path exists, 1 when it does not, -1 for a NULL or empty path. */
VXU_API int vxu_com_file_exist(const char *path);
/* Reads at most size bytes from the start of the file into buf, adding no
 * terminator; returns the count. -1 for a NULL or empty path, a NULL buf,
 * a negative size or a failed open. */
VXU_API int vxu_com_read_file(const char *path, void *buf, int size);

/* ---- WLAN MAC file -------------------------------------------------------
 * "/lib/firmware/wlan/qca_cld/wlan_mac.bin", read by the Wi-Fi driver:
 * "Intf0MacAddress=" and twelve upper-case hex digits, then "END".
 */

/* Writes the file from 6 address bytes. 0; -1 for NULL or a failed open
 * (the directory is not created). */
VXU_API int vexmar_wlan_mac_bin_write(const uint8_t *mac);
/* Reads the 6 address bytes back. 0; -1 for NULL, a missing or empty file
 * or a first line that does not parse (mac is then left alone). */
VXU_API int vexmar_wlan_mac_bin_read(uint8_t *mac);

VXU_END_DECLS

#endif /* VXUTIL_FILES_H */
