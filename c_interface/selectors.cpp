// Calls the library's operations, and its notification handlers, by selector.
#include <algorithm>
#include <functional>
#include <iterator>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "c_interface/handles.h"
#include "tracker/library.h"
#include "veltrano/veltrano.h"

using namespace veltrano;
using namespace veltrano::internal;

namespace {

// take: converts an object to an argument; false when it has the wrong type.

bool take(const Object& object, std::string_view& text) {
  const auto given = object.text();
  text = given.value_or(std::string_view());
  return given.has_value();
}

bool take(const Object& object, bool& flag) {
  const detail::Flat value(object.argument());
  const FlatView given(value.bytes());
  const bool isNumber = given.kind() == Kind::Number;
  flag = isNumber ? given.numberAsDouble() != 0 : given.kind() == Kind::Bool && given.boolean();
  return isNumber || given.kind() == Kind::Bool;
}

bool take(const Object& object, HostMap& map) {
  const auto given = object.properties();
  if (!given) return false;
  map = HostMap(*given);
  return true;
}

bool take(const Object& object, std::vector<std::string>& list) {
  const auto given = object.member() != nullptr ? object.member()->getIf<Array>() : std::nullopt;
  if (!given) return false;
  for (const HostValue& element : *given) {
    auto text = element.member() != nullptr ? element.member()->getIf<std::string>() : std::nullopt;
    if (!text) return false;
    list.push_back(*std::move(text));
  }
  return true;
}

// Nil and the null object stand for an optional argument that is left out.
bool isNothing(const Object& object) {
  return object.isNil() || (object.member() != nullptr && object.member()->getIf<NSNull>());
}

template <class... Arguments>
bool take(const Object& object, std::function<void(Arguments...)>& block) {
  if (const auto* given = object.getIf<std::function<void(Arguments...)>>()) block = *given;
  return block || isNothing(object);
}

template <class T>
bool take(const Object& object, std::optional<T>& argument) {
  return isNothing(object) || take(object, argument.emplace());
}

// Adds the number of leading objects with the right type to `taken`, which must be 0; calls the
// operation only if all have it.
template <class Operation, class Result, class... Parameters>
bool call(Result (*)(Parameters...), std::span<const Object> objects, std::size_t& taken,
          Object& returned) {
  std::tuple<std::remove_cvref_t<Parameters>...> arguments;
  const auto takeAll = [&](auto&... argument) {
    return ((take(objects[taken], argument) && ++taken != 0) && ...);
  };
  if (!std::apply(takeAll, arguments)) return false;
  if constexpr (std::is_void_v<Result>)
    std::apply(Operation(), std::move(arguments));
  else
    returned = Object(std::apply(Operation(), std::move(arguments)));
  return true;
}

template <class Result, class... Parameters>
constexpr std::size_t parameterCount(Result (*)(Parameters...)) {
  return sizeof...(Parameters);
}

struct Method {
  // `operation` is a captureless lambda whose parameters are the selector's arguments.
  template <class Operation>
  consteval Method(std::string_view name, Operation operation)
      : selector(name), argumentCount(parameterCount(+operation)) {
    if (std::count(name.begin(), name.end(), ':') != static_cast<std::ptrdiff_t>(argumentCount))
      throw "The operation does not take what the selector names.";
    send = [](std::span<const Object> arguments, std::size_t& taken, Object& returned) {
      return call<Operation>(+Operation(), arguments, taken, returned);
    };
  }

  std::string_view selector;
  std::size_t argumentCount;
  bool (*send)(std::span<const Object> arguments, std::size_t& taken, Object& returned) = nullptr;
};

using Text = std::string_view;

constexpr Method kMethods[] = {
    {"shared",
     [] {
       Veltrano::shared();
       return HostValue(OtherObject());
     }},
    {"setUserId:", [](Text id) { Veltrano::shared().setUserId(id); }},
    {"setAppId:", [](Text id) { Veltrano::shared().setAppId(id); }},
    {"setIdfa", [] { Veltrano::shared().setIdfa(); }},
    {"setLibVersion:", [](Text version) { Veltrano::shared().setLibVersion(version); }},
    {"setPublisherUid:", [](std::optional<Text> uid) { Veltrano::shared().setPublisherUid(uid); }},
    {"trackWithEventName:eventProperties:",
     [](Text name, const HostMap& properties) { Veltrano::shared().track(name, properties); }},
    {"trackWithEventName:eventProperties:forceFlushCompletion:",
     [](Text name, const std::optional<HostMap>& properties, Object::BooleanBlock completion) {
       Veltrano::shared().track(name, properties, std::move(completion));
     }},
    {"setSuperPropertiesWithProperties:",
     [](const HostMap& properties) { Veltrano::shared().setSuperProperties(properties); }},
    {"removeSuperPropertyWithKey:", [](Text key) { Veltrano::shared().removeSuperProperty(key); }},
    {"setRefreshTriggersWithHandlerWithTriggers:handler:",
     [](std::optional<std::vector<std::string>> triggers, Object::Block handler) {
       Veltrano::shared().setRefreshTriggersWithHandler(std::move(triggers), std::move(handler));
     }},
    {"setCollecting:", [](bool isOn) { Veltrano::shared().setCollecting(isOn); }},
    {"getScreenOrientation", [] { return HostValue(Veltrano::shared().getScreenOrientation()); }},
    {"getDeviceOrientation", [] { return HostValue(Veltrano::shared().getDeviceOrientation()); }},
};

// The row for `selector`, or null.
template <class Table>
auto find(const Table& table, std::string_view selector) -> decltype(std::data(table)) {
  const auto row = std::find_if(std::begin(table), std::end(table),
                                [&](const auto& r) { return r.selector == selector; });
  return row == std::end(table) ? nullptr : &*row;
}

}  // namespace

void veltrano::internal::noteRefusal(std::string_view operation, std::size_t argument) {
  const Library* const library = Library::installed();
  if (CallObserver* const observer = library != nullptr ? library->observer() : nullptr)
    observer->refused(operation, argument);
}

veltrano_outcome veltrano_send(const char* selector, veltrano_object* const* arguments,
                               size_t count, veltrano_object** returned, size_t* detail) {
  if (returned != nullptr) *returned = nullptr;
  const auto wrong = [&](veltrano_outcome outcome, const std::size_t* what) {
    noteRefusal(selector != nullptr ? selector : "NULL",
                outcome == VELTRANO_WRONG_TYPE_OF_ARGUMENT ? *what : CallObserver::kNoArgument);
    if (detail != nullptr && what != nullptr) *detail = *what;
    return outcome;
  };
  return guarded(VELTRANO_OUT_OF_MEMORY, [&] {
    if (!veltrano_responds(selector)) return wrong(VELTRANO_NO_SUCH_SELECTOR, nullptr);
    const Method* const method = find(kMethods, selector);
    // Checked before reading the arguments, which may be invalid otherwise.
    const std::size_t expected = method != nullptr ? method->argumentCount : 0;
    if (count != expected) return wrong(VELTRANO_WRONG_NUMBER_OF_ARGUMENTS, &expected);
    if (method == nullptr) {
      (Library::current().tracker().*find(Tracker::kHandlers, selector)->handle)();
      return VELTRANO_DONE;
    }
    std::vector<Object> objects(count);
    for (std::size_t i = 0; i < count && arguments != nullptr; ++i)
      objects[i] = objectOf(arguments[i]);
    std::size_t taken = 0;
    Object result;
    if (!method->send(objects, taken, result))
      return wrong(VELTRANO_WRONG_TYPE_OF_ARGUMENT, &taken);
    if (returned != nullptr) *returned = makeHandle(std::move(result));
    return VELTRANO_DONE;
  });
}

bool veltrano_responds(const char* selector) {
  return selector != nullptr &&
         (find(kMethods, selector) != nullptr || find(Tracker::kHandlers, selector) != nullptr);
}

const char* veltrano_outcome_text(veltrano_outcome outcome) {
  constexpr const char* kTexts[] = {"done", "no such selector", "wrong number of arguments",
                                    "wrong type of argument", "out of memory"};
  const auto index = static_cast<std::size_t>(outcome);
  return index < std::size(kTexts) ? kTexts[index] : "unknown outcome";
}
