#include "veltrano/posix_platform.h"

#include <algorithm>
#include <chrono>
#include <cstring>

#include "c_interface/handles.h"
#include "installation/platform_backend.h"
#include "platform/posix/threads/due_time.h"

using namespace veltrano;
using namespace veltrano::internal;

namespace {

// Calls `function` with the platform if one is installed.
template <class Function>
void withPlatform(Function function) {
  guarded(false, [&] {
    if (PosixPlatform* platform = installedPlatform()) function(*platform);
    return true;
  });
}

veltrano_text textOf(std::string_view text) {
  return {text.data(), text.size()};
}

std::optional<std::string> takeText(veltrano_object* handle) {
  const std::unique_ptr<veltrano_object, decltype(&veltrano_release)> owner(handle,
                                                                            veltrano_release);
  const Object object = objectOf(handle);
  const auto text = object.text();
  return text ? std::optional<std::string>(*text) : std::nullopt;
}

PosixOptions cppOptions(const veltrano_options& given) {
  PosixOptions options;
  options.collectionHost = view(given.collection_host);
  options.userDefaultsFile = view(given.user_defaults_file);
  if (const auto info = propertiesOf(given.info_dictionary)) options.infoDictionary.emplace(*info);
  options.infoPropertyListFile = view(given.info_property_list_file);
  options.certificateAuthorities = view(given.certificate_authorities);
  options.pinnedPublicKey = view(given.pinned_public_key);
  options.proxy = view(given.proxy);
  options.proxyFromEnvironment = given.proxy_from_environment;
  if (given.session_token != nullptr) {
    options.sessionToken = [function = given.session_token, context = given.session_token_context] {
      return takeText(function(context));
    };
  }
  if (given.log_sink != nullptr) {
    options.logSink = [function = given.log_sink, context = given.log_sink_context](
                          std::string_view line) { function(context, textOf(line)); };
  }
  if (given.on_transfer != nullptr) {
    options.onTransfer = [function = given.on_transfer,
                          context = given.on_transfer_context](const TransferReport& report) {
      const auto putOffUntil = report.putOffUntil.value_or(std::chrono::system_clock::time_point());
      const veltrano_transfer transfer{
          textOf(report.path),
          report.attempt,
          std::chrono::duration<double>(report.duration).count(),
          report.bytesSent,
          report.bytesReceived,
          report.status,
          textOf(report.reason),
          report.willRetry,
          std::chrono::duration<double>(putOffUntil.time_since_epoch()).count()};
      function(context, &transfer);
    };
  }
  options.systemName = optionalText(given.system_name);
  options.systemVersion = optionalText(given.system_version);
  options.screenWidth = given.screen_width;
  options.screenHeight = given.screen_height;
  options.applicationState = static_cast<PosixOptions::ApplicationState>(given.application_state);
  options.interfaceOrientation = given.interface_orientation;
  options.deviceOrientation = given.device_orientation;
  options.carrierName = optionalText(given.carrier_name);
  options.trackingAuthorizationStatus = given.tracking_authorization_status;
  options.advertisingIdentifier = optionalText(given.advertising_identifier);
  for (std::size_t i = 0; given.withheld_properties != nullptr && i < given.withheld_count; ++i)
    if (const char* const name = given.withheld_properties[i])
      options.withheldProperties.emplace_back(name);
  return options;
}

// Installs the platform. Returns an error message, empty on success.
std::string install(const veltrano_options* given) {
  if (given == nullptr || given->size == 0) return "The options have to state their size.";
  // A host built with an older header passes fewer fields.
  veltrano_options options{};
  std::memcpy(&options, given, std::min(given->size, sizeof options));
  PosixOptions converted = cppOptions(options);
  if (options.info_dictionary != nullptr && !converted.infoDictionary)
    return "The Info dictionary has to be a dictionary with strings as its keys.";
  return PosixPlatform::install(std::move(converted)).error;
}

RunLoop* runLoop(veltrano_run_loop* handle) {
  return reinterpret_cast<RunLoop*>(handle);
}

veltrano_run_loop* handleOf(RunLoop& loop) {
  return reinterpret_cast<veltrano_run_loop*>(&loop);
}

// Returns the result of `function` for the loop, or `otherwise` without one.
template <class Result, class Function>
Result withLoop(veltrano_run_loop* handle, Result otherwise, Function function) {
  if (handle == nullptr) return otherwise;
  return guarded(otherwise, [&]() -> Result { return function(*runLoop(handle)); });
}

}  // namespace

bool veltrano_install_posix_platform(const veltrano_options* options, veltrano_object** error) {
  if (error != nullptr) *error = nullptr;
  return guarded(false, [&] {
    const std::string reason = install(options);
    const bool succeeded = reason.empty();
    if (!succeeded && error != nullptr) *error = makeHandle(Object(HostValue(reason)));
    return succeeded;
  });
}

bool veltrano_shut_down(double seconds) {
  return guarded(false, [&] {
    PosixPlatform* platform = installedPlatform();
    return platform != nullptr && platform->shutDown(dueTimeFromNow(seconds));
  });
}

// Defines veltrano_NAME, which calls CALL of the platform.
#define VELTRANO_REPORTS(NAME, CALL, ...)                          \
  void veltrano_##NAME(__VA_ARGS__) {                              \
    withPlatform([&](PosixPlatform& platform) { platform.CALL; }); \
  }

VELTRANO_REPORTS(application_did_become_active, applicationDidBecomeActive(), void)
VELTRANO_REPORTS(application_will_resign_active, applicationWillResignActive(), void)
VELTRANO_REPORTS(application_did_enter_background, applicationDidEnterBackground(), void)
VELTRANO_REPORTS(application_will_enter_foreground, applicationWillEnterForeground(), void)
VELTRANO_REPORTS(set_interface_orientation, setInterfaceOrientation(value), int value)
VELTRANO_REPORTS(set_device_orientation, setDeviceOrientation(value), int value)
VELTRANO_REPORTS(set_screen_size, setScreenSize(width, height), double width, double height)
VELTRANO_REPORTS(set_carrier_name, setCarrierName(optionalText(name)), veltrano_text name)
VELTRANO_REPORTS(set_tracking_authorization_status, setTrackingAuthorizationStatus(status),
                 uint64_t status)
VELTRANO_REPORTS(set_advertising_identifier, setAdvertisingIdentifier(optionalText(identifier)),
                 veltrano_text identifier)

#undef VELTRANO_REPORTS

veltrano_run_loop* veltrano_main_run_loop(void) {
  PosixPlatform* platform = installedPlatform();
  return platform != nullptr ? handleOf(platform->mainRunLoop()) : nullptr;
}

veltrano_run_loop* veltrano_current_run_loop(void) {
  return guarded<veltrano_run_loop*>(nullptr, [] { return handleOf(RunLoop::current()); });
}

void veltrano_run_loop_run(veltrano_run_loop* loop) {
  withLoop(loop, false, [](RunLoop& it) { return it.run(), true; });
}

bool veltrano_run_loop_run_for(veltrano_run_loop* loop, double seconds) {
  return withLoop(loop, false, [&](RunLoop& it) { return it.runUntil(dueTimeFromNow(seconds)); });
}

void veltrano_run_loop_stop(veltrano_run_loop* loop) {
  withLoop(loop, false, [](RunLoop& it) { return it.stop(), true; });
}

void veltrano_run_loop_perform(veltrano_run_loop* loop, void (*function)(void*), void* context,
                               void (*release)(void*)) {
  guarded(false, [&] {
    Callback<> callback(function, context, release);
    if (loop != nullptr && function != nullptr) runLoop(loop)->perform(std::move(callback));
    return true;
  });
}

int veltrano_run_loop_file_descriptor(veltrano_run_loop* loop) {
  return withLoop(loop, -1, [](RunLoop& it) { return it.fileDescriptor(); });
}

void veltrano_run_loop_run_due(veltrano_run_loop* loop) {
  withLoop(loop, false, [](RunLoop& it) { return it.runDue(), true; });
}
