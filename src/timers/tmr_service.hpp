// State shared by the timer service's functions and its thread. Everything
// here is called with the service mutex held.
#pragma once

#include <vxutil/timers.h>

namespace vxu::timers {

// The process-wide service; null until vxu_tmr_init allocates it.
vxu_tmr_ctx *service();
void publish_service(vxu_tmr_ctx *ctx);

// First record with the id on the idle, due or descriptor list, or null.
vxu_tmr *find_timer(vxu_tmr_ctx *ctx, int id);

// (Re)arms the timer from now; with `wake`, a byte tells the thread.
// 0, or -1 when the descriptor cannot be made or the byte was not written.
int start_timer(vxu_tmr_ctx *ctx, vxu_tmr *t, bool wake);
// Disarms the timer and moves it to the idle list; 0, or -1 when a timer
// descriptor could not be disarmed (it then stays on its list).
int stop_timer(vxu_tmr_ctx *ctx, vxu_tmr *t, bool wake);
// Releases every deleted record on the idle list and closes its descriptor.
void release_deleted(vxu_tmr_ctx *ctx);

}  // namespace vxu::timers

// The service thread.
extern "C" void *thread_tmr_handler_proc(void *unused);
