// The C interface, on the POSIX platform. Sends nothing.
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "veltrano/veltrano_c.h"

namespace {

// Releases its handle.
struct Handle {
  Handle(veltrano_object* object) : handle(object) {}
  Handle(const Handle&) = delete;
  ~Handle() { veltrano_release(handle); }
  operator veltrano_object*() const { return handle; }

  veltrano_object* const handle;
};

// Counts calls; its own address is the context.
struct Count {
  static void block(void* count) { ++static_cast<Count*>(count)->calls; }
  static void release(void* count) { ++static_cast<Count*>(count)->releases; }

  std::atomic<int> calls{0}, releases{0};
};

// Runs first, because a process installs its platform only once.
TEST(CInterfaceInstallation, SaysWhyItIsRefused) {
  const Handle map(veltrano_dictionary()), one(veltrano_int(1));
  EXPECT_TRUE(veltrano_dictionary_set(map, one, one));
  veltrano_options options{};
  const auto expectRefusal = [](const veltrano_options* given, const char* why) {
    veltrano_object* error = nullptr;
    EXPECT_FALSE(veltrano_install_posix_platform(given, &error));
    const Handle handle(error);
    const veltrano_text reason = veltrano_string_text(handle);
    EXPECT_NE(std::string(reason.bytes, reason.length).find(why), std::string::npos) << why;
  };
  expectRefusal(nullptr, "size");
  expectRefusal(&options, "size");
  options.size = sizeof options;
  expectRefusal(&options, "collection host");
  options.info_dictionary = map;
  expectRefusal(&options, "Info dictionary");
  options.info_dictionary = nullptr;
  options.collection_host = veltrano_c_string("localhost:1");
  options.user_defaults_file = {"a\0b", 3};
  expectRefusal(&options, "NUL");
  options.user_defaults_file = {};
  options.advertising_identifier = veltrano_c_string("none");
  expectRefusal(&options, "identifier");
  // The invalid identifier is beyond the size of an older host's options.
  options.size = offsetof(veltrano_options, advertising_identifier);
  EXPECT_EQ(veltrano_main_run_loop(), nullptr);
  EXPECT_TRUE(veltrano_install_posix_platform(&options, nullptr));
  EXPECT_NE(veltrano_main_run_loop(), nullptr);
  options.size = sizeof options + 8;  // of a newer host
  expectRefusal(&options, "already");
}

class CInterface : public testing::Test {
 protected:
  CInterface() {
    if (veltrano_main_run_loop() != nullptr) return;
    veltrano_options options{};
    options.size = sizeof options;
    options.collection_host = veltrano_c_string("localhost:1");
    EXPECT_TRUE(veltrano_install_posix_platform(&options, nullptr));
  }

  // After all cases, because it is for good.
  static void TearDownTestSuite() {
    EXPECT_TRUE(veltrano_track("E", nullptr, nullptr, nullptr));
    EXPECT_FALSE(veltrano_shut_down(0)) << "the event was left";
    char beginning[8] = "";
    veltrano_status(beginning, sizeof beginning);
    EXPECT_STREQ(beginning, "Nothing") << "is sent any more";
  }
};

// The fuzzer of C calls passes all combinations; here, what such calls answer.
TEST_F(CInterface, RefusesWhatItCannotUse) {
  const Handle list(veltrano_array()), map(veltrano_dictionary()), otherKeys(veltrano_dictionary());
  const Handle word(veltrano_string({"a\0b", 3}));
  EXPECT_EQ(veltrano_string_text(word).length, 3U);
  EXPECT_EQ(veltrano_string(veltrano_c_string(nullptr)), nullptr);
  EXPECT_FALSE(veltrano_array_append(map, word));
  EXPECT_FALSE(veltrano_dictionary_set(list, word, word));
  EXPECT_FALSE(veltrano_dictionary_set(map, nullptr, word));
  EXPECT_FALSE(veltrano_dictionary_set_int(map, nullptr, 1));
  const Handle copyOfMap(veltrano_copy(map));
  EXPECT_TRUE(veltrano_dictionary_set_url(map, "key", nullptr));
  EXPECT_FALSE(veltrano_is_valid_nested_type(map));  // the key has no value
  EXPECT_TRUE(veltrano_is_valid_nested_type(copyOfMap));
  EXPECT_TRUE(veltrano_array_append(list, list));
  const Handle copy(veltrano_copy(list));
  EXPECT_FALSE(veltrano_array_append(copy, word));  // copies are immutable
  EXPECT_TRUE(veltrano_array_append(list, nullptr));
  EXPECT_FALSE(veltrano_is_valid_nested_type(list));
  EXPECT_TRUE(veltrano_is_valid_nested_type(copy));

  EXPECT_TRUE(veltrano_dictionary_set(otherKeys, list, word));
  for (veltrano_object* const wrong : {list.handle, otherKeys.handle, word.handle}) {
    EXPECT_FALSE(veltrano_track("E", wrong, nullptr, nullptr));
    EXPECT_FALSE(veltrano_set_super_properties(wrong));
  }
  EXPECT_FALSE(veltrano_track(nullptr, map, nullptr, nullptr));
  EXPECT_FALSE(veltrano_set_user_id(nullptr));
  const char* const names[] = {"E", nullptr};
  EXPECT_FALSE(veltrano_set_refresh_triggers(names, 2, Count::block, nullptr));
  std::size_t detail = 99;
  EXPECT_EQ(veltrano_send("setUserId:", nullptr, SIZE_MAX, nullptr, &detail),
            VELTRANO_WRONG_NUMBER_OF_ARGUMENTS);
  EXPECT_EQ(detail, 1U);

  EXPECT_FALSE(veltrano_run_loop_run_for(nullptr, 9));
  Count count;
  EXPECT_EQ(veltrano_block(nullptr, &count, Count::release), nullptr);
  veltrano_run_loop_perform(nullptr, Count::block, &count, Count::release);
  veltrano_run_loop_perform(veltrano_main_run_loop(), nullptr, &count, Count::release);
  EXPECT_EQ(count.releases, 3);
}

TEST_F(CInterface, ARunLoopIsDrivenEitherWay) {
  veltrano_run_loop* loop = veltrano_main_run_loop();
  EXPECT_EQ(loop, veltrano_current_run_loop());
  EXPECT_GE(veltrano_run_loop_file_descriptor(loop), 0);
  Count count;
  veltrano_run_loop_perform(loop, Count::block, &count, Count::release);
  veltrano_run_loop_run_due(loop);
  EXPECT_EQ(count.calls, 1);
  EXPECT_EQ(count.releases, 1);
  veltrano_run_loop_stop(loop);
  EXPECT_TRUE(veltrano_run_loop_run_for(loop, 1e300));
  EXPECT_FALSE(veltrano_run_loop_run_for(loop, std::nan("")));
}

TEST_F(CInterface, ACancelledThreadLeavesTheLibraryFirst) {
  static std::atomic<veltrano_run_loop*> loop{nullptr};
  static std::atomic<bool> hasReturned{false};
  const char* const name = "E";
  veltrano_set_refresh_triggers(
      &name, 1, [](void*) { pthread_testcancel(); }, nullptr);
  pthread_t thread;
  const auto run = [](void*) -> void* {
    loop = veltrano_current_run_loop();
    veltrano_run_loop_run(loop);
    hasReturned = veltrano_track("E", nullptr, nullptr, nullptr);
    pthread_testcancel();
    return nullptr;
  };
  ASSERT_EQ(pthread_create(&thread, nullptr, run, nullptr), 0);
  while (loop == nullptr) std::this_thread::yield();
  EXPECT_EQ(pthread_cancel(thread), 0);
  veltrano_run_loop_stop(loop);
  void* result = nullptr;
  EXPECT_EQ(pthread_join(thread, &result), 0);
  EXPECT_EQ(result, PTHREAD_CANCELED);
  EXPECT_TRUE(hasReturned);
  veltrano_set_refresh_triggers(nullptr, 0, nullptr, nullptr);
}

TEST_F(CInterface, ThreadsShareObjectsAndCallAtOnce) {
  const Handle shared(veltrano_array());
  const char* const name = "E";
  Count count;
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([&] {
      const Handle map(veltrano_dictionary());
      for (int round = 0; round < 100; ++round) {
        const Handle copy(veltrano_copy(shared));
        EXPECT_TRUE(veltrano_dictionary_set_object(map, "key", copy));
        EXPECT_TRUE(veltrano_set_super_properties(map));
        EXPECT_TRUE(veltrano_set_refresh_triggers(&name, 1, Count::block, &count));
      }
      EXPECT_TRUE(veltrano_track(name, map, nullptr, nullptr));
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(count.calls, 8);
  EXPECT_TRUE(veltrano_set_refresh_triggers(nullptr, 0, nullptr, nullptr));
}

TEST(CInterfaceVersion, IsThatOfTheHeaderAndOfThePackage) {
  std::string numbers = std::to_string(VELTRANO_VERSION_MAJOR) + '.';
  numbers += std::to_string(VELTRANO_VERSION_MINOR) + '.' + std::to_string(VELTRANO_VERSION_PATCH);
  for (const std::string given : {veltrano_version(), VELTRANO_VERSION, numbers.c_str()})
    EXPECT_EQ(given, PACKAGE_VERSION);
}

TEST_F(CInterface, StatisticsAndStatusFillWhatTheHostHasRoomFor) {
  veltrano_statistics all = {};
  EXPECT_FALSE(veltrano_get_statistics(nullptr));
  EXPECT_FALSE(veltrano_get_statistics(&all));
  all.size = sizeof all;
  EXPECT_TRUE(veltrano_track("E", nullptr, nullptr, nullptr));
  do {
    ASSERT_TRUE(veltrano_get_statistics(&all));
  } while (all.recorded == 0);
  EXPECT_EQ(all.recorded, all.waiting + all.in_flight);
  EXPECT_EQ(all.size, sizeof all);
  veltrano_statistics older = {};
  older.size = offsetof(veltrano_statistics, waiting);
  EXPECT_TRUE(veltrano_get_statistics(&older));
  EXPECT_GT(older.recorded, 0U);
  EXPECT_EQ(older.waiting, 0U);

  char beginning[8] = "......";
  EXPECT_GT(veltrano_status(beginning, sizeof beginning), sizeof beginning);
  EXPECT_STREQ(beginning, "Collect");
  EXPECT_GT(veltrano_status(nullptr, sizeof beginning), sizeof beginning);
}

#ifndef NDEBUG
TEST(CInterfaceDeathTest, OtherPointersThanHandlesAreCaught) {
  testing::GTEST_FLAG(death_test_style) = "threadsafe";
  std::uint64_t other[32] = {};
  auto* const pointer = reinterpret_cast<veltrano_object*>(other);
  const Handle live(veltrano_array());
  EXPECT_DEATH(veltrano_release(pointer), "not a handle");
  EXPECT_DEATH(veltrano_array_append(live, pointer), "not a handle");
}
#endif

}  // namespace
