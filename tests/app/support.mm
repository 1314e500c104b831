#import "tests/app/support.h"

#import <objc/runtime.h>

#include <filesystem>

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

void levelDiscardIntermediates(void) {
    ++engine.discards;
}

void levelRequestCancel(void) {}

void levelClearCancel(void) {}

const LevelOutcome *levelOutcome(void) {
    static LevelOutcome outcome;
    outcome.reason = engine.reason.c_str();
    outcome.defect = engine.defect.empty() ? kLevelNoDefect : kLevelFramesMissing;
    outcome.defect_reason = engine.defect.c_str();
    return &outcome;
}

std::string text(id object) {
    return object ? [[object description] UTF8String] : "(nil)";
}

NSString *string(const std::string &text) {
    return [NSString stringWithUTF8String:text.c_str()];
}

void setDefault(NSString *key, id value) {
    NSUserDefaults *defaults = [NSUserDefaults standardUserDefaults];
    value ? [defaults setObject:value forKey:key] : [defaults removeObjectForKey:key];
}

NSUInteger delivered() {
    return
        [[[NSUserNotificationCenter defaultUserNotificationCenter] deliveredNotifications] count];
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
    NSDate *end = [NSDate dateWithTimeIntervalSinceNow:60];
    while (!condition() && [end timeIntervalSinceNow] > 0) {
        spin(0.01);
    }
    return condition();
}

@interface TestDrag : NSObject
@end

@implementation TestDrag

- (NSPasteboard *)draggingPasteboard {
    return [NSPasteboard pasteboardWithName:NSDragPboard];
}

@end

id<NSDraggingInfo> dragOf(const std::vector<std::string> &paths) {
    NSMutableArray *files = [NSMutableArray array];
    for (const std::string &path : paths) {
        [files addObject:string(path)];
    }
    id drag = [[[TestDrag alloc] init] autorelease];
    [[drag draggingPasteboard] declareTypes:@[ NSFilenamesPboardType ] owner:nil];
    [[drag draggingPasteboard] setPropertyList:files forType:NSFilenamesPboardType];
    return drag;
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
    desktop.types = text([[panel allowedFileTypes] componentsJoinedByString:@" "]);
    desktop.stayOpen();
    return desktop.confirm ? NSModalResponseOK : NSModalResponseCancel;
}

static NSURL *chosenURL(id, SEL) {
    return [NSURL
        fileURLWithPath:string(desktop.chosen.empty() ? desktop.proposed.back() : desktop.chosen)];
}

static NSArray *chosenURLs(id panel, SEL selector) {
    return @[ chosenURL(panel, selector) ];
}

// Looks at the open panel twenty times a second, as a user does.
@interface PanelUser : NSObject {
    NSDate *patience;
}
@end

@implementation PanelUser

- (instancetype)init {
    if ((self = [super init])) {
        patience = [[NSDate dateWithTimeIntervalSinceNow:60] retain];
    }
    return self;
}

- (void)dealloc {
    [patience release];
    [super dealloc];
}

- (void)look:(NSTimer *)timer {
    if ([patience timeIntervalSinceNow] > 0 && !desktop.clickOK()) {
        return;
    }
    for (id view in [[[NSApp modalWindow] contentView] subviews]) {
        if ([view isKindOfClass:[NSButton class]] && [[view title] isEqual:@"OK"]) {
            [view performClick:nil];
        }
    }
    // The panel's loop waits for an event before it looks whether it is to end.
    [NSApp postEvent:[NSEvent otherEventWithType:NSApplicationDefined
                                        location:NSZeroPoint
                                   modifierFlags:0
                                       timestamp:0
                                    windowNumber:0
                                         context:nil
                                         subtype:0
                                           data1:0
                                           data2:0]
             atStart:NO];
}

@end

static IMP stockPresentError;

static BOOL presentError(id application, SEL selector, NSError *error) {
    EXPECT_TRUE([NSThread isMainThread]);
    desktop.errors.push_back(text([error localizedDescription]) + "|" +
                             text([error localizedRecoverySuggestion]));
    desktop.stayOpen();
    if (!desktop.clickOK) {
        return YES;
    }
    NSTimer *looks = [NSTimer timerWithTimeInterval:0.05
                                             target:[[[PanelUser alloc] init] autorelease]
                                           selector:@selector(look:)
                                           userInfo:nil
                                            repeats:YES];
    [[NSRunLoop mainRunLoop] addTimer:looks forMode:NSModalPanelRunLoopMode];
    using Present = BOOL (*)(id, SEL, NSError *);
    const BOOL recovered =
        reinterpret_cast<Present>(stockPresentError)(application, selector, error);
    [looks invalidate];
    return recovered;
}

static BOOL openURL(id, SEL, NSURL *url) {
    EXPECT_FALSE([NSThread isMainThread]);  // which must not wait for another program
    desktop.opened = text([[url path] lastPathComponent]);
    return NO;  // no viewer
}

AppTest::AppTest() : pool_([[NSAutoreleasePool alloc] init]) {
    engine = {};
    desktop = {};
    for (NSString *key in @[ @"suffix", @"CompletionPause", @"PostNotifications" ]) {
        setDefault(key, nil);
    }
    void (^keep)(NSNotification *) = ^(NSNotification *notification) {
        if ([[notification name] hasPrefix:@"quorvane"]) {
            const std::lock_guard<std::mutex> lock(mutex_);
            posted_.push_back({text([notification name]), bool([NSThread isMainThread]), {}});
            for (NSString *key in [notification object]) {
                posted_.back().item[text(key)] = text([[notification object] objectForKey:key]);
            }
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
    [pool_ release];
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
    write_text(file, content);
    return file;
}

int main(int argc, char **argv) {
    testing::InitGoogleTest(&argc, argv);
    NSAutoreleasePool *pool = [[NSAutoreleasePool alloc] init];
    prepareGNUstep();
    [NSApplication sharedApplication];
    [NSApp finishLaunching];
    for (Class panel in @[ [NSSavePanel class], [NSOpenPanel class] ]) {
        replace(panel, @selector(runModal), runPanel);
        replace(panel, @selector(URLs), chosenURLs);
        replace(panel, @selector(URL), chosenURL);
    }
    stockPresentError =
        class_getMethodImplementation([NSApplication class], @selector(presentError:));
    replace([NSApplication class], @selector(presentError:), presentError);
    replace([NSWorkspace class], @selector(openURL:), openURL);
    const int status = RUN_ALL_TESTS();
    [pool release];
    return status;
}
