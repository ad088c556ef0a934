#include "c_interface/selectors.h"

#include <algorithm>
#include <functional>
#include <optional>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "tracker/library.h"
#include "veltrano/veltrano.h"

namespace veltrano::internal {
namespace {

// take: converts an object to an argument; false when it has the wrong type.

bool take(const Object& object, std::string_view& text) {
  const auto given = object.text();
  text = given.value_or(std::string_view());
  return given.has_value();
}

bool take(const Object& object, HostMap& map) {
  auto given = object.map();
  if (!given) return false;
  map = *std::move(given);
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

template <class Block>
bool takeBlock(const Object& object, Block& block) {
  if (const auto* given = object.getIf<Block>()) block = *given;
  return block || isNothing(object);
}

bool take(const Object& object, Object::Block& block) {
  return takeBlock(object, block);
}

bool take(const Object& object, Object::BooleanBlock& block) {
  return takeBlock(object, block);
}

template <class T>
bool take(const Object& object, std::optional<T>& argument) {
  return isNothing(object) || take(object, argument.emplace());
}

template <class Operation, class Result, class... Parameters, std::size_t... kIndices>
SendResult call(Result (*)(Parameters...), std::index_sequence<kIndices...>,
                [[maybe_unused]] std::span<const Object> objects) {
  std::tuple<std::remove_cvref_t<Parameters>...> arguments;
  std::size_t taken = 0;
  const bool fits =
      ((take(objects[kIndices], std::get<kIndices>(arguments)) && ++taken != 0) && ...);
  if (!fits) return WrongTypeOfArgument{taken};
  if constexpr (std::is_void_v<Result>) {
    std::apply(Operation(), std::move(arguments));
    return Done{};
  } else {
    return Done{Object(std::apply(Operation(), std::move(arguments)))};
  }
}

template <class Result, class... Parameters>
constexpr std::size_t parameterCount(Result (*)(Parameters...)) {
  return sizeof...(Parameters);
}

struct Entry {
  // `operation` is a captureless lambda whose parameters are the selector's arguments.
  template <class Operation>
  consteval Entry(std::string_view name, Operation operation)
      : selector(name), argumentCount(parameterCount(+operation)) {
    if (std::count(name.begin(), name.end(), ':') != static_cast<std::ptrdiff_t>(argumentCount))
      throw "The operation does not take what the selector names.";
    send = [](std::span<const Object> arguments) {
      constexpr auto kFunction = +Operation();
      return call<Operation>(kFunction, std::make_index_sequence<parameterCount(kFunction)>(),
                             arguments);
    };
  }

  std::string_view selector;
  std::size_t argumentCount;
  SendResult (*send)(std::span<const Object> arguments) = nullptr;
};

using Text = std::string_view;

constexpr Entry kEntries[] = {
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

std::optional<std::size_t> argumentCount(std::string_view selector) {
  if (const auto* entry = find(kEntries, selector)) return entry->argumentCount;
  if (find(Tracker::kHandlers, selector) != nullptr) return 0;
  return std::nullopt;
}

SendResult send(std::string_view selector, std::span<const Object> arguments) {
  const auto expected = argumentCount(selector);
  if (!expected) return NoSuchSelector();
  if (arguments.size() != *expected) return WrongNumberOfArguments{*expected};
  if (const auto* entry = find(kEntries, selector)) return entry->send(arguments);
  const auto* handler = find(Tracker::kHandlers, selector);
  (Library::current().tracker().*handler->handle)();
  return Done();
}

}  // namespace veltrano::internal
