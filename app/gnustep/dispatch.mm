#include <dispatch/dispatch.h>

#import <AppKit/AppKit.h>

struct QuorvaneDispatchQueue {
    NSCondition *condition;  // guards the members below
    NSMutableArray *blocks;  // copied, the next one first
    NSUInteger references;
    void *context;
    dispatch_function_t finalizer;
};

// One block on its way to the main thread.
@interface QuorvaneMainBlock : NSObject {
    dispatch_block_t _block;
}
- (instancetype)initWithBlock:(dispatch_block_t)block;
- (void)fire;
@end

@implementation QuorvaneMainBlock

- (instancetype)initWithBlock:(dispatch_block_t)block {
    if ((self = [super init])) {
        _block = Block_copy(block);
    }
    return self;
}

- (void)dealloc {
    Block_release(_block);
    [super dealloc];
}

- (void)fire {
    _block();
}

@end

@interface QuorvaneDispatchThread : NSObject
+ (void)serve:(NSValue *)queue;
@end

@implementation QuorvaneDispatchThread

+ (void)serve:(NSValue *)value {
    auto *queue = static_cast<dispatch_queue_t>([value pointerValue]);
    NSCondition *condition = queue->condition;
    [condition lock];
    for (;;) {
        while ([queue->blocks count] == 0 && queue->references > 0) {
            [condition wait];
        }
        if ([queue->blocks count] == 0) {
            break;
        }
        id block = [[queue->blocks objectAtIndex:0] retain];
        [queue->blocks removeObjectAtIndex:0];
        [condition unlock];
        @autoreleasepool {
            static_cast<dispatch_block_t>(block)();
            [block release];
        }
        [condition lock];
    }
    [condition unlock];
    if (queue->finalizer && queue->context) {
        queue->finalizer(queue->context);
    }
    [queue->blocks release];
    [condition release];
    delete queue;
}

@end

dispatch_queue_t dispatch_queue_create(const char *label, dispatch_queue_attr_t) {
    auto *queue = new QuorvaneDispatchQueue{
        [[NSCondition alloc] init], [[NSMutableArray alloc] init], 1, nullptr, nullptr};
    [queue->condition setName:[NSString stringWithUTF8String:label ? label : ""]];
    [NSThread detachNewThreadSelector:@selector(serve:)
                             toTarget:[QuorvaneDispatchThread class]
                           withObject:[NSValue valueWithPointer:queue]];
    return queue;
}

dispatch_queue_t dispatch_get_main_queue(void) {
    static QuorvaneDispatchQueue mainQueue{};
    return &mainQueue;
}

void dispatch_async(dispatch_queue_t queue, dispatch_block_t block) {
    if (queue == dispatch_get_main_queue()) {
        QuorvaneMainBlock *hop = [[QuorvaneMainBlock alloc] initWithBlock:block];
        NSArray *modes =
            @[ NSDefaultRunLoopMode, NSModalPanelRunLoopMode, NSEventTrackingRunLoopMode ];
        [hop performSelectorOnMainThread:@selector(fire)
                              withObject:nil
                           waitUntilDone:NO
                                   modes:modes];
        [hop release];
        return;
    }
    dispatch_block_t copied = Block_copy(block);
    [queue->condition lock];
    [queue->blocks addObject:static_cast<id>(copied)];
    [queue->condition signal];
    [queue->condition unlock];
    Block_release(copied);
}

void *dispatch_get_context(dispatch_queue_t queue) {
    return queue->context;
}

void dispatch_set_context(dispatch_queue_t queue, void *context) {
    queue->context = context;
}

void dispatch_set_finalizer_f(dispatch_queue_t queue, dispatch_function_t finalizer) {
    queue->finalizer = finalizer;
}

void dispatch_retain(dispatch_queue_t queue) {
    [queue->condition lock];
    ++queue->references;
    [queue->condition unlock];
}

void dispatch_release(dispatch_queue_t queue) {
    NSCondition *condition = [queue->condition retain];
    [condition lock];
    --queue->references;
    [condition signal];
    [condition unlock];
    [condition release];
}
