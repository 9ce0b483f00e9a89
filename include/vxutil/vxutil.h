/* vxutil: the whole public interface. */
#ifndef VXUTIL_VXUTIL_H
#define VXUTIL_VXUTIL_H

#include <vxutil/base.h>
#include <vxutil/frame.h>
#include <vxutil/loop.h>

#endif /* VXUTIL_VXUTIL_H */
