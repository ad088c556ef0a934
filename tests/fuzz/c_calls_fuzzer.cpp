// Makes random sequences of C calls on the simulated platform, and checks that every context is
// released exactly once.
#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
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
    "shared", "setUserId:", "setAppId:", "setIdfa",
    "setLibVersion:", "setPublisherUid:", "trackWithEventName:eventProperties:",
    "trackWithEventName:eventProperties:forceFlushCompletion:", "setSuperPropertiesWithProperties:",
    "removeSuperPropertyWithKey:", "setRefreshTriggersWithHandlerWithTriggers:handler:",
    "setCollecting:", "getScreenOrientation", "getDeviceOrientation", "handleWillEnterForeground",
    "handleDidEnterBackground", "handleDidChangeStatusBarOrientation",
    "handleDidChangeDeviceOrientation", "setScreenOrientation",
    // invalid ones
    "setUserId", "", nullptr};

class Host {
 public:
  Host(const std::uint8_t* bytes, std::size_t size) : data_(bytes, size) {}
  Host(const Host&) = delete;
  ~Host() {
    for (const Held& held : objects_) veltrano_release(held.object);
    for (char* text : texts_) std::free(text);
  }

  struct Held {
    veltrano_object* object = nullptr;
    std::size_t size = 1;  // an upper bound of its number of values
  };

  bool hasBytes() { return data_.remaining_bytes() > 0; }
  bool flag() { return data_.ConsumeBool(); }
  std::size_t below(std::size_t limit) {
    return data_.ConsumeIntegralInRange<std::size_t>(0, limit - 1);
  }
  // A value of any type that a call takes.
  template <class Type>
  Type drawn() {
    Type value{};
    draw(value);
    return value;
  }
  void draw(bool& value) { value = flag(); }
  void draw(int& value) { value = data_.ConsumeIntegralInRange(-1, 20); }
  void draw(std::int64_t& value) { value = data_.ConsumeIntegral<std::int64_t>(); }
  void draw(std::uint64_t& value) { value = data_.ConsumeIntegral<std::uint64_t>(); }
  void draw(double& value) { value = std::bit_cast<double>(drawn<std::int64_t>()); }
  void draw(float& value) { value = static_cast<float>(drawn<std::int64_t>()); }
  void draw(veltrano_text& value) { value = text(); }
  void draw(const char*& value) { value = string(); }
  void draw(veltrano_object*& value) { value = any(); }
  void draw(const veltrano_object*& value) { value = any(); }

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

  void makeBlocks() {
    keep(veltrano_block(flag() ? Context::call : nullptr, new Context, Context::release));
    keep(veltrano_boolean_block(flag() ? Context::callWithFlag : nullptr, new Context,
                                Context::release));
  }

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

  void track() {
    veltrano_track(string(), any(), flag() ? Context::callWithFlag : nullptr, &unreleased);
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

 private:
  FuzzedDataProvider data_;
  std::vector<Held> objects_;
  std::vector<char*> texts_;
  Held nil_;
  static inline Context unreleased;
};

// Calls the function with arguments drawn by their types. The host keeps an object that it returns.
template <auto kFunction>
void call(Host& host) {
  const auto with = [&]<class Result, class... Parameters>(Result (*function)(Parameters...)) {
    const std::tuple<Parameters...> arguments{host.drawn<Parameters>()...};
    if constexpr (std::is_same_v<Result, veltrano_object*>)
      host.keep(std::apply(function, arguments));
    else
      std::apply(function, arguments);
  };
  if constexpr (std::is_member_function_pointer_v<decltype(kFunction)>)
    (host.*kFunction)();
  else
    with(kFunction);
}

#define CALLS_ADDING(kind) call<veltrano_array_append_##kind>, call<veltrano_dictionary_set_##kind>
#define CALLS_FOR(kind) call<veltrano_##kind>, CALLS_ADDING(kind)

constexpr void (*kCalls[])(Host&) = {
    // clang-format off
    CALLS_FOR(int), CALLS_FOR(uint), CALLS_FOR(int64), CALLS_FOR(double), CALLS_FOR(float),
    CALLS_FOR(bool), CALLS_FOR(date), CALLS_FOR(url), CALLS_FOR(null), CALLS_FOR(number),
    CALLS_FOR(number_with_double), CALLS_ADDING(text), call<veltrano_string>,
    call<veltrano_boolean_number>, call<veltrano_other_object>, call<veltrano_array>,
    call<veltrano_dictionary>, call<veltrano_set_user_id>,
    call<veltrano_set_app_id>, call<veltrano_set_lib_version>, call<veltrano_set_idfa>,
    call<veltrano_set_publisher_uid>, call<veltrano_set_super_properties>,
    call<veltrano_remove_super_property>, call<veltrano_set_logger_enabled>,
    call<veltrano_set_collecting>,
    call<veltrano_set_advertising_identifier>, call<veltrano_screen_orientation>,
    call<veltrano_device_orientation>, call<&Host::makeBlocks>, call<&Host::makeNames>,
    call<&Host::copy>, call<&Host::release>, call<&Host::add>, call<&Host::read>,
    call<&Host::send>, call<&Host::track>, call<&Host::setTriggers>, call<&Host::runLoop>,
    call<&Host::track>,  // again, so that the numbers in the corpus stay
    // clang-format on
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static auto& platform = *new veltrano::internal::SimulatedPlatform;
  static const bool isInstalled = veltrano::internal::Library::install(platform.services());
  static const int liveContexts = Context::live;
  require(isInstalled);

  {
    Host host(data, size);
    while (host.hasBytes()) {
      kCalls[host.below(std::size(kCalls))](host);
      if (host.below(16) == 0)
        platform.timeline.runUntil(platform.timeline.now() + std::chrono::seconds(1));
    }
  }

  // Afterwards nothing refers to a context.
  veltrano_set_refresh_triggers(nullptr, 0, nullptr, nullptr);
  veltrano_send("handleWillEnterForeground", nullptr, 0, nullptr, nullptr);
  platform.timeline.runUntil(platform.timeline.now() + std::chrono::minutes(1));
  require(Context::live == liveContexts);
  return 0;
}
