/* vxutil files: small file helpers and the WLAN MAC file. */
#ifndef VXUTIL_FILES_H
#define VXUTIL_FILES_H

#include <vxutil/base.h>

VXU_BEGIN_DECLS

VXU_END_DECLS

#endif /* VXUTIL_FILES_H */
