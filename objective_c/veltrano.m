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

- (void)setUserId:(NSString*)userId {
  sendMessage("setUserId:", 1, userId, nil, NULL);
}

- (void)setAppId:(NSString*)appId {
  sendMessage("setAppId:", 1, appId, nil, NULL);
}

- (void)setIdfa {
  sendMessage("setIdfa", 0, nil, nil, NULL);
}

- (void)setLibVersion:(NSString*)version {
  sendMessage("setLibVersion:", 1, version, nil, NULL);
}

- (void)setPublisherUid:(NSString*)uid {
  sendMessage("setPublisherUid:", 1, uid, nil, NULL);
}

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

- (void)setSuperPropertiesWithProperties:(NSDictionary*)properties {
  sendMessage("setSuperPropertiesWithProperties:", 1, properties, nil, NULL);
}

- (void)removeSuperPropertyWithKey:(NSString*)key {
  sendMessage("removeSuperPropertyWithKey:", 1, key, nil, NULL);
}

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

- (void)handleWillEnterForeground {
  sendMessage("handleWillEnterForeground", 0, nil, nil, NULL);
}

- (void)handleDidEnterBackground {
  sendMessage("handleDidEnterBackground", 0, nil, nil, NULL);
}

- (void)handleDidChangeStatusBarOrientation {
  sendMessage("handleDidChangeStatusBarOrientation", 0, nil, nil, NULL);
}

- (void)handleDidChangeDeviceOrientation {
  sendMessage("handleDidChangeDeviceOrientation", 0, nil, nil, NULL);
}

- (void)setScreenOrientation {
  sendMessage("setScreenOrientation", 0, nil, nil, NULL);
}

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
