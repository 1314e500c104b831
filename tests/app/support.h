#ifndef QUORVANE_TESTS_APP_SUPPORT_H
#define QUORVANE_TESTS_APP_SUPPORT_H

#import <AppKit/AppKit.h>
#include <gmock/gmock.h>

#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "Common/level.h"
#include "tests/support/fixtures.h"

// The engine of the test programs: does what `run` does, on the thread that calls levelMain.
struct TestEngine {
    using Arguments = std::vector<std::string>;
    std::function<int(const Arguments &, LevelProgress, NSMutableDictionary *)> run;
    std::string reason;  // of the last run's outcome
    std::string defect;  // likewise; empty: none
    std::vector<Arguments> calls;
    int discards = 0;  // of what a run left
};

extern TestEngine engine;

// What the replaced panels and services of AppKit were asked, and what they answer.
struct Desktop {
    // Save and open panels.
    bool confirm = true;
    std::string chosen;  // empty: what the panel proposes
    std::vector<std::string> proposed;
    std::string title;
    std::string types;                // with a space before each
    std::function<void()> whileOpen;  // once, for error panels too

    void stayOpen() {
        if (whileOpen) {
            std::exchange(whileOpen, nullptr)();
        }
    }

    std::vector<std::string> errors;  // "description|suggestion"

    // Set: error panels are AppKit's own, and OK is clicked once this is true, or after a minute.
    std::function<bool()> clickOK;

    std::string opened;  // by the workspace, which has no viewer
};

extern Desktop desktop;

std::string text(id object);  // its description
NSString *string(const std::string &text);

// A notification of the queue.
struct Posted {
    std::string name;
    bool onMainThread;
    std::map<std::string, std::string> item;  // as it was when posted

    std::string value(NSString *key) const { return item.at(text(key)); }
};

// A drag of the files at the paths: only its pasteboard, which is all a drop zone reads.
id<NSDraggingInfo> dragOf(const std::vector<std::string> &paths);

// nil takes the default away.
void setDefault(NSString *key, id value);

// How many notices the user got.
NSUInteger delivered();

// Runs the main run loop until the condition holds; false after a minute.
bool spinUntil(const std::function<bool()> &condition);

// Runs it for that long.
void spin(double seconds);

// Everything as at the start of the program, in a folder of its own that it removes.
class AppTest : public testing::Test {
   protected:
    AppTest();
    ~AppTest() override;

    std::string path(const std::string &name) const { return folder / name; }

    // Makes the file, and the folders above it, and gives its path.
    std::string write(const std::string &name, const std::string &content = "audio") const;

    // All notifications so far, or those of one name.
    std::vector<Posted> posted(NSString *name = nil) const;

    TempDir folder;

   private:
    NSAutoreleasePool *pool_;
    id observer_;
    std::vector<Posted> posted_;
    mutable std::mutex mutex_;
};

#endif
