#ifndef QUORVANE_APP_ERROR_PANEL_H
#define QUORVANE_APP_ERROR_PANEL_H

#import <Foundation/Foundation.h>

// An error to show: what happened, and under it the causes.
NSError *errorWithText(NSString *description, NSString *causes);

// The lines one under the other; of very many, the first ones and how many more there are.
NSString *shortList(NSArray *lines);

// Shows the error on the main thread with NSApplication's presentError:, from any thread and
// without waiting. Errors that arrive while one is on the screen are shown together after it, so
// that a batch that fails file by file does not stack up panels.
void presentErrorOnMainQueue(NSError *error);

#endif
