#ifndef QUORVANE_APP_DARK_AUDIO_DROP_ZONE_VIEW_H
#define QUORVANE_APP_DARK_AUDIO_DROP_ZONE_VIEW_H

#import <AppKit/AppKit.h>

@class MainWindowController;

// Takes dropped audio files, and folders that hold some at any depth.
@interface DarkAudioDropZoneView : NSView {
    BOOL _hasValidDragTarget;
    NSArray *_validExtensions;
    MainWindowController *mainViewWindowController;
    NSTextField *statusLabel;
    BOOL _dragIsChecked;
}

@property(nonatomic, assign) MainWindowController *mainViewWindowController;
@property(nonatomic, assign) NSTextField *statusLabel;   // says so while folders are searched
@property(nonatomic, readonly) BOOL hasValidDragTarget;  // shown as a highlight

// Extensions in lower case; files match in any case.
+ (NSArray *)allowedFileTypes;

- (BOOL)hasValidTypes:(id<NSDraggingInfo>)sender;
- (BOOL)folderHasValidTypes:(NSString *)folder visited:(NSMutableSet *)visited;

// Appends the audio files below the folder. One that lies n folders deep comes n times: the walk is
// deep and each folder in it is walked again.
- (void)collectFiles:(NSString *)folder
             outputs:(NSMutableArray *)outputs
             visited:(NSMutableSet *)visited;

- (BOOL)isDirectory:(NSURL *)url;

+ (BOOL)isFolder:(NSString *)path;

// What the application was asked to open: files as they are, and in the place of a folder the audio
// files below it.
+ (NSArray *)pathsToOpen:(NSArray *)paths;

@end

#endif
