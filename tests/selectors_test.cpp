// Calls the library by selector, with dynamically typed objects.
#include <gtest/gtest.h>

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

  std::vector<std::string> messagesOf(const std::string& selector, const Objects& arguments = {}) {
    simulation.takeMessages();
    EXPECT_EQ(outcome(selector, arguments), "done") << selector;
    simulation.settle();
    return simulation.takeMessages();
  }

  // The properties of an event that is sent with these objects.
  const rapidjson::Value& sent(Object properties) {
    EXPECT_EQ(outcome("trackWithEventName:eventProperties:forceFlushCompletion:",
                      {object("E"), std::move(properties), Object(simulation.completion("E"))}),
              "done");
    simulation.runUntil(simulation.now() + 1);
    EXPECT_EQ(simulation.completions.back(), std::pair(std::string("E"), true));
    return simulation.posts.back().properties();
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
  const struct {
    std::string selector;
    Objects arguments;
    std::string expected;
  } cases[] = {
      {"setuserid:", {text}, "no such selector"},
      {"setUserId:", {}, "takes 1"},
      {"shared", {nil}, "takes 0"},
      {full, {text, map}, "takes 3"},
      {"setUserId:", {nil}, "argument 0"},
      {"setSuperPropertiesWithProperties:", {nil}, "argument 0"},
      {track, {text, nil}, "argument 1"},
      {full, {text, otherMap, nil}, "argument 1"},
      {full, {text, map, block}, "argument 2"},
      {triggers, {object(HostValue(Array{"a", 1})), block}, "argument 0"},
      {triggers, {nil, Object(simulation.completion(""))}, "argument 1"},
  };
  for (const auto& [selector, arguments, expected] : cases)
    EXPECT_EQ(outcome(selector, arguments), expected) << selector;
  EXPECT_FALSE(veltrano_responds("isLoggerEnabled"));
  // Not even the tracker was created.
  const Lock lock(simulation.platform.notificationCenter.mutex);
  EXPECT_TRUE(simulation.platform.notificationCenter.observers.empty());
  EXPECT_TRUE(simulation.lines.empty());
}

TEST_F(Selectors, NilAndNullLeaveAnArgumentOut) {
  using Messages = std::vector<std::string>;
  const Object name = object("E"), names = object(HostValue(Array{"a", "E"}));
  const std::string setTriggers = "setRefreshTriggersWithHandlerWithTriggers:handler:";
  int refreshes = 0;
  const Object handler{Object::Block([&] { ++refreshes; })};
  EXPECT_EQ(messagesOf(setTriggers, {names, handler}).back(),
            "Setting refresh triggers: Optional([\"a\", \"E\"])");
  for (const Object& nothing : {Object(), object(NSNull())}) {
    messagesOf("setPublisherUid:", {name});
    EXPECT_EQ(messagesOf("setPublisherUid:", {nothing}),
              Messages{"Removed superProperty: pub_uid with value: Optional(\"E\")"});
    messagesOf("trackWithEventName:eventProperties:forceFlushCompletion:",
               {name, nothing, nothing});
  }
  EXPECT_EQ(refreshes, 2);
  for (const Object& nothing : {Object(), object(NSNull())}) {
    messagesOf(setTriggers, {names, nothing});
    messagesOf("trackWithEventName:eventProperties:", {name, object(HostMap())});
    EXPECT_EQ(messagesOf(setTriggers, {nothing, handler}),
              Messages{"Setting refresh triggers: nil"});
    messagesOf("trackWithEventName:eventProperties:", {name, object(HostMap())});
  }
  EXPECT_EQ(refreshes, 2);
}

TEST_F(Selectors, NotificationsAndSelectorsReachTheSameHandlers) {
  const std::pair<const char*, std::string_view> handlers[] = {
      {"handleDidEnterBackground", kApplicationDidEnterBackground},
      {"handleWillEnterForeground", kApplicationWillEnterForeground},
      {"handleDidChangeStatusBarOrientation", kApplicationDidChangeStatusBarOrientation},
      {"handleDidChangeDeviceOrientation", kDeviceOrientationDidChange},
  };
  EXPECT_EQ(outcome("shared"), "done: object");
  EXPECT_EQ(outcome("getScreenOrientation"), "done: portrait");
  EXPECT_EQ(outcome("getDeviceOrientation"), "done: unknown");
  // A handler's first message, without the number of events.
  const auto first = [](std::vector<std::string> messages) {
    return messages.at(0).substr(0, messages.at(0).find(" to current"));
  };
  for (const auto& [selector, notification] : handlers) {
    const std::string bySelector = first(messagesOf(selector));
    simulation.platform.notificationCenter.post(std::string(notification));
    EXPECT_EQ(first(simulation.takeMessages()), bySelector);
  }
  EXPECT_EQ(first(messagesOf("setScreenOrientation")),
            "Adding event of Screen Orientation Changed");
}

TEST_F(Selectors, ChangesOfAMutableCollectionShowNowhere) {
  MutableArray list;
  list.append(object(1).value());
  list.append(list.copy().value());
  MutableDictionary map;
  map.set(object("list"), list.copy().value());
  map.set(object("self"), map.copy().value());
  map.set(object("twice"), object(1).value());
  map.set(object("twice"), object(2).value());
  const Object before = map.copy();
  list.append(object(3).value());
  map.set(object("late"), object(4).value());
  const auto& event = sent(before);
  EXPECT_EQ(text(event, "list"), "[1,[1]]");
  EXPECT_EQ(text(event, "self"), R"({"list":[1,[1]]})");
  EXPECT_EQ(text(event, "twice"), "2");
  EXPECT_EQ(text(event, "late"), "absent");
  map.set(object("late"), {});  // a key without a value
  EXPECT_EQ(text(sent(map.copy()), "late"), "absent");
}

// The other kinds of C take the same way as these.
TEST_F(Selectors, EntriesOnTheCallersStackArrive) {
  veltrano_object* const inner = makeHandle(object(HostMap{{"zip", 150}}));
  std::vector<veltrano_entry> entries;
  const auto add = [&](const char* name, veltrano_kind kind) -> auto& {
    entries.push_back({name, static_cast<std::uint32_t>(kind), 0, {}});
    return entries.back().value;
  };
  add("text", VELTRANO_TEXT).text = "pro";
  add("bytes", VELTRANO_TEXT_WITH_LENGTH).text_with_length = {"prose", 2};
  add("int", VELTRANO_INT).integer = -3;
  add("uint", VELTRANO_UINT).natural = UINT64_MAX;
  add("int64", VELTRANO_INT64).integer = INT64_MIN;
  add("double", VELTRANO_DOUBLE).real = 9.5;
  add("float", VELTRANO_FLOAT).real = 0.5;
  add("bool", VELTRANO_BOOL).boolean = true;
  add("date", VELTRANO_DATE).real = 1;
  add("url", VELTRANO_URL).text = "https://veltrano.example/";
  add("null", VELTRANO_NULL);
  add("object", VELTRANO_OBJECT).object = inner;
  add("twice", VELTRANO_INT).integer = 1;
  add("twice", VELTRANO_INT).integer = 2;
  add("absent", VELTRANO_TEXT);
  add("nil", VELTRANO_OBJECT);
  const auto track = [&](std::size_t size = sizeof(veltrano_entry)) {
    return veltrano_track_entries("E", entries.data(), entries.size(), size, nullptr, nullptr);
  };
  EXPECT_TRUE(track());
  std::vector<std::string> values;
  const auto& properties = sent(object(HostMap()));  // with the batch of that event
  for (const veltrano_entry& entry : entries) values.push_back(text(properties, entry.name));
  const Object viaObjects = object(HostMap{{"text", "pro"},
                                           {"bytes", "pr"},
                                           {"int", -3},
                                           {"uint", UINT64_MAX},
                                           {"int64", Int64{INT64_MIN}},
                                           {"double", 9.5},
                                           {"float", 0.5F},
                                           {"bool", true},
                                           {"date", Date::fromSecondsSince1970(1)},
                                           {"url", URL("https://veltrano.example/")},
                                           {"null", NSNull()},
                                           {"object", HostMap{{"zip", 150}}},
                                           {"twice", 2}});
  const auto& expected = sent(viaObjects);
  for (std::size_t i = 0; i < entries.size(); ++i)
    EXPECT_EQ(values[i], text(expected, entries[i].name)) << entries[i].name;

  EXPECT_FALSE(track(sizeof(veltrano_entry) - 1));
  EXPECT_FALSE(veltrano_track_entries(nullptr, nullptr, 0, 0, nullptr, nullptr));
  EXPECT_FALSE(veltrano_track_entries("E", nullptr, 1, sizeof(veltrano_entry), nullptr, nullptr));
  entries[0].reserved = 1;
  EXPECT_FALSE(track());
  entries[0] = {"unknown", VELTRANO_OBJECT + 1, 0, {}};
  EXPECT_FALSE(track());
  entries[0] = {nullptr, VELTRANO_NULL, 0, {}};
  EXPECT_FALSE(track());
  veltrano_release(inner);
}

}  // namespace
}  // namespace veltrano::internal
