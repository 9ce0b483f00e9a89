/* vxutil text: string helpers and value/name tables. */
#ifndef VXUTIL_TEXT_H
#define VXUTIL_TEXT_H

#include <vxutil/base.h>

VXU_BEGIN_DECLS

VXU_END_DECLS

#endif /* VXUTIL_TEXT_H */
