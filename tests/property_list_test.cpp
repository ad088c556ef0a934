#include "platform/posix/storage/property_list.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

namespace veltrano::internal {
namespace {

using namespace std::string_literals;

std::string document(const std::string& entries) {
  return "<plist version=\"1.0\"><dict>" + entries + "</dict></plist>";
}

std::string bigEndian(std::uint64_t number, int size) {
  std::string bytes;
  while (size-- > 0) bytes += static_cast<char>(number >> (8 * size));
  return bytes;
}

std::string bytesOf(std::string_view hexadecimal) {
  std::string bytes;
  for (std::size_t i = 0; i < hexadecimal.size(); i += 2)
    bytes += static_cast<char>(std::stoi(std::string(hexadecimal.substr(i, 2)), nullptr, 16));
  return bytes;
}

// The binary form of `objects`, which refer to each other by two-byte indices; the first is the
// root.
std::string binary(const std::vector<std::string>& objects) {
  std::string bytes = "bplist00", table;
  for (const std::string& object : objects) {
    table += bigEndian(bytes.size(), 4);
    bytes += object;
  }
  const std::size_t start = bytes.size();
  return bytes + table + bigEndian(4, 7) + bigEndian(2, 1) + bigEndian(objects.size(), 8) +
         bigEndian(0, 8) + bigEndian(start, 8);
}

std::string arrayOf(int count, int reference) {
  std::string array = "\xAF\x11" + bigEndian(static_cast<std::uint64_t>(count), 2);
  for (int i = 0; i < count; ++i) array += bigEndian(static_cast<std::uint64_t>(reference), 2);
  return array;
}

const std::string kDictionaryOfTwo = "\xD1\0\1\0\2"s;  // object 1 names object 2

// `depth` nested arrays under the key "a" of a dictionary.
std::string nestedXML(int depth, const std::string& tag) {
  std::string text = "<plist><dict><key>a</key>";
  for (int i = 0; i < depth; ++i) text += tag;
  for (int i = 0; i < depth; ++i) text += "</array>";
  return text + "</dict></plist>";
}
std::string nestedBinary(int depth) {
  std::vector<std::string> objects{kDictionaryOfTwo, "\x51"s + "a"};
  for (int i = 0; i < depth - 1; ++i) objects.push_back(arrayOf(1, i + 3));
  objects.push_back(arrayOf(0, 0));
  return binary(objects);
}

// A dictionary with an array of `width` references to the next such array, `levels` times.
std::string sharedBinary(int levels, int width, const std::string& last) {
  std::vector<std::string> objects{kDictionaryOfTwo, "\x51"s + "a"};
  for (int i = 0; i < levels; ++i) objects.push_back(arrayOf(width, i + 3));
  objects.push_back(last);
  return binary(objects);
}

bool isReadable(const std::string& text) {
  return PropertyList::parse(text).has_value();
}

// Written by another program: "bool" true, "neg" -90, "big" 2^64-1, "long" 2^40, "real" 0.25,
// "text" in UTF-16, "data", "date", "list" of 1, false and "x", and "map" with a real
// number.
const std::string kForeign = bytesOf(
    "62706c6973743030da0102030405060708090a0b0c0d0e0f101112131754626f6f6c536e656753626967546c"
    "6f6e67547265616c547465787454646174615464617465546c697374536d61700913ffffffffffffffa61400"
    "00000000000000ffffffffffffffff130000010000000000233fd000000000000065006800e90020d83dde00"
    "430001ff3341c5821440000000a31415161001085178d11819516b233ff8000000000000081d22262a2f3439"
    "3e43484c4d566770798488919597989a9d9f0000000000000101000000000000001a00000000000000000000"
    "0000000000a8");

TEST(PropertyListTest, KeepsEveryKindOfValue) {
  auto list = PropertyList::parse(kForeign);
  ASSERT_TRUE(list);
  list->setNumber(0.1 + 0.2, "neg");
  list->setNumber(1e300, "new");
  const auto again = PropertyList::parse(list->xml());
  ASSERT_TRUE(again) << list->xml();
  EXPECT_EQ(again->number("neg"), 0.1 + 0.2);
  EXPECT_EQ(again->number("new"), 1e300);
  EXPECT_EQ(again->number("text"), std::nullopt);
  EXPECT_EQ(again->xml(), list->xml());
  for (const char* element :
       {"<true/>", "<integer>18446744073709551615</integer>", "<integer>1099511627776</integer>",
        "<real>0.25</real>", "<string>h\u00e9 \U0001f600</string>", "<data>AAH/</data>",
        "<date>2023-11-14T22:13:20Z</date>", "<integer>1</integer>\n\t\t<false/>",
        "<key>k</key>\n\t\t<real>1.5</real>"})
    EXPECT_NE(again->xml().find(element), std::string::npos) << element << again->xml();
}

TEST(PropertyListTest, ReadsXMLAsXML) {
  const auto list = PropertyList::parse(
      "<?xml version='1.0' encoding='UTF-8'?><!DOCTYPE plist PUBLIC \"-//X//\" "
      "\"http://x/y.dtd\">\n"
      "<!-- <array><array> --><plist version = '1.0' ><dict >\n<key>a&amp;<![CDATA[<b>]]></key >"
      "<string >&#x41; \r\n<!-- no -->z</string><key>n</key><integer>\n 7 </integer>"
      "<key>e</key><array/><key>n</key><real>+8.5</real></dict></plist>");
  ASSERT_TRUE(list);
  const HostMap entries = list->entries();
  EXPECT_EQ(entries.begin()->key, "a&<b>");
  EXPECT_EQ(*entries.begin()->value.member()->getIf<std::string>(), "A \nz");
  EXPECT_EQ(list->number("n"), 8.5);
  // Characters that XML has to escape, and some that it cannot represent.
  const auto odd = PropertyList::parse(binary({kDictionaryOfTwo, "\x51<"s, "\x55\r\x01&>\x80"s}));
  ASSERT_TRUE(odd);
  const auto read = PropertyList::parse(odd->xml());
  ASSERT_TRUE(read) << odd->xml();
  EXPECT_EQ(*read->entries().begin()->value.member()->getIf<std::string>(), "\r\uFFFD&>\uFFFD");
}

TEST(PropertyListTest, IntegersOfAnySizeKeepTheirSign) {
  const auto number = [](const std::string& text) {
    return PropertyList::parse(document("<key>n</key><integer>" + text + "</integer>"))
        ->number("n");
  };
  EXPECT_EQ(number("-9223372036854775808"), -0x1p63);
  EXPECT_EQ(number("9223372036854775808"), 0x1p63);
  EXPECT_EQ(number("18446744073709551616"), 0x1p64);
  EXPECT_EQ(number("-18446744073709551616"), -0x1p64);
  EXPECT_EQ(number("0090"), 90);
  EXPECT_EQ(number("ninety"), std::nullopt);
  const auto binaryNumber = [](const std::string& object) {
    return PropertyList::parse(binary({kDictionaryOfTwo, "\x51n"s, object}))->number("n");
  };
  EXPECT_EQ(binaryNumber("\x10\xFF"s), 255);
  EXPECT_EQ(binaryNumber("\x13" + bigEndian(~0ull, 8)), -1);
  EXPECT_EQ(binaryNumber("\x14" + bigEndian(0, 8) + bigEndian(~0ull, 8)), 0x1p64);
  EXPECT_EQ(binaryNumber("\x14" + bigEndian(~0ull, 8) + bigEndian(~0ull, 8)), -1);
  EXPECT_EQ(binaryNumber("\x22" + bigEndian(0x3FC00000, 4)), 1.5);
}

TEST(PropertyListTest, WhatIsBuiltIsBounded) {
  // The limits of what a host may write.
  EXPECT_TRUE(isReadable(nestedXML(63, "<array>")));
  EXPECT_TRUE(isReadable(nestedBinary(63)));
  EXPECT_TRUE(isReadable(sharedBinary(1, 30'000, "\x51s"s)));
  std::string commented;
  for (int i = 0; i < 1000; ++i)
    commented += "<!--<array>--><key>k</key><string><![CDATA[<dict>]]></string>";
  EXPECT_TRUE(isReadable(document(commented)));

  for (const char* tag : {"<array>", "<array >", "<array\n\tid='>'>", "<array><!-- </array> -->"})
    EXPECT_FALSE(isReadable(nestedXML(200'000, tag))) << tag;
  EXPECT_FALSE(isReadable(nestedBinary(30'000)));
  EXPECT_FALSE(isReadable(sharedBinary(1, 1, arrayOf(1, 2)))) << "an array within itself";
  EXPECT_FALSE(isReadable(sharedBinary(30, 4, "\x51s"s))) << "4^30 values";
  const std::string large = "\x5F\x11" + bigEndian(60'000, 2) + std::string(60'000, 'x');
  EXPECT_FALSE(isReadable(sharedBinary(1, 30'000, large))) << "1.8 GB of text";
  std::string wide;
  for (int i = 0; i < 50'001; ++i) wide += "<key>k</key><true/>";
  EXPECT_FALSE(isReadable(document(wide)));
  EXPECT_FALSE(
      isReadable("<!DOCTYPE plist [<!ENTITY a 'lol'>]>" + document("<key>&a;</key><true/>")));
}

TEST(PropertyListTest, WhatFollowsNoFormIsRefused) {
  for (const char* entries :
       {"<key>a</key>", "<true/>", "<key>a</key><key>b</key>", "<key>a</key><b/>",
        "<key>a</key><true/>text", "<key>a</key><string><true/></string>",
        "<key>a</key><array><key>b</key></array>", "<key>a</key><string>&b;"})
    EXPECT_FALSE(isReadable(document(entries))) << entries;
  for (const char* text : {"", " ", "<plist/>", "<plist><array/></plist>",
                           "<plist><dict/><dict/></plist>", "<dict>", "bplist00", "{}"})
    EXPECT_FALSE(isReadable(text)) << text;
  // Prefixes are refused. A list with one byte changed is refused, or survives a round trip.
  for (std::size_t i = 0; i < kForeign.size(); ++i) {
    EXPECT_FALSE(isReadable(kForeign.substr(0, i)));
    for (const char byte : {'\0', '\x0F', '\xD1', '\xFF'}) {
      std::string damaged = kForeign;
      damaged[i] = byte;
      if (const auto list = PropertyList::parse(damaged)) {
        EXPECT_TRUE(isReadable(list->xml()));
      }
    }
  }
}

}  // namespace
}  // namespace veltrano::internal
