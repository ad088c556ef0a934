// Makes random sequences of C calls on the simulated platform, and checks that every context is
// released exactly once.
#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include "platform/simulated/simulated_platform.h"
#include "tracker/library.h"
#include "veltrano/veltrano_c.h"

namespace {

void require(bool condition) {
  if (!condition) std::abort();
}

// The context of callbacks.
struct Context {
  Context() { ++live; }
  ~Context() { --live; }

  // Reads the context, so that the sanitizer finds a use after its release.
  static void call(void* context) { require(static_cast<Context*>(context)->self == context); }
  static void callWithFlag(void* context, bool) { call(context); }
  static void release(void* context) { delete static_cast<Context*>(context); }

  const Context* const self = this;
  static inline int live = 0;
};

constexpr const char* kSelectors[] = {
    "shared",
    "setUserId:",
    "setAppId:",
    "setIdfa",
    "setLibVersion:",
    "setPublisherUid:",
    "trackWithEventName:eventProperties:",
    "trackWithEventName:eventProperties:forceFlushCompletion:",
    "setSuperPropertiesWithProperties:",
    "removeSuperPropertyWithKey:",
    "setRefreshTriggersWithHandlerWithTriggers:handler:",
    "getScreenOrientation",
    "getDeviceOrientation",
    "handleWillEnterForeground",
    "handleDidEnterBackground",
    "handleDidChangeStatusBarOrientation",
    "handleDidChangeDeviceOrientation",
    "setScreenOrientation",
    "setUserId",  // from here on, invalid ones
    "",
    nullptr,
};

class Host {
 public:
  Host(const std::uint8_t* bytes, std::size_t size) : data_(bytes, size) {}
  Host(const Host&) = delete;
  ~Host() {
    for (const Held& held : objects_) veltrano_release(held.object);
    for (char* text : texts_) std::free(text);
  }

  void run(veltrano::internal::Timeline& timeline) {
    while (data_.remaining_bytes() > 0) {
      kCalls[below(std::size(kCalls))](*this);
      if (below(16) == 0) timeline.runUntil(timeline.now() + std::chrono::seconds(1));
    }
  }

 private:
  struct Held {
    veltrano_object* object = nullptr;
    std::size_t size = 1;  // an upper bound of its number of values
  };
  using Call = void (*)(Host&);
  static const Call kCalls[62];

  bool flag() { return data_.ConsumeBool(); }
  std::size_t below(std::size_t limit) {
    return data_.ConsumeIntegralInRange<std::size_t>(0, limit - 1);
  }
  int code() { return data_.ConsumeIntegralInRange(-1, 20); }
  std::int64_t integer() { return data_.ConsumeIntegral<std::int64_t>(); }
  std::uint64_t unsignedInteger() { return data_.ConsumeIntegral<std::uint64_t>(); }
  double real() {
    const auto bits = integer();
    double number;
    std::memcpy(&number, &bits, sizeof number);
    return number;
  }
  float single() { return static_cast<float>(integer()); }

  // A C string in a block of exactly its size, so that the sanitizer finds overruns; sometimes
  // NULL.
  const char* string() {
    static constexpr const char* kFew[] = {nullptr, "", "a", "E", "uid", "extra_json", "\xC3"};
    const std::size_t chosen = below(2 * std::size(kFew));
    if (chosen < std::size(kFew)) return kFew[chosen];
    return texts_.emplace_back(strdup(data_.ConsumeRandomLengthString(16).c_str()));
  }

  veltrano_text text() {
    veltrano_text text = veltrano_c_string(string());
    if (flag()) text.length /= 2;
    return text;
  }

  // One of the host's objects, or nil.
  Held& held() {
    const std::size_t chosen = below(objects_.size() + 1);
    return chosen < objects_.size() ? objects_[chosen] : nil_;
  }
  veltrano_object* any() { return held().object; }
  void keep(veltrano_object* object, std::size_t size = 1) { objects_.push_back({object, size}); }

  void makeNames() {
    veltrano_object* const names = veltrano_array();
    for (std::size_t i = below(3); i > 0; --i) veltrano_array_append_text(names, string());
    keep(names);
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
    // Adding a collection to itself doubles it.
    constexpr std::size_t kLargest = 2000;
    if (to.size + key.size + value.size > kLargest) return;
    if (to.object != nullptr) to.size += key.size + value.size;
    veltrano_array_append(to.object, value.object);
    if (flag())
      veltrano_dictionary_set(to.object, key.object, value.object);
    else
      veltrano_dictionary_set_object(to.object, string(), value.object);
  }

  void read() {
    const veltrano_text text = veltrano_string_text(any());
    require(text.bytes != nullptr || text.length == 0);
    static_cast<void>(std::string(text.length != 0 ? text.bytes : "", text.length));
    veltrano_is_valid_nested_type(any());
  }

  void send() {
    const char* const selector = kSelectors[below(std::size(kSelectors))];
    const std::string_view name = selector != nullptr ? selector : "";
    const auto expected = static_cast<std::size_t>(std::count(name.begin(), name.end(), ':'));
    std::vector<veltrano_object*> arguments(below(8) == 0 ? below(5) : expected);
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

  void setTriggers() {
    const char* const names[] = {string(), string()};
    veltrano_set_refresh_triggers(flag() ? names : nullptr, below(3),
                                  flag() ? Context::call : nullptr, &unreleased);
  }

  void runLoop() {
    veltrano_run_loop* const loop = flag() ? veltrano_current_run_loop() : veltrano_main_run_loop();
    veltrano_run_loop_perform(loop, flag() ? Context::call : nullptr, new Context,
                              Context::release);
    if (flag()) veltrano_run_loop_stop(loop);
    veltrano_run_loop_run_for(loop, flag() ? 0 : -1);
    veltrano_run_loop_run_due(loop);
  }

  // Always refused: there is a platform already.
  void install() {
    constexpr std::size_t kSizes[] = {0, offsetof(veltrano_options, info_dictionary),
                                      sizeof(veltrano_options), sizeof(veltrano_options) + 8};
    veltrano_options options{};
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

  FuzzedDataProvider data_;
  std::vector<Held> objects_;
  std::vector<char*> texts_;
  Held nil_;
  static inline Context unreleased;
};

const Host::Call Host::kCalls[] = {
    [](Host& h) { h.keep(veltrano_string(h.text())); },
    [](Host& h) { h.keep(veltrano_url(h.text())); },
    [](Host& h) { h.keep(veltrano_number(h.code(), h.integer())); },
    [](Host& h) { h.keep(veltrano_number_with_double(h.code(), h.real())); },
    [](Host& h) { h.keep(veltrano_boolean_number(h.flag())); },
    [](Host& h) { h.keep(veltrano_int(h.integer())); },
    [](Host& h) { h.keep(veltrano_uint(h.unsignedInteger())); },
    [](Host& h) { h.keep(veltrano_int64(h.integer())); },
    [](Host& h) { h.keep(veltrano_double(h.real())); },
    [](Host& h) { h.keep(veltrano_float(h.single())); },
    [](Host& h) { h.keep(veltrano_bool(h.flag())); },
    [](Host& h) { h.keep(veltrano_date(h.real())); },
    [](Host& h) { h.keep(veltrano_null()); },
    [](Host& h) { h.keep(veltrano_other_object()); },
    [](Host& h) { h.keep(veltrano_array()); },
    [](Host& h) { h.keep(veltrano_dictionary()); },
    [](Host& h) {
      h.keep(veltrano_block(h.flag() ? Context::call : nullptr, new Context, Context::release));
    },
    [](Host& h) {
      h.keep(veltrano_boolean_block(h.flag() ? Context::callWithFlag : nullptr, new Context,
                                    Context::release));
    },
    [](Host& h) { h.makeNames(); },
    [](Host& h) { h.copy(); },
    [](Host& h) { h.release(); },
    [](Host& h) { h.add(); },
    [](Host& h) { h.read(); },
    [](Host& h) { veltrano_array_append_text(h.any(), h.string()); },
    [](Host& h) { veltrano_array_append_int(h.any(), h.integer()); },
    [](Host& h) { veltrano_array_append_uint(h.any(), h.unsignedInteger()); },
    [](Host& h) { veltrano_array_append_int64(h.any(), h.integer()); },
    [](Host& h) { veltrano_array_append_double(h.any(), h.real()); },
    [](Host& h) { veltrano_array_append_float(h.any(), h.single()); },
    [](Host& h) { veltrano_array_append_bool(h.any(), h.flag()); },
    [](Host& h) { veltrano_array_append_date(h.any(), h.real()); },
    [](Host& h) { veltrano_array_append_url(h.any(), h.string()); },
    [](Host& h) { veltrano_array_append_null(h.any()); },
    [](Host& h) { veltrano_array_append_number(h.any(), h.code(), h.integer()); },
    [](Host& h) { veltrano_array_append_number_with_double(h.any(), h.code(), h.real()); },
    [](Host& h) { veltrano_dictionary_set_text(h.any(), h.string(), h.string()); },
    [](Host& h) { veltrano_dictionary_set_int(h.any(), h.string(), h.integer()); },
    [](Host& h) { veltrano_dictionary_set_uint(h.any(), h.string(), h.unsignedInteger()); },
    [](Host& h) { veltrano_dictionary_set_int64(h.any(), h.string(), h.integer()); },
    [](Host& h) { veltrano_dictionary_set_double(h.any(), h.string(), h.real()); },
    [](Host& h) { veltrano_dictionary_set_float(h.any(), h.string(), h.single()); },
    [](Host& h) { veltrano_dictionary_set_bool(h.any(), h.string(), h.flag()); },
    [](Host& h) { veltrano_dictionary_set_date(h.any(), h.string(), h.real()); },
    [](Host& h) { veltrano_dictionary_set_url(h.any(), h.string(), h.string()); },
    [](Host& h) { veltrano_dictionary_set_null(h.any(), h.string()); },
    [](Host& h) { veltrano_dictionary_set_number(h.any(), h.string(), h.code(), h.integer()); },
    [](Host& h) {
      veltrano_dictionary_set_number_with_double(h.any(), h.string(), h.code(), h.real());
    },
    [](Host& h) { h.send(); },
    [](Host& h) {
      veltrano_track(h.string(), h.any(), h.flag() ? Context::callWithFlag : nullptr, &unreleased);
    },
    [](Host& h) { veltrano_set_user_id(h.string()); },
    [](Host& h) { veltrano_set_app_id(h.string()); },
    [](Host& h) { veltrano_set_lib_version(h.string()); },
    [](Host&) { veltrano_set_idfa(); },
    [](Host& h) { veltrano_set_publisher_uid(h.string()); },
    [](Host& h) { veltrano_set_super_properties(h.any()); },
    [](Host& h) { veltrano_remove_super_property(h.string()); },
    [](Host& h) { h.setTriggers(); },
    [](Host&) { veltrano_set_logger_enabled(!veltrano_is_logger_enabled()); },
    [](Host&) {
      require(*veltrano_screen_orientation() != 0 && *veltrano_device_orientation() != 0);
    },
    [](Host& h) { veltrano_set_advertising_identifier(h.text()); },
    [](Host& h) { h.runLoop(); },
    [](Host& h) { h.install(); },
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static auto& platform = *new veltrano::internal::SimulatedPlatform;
  static const bool isInstalled = veltrano::internal::Library::install(platform.services());
  static const int liveContexts = Context::live;
  require(isInstalled);

  Host(data, size).run(platform.timeline);

  // Afterwards nothing refers to a context.
  veltrano_set_refresh_triggers(nullptr, 0, nullptr, nullptr);
  veltrano_send("handleWillEnterForeground", nullptr, 0, nullptr, nullptr);
  platform.timeline.runUntil(platform.timeline.now() + std::chrono::minutes(1));
  require(Context::live == liveContexts);
  return 0;
}
