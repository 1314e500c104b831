#import "app/InputView.h"

#import "app/Appearance.h"
#import "app/DarkAudioDropZoneView.h"
#import "app/FlatButton.h"
#import "app/MainWindowController.h"

@implementation InputView

@synthesize mainWindowController;
@synthesize infoLabel;
@synthesize dropZone;
@synthesize addButton;

- (void)viewDidLoad {
    [super viewDidLoad];
    [dropZone setMainViewWindowController:mainWindowController];
    [dropZone setStatusLabel:infoLabel];
    [infoLabel setFont:quorvaneFont(@"Exo2-Light", 20)];
    [static_cast<FlatButtonCell *>([addButton cell]) makeActionButton];
}

- (void)dealloc {
    [infoLabel release];
    [dropZone release];
    [addButton release];
    [super dealloc];
}

- (void)addFiles:(id)sender {
    [mainWindowController addFiles:sender];
}

@end
