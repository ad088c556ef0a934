// Makes random sequences of the calls that a host in C may make, on the simulated platform, and
// checks that every context is released exactly once.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string>
#include <vector>

#include "platform/simulated/simulated_platform.h"
#include "veltrano/veltrano_c.h"

namespace {

void require(bool condition) {
  if (!condition) std::abort();
}

// What callbacks are given.
struct Context {
  Context() { ++live; }

  static void call(void* context) { require(!static_cast<Context*>(context)->isReleased); }
  static void callWithFlag(void* context, bool) { call(context); }
  static void release(void* context) {
    auto* it = static_cast<Context*>(context);
    require(!it->isReleased);
    it->isReleased = true;
    --live;
    delete it;
  }

  bool isReleased = false;
  static inline int live = 0;
};

class Host {
 public:
  Host(const std::uint8_t* bytes, std::size_t size) : data_(bytes, size) {}
  Host(const Host&) = delete;
  ~Host() {
    for (const Held& held : objects_) veltrano_release(held.object);
    for (const char* text : texts_) std::free(const_cast<char*>(text));
  }

  void run(veltrano::Timeline& timeline) {
    while (data_.remaining_bytes() > 0) {
      call();
      if (data_.ConsumeIntegralInRange(0, 15) == 0)
        timeline.runUntil(timeline.now() + std::chrono::seconds(1));
    }
  }

 private:
  void call() {
    using Call = void (Host::*)();
    static constexpr Call kCalls[] = {
        &Host::makeText,  &Host::makeNumber, &Host::makeOther, &Host::makeBlock,
        &Host::copy,      &Host::release,    &Host::add,       &Host::appendKind,
        &Host::setKind,   &Host::read,       &Host::send,      &Host::track,
        &Host::configure, &Host::report,     &Host::runLoop,   &Host::install,
    };
    (this->*kCalls[below(std::size(kCalls))])();
  }

  void makeText() { keep(flag() ? veltrano_string(text()) : veltrano_url(text())); }

  void makeNumber() {
    switch (below(9)) {
      case 0:
        return keep(veltrano_number(code(), integer()));
      case 1:
        return keep(veltrano_number_with_double(code(), real()));
      case 2:
        return keep(veltrano_boolean_number(flag()));
      case 3:
        return keep(veltrano_int(integer()));
      case 4:
        return keep(veltrano_uint(static_cast<std::uint64_t>(integer())));
      case 5:
        return keep(veltrano_int64(integer()));
      case 6:
        return keep(veltrano_double(real()));
      case 7:
        return keep(veltrano_float(static_cast<float>(integer())));
      default:
        return keep(veltrano_bool(flag()));
    }
  }

  void makeOther() {
    switch (below(5)) {
      case 0:
        return keep(veltrano_date(real()));
      case 1:
        return keep(veltrano_null());
      case 2:
        return keep(veltrano_other_object());
      case 3:
        return keep(veltrano_array());
      default:
        return keep(veltrano_dictionary());
    }
  }

  void makeBlock() {
    if (flag())
      keep(veltrano_block(flag() ? Context::call : nullptr, new Context, Context::release));
    else
      keep(veltrano_boolean_block(flag() ? Context::callWithFlag : nullptr, new Context,
                                  Context::release));
  }

  void copy() {
    const Held& original = held();
    keep(veltrano_copy(original.object), original.size);
  }

  void release() {
    if (objects_.empty()) return;
    const auto at = objects_.begin() + static_cast<std::ptrdiff_t>(below(objects_.size()));
    veltrano_release(at->object);
    objects_.erase(at);
  }

  void add() {
    Held &to = held(), &key = held(), &value = held();
    // A collection may be added to itself, which doubles it.
    constexpr std::size_t kLargest = 2000;
    if (to.size + key.size + value.size > kLargest) return;
    if (to.object != nullptr) to.size += key.size + value.size;
    switch (below(3)) {
      case 0:
        return void(veltrano_array_append(to.object, value.object));
      case 1:
        return void(veltrano_dictionary_set(to.object, key.object, value.object));
      default:
        return void(veltrano_dictionary_set_object(to.object, string(), value.object));
    }
  }

  void appendKind() {
    veltrano_object* const array = any();
    switch (below(12)) {
      case 0:
        return void(veltrano_array_append_text(array, string()));
      case 1:
        return void(veltrano_array_append_int(array, integer()));
      case 2:
        return void(veltrano_array_append_uint(array, static_cast<std::uint64_t>(integer())));
      case 3:
        return void(veltrano_array_append_int64(array, integer()));
      case 4:
        return void(veltrano_array_append_double(array, real()));
      case 5:
        return void(veltrano_array_append_float(array, static_cast<float>(integer())));
      case 6:
        return void(veltrano_array_append_bool(array, flag()));
      case 7:
        return void(veltrano_array_append_date(array, real()));
      case 8:
        return void(veltrano_array_append_url(array, string()));
      case 9:
        return void(veltrano_array_append_null(array));
      case 10:
        return void(veltrano_array_append_number(array, code(), integer()));
      default:
        return void(veltrano_array_append_number_with_double(array, code(), real()));
    }
  }

  void setKind() {
    veltrano_object* const map = any();
    const char* const key = string();
    switch (below(12)) {
      case 0:
        return void(veltrano_dictionary_set_text(map, key, string()));
      case 1:
        return void(veltrano_dictionary_set_int(map, key, integer()));
      case 2:
        return void(veltrano_dictionary_set_uint(map, key, static_cast<std::uint64_t>(integer())));
      case 3:
        return void(veltrano_dictionary_set_int64(map, key, integer()));
      case 4:
        return void(veltrano_dictionary_set_double(map, key, real()));
      case 5:
        return void(veltrano_dictionary_set_float(map, key, static_cast<float>(integer())));
      case 6:
        return void(veltrano_dictionary_set_bool(map, key, flag()));
      case 7:
        return void(veltrano_dictionary_set_date(map, key, real()));
      case 8:
        return void(veltrano_dictionary_set_url(map, key, string()));
      case 9:
        return void(veltrano_dictionary_set_null(map, key));
      case 10:
        return void(veltrano_dictionary_set_number(map, key, code(), integer()));
      default:
        return void(veltrano_dictionary_set_number_with_double(map, key, code(), real()));
    }
  }

  void read() {
    const veltrano_text text = veltrano_string_text(any());
    require(text.bytes != nullptr || text.length == 0);
    static_cast<void>(std::string(text.length != 0 ? text.bytes : "", text.length));
    veltrano_is_valid_nested_type(any());
  }

  void send() {
    static constexpr const char* kSelectors[] = {
        "shared", "setUserId:", "setAppId:", "setIdfa",
        "setLibVersion:", "setPublisherUid:", "trackWithEventName:eventProperties:",
        "trackWithEventName:eventProperties:forceFlushCompletion:",
        "setSuperPropertiesWithProperties:", "removeSuperPropertyWithKey:",
        "setRefreshTriggersWithHandlerWithTriggers:handler:", "getScreenOrientation",
        "getDeviceOrientation", "handleWillEnterForeground", "handleDidEnterBackground",
        "handleDidChangeStatusBarOrientation", "handleDidChangeDeviceOrientation",
        "setScreenOrientation",
        // None of these is one.
        "", "setUserId", nullptr};
    const char* const selector = kSelectors[below(std::size(kSelectors))];
    std::vector<veltrano_object*> arguments(below(5));
    for (veltrano_object*& argument : arguments) argument = any();
    veltrano_object* returned = nullptr;
    std::size_t detail = 9;
    const auto outcome = veltrano_send(selector, arguments.data(), arguments.size(),
                                       flag() ? &returned : nullptr, flag() ? &detail : nullptr);
    require((outcome == VELTRANO_NO_SUCH_SELECTOR) != veltrano_responds(selector));
    require(detail == 9 || detail <= 3);
    require(veltrano_outcome_text(outcome) != nullptr);
    keep(returned);
  }

  void track() {
    veltrano_track(string(), any(), flag() ? Context::callWithFlag : nullptr, &unreleased_);
  }

  void configure() {
    const char* const names[] = {string(), string()};
    switch (below(9)) {
      case 0:
        return void(veltrano_set_user_id(string()));
      case 1:
        return void(veltrano_set_app_id(string()));
      case 2:
        return void(veltrano_set_lib_version(string()));
      case 3:
        return void(veltrano_set_idfa());
      case 4:
        return void(veltrano_set_publisher_uid(string()));
      case 5:
        return void(veltrano_set_super_properties(any()));
      case 6:
        return void(veltrano_remove_super_property(string()));
      case 7:
        return veltrano_set_logger_enabled(!veltrano_is_logger_enabled());
      default:
        return void(veltrano_set_refresh_triggers(flag() ? names : nullptr, below(3),
                                                  flag() ? Context::call : nullptr, &unreleased_));
    }
  }

  // Nothing of this reaches a platform that was not installed from here.
  void report() {
    veltrano_application_did_become_active();
    veltrano_application_did_enter_background();
    veltrano_set_interface_orientation(code());
    veltrano_set_carrier_name(text());
    veltrano_set_advertising_identifier(text());
    require(veltrano_screen_orientation() != nullptr && veltrano_device_orientation() != nullptr);
  }

  void runLoop() {
    veltrano_run_loop* const loop = flag() ? veltrano_current_run_loop() : veltrano_main_run_loop();
    veltrano_run_loop_perform(loop, flag() ? Context::call : nullptr, new Context,
                              Context::release);
    if (flag()) veltrano_run_loop_stop(loop);
    veltrano_run_loop_run_for(loop, flag() ? 0 : -1);
    veltrano_run_loop_run_due(loop);
  }

  // There is a platform already.
  void install() {
    veltrano_options options{};
    constexpr std::size_t kSizes[] = {0, offsetof(veltrano_options, info_dictionary),
                                      sizeof options, sizeof options + 8};
    options.size = kSizes[below(std::size(kSizes))];
    options.collection_host = text();
    options.user_defaults_file = text();
    options.info_dictionary = any();
    options.advertising_identifier = text();
    options.application_state = code();
    veltrano_object* error = nullptr;
    require(
        !veltrano_install_posix_platform(flag() ? &options : nullptr, flag() ? &error : nullptr));
    keep(error);
  }

  bool flag() { return data_.ConsumeBool(); }
  std::size_t below(std::size_t limit) {
    return data_.ConsumeIntegralInRange<std::size_t>(0, limit - 1);
  }
  int code() { return data_.ConsumeIntegralInRange(-1, 20); }
  std::int64_t integer() { return data_.ConsumeIntegral<std::int64_t>(); }
  double real() {
    const auto bits = integer();
    double number;
    std::memcpy(&number, &bits, sizeof number);
    return number;
  }

  // A C string in memory of its own size, so that reading beyond it is found; sometimes NULL.
  const char* string() {
    static constexpr const char* kFew[] = {nullptr, "", "a", "E", "uid", "extra_json", "\xC3"};
    const std::size_t chosen = below(2 * std::size(kFew));
    if (chosen < std::size(kFew)) return kFew[chosen];
    texts_.push_back(strdup(data_.ConsumeRandomLengthString(16).c_str()));
    return texts_.back();
  }

  veltrano_text text() {
    if (flag()) return veltrano_c_string(string());
    const char* const bytes = string();
    return {bytes, bytes != nullptr ? std::strlen(bytes) : 0};
  }

  struct Held {
    veltrano_object* object = nullptr;
    std::size_t size = 1;  // how many values at the most
  };

  // One of the host's objects, or nil.
  Held& held() {
    const std::size_t chosen = below(objects_.size() + 1);
    return chosen < objects_.size() ? objects_[chosen] : nil_;
  }
  veltrano_object* any() { return held().object; }

  void keep(veltrano_object* object, std::size_t size = 1) { objects_.push_back({object, size}); }

  FuzzedDataProvider data_;
  std::vector<Held> objects_;
  Held nil_;
  std::vector<const char*> texts_;
  static inline Context unreleased_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static auto& platform = *new veltrano::SimulatedPlatform;
  static const bool isInstalled = veltrano::installPlatform(platform.services());
  require(isInstalled);
  static const int kLive = Context::live;

  Host(data, size).run(platform.timeline);

  // Then nothing refers to a context any more.
  veltrano_set_refresh_triggers(nullptr, 0, nullptr, nullptr);
  veltrano_send("handleWillEnterForeground", nullptr, 0, nullptr, nullptr);
  platform.timeline.runUntil(platform.timeline.now() + std::chrono::minutes(1));
  require(Context::live == kLive);
  return 0;
}
