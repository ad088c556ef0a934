// Property values as a host writes them, and their conversion.
#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <map>
#include <random>
#include <set>
#include <unordered_map>
#include <unordered_set>

#include "encoding/base64.h"
#include "properties/flat_copier.h"
#include "properties/json_value_writer.h"
#include "properties/parameter_conversion.h"
#include "veltrano/value.h"

namespace veltrano::internal {
namespace {

using Member = SupportedParameterType::Member;
using Entries = std::vector<DictionaryEntry>;

struct CString {
  operator const char*() const { return "text"; }
};

struct Derived : HostMap {};

// A HostValue or a HostMap as it is sent.
template <class Value>
std::string json(const Value& value) {
  JSONWriter writer;
  JSONValueWriter values(writer);
  FlatCopier().convert(values, viewOf(value));
  return std::string(writer.text());
}

HostValue nested(int levels) {
  HostValue value = 1;
  for (int i = 0; i < levels; ++i)
    value = i % 2 == 0 ? HostValue(Array(std::vector<HostValue>{std::move(value)}))
                       : HostValue(HostMap{{"k", std::move(value)}});
  return value;
}

TEST(Values, BracesPickTheMemberThatAReaderExpects) {
  const std::string text = "text";
  const volatile bool isVolatile = true;
  const std::pair<Member, HostMap> written[] = {
      {Member::String,
       {{"literal", "pro"},
        {"string", text},
        {"view", std::string_view("v")},
        {"C string class", CString()},
        {"path", std::filesystem::path("/tmp")},
        {"reference", std::cref(text)}}},
      {Member::Int,
       {{"int", 3},
        {"short", static_cast<short>(-3)},
        {"signed char", static_cast<signed char>(3)},
        {"long long", 3LL},
        {"optional", std::optional<int>(3)}}},
      {Member::UInt, {{"byte", std::uint8_t{3}}, {"unsigned", 3U}}},
      {Member::Int64, {{"Int64", Int64{3}}}},
      {Member::Double, {{"double", 9.5}}},
      {Member::Float, {{"float", 9.5F}}},
      {Member::Bool, {{"bool", true}, {"volatile", isVolatile}}},
      {Member::Array,
       {{"list", {"a", "b"}},
        {"mixed list", {1, "b", 2.5, NSNull{}, Array{1}}},
        {"list of one", {"a"}},
        {"std::vector", std::vector<int>{1}},
        {"std::set", std::set<std::string>{"a"}},
        {"paths", std::vector<std::filesystem::path>{"/tmp"}}}},
      {Member::Dictionary,
       {{"map", {{"city", "Oslo"}, {"zip", 150}}},
        {"map of one", {{"city", "Oslo"}}},
        {"std::map", std::map<std::string, int>{{"a", 1}}},
        {"std::unordered_map", std::unordered_map<std::string, bool>{{"a", true}}},
        {"derived", Derived()}}},
      {Member::Date,
       {{"date", Date::fromSecondsSince1970(0)}, {"time point", std::chrono::system_clock::now()}}},
      {Member::URL, {{"url", URL("https://example.org")}}},
      {Member::NSNull, {{"null", NSNull{}}}},
  };
  for (const auto& [member, map] : written)
    for (const auto& [key, value] : map) {
      ASSERT_NE(value.member(), nullptr) << key;
      EXPECT_EQ(value.member()->member(), member) << key;
    }
  EXPECT_NE(HostValue(std::unordered_set<int>{1}).otherObject(), std::nullopt);

  EXPECT_TRUE(HostValue(std::optional<int>()).isAbsent());
  EXPECT_TRUE(HostValue(static_cast<const char*>(nullptr)).isAbsent());
  static_assert(!std::is_constructible_v<HostValue, std::nullptr_t>);
  static_assert(!std::is_constructible_v<HostValue, char>);
  static_assert(!std::is_constructible_v<HostValue, int*>);
  static_assert(!std::is_constructible_v<HostValue, std::map<std::string, int*>>);
  static_assert(!std::is_constructible_v<HostMap, std::map<std::string, int*>>);
  struct List : std::vector<List> {};
  static_assert(!std::is_constructible_v<HostValue, List>);
  struct Tree : std::map<std::string, Tree> {};
  static_assert(!std::is_constructible_v<HostValue, Tree>);
  static_assert(!std::is_constructible_v<detail::MapElement, int, int>);  // as in {{0, 1}, {0, 2}}
}

TEST(Values, DatesAndNumbersAreLimited) {
  using namespace std::chrono;
  EXPECT_EQ(Date(sys_days::max()).sinceEpoch(), Date::fromSecondsSince1970(HUGE_VAL).sinceEpoch());
  EXPECT_EQ(Date::fromSecondsSince1970(HUGE_VAL).iso8601(), "31970-01-01T00:00:00.000Z");
  EXPECT_EQ(Date::fromSecondsSince1970(std::nan("")).sinceEpoch(), microseconds(0));
  EXPECT_EQ(Date::fromSecondsSince1970(1.000001).sinceEpoch(), microseconds(1'000'001));
  EXPECT_EQ(Date(system_clock::time_point(nanoseconds(-1))).sinceEpoch(), microseconds(-1));
  EXPECT_EQ(HostValue(3U).member()->getIf<std::uint64_t>(), 3U);
  EXPECT_EQ(NSNumber(4, std::nan("")).integerValue(), 0);
  EXPECT_EQ(NSNumber(7, true).integerValue(), 1);
  EXPECT_EQ(NSNumber(4, 0x1p63).integerValue(), INT64_MAX);
}

TEST(Values, WhatIsSpecialInTextIsFoundWhereverItStands) {
  for (std::size_t length = 1; length <= 20; ++length) {
    for (std::size_t place = 0; place < length; ++place) {
      const std::string before(place, ' '), after(length - place - 1, '~');
      EXPECT_EQ(json<HostValue>(before + '"' + after), '"' + before + "\\\"" + after + '"');
      EXPECT_EQ(json<HostValue>(before + '\\' + after), '"' + before + "\\\\" + after + '"');
      EXPECT_EQ(json<HostValue>(before + '\x1F' + after), '"' + before + "\\u001F" + after + '"');
      const HostMap map = {{before + '\x80' + after, 1}};
      EXPECT_EQ((*map.begin()).key, before + "\xEF\xBF\xBD" + after);
      EXPECT_EQ(URL(before + '\x80' + after).text(), before + "\xEF\xBF\xBD" + after);
    }
  }
}

TEST(Values, Base64IsThatOfTheJoinedPieces) {
  std::mt19937 random(1);
  for (int round = 0; round < 20'000; ++round) {
    std::string bytes(random() % 100, '\0');
    for (char& byte : bytes) byte = static_cast<char>(random());
    std::vector<std::string_view> pieces;
    for (std::string_view rest = bytes; !rest.empty(); rest.remove_prefix(pieces.back().size()))
      pieces.push_back(rest.substr(0, random() % 40));
    unsigned char expected[200];
    EVP_EncodeBlock(expected, reinterpret_cast<const unsigned char*>(bytes.data()),
                    static_cast<int>(bytes.size()));
    std::string encoded;
    appendBase64(encoded, pieces);
    ASSERT_EQ(encoded, reinterpret_cast<const char*>(expected)) << "round " << round;
    ASSERT_EQ(decodedBase64(encoded), bytes) << "round " << round;
  }
  for (const char* const bad : {"A", "AA", "AAA", "AA=A", "A===", "====", "AAB=", "AA?A"})
    EXPECT_EQ(decodedBase64(bad), std::nullopt) << bad;
}

TEST(Values, ThousandsOfLevelsAreCompared) {
  EXPECT_EQ(Dictionary(Entries{{nested(5000), 1}, {nested(5002), 2}}).size(), 1U);
  // A key that nests too deep must not count as text.
  EXPECT_FALSE(Dictionary(Entries{{nested(300), 1}}).hasOnlyStringKeys());
}

TEST(Values, WhatHasBeenMovedFromMayBeUsed) {
  HostMap map{{"a", "a text that is longer than others"}};
  const HostMap moved = std::move(map);
  map.set("b", 1);
  EXPECT_EQ(json(map), R"({"b":1})");
  Array array{1, 2};
  const Array taken = std::move(array);
  EXPECT_TRUE(array.empty());
  HostValue deep = array;
  for (int i = 0; i < 128; ++i) deep = Array(std::vector<HostValue>{deep});
  const std::string cut = json(HostMap{{"a", deep}});
  EXPECT_EQ(std::count(cut.begin(), cut.end(), '['), 128);
  HostMap none{HostMapView()};
  none.set("a", 1);
  EXPECT_EQ(json(none), R"({"a":1})");
  HostValue text(std::string(70'000, 'x'));
  const HostValue kept = std::move(text);
  EXPECT_EQ(text.member()->getIf<std::string>(), "");
  EXPECT_EQ(kept.member()->getIf<std::string>()->size(), 70'000U);
  HostMap next{{"c", 1}};
  map = std::move(next);
  next.set("d", 2);
  EXPECT_EQ(json(next), R"({"d":2})");
}

TEST(Values, DictionariesKeepTheLastOfEqualKeys) {
  const Dictionary dictionary(Entries{{"b", 1}, {1, 2}, {"b", 3}, {Int64{1}, 4}});
  ASSERT_EQ(dictionary.size(), 3U);
  EXPECT_FALSE(dictionary.hasOnlyStringKeys());
  EXPECT_EQ(json(dictionary.begin()->value), "3");

  Entries twice;
  for (int i = 0; i < 16; ++i) {
    const HostValue keys[] = {1U,      2U, 0.5, std::nan(""), true, NSNumber(4, 1), NSNumber(7, 1),
                              NSNull()};
    twice.push_back({keys[i % 8], i});
  }
  EXPECT_EQ(Dictionary(twice).size(), 8U);

  HostMap counting{{"z", 1}};
  for (int i = 0; i < 1000; ++i) counting.set("count", i);
  EXPECT_LT(counting.size(), 200U);
  EXPECT_EQ(json(counting), R"({"count":999,"z":1})");

  EXPECT_FALSE(ParameterConversion::convert(HostMap()));
  HostMap inner{{"z", 1}, {"y", 2}, {"z", 3}};
  EXPECT_EQ(Dictionary(Entries{{inner, 1}, {HostMap{{"y", 2}, {"z", 3}}, 2}}).size(), 1U);
  EXPECT_EQ(HostValue(inner).member()->getIf<Dictionary>()->size(), 2U);
}

}  // namespace
}  // namespace veltrano::internal
