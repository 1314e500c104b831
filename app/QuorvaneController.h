#ifndef QUORVANE_APP_QUORVANE_CONTROLLER_H
#define QUORVANE_APP_QUORVANE_CONTROLLER_H

#import <Foundation/Foundation.h>
#include <dispatch/dispatch.h>

#include "Common/level.h"

// Posted on the thread that runs the engine; the object is the item.
extern NSString *const QuorvaneProgressNotification;
extern NSString *const QuorvaneCompletedNotification;
extern NSString *const QuorvaneFailedNotification;
extern NSString *const QuorvaneQueueCompletedNotification;

// Keys of an item, a mutable dictionary.
extern NSString *const QuorvaneOutputUUIDKey;      // unique per item
extern NSString *const QuorvaneInputPathKey;       // absolute; absent in an end-of-batch item
extern NSString *const QuorvaneInputFilenameKey;   // last component of the input path
extern NSString *const QuorvaneOutputProgressKey;  // float, 0 to 1
extern NSString *const QuorvaneOutputPathKey;      // absolute
extern NSString *const QuorvaneOutputFolderKey;
extern NSString *const QuorvaneOutputFilenameKey;
extern NSString *const QuorvaneProcessStateKey;  // "queued", "running", "completed" or "failed"
extern NSString *const QuorvaneBatchIndexKey;    // from 1
extern NSString *const QuorvaneBatchTotalKey;
extern NSString *const QuorvaneBatchUUIDKey;      // shared by the items of a batch
extern NSString *const QuorvaneFailureReasonKey;  // a sentence: what is wrong with the output, or why there is none

// Runs the leveling engine for one item after the other on a serial queue of its own.
//
// An item whose engine call returns is "completed", whatever its result; one whose call throws a
// std::exception is "failed". When the application ends, a running call is cancelled and the items
// behind it are dropped.
@interface QuorvaneController : NSObject {
    dispatch_queue_t _queue;
}

// Queues a file and returns its item's "output_uuid". Main thread only: without "output_path" in
// the options it shows a save panel, and uses the proposed path if the panel is cancelled. Copies
// the options into the item. A nil path queues an end-of-batch item.
- (NSString *)queueItemAtPath:(NSString *)path options:(NSDictionary *)options;

@end

#endif
