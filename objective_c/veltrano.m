#import "veltrano/VeltranoObjC.h"

#import <Block.h>

#import "objective_c/values.h"

#if __has_feature(objc_arc)
#error "Compile this file without automatic reference counting."
#endif

typedef void (^Completion)(BOOL accepted);
typedef void (^Handler)(void);

// On the library's threads there is no other autorelease pool. Unlike @autoreleasepool, this one is
// drained when a C++ exception ends the scope.
#define SCOPED_POOL __attribute__((cleanup(drainScopedPool), unused)) NSAutoreleasePool*

static void drainScopedPool(NSAutoreleasePool** pool) {
  [*pool drain];
}

// Throws a std::runtime_error. In exception.cpp.
void veltranoThrow(const char* what);

static void call(Handler handler) {
  const char* raised = NULL;
  @try {
    @try {
      handler();
    } @catch (NSException* exception) {
      raised =
          [[NSString stringWithFormat:@"%@: %@", [exception name], [exception reason]] UTF8String];
    }
  } @catch (...) {
    raised = "something";
  }
  if (raised != NULL) veltranoThrow(raised);
}

// With GNUstep, C++ exceptions pass, for the C interface to drop. Clang supposes that none passes a
// function that it knows to catch all, and then leaves out its caller's clean-up.
static void (*volatile throwRaised)(Handler) = call;

// Callbacks of the C interface.

static void callCompletion(void* block, bool accepted) {
  SCOPED_POOL pool = [[NSAutoreleasePool alloc] init];
  throwRaised(^{
    ((Completion)block)(accepted);
  });
}

static void callHandler(void* block) {
  SCOPED_POOL pool = [[NSAutoreleasePool alloc] init];
  throwRaised(block);
}

static void releaseBlock(void* block) {
  @autoreleasepool {
    Block_release(block);
  }
}

// Calls an operation with `count` arguments. Releases `block`, the last argument unless it is NULL.
static void sendMessage(const char* selector, size_t count, id first, id second,
                        veltrano_object* block) {
  SCOPED_HANDLE last = block;
  @autoreleasepool {
    @try {
      SCOPED_HANDLE one = makeHandle(first);
      SCOPED_HANDLE two = makeHandle(second);
      veltrano_object* arguments[3] = {one, two, NULL};
      if (last != NULL) arguments[count - 1] = last;
      veltrano_send(selector, arguments, count, NULL, NULL);
    } @catch (...) {
    }
  }
}

// Define the method that only calls the operation of the same name, without or with an argument.
#define OPERATION(NAME)                    \
  -(void)NAME {                            \
    sendMessage(#NAME, 0, nil, nil, NULL); \
  }
#define OPERATION_WITH(NAME, TYPE)                  \
  -(void)NAME : (TYPE)argument {                    \
    sendMessage(#NAME ":", 1, argument, nil, NULL); \
  }

static Veltrano* theInstance;

// Blocks have type id here: GNUstep aborts in methodSignatureForSelector: when it reads the
// encoding of a block's type.
#pragma clang diagnostic ignored "-Wmismatched-parameter-types"

@implementation Veltrano

+ (void)initialize {
  if (self == [Veltrano class]) theInstance = [(id)[self alloc] init];
}

+ (Veltrano*)shared {
  sendMessage("shared", 0, nil, nil, NULL);
  return theInstance;
}

OPERATION_WITH(setUserId, NSString*)
OPERATION_WITH(setAppId, NSString*)
OPERATION(setIdfa)
OPERATION_WITH(setLibVersion, NSString*)
OPERATION_WITH(setPublisherUid, NSString*)

- (void)trackWithEventName:(NSString*)eventName eventProperties:(NSDictionary*)eventProperties {
  sendMessage("trackWithEventName:eventProperties:", 2, eventName, eventProperties, NULL);
}

- (void)trackWithEventName:(NSString*)eventName
           eventProperties:(NSDictionary*)eventProperties
      forceFlushCompletion:(id)completion {
  veltrano_object* block = NULL;
  if (completion != nil)
    block = veltrano_boolean_block(callCompletion, Block_copy(completion), releaseBlock);
  sendMessage("trackWithEventName:eventProperties:forceFlushCompletion:", 3, eventName,
              eventProperties, block);
}

OPERATION_WITH(setSuperPropertiesWithProperties, NSDictionary*)
OPERATION_WITH(removeSuperPropertyWithKey, NSString*)

- (void)setRefreshTriggersWithHandlerWithTriggers:(NSArray*)triggers handler:(id)handler {
  veltrano_object* block = NULL;
  if (handler != nil) block = veltrano_block(callHandler, Block_copy(handler), releaseBlock);
  sendMessage("setRefreshTriggersWithHandlerWithTriggers:handler:", 2, triggers, nil, block);
}

- (void)setCollecting:(BOOL)on {
  veltrano_set_collecting(on);
}

- (NSString*)getScreenOrientation {
  return [NSString stringWithUTF8String:veltrano_screen_orientation()];
}

- (NSString*)getDeviceOrientation {
  return [NSString stringWithUTF8String:veltrano_device_orientation()];
}

// Reached by selector only.

OPERATION(handleWillEnterForeground)
OPERATION(handleDidEnterBackground)
OPERATION(handleDidChangeStatusBarOrientation)
OPERATION(handleDidChangeDeviceOrientation)
OPERATION(setScreenOrientation)

// Key-value coding would otherwise call setUserId: for "userId". These methods are all that the
// others end in; GNUstep still has the deprecated ones.

+ (BOOL)automaticallyNotifiesObserversForKey:(NSString*)key {
  return (void)key, NO;
}

- (id)valueForKey:(NSString*)key {
  return [self valueForUndefinedKey:key];
}

- (id)storedValueForKey:(NSString*)key {
  return [self valueForUndefinedKey:key];
}

- (NSMutableArray*)mutableArrayValueForKey:(NSString*)key {
  return [self valueForUndefinedKey:key];
}

- (NSMutableSet*)mutableSetValueForKey:(NSString*)key {
  return [self valueForUndefinedKey:key];
}

- (void)setValue:(id)value forKey:(NSString*)key {
  [self setValue:value forUndefinedKey:key];
}

- (void)takeValue:(id)value forKey:(NSString*)key {
  [self setValue:value forUndefinedKey:key];
}

- (void)takeStoredValue:(id)value forKey:(NSString*)key {
  [self setValue:value forUndefinedKey:key];
}

@end
