#import "app/QuorvaneController.h"

#import <AppKit/AppKit.h>
#include <fcntl.h>
#include <sndfile.h>
#include <sys/file.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <exception>
#include <filesystem>
#include <mutex>
#include <string>
#include <vector>

#include "Common/files/whole_file.h"
#include "Common/result.h"
#import "app/ErrorPanel.h"

NSString *const QuorvaneProgressNotification = @"quorvaneProgress";
NSString *const QuorvaneCompletedNotification = @"quorvaneCompleted";
NSString *const QuorvaneFailedNotification = @"quorvaneFailed";
NSString *const QuorvaneQueueCompletedNotification = @"quorvaneQueueCompleted";

NSString *const QuorvaneOutputUUIDKey = @"output_uuid";
NSString *const QuorvaneInputPathKey = @"input_path";
NSString *const QuorvaneInputFilenameKey = @"input_filename";
NSString *const QuorvaneOutputProgressKey = @"output_progress";
NSString *const QuorvaneOutputPathKey = @"output_path";
NSString *const QuorvaneOutputFolderKey = @"output_folder";
NSString *const QuorvaneOutputFilenameKey = @"output_filename";
NSString *const QuorvaneProcessStateKey = @"process_state";
NSString *const QuorvaneBatchIndexKey = @"batch_idx";
NSString *const QuorvaneBatchTotalKey = @"batch_total";
NSString *const QuorvaneBatchUUIDKey = @"batch_uuid";
NSString *const QuorvaneFailureReasonKey = @"failure_reason";

namespace {

// How long the end of the application waits for the engine to notice that it is cancelled, or for a
// finished file to be copied to another volume.
constexpr auto kLongestStop = std::chrono::seconds(30);

std::atomic<bool> stopping{false};

// The intermediate files of a failed run stay for diagnosis until the next file begins or the
// application ends. They do not include a result that could not be moved to its place: the user got
// its path. Read and written while no engine call runs, or by the engine's thread.
bool leftIntermediates = false;

void discardLeftIntermediates() {
    if (leftIntermediates) {
        levelDiscardIntermediates();
    }
    leftIntermediates = false;
}

// Whether an engine call is under way.
struct {
    std::mutex mutex;
    std::condition_variable changed;
    bool busy = false;
} engine;

class EngineRun {
   public:
    EngineRun() { set(true); }
    ~EngineRun() { set(false); }
    EngineRun(const EngineRun &) = delete;
    EngineRun &operator=(const EngineRun &) = delete;

   private:
    static void set(bool busy) {
        const std::lock_guard<std::mutex> lock(engine.mutex);
        engine.busy = busy;
        engine.changed.notify_all();
    }
};

std::string temporaryDirectory() {
    std::string path = [NSTemporaryDirectory() UTF8String] ?: "/tmp/";
    if (path.back() != '/') {
        path += '/';
    }
    return path;
}

// The engine's intermediate files have fixed names: of two copies of the application, one waits
// here until the other's engine call is over. The system drops the lock of a process that dies.
class TemporaryDirectoryLock {
   public:
    TemporaryDirectoryLock()
        : file_(open((temporaryDirectory() + "Quorvane.lock").c_str(), O_CREAT | O_RDWR | O_CLOEXEC,
                     0600)) {
        while (file_ >= 0 && flock(file_, LOCK_EX | LOCK_NB) != 0 &&
               (errno == EWOULDBLOCK || errno == EINTR) && !stopping) {
            usleep(100000);
        }
    }

    ~TemporaryDirectoryLock() {
        if (file_ >= 0) {
            close(file_);
        }
    }

    TemporaryDirectoryLock(const TemporaryDirectoryLock &) = delete;
    TemporaryDirectoryLock &operator=(const TemporaryDirectoryLock &) = delete;

   private:
    int file_;
};

void post(NSString *name, NSMutableDictionary *item) {
    [[NSNotificationCenter defaultCenter] postNotificationName:name object:item];
}

int reportProgress(void *context, float fraction) {
    @autoreleasepool {
        auto *item = static_cast<NSMutableDictionary *>(context);
        [item setObject:@(fraction) forKey:QuorvaneOutputProgressKey];
        post(QuorvaneProgressNotification, item);
    }
    return 0;
}

// The sentence that the user reads about a file without an output.
NSString *failureSentence(NSDictionary *item, const char *reason) {
    NSString *name = [item objectForKey:QuorvaneInputFilenameKey];
    const char *path = [[item objectForKey:QuorvaneInputPathKey] UTF8String] ?: "";
    const int file = open(path, O_RDONLY | O_CLOEXEC);
    if (file < 0) {
        return [NSString stringWithFormat:@"%@ cannot be opened: %s.", name, strerror(errno)];
    }
    close(file);
    SF_INFO info = {};
    SNDFILE *sound = sf_open(path, SFM_READ, &info);
    if (!sound) {
        return [NSString stringWithFormat:@"%@ is not an audio file that can be read.", name];
    }
    sf_close(sound);
    NSString *cause = [NSString stringWithUTF8String:reason];
    return
        [NSString stringWithFormat:@"%@: %@", name, [cause length] > 0 ? cause : @"Unknown error."];
}

// Nil for a result without a defect. A run goes on behind damage and the item is completed, but the
// user has to know what is missing.
NSString *defectSentence(NSDictionary *item) {
    const LevelOutcome *outcome = levelOutcome();
    const bool unleveled = outcome->kind == kLevelCopiedStepFailed;
    if (!unleveled && outcome->defect == kLevelNoDefect) {
        return nil;
    }
    const char *reason = unleveled ? outcome->reason : outcome->defect_reason;
    return [NSString stringWithFormat:@"%@ was %@ %s", [item objectForKey:QuorvaneInputFilenameKey],
                                      unleveled ? @"copied and not leveled:" : @"leveled, but",
                                      reason];
}

void levelItem(NSMutableDictionary *item) {
    std::string line[] = {
        "", "--input-file", [[item objectForKey:QuorvaneInputPathKey] UTF8String] ?: "",
        "--output-file", [[item objectForKey:QuorvaneOutputPathKey] UTF8String] ?: ""};
    std::vector<char *> arguments;
    for (std::string &word : line) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);

    NSString *outcome = QuorvaneCompletedNotification;
    try {
        const TemporaryDirectoryLock lock;
        discardLeftIntermediates();
        leftIntermediates = true;
        const int result = levelMain(5, arguments.data(), arguments[0], reportProgress, item);
        if (result == kCancelled) {
            discardLeftIntermediates();
        } else if (result != 0) {
            [item setObject:failureSentence(item, levelOutcome()->reason)
                     forKey:QuorvaneFailureReasonKey];
        } else if (NSString *sentence = defectSentence(item)) {
            [item setObject:sentence forKey:QuorvaneFailureReasonKey];
        }
    } catch (const std::exception &error) {
        outcome = QuorvaneFailedNotification;
        [item setObject:failureSentence(item, error.what()) forKey:QuorvaneFailureReasonKey];
    }
    [item setObject:outcome == QuorvaneFailedNotification ? @"failed" : @"completed"
             forKey:QuorvaneProcessStateKey];
    post(outcome, item);
}

// On the serial queue.
void processItem(NSMutableDictionary *item) {
    const EngineRun run;
    if (stopping) {
        return;
    }
    if (![item objectForKey:QuorvaneInputPathKey]) {
        [item setObject:@"completed" forKey:QuorvaneProcessStateKey];
        post(QuorvaneQueueCompletedNotification, item);
        return;
    }
    [item setObject:@"running" forKey:QuorvaneProcessStateKey];
    levelItem(item);
}

struct QueueContext {
    QuorvaneController *controller;  // not retained
};

void releaseContext(void *context) {
    delete static_cast<QueueContext *>(context);
}

void setOutputPath(NSMutableDictionary *item, NSString *path) {
    [item setObject:path forKey:QuorvaneOutputPathKey];
    [item setObject:[path stringByDeletingLastPathComponent] forKey:QuorvaneOutputFolderKey];
    [item setObject:[path lastPathComponent] forKey:QuorvaneOutputFilenameKey];
}

NSString *proposedFilename(NSString *input) {
    NSString *suffix =
        [[NSUserDefaults standardUserDefaults] stringForKey:@"suffix"] ?: @"-leveled";
    NSString *name = [input lastPathComponent];
    return [NSString stringWithFormat:@"%@%@.%@", [name stringByDeletingPathExtension], suffix,
                                      [name pathExtension]];
}

// The proposed path, or the one that the user chooses instead.
NSString *askForOutputPath(NSString *folder, NSString *filename) {
    NSSavePanel *panel = [NSSavePanel savePanel];
    [panel setTitle:@"Save Leveled Audio"];
    [panel setNameFieldStringValue:filename];
    [panel setDirectoryURL:[NSURL fileURLWithPath:folder]];
    if ([panel runModal] == NSModalResponseOK && [[panel URL] path]) {
        return [[panel URL] path];
    }
    return [folder stringByAppendingPathComponent:filename];
}

// Throws std::filesystem::filesystem_error.
void removeFileOrLink(const std::filesystem::path &path) {
    if (std::filesystem::symlink_status(path).type() != std::filesystem::file_type::directory) {
        std::filesystem::remove(path);
    }
}

}  // namespace

char *copyTemporaryDirectory(void) {
    @autoreleasepool {
        return strdup(temporaryDirectory().c_str());
    }
}

// A file or a link at the destination is removed first. A folder stays, and the move fails. Where
// NSFileManager would copy to another volume under the final name, move_whole copies under another
// name and renames, so no half-written output appears.
void moveFinalFile(const char *source, const char *destination) {
    @autoreleasepool {
        try {
            removeFileOrLink(destination);
            move_whole(source, destination);
        } catch (const std::exception &error) {
            leftIntermediates = false;
            NSString *output = [NSString stringWithUTF8String:destination];
            NSString *description = [NSString
                stringWithFormat:@"\"%@\" could not be written.", [output lastPathComponent]];
            NSString *causes = [NSString
                stringWithFormat:@"%s\nUntil the next file is leveled, the result is at %s.",
                                 error.what(), source];
            presentErrorOnMainQueue(errorWithText(description, causes));
        }
    }
}

@implementation QuorvaneController

- (instancetype)init {
    if ((self = [super init])) {
        _queue = dispatch_queue_create("quorvane.processing", DISPATCH_QUEUE_SERIAL);
        dispatch_set_context(_queue, new QueueContext{self});
        dispatch_set_finalizer_f(_queue, releaseContext);

        NSNotificationCenter *center = [NSNotificationCenter defaultCenter];
        [center addObserver:self
                   selector:@selector(notifyProgress:)
                       name:QuorvaneProgressNotification
                     object:nil];
        [center addObserver:self
                   selector:@selector(notifyCompletion:)
                       name:QuorvaneCompletedNotification
                     object:nil];
        [center addObserver:self
                   selector:@selector(notifyFailure:)
                       name:QuorvaneFailedNotification
                     object:nil];
        [center addObserver:self
                   selector:@selector(stop:)
                       name:NSApplicationWillTerminateNotification
                     object:nil];
    }
    return self;
}

- (void)dealloc {
    [[NSNotificationCenter defaultCenter] removeObserver:self];
    dispatch_release(_queue);
    [super dealloc];
}

- (NSString *)queueItemAtPath:(NSString *)path options:(NSDictionary *)options {
    [[NSUserNotificationCenter defaultUserNotificationCenter] removeAllDeliveredNotifications];

    NSMutableDictionary *item = [NSMutableDictionary dictionaryWithDictionary:options ?: @{}];
    NSString *uuid = [[NSUUID UUID] UUIDString];
    [item setObject:uuid forKey:QuorvaneOutputUUIDKey];
    if (path) {
        [self prepareItem:item forPath:path];
    }
    dispatch_async(_queue, ^{
        processItem(item);
    });
    return uuid;
}

- (void)prepareItem:(NSMutableDictionary *)item forPath:(NSString *)path {
    NSString *input = [[path copy] autorelease];
    if (![input isAbsolutePath]) {
        NSString *folder = [[NSFileManager defaultManager] currentDirectoryPath];
        input = [folder stringByAppendingPathComponent:input];
    }
    [item setObject:input forKey:QuorvaneInputPathKey];
    [item setObject:[input lastPathComponent] forKey:QuorvaneInputFilenameKey];
    [item setObject:@(0.0f) forKey:QuorvaneOutputProgressKey];

    NSString *output = [item objectForKey:QuorvaneOutputPathKey];
    if (!output) {
        NSString *folder = [item objectForKey:QuorvaneOutputFolderKey];
        NSString *filename = [item objectForKey:QuorvaneOutputFilenameKey];
        output = askForOutputPath(folder ?: [input stringByDeletingLastPathComponent],
                                  filename ?: proposedFilename(input));
    }
    setOutputPath(item, output);
    [item setObject:@"queued" forKey:QuorvaneProcessStateKey];
}

- (void)notifyProgress:(NSNotification *)notification {
}

- (void)notifyCompletion:(NSNotification *)notification {
}

- (void)notifyFailure:(NSNotification *)notification {
}

// The application ends: a half-done file is given up, a finished one may still reach its place.
- (void)stop:(NSNotification *)notification {
    stopping = true;
    levelRequestCancel();
    std::unique_lock<std::mutex> lock(engine.mutex);
    if (engine.changed.wait_for(lock, kLongestStop, [] { return !engine.busy; })) {
        discardLeftIntermediates();
    }
}

@end
