#ifndef QUORVANE_APP_GNUSTEP_DISPATCH_H
#define QUORVANE_APP_GNUSTEP_DISPATCH_H

// The part of Grand Central Dispatch that the application uses: serial queues and the main queue.

using dispatch_queue_t = struct QuorvaneDispatchQueue *;
using dispatch_queue_attr_t = void *;
using dispatch_block_t = void (^)(void);
using dispatch_function_t = void (*)(void *context);

constexpr dispatch_queue_attr_t DISPATCH_QUEUE_SERIAL = nullptr;

// A new serial queue with a thread of its own, owned by the caller. Every queue is serial.
dispatch_queue_t dispatch_queue_create(const char *label, dispatch_queue_attr_t attributes);

dispatch_queue_t dispatch_get_main_queue(void);

// Runs a copy of the block after those queued before it; on the main queue also while a panel is
// modal.
void dispatch_async(dispatch_queue_t queue, dispatch_block_t block);

void *dispatch_get_context(dispatch_queue_t queue);
void dispatch_set_context(dispatch_queue_t queue, void *context);

// Called with the context, if there is one, after the last block of a released queue.
void dispatch_set_finalizer_f(dispatch_queue_t queue, dispatch_function_t finalizer);

void dispatch_retain(dispatch_queue_t queue);
void dispatch_release(dispatch_queue_t queue);

#endif
