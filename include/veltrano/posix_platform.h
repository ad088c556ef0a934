// The library's outside world on a POSIX system: what a host fills in, and what it tells the
// library while it runs.
//
// Install the platform once, on the thread that counts as the main thread, before the first touch
// of `Veltrano::shared()`. Everything here may be called from any thread unless it says otherwise,
// and nothing throws. The platform lives until the process ends, shut down or not. In a child
// process that was forked afterwards the library does nothing at all.
//
//     veltrano::PosixOptions options;
//     options.collectionHost = "events.example.com";
//     options.userDefaultsFile = "/var/lib/player/analytics.plist";
//     const auto installation = veltrano::PosixPlatform::install(std::move(options));
//     if (!installation) std::cerr << installation.error << '\n';
//
//     Veltrano::shared().setUserId("user-17");
//     installation.platform->mainRunLoop().run();  // heartbeats are sent from here
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "veltrano/export.h"
#include "veltrano/value.h"

namespace veltrano {

/// What the platform is to know from the beginning. Only the collection host is required.
struct PosixOptions {
  enum class ApplicationState { active, inactive, background };

  /// Where events and heartbeats go: "host" or "host:port". An IPv6 address stands in brackets.
  std::string collectionHost;

  /// The property-list file that keeps the library's settings. Its directory must exist. Entries
  /// of others in it stay, and their changes are seen. Without a file, settings last as long as the
  /// process. Relative paths are taken from the working directory of the call that installs.
  std::string userDefaultsFile;

  /// The application's Info dictionary, which holds its version: either the dictionary itself or
  /// the path of a property list. A list that cannot be read counts as none, as does one of more
  /// than 4 MiB, 100,000 values or 64 containers inside one another.
  std::optional<HostMap> infoDictionary;
  std::string infoPropertyListFile;

  /// The certificate authorities to trust, as a PEM file; the system's own when empty.
  std::string certificateAuthorities;

  /// The public key that the collection host has to have, in addition to a valid certificate:
  /// "sha256//" and the Base64 of the SHA-256 digest of the key's DER form. Several, separated by
  /// semicolons, allow a change of keys. Any key when empty.
  std::string pinnedPublicKey;

  /// The proxy to connect through, as "http://host:port"; none when empty.
  std::string proxy;

  /// Without `proxy`: whether the usual variables, such as `https_proxy`, choose one. Read once, at
  /// the installation.
  bool proxyFromEnvironment = false;

  /// The token of the user's session, when there is one. Called on a thread of the library's,
  /// before each attempt to send a heartbeat; keep it short. What it throws is dropped.
  std::function<std::optional<std::string>()> sessionToken;

  /// Takes the diagnostic lines in place of the standard output, without a line feed. Called on the
  /// thread that logs, by several at once. What it throws is dropped.
  std::function<void(std::string_view)> logSink;

  /// The name and version of the system; what `uname` says when absent.
  std::optional<std::string> systemName;
  std::optional<std::string> systemVersion;

  /// The initial values of what the operations of `PosixPlatform` change later.
  double screenWidth = 0;
  double screenHeight = 0;
  ApplicationState applicationState = ApplicationState::active;
  int interfaceOrientation = 0;
  int deviceOrientation = 0;
  std::optional<std::string> carrierName;
  std::uint64_t trackingAuthorizationStatus = 0;
  std::optional<std::string> advertisingIdentifier;
};

/// Runs the library's timers on one thread, and functions that are handed to it.
///
/// A host either lets it run, with `run`, or drives it from a loop of its own: poll
/// `fileDescriptor()` for input and call `runDue` whenever there is some. A loop that does neither
/// does no harm: what waits there just does not run.
class VELTRANO_EXPORT RunLoop {
 public:
  /// The calling thread's run loop. Valid until that thread ends; the main thread's, once the
  /// platform has been installed, until the process ends.
  static RunLoop& current();

  /// Runs until `stop`. On the loop's own thread only; elsewhere returns at once.
  virtual void run() = 0;

  /// Runs until `stop`, which gives true, or until `deadline`, which gives false. On the loop's own
  /// thread only.
  virtual bool runUntil(std::chrono::steady_clock::time_point deadline) = 0;

  /// Ends the innermost run after the function or timer in progress. When the loop does not run,
  /// the next run ends before it has begun.
  virtual void stop() = 0;

  /// Runs `function` later on the loop's thread, after those handed over before. What it throws is
  /// dropped.
  virtual void perform(std::function<void()> function) = 0;

  /// Ready for input while there is something to run. The same at every call, and not to be read or
  /// closed; -1 when the system has no more descriptors.
  virtual int fileDescriptor() = 0;

  /// Runs what is due now, without waiting. On the loop's own thread only.
  virtual void runDue() = 0;

  RunLoop(const RunLoop&) = delete;
  RunLoop& operator=(const RunLoop&) = delete;

 protected:
  RunLoop() = default;
  virtual ~RunLoop() = default;
};

class PosixPlatform;

/// How an installation went: the platform, or a sentence that says why there is none.
struct Installation {
  PosixPlatform* platform = nullptr;
  std::string error;

  explicit operator bool() const { return platform != nullptr; }
};

/// The installed platform, through which the host reports what happens to the application and the
/// device.
class VELTRANO_EXPORT PosixPlatform {
 public:
  /// Makes this the library's platform and the calling thread the main thread. Refused when there
  /// is a platform already, when the library has been used already, or when `options` are unusable.
  static Installation install(PosixOptions options);

  /// The run loop of the main thread.
  RunLoop& mainRunLoop();

  /// Shuts the library down for good, as when an application is closed: it enters the background,
  /// and what waits or is under way is sent until `deadline`. Then the library is inert: it calls
  /// nothing back, its threads have ended or sleep, and pending callbacks have been destroyed
  /// uncalled. A callback that is running then is waited for up to a second; if it has not returned
  /// by then, it stays alive until it does. After that an interpreter, a plug-in or a test may end.
  ///
  /// True when nothing was left: everything was sent, and no callback is running. False at once
  /// when called from a callback or on one of the library's threads. Calls made meanwhile wait for
  /// the first and return what it does, as do later ones, at once. Other threads should be done
  /// with the library; what they still track may be lost. In the destructor of a static object that
  /// is older than the platform it is too late to send anything: false.
  ///
  /// Afterwards statistics keep their last values, run loops go on to run what the host hands to
  /// them, and no other platform can be installed. Without this call the process may end at any
  /// time as well; what waits is then lost.
  bool shutDown(std::chrono::steady_clock::time_point deadline);

  /// The steps of the application's life, to be reported as they happen. On the main thread each
  /// takes effect before it returns; on another thread it is handed to the main run loop.
  void applicationDidBecomeActive();
  void applicationWillResignActive();
  void applicationDidEnterBackground();
  void applicationWillEnterForeground();

  /// The interface has turned: 1 portrait, 2 portrait upside down, 3 and 4 landscape, 0 unknown. Is
  /// handed on like the steps above.
  void setInterfaceOrientation(int orientation);

  /// The device has turned: 0 unknown, 1 portrait, 2 portrait upside down, 3 landscape left,
  /// 4 landscape right, 5 face up, 6 face down. Is handed on like the steps above.
  void setDeviceOrientation(int orientation);

  /// The size of the main screen in points. The library reads it once, with the first event.
  void setScreenSize(double width, double height);

  /// The name of the cellular carrier; none without a subscription.
  void setCarrierName(std::optional<std::string> name);

  /// 0 not determined, 1 restricted, 2 denied, 3 authorised.
  void setTrackingAuthorizationStatus(std::uint64_t status);

  /// The text of a UUID; anything else counts as none.
  void setAdvertisingIdentifier(std::optional<std::string> identifier);

  PosixPlatform(const PosixPlatform&) = delete;
  PosixPlatform& operator=(const PosixPlatform&) = delete;

 private:
  struct Services;

  explicit PosixPlatform(Services& services);
  ~PosixPlatform() = default;

  static Installation installOrThrow(PosixOptions& options);

  Services& services_;
};

}  // namespace veltrano
