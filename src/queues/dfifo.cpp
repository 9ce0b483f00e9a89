// Pointer FIFO: a ring of slots in which one slot always stays empty, so
// head == tail means empty and head == tail + 1 means full.
#include <stdlib.h>

#include <vxutil/queues.h>

namespace {

bool usable(const dfifo_ctx *ctx) { return ctx && ctx->size >= 1 && ctx->slots; }

int next_slot(const dfifo_ctx *ctx, int index) { return (index + 1) % ctx->size; }

}  // namespace

extern "C" {

VXU_API int dfifo_init(dfifo_ctx *ctx, int size)
{
    if (!ctx || ctx->slots)
        return -1;
    // A negative count is a request no allocator can meet.
    if (size < 0)
        return -1;
    void **slots = static_cast<void **>(malloc(static_cast<size_t>(size) * sizeof(void *) + 1));
    if (!slots)
        return -1;
    ctx->slots = slots;
    ctx->head = 0;
    ctx->tail = 0;
    ctx->size = size;
    return 0;
}

VXU_API void dfifo_deinit(dfifo_ctx *ctx)
{
    if (!ctx)
        return;
    free(ctx->slots);
    ctx->slots = nullptr;
}

VXU_API void *dfifo_get(dfifo_ctx *ctx)
{
    if (!usable(ctx) || ctx->head == ctx->tail)
        return nullptr;
    void *ptr = ctx->slots[ctx->head];
    ctx->head = next_slot(ctx, ctx->head);
    return ptr;
}

VXU_API int dfifo_put(dfifo_ctx *ctx, void *ptr)
{
    if (!ptr || !usable(ctx) || ctx->head == next_slot(ctx, ctx->tail))
        return -1;
    ctx->slots[ctx->tail] = ptr;
    ctx->tail = next_slot(ctx, ctx->tail);
    return 0;
}

}  // extern "C"
