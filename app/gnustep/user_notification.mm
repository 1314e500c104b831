// User notifications: GNUstep declares the classes and has none of them. These keep what was
// delivered, for the tests; no desktop shows it.

#import <AppKit/AppKit.h>
@implementation NSUserNotification
@dynamic subtitle, actionButtonTitle, userInfo, deliveryDate, deliveryTimeZone;
@dynamic deliveryRepeatInterval, actualDeliveryDate, presented, remote, soundName, hasActionButton;
@dynamic activationType, otherButtonTitle, identifier, contentImage, hasReplyButton;
@dynamic responsePlaceholder, response;

- (instancetype)init {
    if ((self = [super init])) {
        _uniqueId = [[NSMutableDictionary alloc] init];
    }
    return self;
}

- (void)dealloc {
    [_uniqueId release];
    [super dealloc];
}

- (id)copyWithZone:(NSZone *)zone {
    NSUserNotification *copied = [[NSUserNotification allocWithZone:zone] init];
    [copied->_uniqueId setDictionary:_uniqueId];
    return copied;
}

- (void)keep:(NSString *)text as:(NSString *)key {
    [_uniqueId setObject:[[text copy] autorelease] ?: @"" forKey:key];
}

- (NSString *)title {
    return [_uniqueId objectForKey:@"title"];
}

- (void)setTitle:(NSString *)title {
    [self keep:title as:@"title"];
}

- (NSString *)informativeText {
    return [_uniqueId objectForKey:@"informativeText"];
}

- (void)setInformativeText:(NSString *)text {
    [self keep:text as:@"informativeText"];
}

@end

static id<NSUserNotificationCenterDelegate> centerDelegate;

@implementation NSUserNotificationCenter
@dynamic scheduledNotifications;

+ (NSUserNotificationCenter *)defaultUserNotificationCenter {
    static NSUserNotificationCenter *center = [[NSUserNotificationCenter alloc] init];
    return center;
}

- (instancetype)init {
    if ((self = [super init])) {
        _deliveredNotifications = [[NSMutableArray alloc] init];
    }
    return self;
}

- (void)dealloc {
    [_deliveredNotifications release];
    [super dealloc];
}

- (id<NSUserNotificationCenterDelegate>)delegate {
    return centerDelegate;
}

- (void)setDelegate:(id<NSUserNotificationCenterDelegate>)delegate {
    centerDelegate = delegate;
}

- (NSArray *)deliveredNotifications {
    return [[_deliveredNotifications copy] autorelease];
}

- (void)scheduleNotification:(NSUserNotification *)notification {
    [self deliverNotification:notification];
}

- (void)removeScheduledNotification:(NSUserNotification *)notification {
}

- (void)deliverNotification:(NSUserNotification *)notification {
    [_deliveredNotifications addObject:notification];
}

- (void)removeDeliveredNotification:(NSUserNotification *)notification {
    [_deliveredNotifications removeObject:notification];
}

- (void)removeAllDeliveredNotifications {
    [_deliveredNotifications removeAllObjects];
}

@end
