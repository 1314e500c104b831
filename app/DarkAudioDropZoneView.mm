#import "app/DarkAudioDropZoneView.h"

#include <dispatch/dispatch.h>

#import "app/Appearance.h"
#import "app/MainWindowController.h"

static const CGFloat kCornerRadius = 2.0;
static const CGFloat kDash[] = {5.0, 3.0};  // on, off

static NSArray *droppedURLs(id<NSDraggingInfo> sender) {
    NSMutableArray *files = [NSMutableArray array];
    for (NSURL *url in [[sender draggingPasteboard] readObjectsForClasses:@[ [NSURL class] ]
                                                                  options:nil]) {
        if ([url isFileURL]) {
            [files addObject:url];
        }
    }
    return files;
}

@implementation DarkAudioDropZoneView

@synthesize mainViewWindowController;
@synthesize statusLabel;
@synthesize hasValidDragTarget = _hasValidDragTarget;

+ (NSArray *)allowedFileTypes {
    return @[ @"wav", @"aif", @"aiff" ];
}

- (void)awakeFromNib {
    [self registerForDraggedTypes:@[ NSFilenamesPboardType, NSURLPboardType ]];
    [_validExtensions release];
    _validExtensions = [[DarkAudioDropZoneView allowedFileTypes] retain];
}

- (void)dealloc {
    [_validExtensions release];
    [super dealloc];
}

- (void)setHasValidDragTarget:(BOOL)valid {
    if (valid != _hasValidDragTarget) {
        _hasValidDragTarget = valid;
        [self setNeedsDisplay:YES];
    }
}

- (BOOL)isDirectory:(NSURL *)url {
    NSNumber *answer = nil;
    return
        [url getResourceValue:&answer forKey:NSURLIsDirectoryKey error:NULL] && [answer boolValue];
}

- (BOOL)isDirectoryAtPath:(NSString *)path {
    return [self isDirectory:[NSURL fileURLWithPath:path isDirectory:NO]];
}

+ (BOOL)isFolder:(NSString *)path {
    BOOL folder = NO;
    return [[NSFileManager defaultManager] fileExistsAtPath:path isDirectory:&folder] && folder;
}

+ (NSArray *)pathsToOpen:(NSArray *)paths {
    DarkAudioDropZoneView *search = [[[self alloc] initWithFrame:NSZeroRect] autorelease];
    NSMutableArray *files = [NSMutableArray array];
    for (NSString *path in paths) {
        if ([self isFolder:path]) {
            [search collectFiles:path outputs:files visited:[NSMutableSet set]];
        } else {
            [files addObject:path];
        }
    }
    return files;
}

- (BOOL)hasAllowedExtension:(NSString *)path {
    NSArray *extensions = _validExtensions ?: [DarkAudioDropZoneView allowedFileTypes];
    return [extensions containsObject:[[path pathExtension] lowercaseString]];
}

- (BOOL)hasValidTypes:(id<NSDraggingInfo>)sender {
    for (NSURL *url in droppedURLs(sender)) {
        if ([self isDirectory:url]) {
            if ([self folderHasValidTypes:[url path] visited:[NSMutableSet set]]) {
                return YES;
            }
        } else if ([self hasAllowedExtension:[url path]]) {
            return YES;
        }
    }
    return NO;
}

- (BOOL)folderHasValidTypes:(NSString *)folder visited:(NSMutableSet *)visited {
    [visited addObject:folder];
    for (NSString *entry in [[NSFileManager defaultManager] enumeratorAtPath:folder]) {
        @autoreleasepool {
            NSString *path = [folder stringByAppendingPathComponent:entry];
            if ([self hasAllowedExtension:path] && ![self isDirectoryAtPath:path]) {
                return YES;
            }
        }
    }
    return NO;
}

- (void)collectFiles:(NSString *)folder
             outputs:(NSMutableArray *)outputs
             visited:(NSMutableSet *)visited {
    [visited addObject:folder];
    for (NSString *entry in [[NSFileManager defaultManager] enumeratorAtPath:folder]) {
        @autoreleasepool {
            NSString *path = [folder stringByAppendingPathComponent:entry];
            if (![self isDirectoryAtPath:path]) {
                if ([self hasAllowedExtension:path]) {
                    [outputs addObject:path];
                }
            } else if (![visited containsObject:path]) {
                [self collectFiles:path outputs:outputs visited:visited];
            }
        }
    }
}

// A drag moves often, and looking through its folders takes time: once per visit is enough.
- (NSDragOperation)draggingEntered:(id<NSDraggingInfo>)sender {
    _dragIsChecked = YES;
    [self setHasValidDragTarget:[self hasValidTypes:sender]];
    return _hasValidDragTarget ? NSDragOperationCopy : NSDragOperationNone;
}

- (NSDragOperation)draggingUpdated:(id<NSDraggingInfo>)sender {
    if (!_dragIsChecked) {
        return [self draggingEntered:sender];
    }
    return _hasValidDragTarget ? NSDragOperationCopy : NSDragOperationNone;
}

- (void)draggingExited:(id<NSDraggingInfo>)sender {
    _dragIsChecked = NO;
    [self setHasValidDragTarget:NO];
}

- (BOOL)prepareForDragOperation:(id<NSDraggingInfo>)sender {
    return YES;
}

- (NSMutableArray *)collectDrop:(id<NSDraggingInfo>)sender {
    NSMutableArray *paths = [NSMutableArray array];
    for (NSURL *url in droppedURLs(sender)) {
        if ([self isDirectory:url]) {
            [self collectFiles:[url path] outputs:paths visited:[NSMutableSet set]];
        } else if ([self hasAllowedExtension:[url path]]) {
            [paths addObject:[url path]];
        }
    }
    return paths;
}

- (BOOL)performDragOperation:(id<NSDraggingInfo>)sender {
    [NSApp activateIgnoringOtherApps:YES];
    NSString *prompt = [[[statusLabel stringValue] copy] autorelease];
    [statusLabel setStringValue:@"Searching..."];
    [[self window] display];
    NSMutableArray *paths = [self collectDrop:sender];
    [statusLabel setStringValue:prompt ?: @""];
    [self draggingExited:sender];
    if ([paths count] == 0) {
        return NO;
    }
    // After this drop, since its source waits for the drop's end and a batch opens save panels first.
    dispatch_async(dispatch_get_main_queue(), ^{
        [mainViewWindowController handleDroppedInputs:paths];
    });
    return YES;
}

- (void)drawRect:(NSRect)dirty {
    [grayColor(_hasValidDragTarget ? 0.15 : 0.1) set];
    NSRectFill([self bounds]);

    // A line of width 1 in the middle of the outermost pixels covers each of them whole.
    NSBezierPath *border =
        [NSBezierPath bezierPathWithRoundedRect:NSInsetRect([self bounds], 0.5, 0.5)
                                        xRadius:kCornerRadius
                                        yRadius:kCornerRadius];
    [border setLineDash:kDash count:2 phase:0];
    [[NSColor colorWithDeviceWhite:1.0 alpha:_hasValidDragTarget ? 0.4 : 0.75] set];
    [border stroke];
}

@end
