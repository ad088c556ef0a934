// Prints what a world complains of when blocks raise.
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
    puts(veltrano_world_complaints(world));
    veltrano_world_destroy(world);
  }
}
