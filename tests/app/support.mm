#import "tests/app/support.h"

#import <objc/runtime.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <utility>

#import "app/QuorvaneController.h"
#include "app/gnustep/startup.h"

TestEngine engine;
Desktop desktop;

int levelMain(int argc, char **argv, const char *reserved, LevelProgress progress, void *context) {
    EXPECT_EQ(reserved, argv[0]);
    const TestEngine::Arguments arguments(argv, argv + argc);
    engine.calls.push_back(arguments);
    auto *item = static_cast<NSMutableDictionary *>(context);
    return engine.run ? engine.run(arguments, progress, item) : 0;
}

void levelRequestCancel(void) {}

void levelClearCancel(void) {}

std::string text(NSString *string) {
    return string ? [string UTF8String] : "(nil)";
}

NSString *string(const std::string &text) {
    return [NSString stringWithUTF8String:text.c_str()];
}

NSArray *strings(const std::vector<std::string> &texts) {
    NSMutableArray *array = [NSMutableArray array];
    for (const std::string &text : texts) {
        [array addObject:string(text)];
    }
    return array;
}

void spin(double seconds) {
    NSDate *end = [NSDate dateWithTimeIntervalSinceNow:seconds];
    while ([end timeIntervalSinceNow] > 0) {
        @autoreleasepool {
            [[NSRunLoop currentRunLoop] runMode:NSDefaultRunLoopMode
                                     beforeDate:[NSDate dateWithTimeIntervalSinceNow:0.01]];
        }
    }
}

bool spinUntil(const std::function<bool()> &condition) {
    for (int i = 0; i < 500 && !condition(); ++i) {
        spin(0.01);
    }
    return condition();
}

@interface TestDrag : NSObject {
   @public
    NSPasteboard *_pasteboard;
}
@end

@implementation TestDrag

- (void)dealloc {
    [_pasteboard releaseGlobally];
    [_pasteboard release];
    [super dealloc];
}

- (NSPasteboard *)draggingPasteboard {
    return _pasteboard;
}

@end

id<NSDraggingInfo> dragOf(const std::vector<std::string> &paths) {
    TestDrag *drag = [[[TestDrag alloc] init] autorelease];
    drag->_pasteboard = [[NSPasteboard pasteboardWithUniqueName] retain];
    [drag->_pasteboard declareTypes:@[ NSFilenamesPboardType ] owner:nil];
    [drag->_pasteboard setPropertyList:strings(paths) forType:NSFilenamesPboardType];
    return static_cast<id>(drag);
}

// Replaces a method by a block's worth of C.
template <class Function>
static void replace(Class type, SEL selector, Function function) {
    class_replaceMethod(type, selector, reinterpret_cast<IMP>(function),
                        method_getTypeEncoding(class_getInstanceMethod(type, selector)));
}

static NSInteger runPanel(NSSavePanel *panel, SEL) {
    desktop.title = text([panel title]);
    const std::filesystem::path place = text([[panel directoryURL] path]);
    desktop.proposed.push_back(place / text([panel nameFieldStringValue]));
    desktop.types.clear();
    for (NSString *type in [panel allowedFileTypes]) {
        desktop.types.push_back(text(type));
    }
    if (desktop.whileOpen) {
        std::exchange(desktop.whileOpen, nullptr)();
    }
    return desktop.confirm ? NSModalResponseOK : NSModalResponseCancel;
}

static NSArray *chosenURLs(id, SEL) {
    NSMutableArray *urls = [NSMutableArray array];
    for (const std::string &path :
         desktop.chosen.empty() ? std::vector{desktop.proposed.back()} : desktop.chosen) {
        [urls addObject:[NSURL fileURLWithPath:string(path)]];
    }
    return urls;
}

static NSURL *chosenURL(id panel, SEL selector) {
    return [chosenURLs(panel, selector) objectAtIndex:0];
}

static BOOL presentError(id, SEL, NSError *error) {
    EXPECT_TRUE([NSThread isMainThread]);
    desktop.errors.push_back(text([error localizedDescription]) + "|" +
                             text([error localizedRecoverySuggestion]));
    if (desktop.whileOpen) {
        std::exchange(desktop.whileOpen, nullptr)();
    }
    return YES;
}

static void terminate(id, SEL, id) {
    ++desktop.terminations;
}

static BOOL openURL(id, SEL, NSURL *url) {
    desktop.opened = text([[url path] lastPathComponent]);
    return desktop.viewer;
}

static void replacePanelsAndServices() {
    for (Class panel in @[ [NSSavePanel class], [NSOpenPanel class] ]) {
        replace(panel, @selector(runModal), runPanel);
        replace(panel, @selector(URLs), chosenURLs);
        replace(panel, @selector(URL), chosenURL);
    }
    replace([NSApplication class], @selector(presentError:), presentError);
    replace([NSApplication class], @selector(terminate:), terminate);
    replace([NSWorkspace class], @selector(openURL:), openURL);
}

std::string Posted::value(NSString *key) const {
    return text([[item objectForKey:key] description]);
}

AppTest::AppTest()
    : folder(std::filesystem::temp_directory_path() / "quorvane-app-XXXXXX"),
      pool_([[NSAutoreleasePool alloc] init]) {
    EXPECT_NE(mkdtemp(folder.data()), nullptr);
    engine = {};
    desktop = {};
    for (NSString *key in @[ @"suffix", @"CompletionPause", @"PostNotifications" ]) {
        [[NSUserDefaults standardUserDefaults] removeObjectForKey:key];
    }
    void (^keep)(NSNotification *) = ^(NSNotification *notification) {
        if ([[notification name] hasPrefix:@"quorvane"]) {
            const std::lock_guard<std::mutex> lock(mutex_);
            posted_.push_back({text([notification name]), bool([NSThread isMainThread]),
                               [[notification object] copy]});
        }
    };
    observer_ = [[[NSNotificationCenter defaultCenter] addObserverForName:nil
                                                                   object:nil
                                                                    queue:nil
                                                               usingBlock:keep] retain];
}

AppTest::~AppTest() {
    spin(0.02);  // what the test left on the main queue
    [[NSNotificationCenter defaultCenter] removeObserver:observer_];
    [observer_ release];
    for (const Posted &notification : posted_) {
        [notification.item release];
    }
    [pool_ release];
    std::filesystem::remove_all(folder);
}

std::vector<Posted> AppTest::posted(NSString *name) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    std::vector<Posted> chosen;
    for (const Posted &notification : posted_) {
        if (!name || notification.name == text(name)) {
            chosen.push_back(notification);
        }
    }
    return chosen;
}

std::string AppTest::write(const std::string &name, const std::string &content) const {
    const std::filesystem::path file = path(name);
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file) << content;
    return file;
}

std::string AppTest::read(const std::string &path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

int main(int argc, char **argv) {
    testing::InitGoogleTest(&argc, argv);
    NSAutoreleasePool *pool = [[NSAutoreleasePool alloc] init];
    prepareGNUstep();
    [NSApplication sharedApplication];
    [NSApp finishLaunching];
    replacePanelsAndServices();
    const int status = RUN_ALL_TESTS();
    [pool release];
    return status;
}
