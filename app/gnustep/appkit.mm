// Replacements for what GNUstep's AppKit and Foundation lack or do differently.

#import <AppKit/AppKit.h>
#import <objc/runtime.h>
#include <sys/stat.h>

// Looking up a method may initialise its class, which may read the user's defaults.
static void exchange(Class type, SEL one, SEL other) {
    @autoreleasepool {
        method_exchangeImplementations(class_getInstanceMethod(type, one),
                                       class_getInstanceMethod(type, other));
    }
}

@implementation NSViewController (Quorvane)

+ (void)load {
    exchange(self, @selector(loadView), @selector(quorvaneLoadView));
}

- (void)quorvaneLoadView {
    [self quorvaneLoadView];
    [self viewDidLoad];
}

- (void)viewDidLoad {
}

@end

@implementation NSSavePanel (Quorvane)

+ (void)load {
    exchange(self, @selector(runModal), @selector(quorvaneRunModal));
    exchange(self, @selector(setAllowedFileTypes:), @selector(quorvaneSetAllowedFileTypes:));
}

// The stock one forgets the name field's text.
- (NSInteger)quorvaneRunModal {
    return [self runModalForDirectory:[self directory] file:[self nameFieldStringValue]];
}

// GNUstep's own filter is case-sensitive: "WAV" is not "wav".
- (void)quorvaneSetAllowedFileTypes:(NSArray *)types {
    NSMutableArray *bothCases = [NSMutableArray arrayWithArray:types];
    for (NSString *type in types) {
        [bothCases addObject:[type uppercaseString]];
    }
    [self quorvaneSetAllowedFileTypes:types ? bothCases : nil];
}

@end

@implementation NSPasteboard (Quorvane)

- (NSArray *)readObjectsForClasses:(NSArray *)classes options:(NSDictionary *)options {
    NSMutableArray *urls = [NSMutableArray array];
    for (NSString *path in [self propertyListForType:NSFilenamesPboardType]) {
        [urls addObject:[NSURL fileURLWithPath:path]];
    }
    NSURL *single = [urls count] == 0 ? [NSURL URLFromPasteboard:self] : nil;
    if (single) {
        [urls addObject:single];
    }
    return urls;
}

@end

@implementation NSURL (Quorvane)

+ (void)load {
    exchange(self, @selector(getResourceValue:forKey:error:),
             @selector(quorvaneResourceValue:forKey:error:));
}

// GNUstep's own version sets no value. A symbolic link does not count as a folder.
- (BOOL)quorvaneResourceValue:(id *)value forKey:(NSString *)key error:(NSError **)error {
    if (![key isEqualToString:NSURLIsDirectoryKey]) {
        return [self quorvaneResourceValue:value forKey:key error:error];
    }
    struct stat status {};
    const BOOL exists = lstat([[self path] fileSystemRepresentation], &status) == 0;
    *value = [NSNumber numberWithBool:exists && S_ISDIR(status.st_mode)];
    return exists;
}

@end

@implementation NSWorkspace (Quorvane)

+ (void)load {
    exchange(self, @selector(openURL:), @selector(quorvaneOpenURL:));
}

// GNUstep knows its own applications only: ask the desktop for a document's viewer.
- (BOOL)quorvaneOpenURL:(NSURL *)url {
    NSString *paths = [[[NSProcessInfo processInfo] environment] objectForKey:@"PATH"];
    for (NSString *folder in [paths componentsSeparatedByString:@":"]) {
        NSString *opener = [folder stringByAppendingPathComponent:@"xdg-open"];
        if ([[NSFileManager defaultManager] isExecutableFileAtPath:opener]) {
            NSTask *task = [NSTask launchedTaskWithLaunchPath:opener
                                                    arguments:@[ [url absoluteString] ]];
            [task waitUntilExit];
            return [task terminationStatus] == 0;
        }
    }
    return [self quorvaneOpenURL:url];
}

@end

// GNUstep cuts a text that is too long at its end, in mid-letter, whatever its cell says.
static IMP stockDrawInterior;

static NSString *cutInTheMiddle(NSString *text, NSDictionary *look, CGFloat width) {
    NSString *cut = text;
    for (NSUInteger kept = [text length]; kept > 2 && [cut sizeWithAttributes:look].width > width;
         --kept) {
        cut = [NSString stringWithFormat:@"%@...%@", [text substringToIndex:(kept + 1) / 2],
                                         [text substringFromIndex:[text length] - kept / 2]];
    }
    return cut;
}

static void drawInterior(NSTextFieldCell *cell, SEL selector, NSRect frame, NSView *view) {
    using Draw = void (*)(id, SEL, NSRect, NSView *);
    const CGFloat margins = 8;
    if ([cell lineBreakMode] == NSLineBreakByTruncatingMiddle) {
        NSDictionary *look = @{NSFontAttributeName : [cell font]};
        NSString *text = [cell stringValue];
        cell = [[cell copy] autorelease];
        [cell setStringValue:cutInTheMiddle(text, look, NSWidth(frame) - margins)];
    }
    reinterpret_cast<Draw>(stockDrawInterior)(cell, selector, frame, view);
}

@implementation NSTextFieldCell (Quorvane)

+ (void)load {
    @autoreleasepool {
        const SEL selector = @selector(drawInteriorWithFrame:inView:);
        Method stock = class_getInstanceMethod(self, selector);
        stockDrawInterior = method_getImplementation(stock);
        class_replaceMethod(self, selector, reinterpret_cast<IMP>(drawInterior),
                            method_getTypeEncoding(stock));
    }
}

@end
