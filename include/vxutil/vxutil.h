/* vxutil: the whole public interface. */
#ifndef VXUTIL_VXUTIL_H
#define VXUTIL_VXUTIL_H

#include <vxutil/base.h>
#include <vxutil/frame.h>
#include <vxutil/loop.h>
#include <vxutil/timers.h>
#include <vxutil/queues.h>
#include <vxutil/process.h>
#include <vxutil/net.h>
#include <vxutil/text.h>
#include <vxutil/files.h>

#endif /* VXUTIL_VXUTIL_H */
