#ifndef QUORVANE_TESTS_APP_SUPPORT_H
#define QUORVANE_TESTS_APP_SUPPORT_H

#import <AppKit/AppKit.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "Common/level.h"

// The engine of the test programs: does what `run` does, on the thread that calls levelMain.
struct TestEngine {
    using Arguments = std::vector<std::string>;
    std::function<int(const Arguments &, LevelProgress, NSMutableDictionary *)> run;
    std::vector<Arguments> calls;
};

extern TestEngine engine;

// What the replaced panels and services of AppKit were asked, and what they answer.
struct Desktop {
    // Save and open panels.
    bool confirm = true;
    std::vector<std::string> chosen;  // empty: what the panel proposes
    std::vector<std::string> proposed;
    std::string title;
    std::vector<std::string> types;
    std::function<void()> whileOpen;

    std::vector<std::string> errors;  // "description|suggestion"
    int terminations = 0;
    bool viewer = true;  // whether the workspace opens documents
    std::vector<std::string> opened;
};

extern Desktop desktop;

// Keeps the notifications of the queue.
@interface Recorder : NSObject {
   @public
    NSMutableArray *names;
    NSMutableArray *items;  // copies, as they were when posted
    int onMainThread;
}
- (void)record:(NSNotification *)notification;
@end

// A drag of the files at the paths: its pasteboard, all that a drop zone asks for.
id<NSDraggingInfo> dragOf(const std::vector<std::string> &paths);

std::string text(NSString *string);
NSString *string(const std::string &text);
NSArray *strings(const std::vector<std::string> &texts);

// Runs the main run loop until the condition holds; false after five seconds.
bool spinUntil(const std::function<bool()> &condition);

// Runs it for that long.
void spin(double seconds);

// Everything as at the start of the program, in a folder of its own that it removes.
class AppTest : public testing::Test {
   protected:
    AppTest();
    ~AppTest() override;

    std::string path(const std::string &name) const { return folder + "/" + name; }

    // Makes the file, and the folders above it, and gives its path.
    std::string write(const std::string &name, const std::string &content = "audio") const;
    static std::string read(const std::string &path);

    NSAutoreleasePool *pool;
    Recorder *recorder;
    std::string folder;
};

#endif
