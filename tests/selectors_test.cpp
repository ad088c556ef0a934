// Calls the library by selector, with dynamically typed objects.
#include <gtest/gtest.h>

#include <tuple>

#include "c_interface/handles.h"
#include "tests/support/simulation.h"

namespace veltrano::internal {
namespace {

using Objects = std::vector<Object>;

Object object(HostValue value) {
  return Object(std::move(value));
}

// A result in words, such as "done", "done: text" or "argument 1".
std::string outcome(const std::string& selector, const Objects& arguments = {}) {
  std::vector<veltrano_object*> handles;
  for (const Object& argument : arguments) handles.push_back(makeHandle(argument));
  veltrano_object* returned = nullptr;
  std::size_t detail = 0;
  const auto result =
      veltrano_send(selector.c_str(), handles.data(), handles.size(), &returned, &detail);
  const Object object = objectOf(returned);
  handles.push_back(returned);
  for (veltrano_object* const handle : handles) veltrano_release(handle);
  if (result == VELTRANO_WRONG_NUMBER_OF_ARGUMENTS) return "takes " + std::to_string(detail);
  if (result == VELTRANO_WRONG_TYPE_OF_ARGUMENT) return "argument " + std::to_string(detail);
  const std::string text = veltrano_outcome_text(result);
  if (object.isNil()) return text;
  return text + ": " + std::string(object.text().value_or("object"));
}

class Selectors : public testing::Test {
 protected:
  Selectors() { Veltrano::isLoggerEnabled = true; }

  // What a call logs, without the prefixes.
  std::vector<std::string> messagesOf(const std::string& selector, const Objects& arguments = {}) {
    simulation.lines.clear();
    EXPECT_EQ(outcome(selector, arguments), "done") << selector;
    simulation.settle();
    for (std::string& line : simulation.lines) line.erase(0, line.find(" | ") + 3);
    return simulation.lines;
  }

  Simulation simulation;
};

TEST_F(Selectors, WrongMessagesChangeNothing) {
  const Object text = object("text"), nil;
  const Object map = object(HostMap{{"a", 1}}), block = Object(Object::Block([] {}));
  const Object otherMap = object(Dictionary({{1, "one"}}));
  const std::string track = "trackWithEventName:eventProperties:",
                    full = track + "forceFlushCompletion:";
  const std::string triggers = "setRefreshTriggersWithHandlerWithTriggers:handler:";
  const std::tuple<std::string, Objects, std::string> cases[] = {
      {"setuserid:", {text}, "no such selector"},
      {"setUserId:", {}, "takes 1"},
      {"shared", {nil}, "takes 0"},
      {"setUserId:", {nil}, "argument 0"},
      {"setSuperPropertiesWithProperties:", {nil}, "argument 0"},
      {track, {text, nil}, "argument 1"},
      {full, {text, otherMap, nil}, "argument 1"},
      {full, {text, map, block}, "argument 2"},
      {triggers, {object(HostValue(Array{"a", 1})), block}, "argument 0"},
      {triggers, {nil, Object(simulation.completion())}, "argument 1"},
  };
  for (const auto& [selector, arguments, expected] : cases)
    EXPECT_EQ(outcome(selector, arguments), expected) << selector;
  EXPECT_FALSE(veltrano_responds("isLoggerEnabled"));
  // Not even the tracker was created.
  EXPECT_FALSE(simulation.platform.notificationCenter.isUsed);
  EXPECT_TRUE(simulation.lines.empty());
}

TEST_F(Selectors, NilAndNullLeaveAnArgumentOut) {
  using Messages = std::vector<std::string>;
  const Object name = object("E"), names = object(HostValue(Array{"a", "E"}));
  const std::string setTriggers = "setRefreshTriggersWithHandlerWithTriggers:handler:";
  int refreshes = 0;
  const Object handler{Object::Block([&] { ++refreshes; })};
  for (const Object& nothing : {Object(), object(NSNull())}) {
    messagesOf("setPublisherUid:", {name});
    EXPECT_EQ(messagesOf("setPublisherUid:", {nothing}),
              Messages{"Removed superProperty: pub_uid with value: Optional(\"E\")"});
    EXPECT_EQ(messagesOf(setTriggers, {names, handler}).back(),
              "Setting refresh triggers: Optional([\"a\", \"E\"])");
    messagesOf("trackWithEventName:eventProperties:forceFlushCompletion:",
               {name, nothing, nothing});
    for (const Objects& none : {Objects{names, nothing}, Objects{nothing, handler}}) {
      messagesOf(setTriggers, none);
      messagesOf("trackWithEventName:eventProperties:", {name, object(HostMap())});
    }
  }
  EXPECT_EQ(refreshes, 2);
}

// Which notifications reach them, the scenarios show.
TEST_F(Selectors, ReachTheHandlersOfNotifications) {
  const std::pair<const char*, const char*> handlers[] = {
      {"handleDidEnterBackground", "App entered background!"},
      {"handleWillEnterForeground", "App becoming active!"},
      {"handleDidChangeStatusBarOrientation", "App orientation changed!"},
      {"handleDidChangeDeviceOrientation", "Adding event of Device Orientation Changed"},
      {"setScreenOrientation", "Adding event of Screen Orientation Changed"},
  };
  EXPECT_EQ(outcome("shared"), "done: object");
  EXPECT_EQ(outcome("getScreenOrientation"), "done: portrait");
  EXPECT_EQ(outcome("getDeviceOrientation"), "done: unknown");
  for (const auto& [selector, message] : handlers)
    EXPECT_TRUE(messagesOf(selector).at(0).starts_with(message)) << selector;
}

TEST_F(Selectors, ChangesOfAMutableCollectionShowNowhere) {
  const std::string large(300, 'a');
  MutableCollection list(Kind::Array), map(Kind::Dictionary);
  list.append(object(large).argument());
  list.append(list.argument());  // which moves
  map.set(object("list"), list.argument());
  map.set("self", map.argument());
  const Object before = map.copy();
  list.append(object(3).argument());
  map.set(object("late"), object(4).argument());
  messagesOf("trackWithEventName:eventProperties:forceFlushCompletion:",
             {object("E"), before, Object(simulation.completion())});
  const auto& event = simulation.posts.at(0)[0u]["properties"];
  const std::string elements = "[\"" + large + "\",[\"" + large + "\"]]";
  EXPECT_EQ(text(event, "list"), elements);
  EXPECT_EQ(text(event, "self"), "{\"list\":" + elements + "}");
  EXPECT_EQ(text(event, "late"), "absent");
}

// What becomes of each kind, the values fuzzer compares.
TEST_F(Selectors, EntriesOnTheCallersStackArrive) {
  veltrano_object* const inner = makeHandle(object(HostMap{{"zip", 150}}));
  std::vector<veltrano_entry> entries;
  const auto add = [&](const char* name, veltrano_kind kind) -> auto& {
    entries.push_back({name, static_cast<std::uint32_t>(kind), 0, {}});
    return entries.back().value;
  };
  add("\"pro\"", VELTRANO_TEXT).text = "pro";  // called as its value is sent
  add("\"pr\"", VELTRANO_TEXT_WITH_LENGTH).text_with_length = {"prose", 2};
  add("-3", VELTRANO_INT).integer = -3;
  add("18446744073709551615", VELTRANO_UINT).natural = UINT64_MAX;
  add("-9223372036854775808", VELTRANO_INT64).integer = INT64_MIN;
  add("9.5", VELTRANO_DOUBLE).real = 9.5;
  add("0.5", VELTRANO_FLOAT).real = 0.5;
  add("true", VELTRANO_BOOL).boolean = true;
  add("\"1970-01-01T00:00:01.000Z\"", VELTRANO_DATE).real = 1;
  add("\"https://veltrano.example/\"", VELTRANO_URL).text = "https://veltrano.example/";
  add("null", VELTRANO_NULL);
  add("{\"zip\":150}", VELTRANO_OBJECT).object = inner;
  add("2", VELTRANO_INT).integer = 1;
  add("2", VELTRANO_INT).integer = 2;
  add("absent", VELTRANO_TEXT);
  const auto note = [](void* outcomes, bool accepted) {
    static_cast<std::vector<bool>*>(outcomes)->push_back(accepted);
  };
  const auto track = [&](std::size_t size = sizeof(veltrano_entry)) {
    return veltrano_track_entries("E", entries.data(), entries.size(), size, note,
                                  &simulation.outcomes);
  };
  EXPECT_TRUE(track());
  simulation.runUntil(1);
  EXPECT_EQ(simulation.outcomes, std::vector<bool>{true});
  const auto& properties = simulation.posts.at(0)[0u]["properties"];
  for (const veltrano_entry& entry : entries) EXPECT_EQ(text(properties, entry.name), entry.name);

  EXPECT_FALSE(track(sizeof(veltrano_entry) - 1));
  EXPECT_FALSE(veltrano_track_entries(nullptr, nullptr, 0, 0, nullptr, nullptr));
  EXPECT_FALSE(veltrano_track_entries("E", nullptr, 1, sizeof(veltrano_entry), nullptr, nullptr));
  for (const veltrano_entry& wrong : {veltrano_entry{"reserved", VELTRANO_NULL, 1, {}},
                                      veltrano_entry{"kind", VELTRANO_OBJECT + 1, 0, {}},
                                      veltrano_entry{nullptr, VELTRANO_NULL, 0, {}}}) {
    entries[0] = wrong;
    EXPECT_FALSE(track());
  }
  veltrano_release(inner);
}

}  // namespace
}  // namespace veltrano::internal
