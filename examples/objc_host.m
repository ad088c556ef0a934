// The README's first program, in Objective-C.
#import "veltrano/VeltranoObjC.h"

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  @autoreleasepool {
    veltrano_options options = {.size = sizeof options};
    options.collection_host = veltrano_c_string(argv[1]);          // such as localhost:8443
    options.certificate_authorities = veltrano_c_string(argv[2]);  // omit for a public host
    if (!veltrano_install_posix_platform(&options, NULL)) return 2;

    __block BOOL wasDelivered = NO;
    void (^finish)(BOOL) = ^(BOOL accepted) {  // runs on the library's work queue
      wasDelivered = accepted;
      veltrano_run_loop_stop(veltrano_main_run_loop());
    };
    NSDictionary* properties = @{@"plan" : @"pro", @"items" : @3};
    [[Veltrano shared] setUserId:@"user-17"];
    [[Veltrano shared] trackWithEventName:@"Bought"
                          eventProperties:properties
                     forceFlushCompletion:finish];
    veltrano_run_loop_run(veltrano_main_run_loop());
    return wasDelivered ? 0 : 1;
  }
}
