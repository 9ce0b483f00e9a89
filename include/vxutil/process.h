/* vxutil process: shell commands, daemon launcher, process inspection and flag files. */
#ifndef VXUTIL_PROCESS_H
#define VXUTIL_PROCESS_H

#include <vxutil/base.h>

VXU_BEGIN_DECLS

VXU_END_DECLS

#endif /* VXUTIL_PROCESS_H */
