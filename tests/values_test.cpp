// Property values as a host writes them, and their conversion.
#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <functional>
#include <list>
#include <map>
#include <random>
#include <set>
#include <unordered_map>
#include <unordered_set>

#include "encoding/base64.h"
#include "encoding/canonical_equivalence.h"
#include "log/value_rendering.h"
#include "properties/flat_copier.h"
#include "properties/json_value_writer.h"
#include "properties/parameter_conversion.h"
#include "veltrano/value.h"

namespace veltrano::internal {
namespace {

using Member = SupportedParameterType::Member;
using Entries = std::vector<DictionaryEntry>;

Member memberIn(const HostValue& value) {
  EXPECT_NE(value.member(), nullptr);
  return value.member() != nullptr ? value.member()->member() : Member::NSNull;
}

bool operator==(const HostValue& left, const HostValue& right) {
  FlatBuffer l, r;
  FlatCopier().normalise(l, viewOf(left));
  FlatCopier().normalise(r, viewOf(right));
  return compare(FlatView(l.bytes().data()), FlatView(r.bytes().data())) == 0;
}

std::string json(const SupportedParameterType& value) {
  JSONWriter writer;
  JSONValueWriter values(writer);
  writer.startArray();
  FlatCopier().normalise(values, viewOf(value));
  writer.endArray();
  if (!values.isGood()) return "cannot be encoded";
  const auto text = writer.text();
  return std::string(text.substr(1, text.size() - 2));
}

struct CString {
  operator const char*() const { return "text"; }
};

struct Derived : HostMap {};

std::string jsonOfMap(const HostMap& map) {
  const auto converted = ParameterConversion::convert(map);
  if (!converted) return "none";
  JSONWriter writer;
  JSONValueWriter values(writer);
  writer.startObject();
  for (const auto& [key, value] : *converted) {
    writer.key(key);
    FlatCopier().normalise(values, value);
  }
  writer.endObject();
  if (!values.isGood()) return "cannot be encoded";
  return std::string(writer.text());
}

std::string keyOf(const HostMap& map) {
  return (*map.begin()).key;
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
  const std::string string = "s";
  const std::map<std::string, int> map{{"a", 1}};
  const HostMap written{
      {"literal", "pro"},
      {"string", string},
      {"view", std::string_view("v")},
      {"int", 3},
      {"short", static_cast<short>(-3)},
      {"signed char", static_cast<signed char>(3)},
      {"byte", std::uint8_t{3}},
      {"std::int64_t", std::int64_t{3}},
      {"long long", 3LL},
      {"unsigned", 3U},
      {"Int64", Int64{3}},
      {"double", 9.5},
      {"float", 9.5F},
      {"bool", true},
      {"vector<bool>", std::vector<bool>{true}[0] ? true : false},
      {"list", {"a", "b"}},
      {"mixed list", {1, "b", 2.5, NSNull{}, Array{1}}},
      {"list of one", {"a"}},
      {"map", {{"city", "Oslo"}, {"zip", 150}}},
      {"map of one", {{"city", "Oslo"}}},
      {"std::vector", std::vector<int>{1}},
      {"std::list", std::list<std::string>{"a"}},
      {"std::set", std::set<std::string>{"a"}},
      {"std::map", map},
      {"std::unordered_map", std::unordered_map<std::string, bool>{{"a", true}}},
      {"date", Date::fromSecondsSince1970(0)},
      {"time point", std::chrono::system_clock::now()},
      {"url", URL("https://example.org")},
      {"null", NSNull{}},
      {"optional", std::optional<int>(3)},
      {"C string class", CString()},
      {"path", std::filesystem::path("/tmp")},
      {"paths", std::vector<std::filesystem::path>{"/tmp"}},
      {"reference", std::cref(text)},
      {"milliseconds",
       std::chrono::floor<std::chrono::milliseconds>(std::chrono::system_clock::now())},
      {"volatile", isVolatile},
      {"derived", Derived()},
  };
  const Member expected[] = {
      Member::String, Member::String,    Member::String, Member::Int,        Member::Int,
      Member::Int,    Member::UInt,      Member::Int,    Member::Int,        Member::UInt,
      Member::Int64,  Member::Double,    Member::Float,  Member::Bool,       Member::Bool,
      Member::Array,  Member::Array,     Member::Array,  Member::Dictionary, Member::Dictionary,
      Member::Array,  Member::Array,     Member::Array,  Member::Dictionary, Member::Dictionary,
      Member::Date,   Member::Date,      Member::URL,    Member::NSNull,     Member::Int,
      Member::String, Member::String,    Member::Array,  Member::String,     Member::Date,
      Member::Bool,   Member::Dictionary};
  ASSERT_EQ(written.size(), std::size(expected));
  auto next = std::begin(expected);
  for (const auto& [key, value] : written) EXPECT_EQ(memberIn(value), *next++) << key;
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

TEST(Values, NestedTypesAreExaminedOneLevelDeep) {
  const auto isValid = [](const HostValue& v) { return v.member()->isValidNestedType(); };
  const Dictionary keyedByInt(Entries{{1, 2}});
  EXPECT_TRUE(isValid(5));
  EXPECT_TRUE(isValid(NSNull{}));
  EXPECT_TRUE(isValid(Array()));
  EXPECT_TRUE(isValid(Dictionary()));
  EXPECT_TRUE(isValid(Array{1, "a", NSNull{}}));
  EXPECT_FALSE(isValid(Array{1, HostValue()}));
  EXPECT_FALSE(isValid(Array{NSNumber(4, 1), 1}));
  EXPECT_TRUE(isValid(Array{Array{HostValue()}, 1}));
  EXPECT_FALSE(isValid(keyedByInt));
  EXPECT_FALSE(isValid(Dictionary{{"a", NSNumber(4, 1)}}));
  EXPECT_FALSE(isValid(Dictionary{{"a", OtherObject{}}}));
  EXPECT_TRUE(isValid(Dictionary{{"a", keyedByInt}}));
}

TEST(Values, NumberObjectsConvertByTheirCode) {
  for (int code = 0; code <= 17; ++code) {
    const auto converted = ParameterConversion::convert(NSNumber(code, -3.75));
    ASSERT_TRUE(converted);
    const bool isInteger = std::set{1, 2, 3, 4, 9, 10, 11, 15}.count(code) == 1;
    EXPECT_EQ(json(*converted), isInteger ? "-3" : code == 7 ? "true" : "-3.75") << code;
  }
  EXPECT_EQ(NSNumber(4, 1e300).integerValue(), INT64_MAX);
  EXPECT_EQ(NSNumber(4, -1e300).integerValue(), INT64_MIN);
  EXPECT_EQ(NSNumber(4, std::nan("")).integerValue(), 0);
  EXPECT_EQ(NSNumber(4, INT64_MAX).integerValue(), INT64_MAX);
  EXPECT_EQ(NSNumber(7, 0.5).boolValue(), true);
  EXPECT_EQ(NSNumber(7, true).integerValue(), 1);
  EXPECT_EQ(NSNumber(4, UINT64_MAX).integerValue(), INT64_MAX);
}

TEST(Values, ConversionLeavesOutWhatCannotBeRepresented) {
  const Dictionary keyedByInt(Entries{{1, HostValue()}});
  EXPECT_EQ(jsonOfMap(HostMap()), "none");
  EXPECT_EQ(jsonOfMap({{"a", std::nullopt}}), "{}");
  EXPECT_EQ(jsonOfMap({{"a", OtherObject{}}}), "{}");
  EXPECT_EQ(jsonOfMap({{"a", Array{1, HostValue(), OtherObject{}, 2}}}), R"({"a":[1,2]})");
  EXPECT_EQ(jsonOfMap({{"a", Array()}, {"b", Array{HostValue(), HostValue()}}}),
            R"({"a":[],"b":[]})");
  EXPECT_EQ(jsonOfMap({{"a", Dictionary()}}), "{}");
  EXPECT_EQ(jsonOfMap({{"a", {{"b", HostValue()}}}}), R"({"a":{}})");
  EXPECT_EQ(jsonOfMap({{"a", Array{Array{NSNumber(4, 1)}, Array()}}}), R"({"a":[[1],[]]})");
  EXPECT_EQ(jsonOfMap({{"k", 1}, {"j", 0}, {"k", 2}}), R"({"j":0,"k":2})");
  EXPECT_EQ(jsonOfMap({{"k", 1}, {"k", HostValue()}}), "{}");

  const auto unchanged = ParameterConversion::convert(keyedByInt);
  ASSERT_TRUE(unchanged);
  EXPECT_TRUE(HostValue(*unchanged) == HostValue(keyedByInt));
  EXPECT_EQ(json(*unchanged), "cannot be encoded");
  EXPECT_EQ(jsonOfMap({{"a", {{"b", Array{keyedByInt, 1}}}}}), "cannot be encoded");
}

TEST(Values, MembersHaveTheirJSONForm) {
  EXPECT_EQ(json("a\"\\\n\x01\x7F/\xC3\xA9"), "\"a\\\"\\\\\\n\\u0001\x7F/\xC3\xA9\"");
  EXPECT_EQ(json(std::string("a\0b", 3)), R"("a\u0000b")");
  EXPECT_EQ(json(INT64_MIN), "-9223372036854775808");
  EXPECT_EQ(json(UINT64_MAX), "18446744073709551615");
  EXPECT_EQ(json(Int64{-1}), "-1");
  EXPECT_EQ(json(0.1), "0.1");
  EXPECT_EQ(std::stof(json(0.1F)), 0.1F);
  EXPECT_EQ(json(std::nan("")), "null");
  EXPECT_EQ(json(-HUGE_VALF), "null");
  EXPECT_EQ(json(NSNull{}), "null");
  EXPECT_EQ(json(URL("https://x/\"")), R"("https://x/\"")");
  EXPECT_EQ(json(Date::fromSecondsSince1970(1700000000.1239)), R"("2023-11-14T22:13:20.123Z")");
  EXPECT_EQ(json(Date::fromSecondsSince1970(-0.001)), R"("1969-12-31T23:59:59.999Z")");
  EXPECT_EQ(json(Date::fromSecondsSince1970(HUGE_VAL)).size(), 27U);
  using namespace std::chrono;
  EXPECT_EQ(json(sys_days(2300y / 1 / 1)), R"("2300-01-01T00:00:00.000Z")");
  EXPECT_EQ(json(sys_time<milliseconds>(milliseconds(20'000'000'000'123))),
            R"("2603-10-11T11:33:20.123Z")");
  EXPECT_EQ(Date(sys_days::max()).sinceEpoch(), Date::fromSecondsSince1970(HUGE_VAL).sinceEpoch());
}

TEST(Values, WhatIsSpecialInTextIsFoundWhereverItStands) {
  for (std::size_t length = 1; length <= 20; ++length) {
    for (std::size_t place = 0; place < length; ++place) {
      const std::string before(place, ' '), after(length - place - 1, '~');
      EXPECT_EQ(json(before + '"' + after), '"' + before + "\\\"" + after + '"');
      EXPECT_EQ(json(before + '\\' + after), '"' + before + "\\\\" + after + '"');
      EXPECT_EQ(json(before + '\x1F' + after), '"' + before + "\\u001F" + after + '"');
      EXPECT_EQ(keyOf({{before + '\x80' + after, 1}}), before + "\xEF\xBF\xBD" + after);
    }
  }
}

TEST(Values, Base64IsThatOfTheJoinedPieces) {
  std::mt19937 random(1);
  const auto below = [&](std::size_t limit) { return random() % limit; };
  for (int round = 0; round < 20'000; ++round) {
    std::string bytes(below(100), '\0');
    for (char& byte : bytes) byte = static_cast<char>(below(256));
    std::vector<std::string_view> pieces;
    for (std::string_view rest = bytes; !rest.empty(); rest.remove_prefix(pieces.back().size()))
      pieces.push_back(rest.substr(0, below(1 + std::min(rest.size(), 1 + below(40)))));

    std::string expected((bytes.size() + 2) / 3 * 4 + 1, '\0');
    const int size = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(expected.data()),
                                     reinterpret_cast<const unsigned char*>(bytes.data()),
                                     static_cast<int>(bytes.size()));
    expected.resize(static_cast<std::size_t>(size));
    std::string encoded = "data=";
    appendBase64(encoded, pieces);
    ASSERT_EQ(encoded, "data=" + expected) << "round " << round;
    ASSERT_EQ(decodedBase64(expected), bytes) << "round " << round;
  }
  for (const char* const bad : {"A", "AAA", "AA=A", "A===", "====", "AAB=", "AA?A"})
    EXPECT_EQ(decodedBase64(bad), std::nullopt) << bad;
}

TEST(Values, IllFormedTextIsReplacedWhereItEnters) {
  const std::pair<std::string, std::string> cases[] = {
      {"plain", "plain"},
      {"\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80", "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"},
      {"a\x80z", "a\xEF\xBF\xBDz"},
      {"\xC0\xAF", "\xEF\xBF\xBD\xEF\xBF\xBD"},
      {"\xE2\x82z", "\xEF\xBF\xBDz"},
      {"\xED\xA0\x80", "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD"},
      {"\xF0\x9F\x98", "\xEF\xBF\xBD"},
      {"\xF4\x90\x80\x80!", "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD!"},
      {"\xFF", "\xEF\xBF\xBD"},
  };
  for (const auto& [given, expected] : cases) {
    EXPECT_EQ(*HostValue(given).member()->getIf<std::string>(), expected);
    EXPECT_EQ(keyOf({{given, 1}}), expected);
    EXPECT_EQ(URL(given).text(), expected);
  }
}

TEST(Values, WhatNestsTooDeepBecomesAbsent) {
  const auto deepest = json(*ParameterConversion::convert(nested(128)));
  const auto cut = json(*ParameterConversion::convert(nested(129)));
  for (const auto& text : {deepest, cut})
    EXPECT_EQ(std::count_if(text.begin(), text.end(), [](char c) { return c == '[' || c == '{'; }),
              128);
  EXPECT_NE(deepest.find('1'), std::string::npos);
  EXPECT_EQ(cut.find('1'), std::string::npos);

  EXPECT_NE(jsonOfMap({{"a", nested(128)}}).find("[1]"), std::string::npos);
  EXPECT_EQ(jsonOfMap({{"a", {nested(128), 2}}}).find("[1]"), std::string::npos);
  EXPECT_TRUE(nested(5000) == nested(5002));
  // A key that nests too deep must not count as text.
  EXPECT_FALSE(Dictionary(Entries{{nested(300), 1}}).hasOnlyStringKeys());
}

TEST(Values, WhatHasBeenMovedFromMayBeUsed) {
  HostMap map{{"a", "a text that is longer than others"}};
  const HostMap moved = std::move(map);
  map.set("b", 1);
  EXPECT_EQ(jsonOfMap(map), R"({"b":1})");
  Array array{1, 2};
  const Array taken = std::move(array);
  EXPECT_TRUE(array.empty());
  HostValue text(std::string(70'000, 'x'));
  const HostValue kept = std::move(text);
  EXPECT_EQ(text.member()->getIf<std::string>(), "");
  EXPECT_EQ(kept.member()->getIf<std::string>()->size(), 70'000U);
  HostMap next{{"c", 1}};
  map = std::move(next);
  next.set("d", 2);
  EXPECT_EQ(jsonOfMap(next), R"({"d":2})");
}

TEST(Values, DictionariesKeepTheLastOfEqualKeys) {
  const Dictionary dictionary(Entries{{"b", 1}, {1, 2}, {"b", 3}, {Int64{1}, 4}});
  ASSERT_EQ(dictionary.size(), 3U);
  EXPECT_FALSE(dictionary.hasOnlyStringKeys());
  EXPECT_TRUE(dictionary.begin()->value == HostValue(3));

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
  EXPECT_EQ(jsonOfMap(counting), R"({"count":999,"z":1})");

  HostMap inner{{"z", 1}, {"y", 2}, {"z", 3}};
  EXPECT_EQ(Dictionary(Entries{{inner, 1}, {HostMap{{"y", 2}, {"z", 3}}, 2}}).size(), 1U);
  EXPECT_EQ(HostValue(inner).member()->getIf<Dictionary>()->size(), 2U);
}

TEST(Values, DebugForms) {
  const auto rendered = [](const HostValue& value) {
    std::string line;
    render(line, DebugForm{ParameterConversion::convert(value)});
    return line;
  };
  EXPECT_EQ(rendered(std::string("a\"b\\\r\n\t\0\x1F\xC2\x85\xC3\xA9", 13)),
            "Optional(\"a\\\"b\\\\\\r\\n\\t\\0\\u{1F}\\u{85}\xC3\xA9\")");
  EXPECT_EQ(rendered(-3), "Optional(-3)");
  EXPECT_EQ(rendered(UINT64_MAX), "Optional(18446744073709551615)");
  EXPECT_EQ(rendered(true), "Optional(true)");
  const std::pair<double, std::string> numbers[] = {
      {1, "1.0"},
      {0.1, "0.1"},
      {100000, "100000.0"},
      {0.0001, "0.0001"},
      {0.00001, "1e-05"},
      {1e16, "1e+16"},
      {-0.0, "-0.0"},
      {123456789.125, "123456789.125"},
      {1e300, "1e+300"},
      {HUGE_VAL, "inf"},
      {0x1p53, "9007199254740992.0"},
      {0x1p53 + 2, "9007199254740994.0"},
      {-(0x1p53 + 2), "-9007199254740994.0"},
      {9.1e15, "9.1e+15"},
      {12345678901234568, "1.2345678901234568e+16"},
  };
  for (const auto& [number, form] : numbers) EXPECT_EQ(rendered(number), "Optional(" + form + ")");
  EXPECT_EQ(rendered(0.1F), "Optional(0.1)");
  EXPECT_EQ(rendered(0x1p24F + 2), "Optional(16777218.0)");
  EXPECT_EQ(rendered(2e7F), "Optional(2e+07)");
  EXPECT_EQ(rendered(Array{NSNumber(6, 0.5)}), "Optional([0.5])");
  EXPECT_EQ(rendered({1, "a", Array()}), "Optional([1, \"a\", []])");
  EXPECT_EQ(rendered({{"b", NSNull{}}, {"a", 0.5}}), "Optional([\"a\": 0.5, \"b\": <null>])");
  EXPECT_EQ(rendered({{"a", OtherObject{}}}), "Optional([:])");
  EXPECT_EQ(rendered(Date::fromSecondsSince1970(0)), "Optional(1970-01-01T00:00:00.000Z)");
  EXPECT_EQ(rendered(URL("https://x")), "Optional(https://x)");
}

TEST(Values, CanonicalEquivalence) {
  EXPECT_EQ(canonicalDecomposition("caf\xC3\xA9"), canonicalDecomposition("cafe\xCC\x81"));
  EXPECT_NE(canonicalDecomposition("\xEF\xAC\x81"), canonicalDecomposition("fi"));
  const std::string_view withNul("a\0\xC3\xA9", 4);
  EXPECT_EQ(canonicalDecomposition(withNul), std::string("a\0e\xCC\x81", 5));
}

}  // namespace
}  // namespace veltrano::internal
