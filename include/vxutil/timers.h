/* vxutil timers: timer queue and timer service. */
#ifndef VXUTIL_TIMERS_H
#define VXUTIL_TIMERS_H

#include <vxutil/base.h>

VXU_BEGIN_DECLS

VXU_END_DECLS

#endif /* VXUTIL_TIMERS_H */
