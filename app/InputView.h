#ifndef QUORVANE_APP_INPUT_VIEW_H
#define QUORVANE_APP_INPUT_VIEW_H

#import <AppKit/AppKit.h>

@class DarkAudioDropZoneView;
@class FlatButton;
@class MainWindowController;

// The drop zone, and a button for those who would rather choose.
@interface InputView : NSViewController {
    MainWindowController *mainWindowController;
    IBOutlet NSTextField *infoLabel;
    IBOutlet DarkAudioDropZoneView *dropZone;
    IBOutlet FlatButton *addButton;
}

@property(nonatomic, assign) MainWindowController *mainWindowController;
@property(nonatomic, retain) NSTextField *infoLabel;
@property(nonatomic, retain) DarkAudioDropZoneView *dropZone;
@property(nonatomic, retain) FlatButton *addButton;

- (IBAction)addFiles:(id)sender;

@end

#endif
