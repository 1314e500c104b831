#ifndef QUORVANE_TESTS_APP_SUPPORT_H
#define QUORVANE_TESTS_APP_SUPPORT_H

#import <AppKit/AppKit.h>
#include <gtest/gtest.h>

#include <functional>
#include <mutex>
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
    std::string opened;
};

extern Desktop desktop;

// A notification of the queue.
struct Posted {
    std::string name;
    bool onMainThread;
    NSDictionary *item;  // a copy, as it was when posted

    std::string value(NSString *key) const;
};

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

    // All notifications so far, or those of one name.
    std::vector<Posted> posted(NSString *name = nil) const;

    std::string folder;

   private:
    NSAutoreleasePool *pool_;
    id observer_;
    std::vector<Posted> posted_;
    mutable std::mutex mutex_;
};

#endif
