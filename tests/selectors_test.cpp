// The library as a host reaches it by selector, with the platform's objects.
#include "tracker/selectors.h"

#include <gtest/gtest.h>

#include "tests/support/simulation.h"

namespace veltrano {
namespace {

using Objects = std::vector<Object>;

Object object(HostValue value) {
  return Object(std::move(value));
}

// A result in words, such as "done", "done: text" or "argument 1".
std::string outcome(std::string_view selector, const Objects& arguments = {}) {
  struct Words {
    std::string operator()(const Done& done) const {
      return done.returned.text() != nullptr ? "done: " + *done.returned.text()
             : done.returned.isNil()         ? "done"
                                             : "done: object";
    }
    std::string operator()(NoSuchSelector) const { return "no such selector"; }
    std::string operator()(WrongNumberOfArguments wrong) const {
      return "takes " + std::to_string(wrong.expected);
    }
    std::string operator()(WrongTypeOfArgument wrong) const {
      return "argument " + std::to_string(wrong.index);
    }
  };
  return std::visit(Words(), send(selector, arguments));
}

class Selectors : public testing::Test {
 protected:
  Selectors() { Veltrano::isLoggerEnabled = true; }

  std::vector<std::string> messagesOf(std::string_view selector, const Objects& arguments = {}) {
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
  const Object text = object("text"), number = object(NSNumber(4, std::int64_t{1})), nil;
  const Object map = object(HostMap{{"a", 1}}), block = Object(Object::Block([] {}));
  const Object otherMap = object(Dictionary({{1, "one"}})), null = object(NSNull());
  const std::string track = "trackWithEventName:eventProperties:",
                    full = track + "forceFlushCompletion:";
  const std::string triggers = "setRefreshTriggersWithHandlerWithTriggers:handler:";
  const struct {
    std::string selector;
    Objects arguments;
    std::string expected;
  } cases[] = {
      {"", {}, "no such selector"},
      {"setUserId", {text}, "no such selector"},
      {"setuserid:", {text}, "no such selector"},
      {std::string("setIdfa\0", 8), {}, "no such selector"},
      {"setUserId:", {}, "takes 1"},
      {"setUserId:", {text, text}, "takes 1"},
      {"shared", {nil}, "takes 0"},
      {"setScreenOrientation", {nil}, "takes 0"},
      {full, {text, map}, "takes 3"},
      {"setUserId:", {nil}, "argument 0"},
      {"setUserId:", {null}, "argument 0"},
      {"setAppId:", {number}, "argument 0"},
      {"setLibVersion:", {object(URL("x"))}, "argument 0"},
      {"setPublisherUid:", {null}, "argument 0"},
      {"removeSuperPropertyWithKey:", {nil}, "argument 0"},
      {"setSuperPropertiesWithProperties:", {nil}, "argument 0"},
      {"setSuperPropertiesWithProperties:", {otherMap}, "argument 0"},
      {track, {nil, nil}, "argument 0"},
      {track, {text, nil}, "argument 1"},
      {track, {text, object(HostValue(Array{1}))}, "argument 1"},
      {full, {text, otherMap, nil}, "argument 1"},
      {full, {text, map, block}, "argument 2"},
      {full, {text, map, text}, "argument 2"},
      {triggers, {text, block}, "argument 0"},
      {triggers, {object(HostValue(Array{"a", 1})), block}, "argument 0"},
      {triggers, {nil, Object(simulation.completion(""))}, "argument 1"},
  };
  for (const auto& [selector, arguments, expected] : cases)
    EXPECT_EQ(outcome(selector, arguments), expected) << selector;
  EXPECT_FALSE(responds("isLoggerEnabled"));
  // Not even the tracker has been made.
  EXPECT_TRUE(simulation.platform.notificationCenter.observers.empty());
  EXPECT_TRUE(simulation.lines.empty());
}

TEST_F(Selectors, EverySelectorReachesItsOperation) {
  EXPECT_EQ(outcome("shared"), "done: object");
  EXPECT_EQ(simulation.platform.notificationCenter.observers.size(), 4U);
  using Messages = std::vector<std::string>;
  const Object uid = object("u");
  EXPECT_EQ(messagesOf("setAppId:", {uid}), Messages{"Setting app id to u"});
  EXPECT_EQ(messagesOf("setLibVersion:", {uid}), Messages{"Setting ana lib version to u"});
  EXPECT_EQ(messagesOf("setPublisherUid:", {uid}), Messages{"Setting pub uid to u"});
  EXPECT_EQ(messagesOf("setPublisherUid:", {Object()}),
            Messages{"Removed superProperty: pub_uid with value: Optional(\"u\")"});
  EXPECT_EQ(messagesOf("setIdfa"), Messages{"Setting idfa: 00000000-0000-0000-0000-000000000000"});
  EXPECT_EQ(messagesOf("setUserId:", {uid}).front(), "Setting userid to u");
  EXPECT_EQ(messagesOf("setSuperPropertiesWithProperties:", {object(HostMap{{"k", Array{0.5}}})}),
            Messages{});
  EXPECT_EQ(messagesOf("removeSuperPropertyWithKey:", {object("k")}),
            Messages{"Removed superProperty: k with value: Optional([0.5])"});
  EXPECT_EQ(messagesOf("trackWithEventName:eventProperties:", {uid, object(HostMap())}).front(),
            "Adding event of u to current 0 events");
  EXPECT_EQ(messagesOf("trackWithEventName:eventProperties:forceFlushCompletion:",
                       {uid, Object(), Object()})
                .front(),
            "Adding event of u to current 1 events");
  EXPECT_EQ(outcome("getScreenOrientation"), "done: portrait");
  EXPECT_EQ(outcome("getDeviceOrientation"), "done: unknown");

  int refreshes = 0;
  const std::string setTriggers = "setRefreshTriggersWithHandlerWithTriggers:handler:";
  const Object names = object(HostValue(Array{"a", "u"}));
  const Object handler{Object::Block([&] { ++refreshes; })};
  EXPECT_EQ(messagesOf(setTriggers, {names, handler}),
            Messages{"Setting refresh triggers: Optional([\"a\", \"u\"])"});
  messagesOf("trackWithEventName:eventProperties:", {uid, object(HostMap())});
  EXPECT_EQ(messagesOf(setTriggers, {Object(), handler}),
            Messages{"Setting refresh triggers: nil"});
  EXPECT_EQ(outcome(setTriggers, {names, Object()}), "done");
  messagesOf("trackWithEventName:eventProperties:", {uid, object(HostMap())});
  EXPECT_EQ(refreshes, 1);
}

TEST_F(Selectors, NotificationsAndSelectorsReachTheSameHandlers) {
  const std::pair<const char*, std::string_view> handlers[] = {
      {"handleDidEnterBackground", kApplicationDidEnterBackground},
      {"handleWillEnterForeground", kApplicationWillEnterForeground},
      {"handleDidChangeStatusBarOrientation", kApplicationDidChangeStatusBarOrientation},
      {"handleDidChangeDeviceOrientation", kDeviceOrientationDidChange},
  };
  EXPECT_EQ(outcome("shared"), "done: object");
  // What a handler says first, without the number of events.
  const auto first = [](const std::vector<std::string>& messages) {
    return messages.front().substr(0, messages.front().find(" to current"));
  };
  for (const auto& [selector, notification] : handlers) {
    EXPECT_TRUE(responds(selector));
    const std::string bySelector = first(messagesOf(selector));
    simulation.platform.notificationCenter.post(std::string(notification));
    EXPECT_EQ(first(simulation.takeMessages()), bySelector);
  }
  EXPECT_EQ(first(messagesOf("setScreenOrientation")),
            "Adding event of Screen Orientation Changed");
}

TEST_F(Selectors, ChangesOfAMutableCollectionShowNowhere) {
  MutableArray list;
  list.append(object(1));
  list.append(list.copy());
  MutableDictionary map;
  map.set(object("list"), list.copy());
  map.set(object("self"), map.copy());
  map.set(object("twice"), object(1));
  map.set(object("twice"), object(2));
  const Object before = map.copy();
  list.append(object(3));
  map.set(object("late"), object(4));
  const auto& event = sent(before);
  EXPECT_EQ(text(event, "list"), "[1,[1]]");
  EXPECT_EQ(text(event, "self"), R"({"list":[1,[1]]})");
  EXPECT_EQ(text(event, "twice"), "2");
  EXPECT_EQ(text(event, "late"), "absent");
  map.set(object("late"), Object());  // a key without a value
  map.set(object("block"), Object(Object::Block([] {})));
  const auto& later = sent(map.copy());
  EXPECT_EQ(text(later, "late"), "absent");
  EXPECT_EQ(text(later, "block"), "absent");

  Object deep = object(1);
  for (int depth = 0; depth < 300'000; ++depth) {
    MutableArray around;
    around.append(deep);
    deep = around.copy();
  }
  map.set(object("deep"), deep);
  EXPECT_NE(text(sent(map.copy()), "deep"), "absent");
}

}  // namespace
}  // namespace veltrano
