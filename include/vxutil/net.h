/* vxutil net: socket factories, local IPC, interface control, address text and name resolution. */
#ifndef VXUTIL_NET_H
#define VXUTIL_NET_H

#include <vxutil/base.h>

VXU_BEGIN_DECLS

VXU_END_DECLS

#endif /* VXUTIL_NET_H */
