// Fails unless a world complains of what each block raises.
#import <string.h>

#import "veltrano/VeltranoObjC.h"
#import "veltrano/testing_c.h"

// Raises while its text is asked for.
@interface BadException : NSException
@end
@implementation BadException
- (NSString*)reason {
  return [NSException raise:NSGenericException format:@"unreadable"], nil;
}
@end

int main(void) {
  @autoreleasepool {
    veltrano_world* const world = veltrano_world_create();
    Veltrano* const tracker = [Veltrano shared];
    [tracker setRefreshTriggersWithHandlerWithTriggers:@[ @"Bought", @"Sold" ]
                                               handler:^{
                                                 [@[] objectAtIndex:5];
                                               }];
    [tracker trackWithEventName:@"Bought"
                eventProperties:nil
           forceFlushCompletion:^(BOOL accepted) {
             [NSException raise:@"Broken" format:@"after %d", accepted];
           }];
    veltrano_world_advance(world, 2);
    [tracker trackWithEventName:@"Left"
                eventProperties:nil
           forceFlushCompletion:^(BOOL accepted) {
             [[BadException exceptionWithName:@"Bad"
                                       reason:nil
                                     userInfo:@{
                                       @"accepted" : @(accepted)
                                     }] raise];
           }];
    veltrano_world_advance(world, 2);
    const char* const complaints = veltrano_world_complaints(world);
    puts(complaints);
    const bool hasAll = strstr(complaints, "handler threw: NSRangeException: ") != NULL &&
                        strstr(complaints, "Bought threw: Broken: after 1\n") != NULL &&
                        strstr(complaints, "Left threw: something\n") != NULL;
    veltrano_world_destroy(world);
    return hasAll ? 0 : 1;
  }
}
