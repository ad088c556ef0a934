// The C interface, on the platform of a POSIX system. Nothing is ever sent from here.
#include <gtest/gtest.h>
#include <poll.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "veltrano/veltrano_c.h"

namespace {

veltrano_text text(std::string_view view) {
  return {view.data(), view.size()};
}

// A handle that releases itself.
struct Handle {
  Handle(veltrano_object* object) : handle(object) {}
  Handle(const char* string) : handle(veltrano_string(veltrano_c_string(string))) {}
  Handle(const Handle&) = delete;
  ~Handle() { veltrano_release(handle); }
  operator veltrano_object*() const { return handle; }

  veltrano_object* const handle;
};

veltrano_outcome send(const char* selector, std::vector<const veltrano_object*> arguments) {
  return veltrano_send(selector, arguments.data(), arguments.size(), nullptr, nullptr);
}

// Counts calls; its own address is the context.
struct Count {
  static void block(void* count) { ++static_cast<Count*>(count)->calls; }
  static void booleanBlock(void* count, bool) { block(count); }
  static void release(void* count) { ++static_cast<Count*>(count)->releases; }

  std::atomic<int> calls{0}, releases{0};
};

// The diagnostic messages so far.
class Log {
 public:
  static void sink(void* log, veltrano_text line) {
    static_cast<Log*>(log)->keep(std::string(line.bytes, line.length));
  }

  // Waits for a message that starts like this, and answers what follows.
  std::string waitFor(const std::string& start) {
    std::unique_lock lock(mutex_);
    std::string rest;
    EXPECT_TRUE(changed_.wait_for(lock, std::chrono::seconds(30), [&] {
      for (; next_ < messages_.size(); ++next_) {
        if (messages_[next_].rfind(start, 0) != 0) continue;
        rest = messages_[next_++].substr(start.size());
        return true;
      }
      return false;
    })) << start;
    return rest;
  }

 private:
  void keep(const std::string& line) {
    const std::lock_guard lock(mutex_);
    messages_.push_back(line.substr(line.find(" | ") + 3));
    changed_.notify_all();
  }

  std::mutex mutex_;  // guards everything below
  std::condition_variable changed_;
  std::vector<std::string> messages_;
  std::size_t next_ = 0;  // the first that has not been waited for
};

class CInterface : public testing::Test {
 protected:
  CInterface() {
    veltrano_options options{};
    options.size = sizeof options;
    options.collection_host = veltrano_c_string("localhost:1");
    options.log_sink = Log::sink;
    options.log_sink_context = &log;
    EXPECT_TRUE(veltrano_install_posix_platform(&options, nullptr));
    veltrano_set_logger_enabled(true);
  }

  // How a property reads in the log once it has been converted; "nil" when it was left out.
  std::string rendering(const veltrano_object* value) {
    const Handle key("key"), map(veltrano_dictionary());
    EXPECT_TRUE(veltrano_dictionary_set(map, key, value));
    EXPECT_EQ(send("setSuperPropertiesWithProperties:", {map}), VELTRANO_DONE);
    EXPECT_EQ(send("removeSuperPropertyWithKey:", {key}), VELTRANO_DONE);
    return log.waitFor("Removed superProperty: key with value: ");
  }

  Log& log = *new Log;  // as long-lived as the library's threads
};

TEST_F(CInterface, ObjectsOfEveryKindBecomeProperties) {
  const Handle list(veltrano_array()), map(veltrano_dictionary()), one(veltrano_int(1));
  EXPECT_TRUE(veltrano_array_append(list, one));
  EXPECT_TRUE(veltrano_array_append(list, nullptr));
  EXPECT_TRUE(veltrano_array_append(list, list));
  EXPECT_TRUE(veltrano_dictionary_set(map, one, list));
  const struct {
    veltrano_object* object;
    std::string expected;
    bool isValid;
  } cases[] = {
      {veltrano_string(text({"\0\xC3\xA5\xFF", 4})), "Optional(\"\\0å\xEF\xBF\xBD\")", true},
      {veltrano_string(text("")), "Optional(\"\")", true},
      {veltrano_url(text({"x:\0", 3})), std::string("Optional(x:\0)", 13), true},
      {veltrano_number(4, -5), "Optional(-5)", false},
      {veltrano_number(8, 5), "Optional(5.0)", false},
      {veltrano_number_with_double(6, 0.5), "Optional(0.5)", false},
      {veltrano_boolean_number(true), "Optional(true)", false},
      {veltrano_int(INT64_MIN), "Optional(-9223372036854775808)", true},
      {veltrano_uint(UINT64_MAX), "Optional(18446744073709551615)", true},
      {veltrano_int64(7), "Optional(7)", true},
      {veltrano_double(0.1), "Optional(0.1)", true},
      {veltrano_float(0.1F), "Optional(0.1)", true},
      {veltrano_bool(false), "Optional(false)", true},
      {veltrano_date(1.5), "Optional(1970-01-01T00:00:01.500Z)", true},
      {veltrano_null(), "Optional(<null>)", true},
      {veltrano_copy(list), "Optional([1, [1]])", false},
      {veltrano_copy(map), "Optional([1: [1, nil, [1, nil]]])", false},
      {veltrano_array(), "Optional([])", true},
      {veltrano_other_object(), "nil", false},
      {veltrano_block(Count::block, nullptr, nullptr), "nil", false},
  };
  for (const auto& [object, expected, isValid] : cases) {
    const Handle handle(object);
    EXPECT_EQ(rendering(handle), expected);
    EXPECT_EQ(veltrano_is_valid_nested_type(handle), isValid) << expected;
  }
  // A copy stays what it was.
  const Handle copy(veltrano_copy(list));
  EXPECT_TRUE(veltrano_array_append(list, one));
  EXPECT_FALSE(veltrano_array_append(copy, one));
  EXPECT_EQ(rendering(copy), "Optional([1, [1]])");
  EXPECT_EQ(rendering(list), "Optional([1, [1], 1])");
}

TEST_F(CInterface, NothingHarmsNowhere) {
  const Handle list(veltrano_array()), map(veltrano_dictionary());
  const Handle word(veltrano_string(text({"a\0b", 3})));
  const veltrano_text absent = veltrano_c_string(nullptr);
  EXPECT_EQ(absent.bytes, nullptr);
  EXPECT_EQ(veltrano_string(absent), nullptr);
  EXPECT_EQ(veltrano_url(absent), nullptr);
  EXPECT_EQ(veltrano_copy(nullptr), nullptr);
  EXPECT_FALSE(veltrano_array_append(nullptr, word));
  EXPECT_FALSE(veltrano_array_append(map, word));
  EXPECT_FALSE(veltrano_dictionary_set(nullptr, word, word));
  EXPECT_FALSE(veltrano_dictionary_set(list, word, word));
  EXPECT_FALSE(veltrano_dictionary_set(map, nullptr, word));
  EXPECT_FALSE(veltrano_is_valid_nested_type(nullptr));
  EXPECT_EQ(veltrano_string_text(nullptr).bytes, nullptr);
  EXPECT_EQ(veltrano_string_text(list).bytes, nullptr);
  EXPECT_EQ(veltrano_string_text(word).length, 3U);
  veltrano_release(nullptr);

  EXPECT_FALSE(veltrano_responds(nullptr));
  EXPECT_EQ(veltrano_send(nullptr, nullptr, 0, nullptr, nullptr), VELTRANO_NO_SUCH_SELECTOR);
  veltrano_object* returned = word;
  std::size_t detail = 99;
  EXPECT_EQ(veltrano_send("setUserId:", nullptr, 2, &returned, &detail),
            VELTRANO_WRONG_NUMBER_OF_ARGUMENTS);
  EXPECT_EQ(returned, nullptr);
  EXPECT_EQ(detail, 1U);
  EXPECT_EQ(veltrano_send("setUserId:", nullptr, 1, &returned, &detail),
            VELTRANO_WRONG_TYPE_OF_ARGUMENT);
  EXPECT_EQ(detail, 0U);

  veltrano_run_loop_run(nullptr);
  veltrano_run_loop_stop(nullptr);
  veltrano_run_loop_run_due(nullptr);
  EXPECT_FALSE(veltrano_run_loop_run_for(nullptr, 9));
  EXPECT_EQ(veltrano_run_loop_file_descriptor(nullptr), -1);
  Count count;
  EXPECT_EQ(veltrano_block(nullptr, &count, Count::release), nullptr);
  veltrano_run_loop_perform(nullptr, Count::block, &count, Count::release);
  veltrano_run_loop_perform(veltrano_main_run_loop(), nullptr, &count, Count::release);
  EXPECT_EQ(count.releases, 3);
}

TEST_F(CInterface, AContextIsReleasedWithTheLastUseOfItsBlock) {
  Count count;
  veltrano_object* block = veltrano_block(Count::block, &count, Count::release);
  const Handle completion(veltrano_boolean_block(Count::booleanBlock, &count, nullptr));
  const Handle names(veltrano_array()), name("E"), map(veltrano_dictionary());
  EXPECT_TRUE(veltrano_array_append(names, name));
  const char* setTriggers = "setRefreshTriggersWithHandlerWithTriggers:handler:";
  EXPECT_EQ(send(setTriggers, {names, completion}), VELTRANO_WRONG_TYPE_OF_ARGUMENT);
  EXPECT_EQ(send(setTriggers, {names, block}), VELTRANO_DONE);
  veltrano_release(block);
  EXPECT_EQ(send("trackWithEventName:eventProperties:", {name, map}), VELTRANO_DONE);
  EXPECT_EQ(count.calls, 1);
  EXPECT_EQ(count.releases, 0);
  EXPECT_EQ(send(setTriggers, {nullptr, nullptr}), VELTRANO_DONE);
  EXPECT_EQ(count.releases, 1);
}

TEST_F(CInterface, ARunLoopIsDrivenEitherWay) {
  veltrano_run_loop* loop = veltrano_main_run_loop();
  EXPECT_EQ(loop, veltrano_current_run_loop());
  Count count;
  pollfd input{veltrano_run_loop_file_descriptor(loop), POLLIN, 0};
  EXPECT_EQ(poll(&input, 1, 0), 0);
  veltrano_run_loop_perform(loop, Count::block, &count, Count::release);
  EXPECT_EQ(poll(&input, 1, 30'000), 1);
  veltrano_run_loop_run_due(loop);
  EXPECT_EQ(count.calls, 1);
  EXPECT_EQ(count.releases, 1);

  const auto stop = [](void* which) {
    veltrano_run_loop_stop(static_cast<veltrano_run_loop*>(which));
  };
  std::thread other([&] {
    EXPECT_FALSE(veltrano_run_loop_run_for(loop, 1e300));
    veltrano_run_loop_perform(loop, stop, loop, nullptr);
  });
  EXPECT_TRUE(veltrano_run_loop_run_for(loop, 1e300));
  other.join();
  EXPECT_FALSE(veltrano_run_loop_run_for(loop, std::nan("")));
  veltrano_run_loop_stop(loop);
  veltrano_run_loop_run(loop);
}

TEST_F(CInterface, ThreadsShareObjectsAndSendAtOnce) {
  const Handle name("E"), key("key"), list(veltrano_array()), names(veltrano_array());
  const Handle shared(veltrano_copy(list));
  EXPECT_TRUE(veltrano_array_append(names, name));
  Count count;
  const Handle block(veltrano_block(Count::block, &count, Count::release));
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([&] {
      const Handle map(veltrano_dictionary());
      for (int round = 0; round < 100; ++round) {
        const Handle copy(veltrano_copy(shared)), number(veltrano_int(round));
        veltrano_dictionary_set(map, key, round % 2 == 0 ? copy : number);
        EXPECT_EQ(send("setSuperPropertiesWithProperties:", {map}), VELTRANO_DONE);
        EXPECT_EQ(send("setUserId:", {name}), VELTRANO_DONE);
        EXPECT_EQ(send("setRefreshTriggersWithHandlerWithTriggers:handler:", {names, block}),
                  VELTRANO_DONE);
        EXPECT_EQ(send("setIdfa:", {}), VELTRANO_NO_SUCH_SELECTOR);
        veltrano_object* orientation = nullptr;
        EXPECT_EQ(veltrano_send("getScreenOrientation", nullptr, 0, &orientation, nullptr),
                  VELTRANO_DONE);
        EXPECT_EQ(veltrano_string_text(orientation).length, 7U);
        veltrano_release(orientation);
      }
      EXPECT_EQ(send("trackWithEventName:eventProperties:", {name, map}), VELTRANO_DONE);
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(count.calls, 8);
  log.waitFor("Added event and now have 8 events");
}

TEST(CInterfaceInstallation, SaysWhyItIsRefused) {
  const Handle map(veltrano_dictionary()), one(veltrano_int(1));
  EXPECT_TRUE(veltrano_dictionary_set(map, one, one));
  veltrano_options options{};
  const auto refusal = [&](const veltrano_options* given) {
    veltrano_object* error = nullptr;
    EXPECT_FALSE(veltrano_install_posix_platform(given, &error));
    const Handle handle(error);
    const veltrano_text reason = veltrano_string_text(handle);
    return std::string(reason.bytes, reason.length);
  };
  EXPECT_NE(refusal(nullptr).find("size"), std::string::npos);
  EXPECT_NE(refusal(&options).find("size"), std::string::npos);
  options.size = sizeof options;
  options.application_state = 99;
  EXPECT_NE(refusal(&options).find("collection host"), std::string::npos);
  options.info_dictionary = map;
  EXPECT_NE(refusal(&options).find("Info dictionary"), std::string::npos);
  options.info_dictionary = nullptr;
  options.collection_host = veltrano_c_string("localhost:1");
  options.advertising_identifier = veltrano_c_string("none");
  EXPECT_NE(refusal(&options).find("identifier"), std::string::npos);
  // The wrong identifier lies beyond what a host with fewer options has.
  options.size = offsetof(veltrano_options, advertising_identifier);
  EXPECT_EQ(veltrano_main_run_loop(), nullptr);
  veltrano_set_screen_size(1, 1);
  EXPECT_TRUE(veltrano_install_posix_platform(&options, nullptr));
  EXPECT_NE(veltrano_main_run_loop(), nullptr);
  EXPECT_NE(refusal(&options).find("already"), std::string::npos);
}

#ifndef NDEBUG
TEST(CInterfaceDeathTest, HandlesUsedAfterTheirReleaseAreCaught) {
  testing::GTEST_FLAG(death_test_style) = "threadsafe";
  veltrano_object* released = veltrano_int(1);
  veltrano_release(released);
  // New handles do not hide the mistake.
  for (int i = 0; i < 1000; ++i) veltrano_release(veltrano_int(i));
  const Handle live(veltrano_array());
  EXPECT_DEATH(veltrano_release(released), "released, but is none or was released before");
  EXPECT_DEATH(veltrano_array_append(live, released), "used, but is none or was released before");
  int none = 0;
  EXPECT_DEATH(veltrano_release(reinterpret_cast<veltrano_object*>(&none)), "released, but");
}
#endif

}  // namespace
