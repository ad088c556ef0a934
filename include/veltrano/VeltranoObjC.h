// Veltrano, an event-analytics client: the interface for Objective-C.
//
//     [[Veltrano shared] setUserId:@"user-17"];
//     [[Veltrano shared] trackWithEventName:@"Bought"
//                           eventProperties:@{@"plan": @"pro", @"items": @3}];
//
// Install a platform before the first call, with veltrano_install_posix_platform. It, the run loop,
// logging, statistics and the shutdown are functions of veltrano/veltrano_c.h, which this header
// includes.
//
// Warning: callbacks that you pass to those functions must not raise Objective-C exceptions, and
// need an @autoreleasepool of their own. Blocks need neither.
//
// An Objective-C++ file can include this header or veltrano/veltrano.h, but not both: each declares
// a class Veltrano. Warning: where Clang compiles for GNUstep's old runtime (-fobjc-runtime=gcc),
// such a file cannot catch C++ exceptions; catch them in a C++ file.
#pragma once

#import <Foundation/Foundation.h>

#include "veltrano/veltrano_c.h"

NS_ASSUME_NONNULL_BEGIN

/// The tracker: identifies the user and the application, records events and uploads them.
///
/// Every operation is thread-safe, returns without waiting for the network and never throws. It
/// copies its arguments before it returns, mutable ones too; other threads must not change them
/// meanwhile. An operation does nothing if an argument is nil and not nullable, is of the wrong
/// class, or raises an exception while it is read. NSNull counts as nil where nil is allowed.
/// Blocks are not checked: pass nothing else for one. Key-value coding reaches nothing.
///
/// Events hold these objects:
///
/// - strings; a lone surrogate becomes U+FFFD
/// - numbers: booleans as such; floating-point numbers, decimal ones, and unsigned ones of 2^63 or
///   more, as doubles, of whose digits 15 are certain; others as 64-bit integers
/// - dates, in milliseconds; URLs, as their absolute text; NSNull
/// - arrays and dictionaries, without what events cannot hold: other objects (such as NSData, NSSet
///   and NSUUID), empty dictionaries, and collections that contain themselves or are nested more
///   than 128 deep, counting the properties themselves
///
/// Warning: Clang has no automatic reference counting for GNUstep's old runtime, which is GCC's and
/// Debian's: your files retain and release, and -fobjc-arc is refused.
///
/// Warning: with GNUstep, @YES does not compile: write @(YES). A comparison, such as @(a == b), is
/// the number 1 or 0.
///
/// Warning: a nested dictionary with a key that is not a string makes its event's whole batch
/// undeliverable; the batch is dropped. If such a key is in the properties themselves, the call
/// does nothing.
///
/// Blocks are copied, and released on any thread when they can no longer be called. Each call has
/// an autorelease pool of its own. Exceptions that a block throws, in Objective-C or C++, are
/// dropped; of those in Objective-C, a test's world (veltrano/testing_c.h) has no complaint.
///
/// Warning: with GNUstep, link this library and the blocks runtime before gnustep-base, as the
/// CMake and pkg-config packages do: gnustep-base has a Block_copy that does not copy.
///
/// The library's handlers respond to their selectors, too: handleWillEnterForeground,
/// handleDidEnterBackground, handleDidChangeStatusBarOrientation,
/// handleDidChangeDeviceOrientation and setScreenOrientation. The functions under "Device and
/// application" in veltrano/veltrano_c.h call them already.
VELTRANO_EXPORT
@interface Veltrano : NSObject

/// The one instance.
@property(class, readonly) Veltrano* shared;

- (instancetype)init UNAVAILABLE_ATTRIBUTE;
+ (instancetype)new UNAVAILABLE_ATTRIBUTE;

/// Identifies the user; an empty id is ignored. The first id also starts the session heartbeat, on
/// the library's run loop of the calling thread: call this on the main thread.
///
/// Warning: that loop is not an NSRunLoop. Run it, or poll its descriptor: see "Run loops" in
/// veltrano/veltrano_c.h.
///
/// Warning: this cannot sign a user out. Events that wait are sent under the query of the next
/// user, and heartbeats name the first one until the process ends: see "Users sign in and out" in
/// docs/guide.md.
- (void)setUserId:(NSString*)userId;

/// Identifies the application; an empty id is stored, too.
- (void)setAppId:(NSString*)appId;

/// Adds the device's advertising identifier, as it is now, to every later event.
- (void)setIdfa;

/// Replaces the library version that events and requests report. Without it, events report the
/// library's own and requests "ios_0.0".
- (void)setLibVersion:(NSString*)version;

/// Identifies the user by the publisher's own id; nil or an empty one removes it.
- (void)setPublisherUid:(nullable NSString*)uid;

/// Records an event.
- (void)trackWithEventName:(NSString*)eventName
           eventProperties:(NSDictionary<NSString*, id>*)eventProperties;

/// Records an event. A completion forces an upload of all waiting events while the application is
/// in the foreground. It runs on the library's work queue, which waits for it, and may never be
/// called: see Veltrano::track and Veltrano::FlushCompletion in veltrano/veltrano.h. `accepted` is
/// true when the events will not be sent again.
- (void)trackWithEventName:(NSString*)eventName
           eventProperties:(nullable NSDictionary<NSString*, id>*)eventProperties
      forceFlushCompletion:(nullable void (^)(BOOL accepted))completion;

/// Adds properties to every later event, replacing those with the same key. A value that events
/// cannot hold leaves the earlier one in place. "uid" and "lib_version" also go into the requests.
- (void)setSuperPropertiesWithProperties:(NSDictionary<NSString*, id>*)properties;

- (void)removeSuperPropertyWithKey:(NSString*)key;

/// Calls `handler` whenever an event with one of these names is tracked: on the tracking thread,
/// before the event is recorded. Names match by canonical equivalence; case counts. The library's
/// own events trigger, too, "Heartbeat Failed" on one of its threads. Replaces the earlier
/// triggers; without names or a handler, nothing is called.
- (void)setRefreshTriggersWithHandlerWithTriggers:(nullable NSArray<NSString*>*)triggers
                                          handler:(nullable void (^)(void))handler;

/// Whether anything is collected; YES at first: see Veltrano::setCollecting in veltrano/veltrano.h.
- (void)setCollecting:(BOOL)on;

/// The interface's current orientation: "portrait", "landscape" or "unknown".
- (NSString*)getScreenOrientation;

/// The device's current orientation: "portrait", "portraitUpsideDown", "landscapeLeft",
/// "landscapeRight", "faceUp", "faceDown" or "unknown".
- (NSString*)getDeviceOrientation;

@end

NS_ASSUME_NONNULL_END
