#import "app/CreditsView.h"

#import "app/CreditsWindow.h"

@implementation CreditsView

@synthesize mainWindowController;

- (void)viewDidLoad {
    [super viewDidLoad];
    [CreditsWindow styleTextFieldsIn:[self view]];
}

@end
