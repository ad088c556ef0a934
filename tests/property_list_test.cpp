#include "platform/posix/storage/property_list.h"

#include <gtest/gtest.h>

#include <string>

namespace veltrano::internal {
namespace {

std::string document(const std::string& entries) {
  return "<plist version=\"1.0\"><dict>" + entries + "</dict></plist>";
}

// `depth` nested arrays in a dictionary.
std::string nested(int depth, const std::string& tag) {
  std::string text = "<key>a</key>";
  for (int i = 0; i < depth; ++i) text += tag;
  for (int i = 0; i < depth; ++i) text += "</array>";
  return document(text);
}

bool isReadable(const std::string& text) {
  return readPropertyList(text).has_value();
}

TEST(PropertyListTest, ReadsXMLAsXML) {
  const auto entries = readPropertyList(
      "<?xml version='1.0' encoding='UTF-8'?><!DOCTYPE plist PUBLIC \"-//X//\" "
      "\"http://x/y.dtd\">\n"
      "<!-- <array><array> --><plist version = '1.0' ><dict >\n<key>a&amp;<![CDATA[<b>]]></key >"
      "<string >&#x41; \r\n<!-- no -->z</string><key>n</key><integer>\n 7 </integer>"
      "<key>e</key><array><string>in</string><dict><key>k</key><true/></dict></array>"
      "<key>s</key><string/></dict></plist>");
  ASSERT_TRUE(entries);
  std::string read;
  for (auto entry = entries->begin(); entry != entries->end(); ++entry) {
    const HostValue value = entry->value;
    const auto* member = value.member();
    const auto text = member != nullptr ? member->getIf<std::string>() : std::nullopt;
    read += entry->key + "=" + text.value_or("other") + ";";
  }
  EXPECT_EQ(read, "a&<b>=A \nz;n=other;e=other;s=;");
}

TEST(PropertyListTest, WhatIsReadIsBounded) {
  // The limits of what a host may write.
  EXPECT_TRUE(isReadable(nested(63, "<array>")));
  std::string commented, wide;
  for (int i = 0; i < 1000; ++i)
    commented += "<!--<array>--><key>k</key><string><![CDATA[<dict>]]></string>";
  EXPECT_TRUE(isReadable(document(commented)));

  for (const char* tag : {"<array>", "<array >", "<array\n\tid='>'>", "<array><!-- </array> -->"})
    for (const int depth : {64, 200'000}) EXPECT_FALSE(isReadable(nested(depth, tag))) << tag;
  for (int i = 0; i < 50'001; ++i) wide += "<key>k</key><true/>";
  EXPECT_FALSE(isReadable(document(wide)));
  EXPECT_FALSE(
      isReadable("<!DOCTYPE plist [<!ENTITY a 'lol'>]>" + document("<key>&a;</key><true/>")));
}

TEST(PropertyListTest, WhatIsNoDictionaryIsRefused) {
  for (const char* entries : {"<key>a</key>", "<true/>", "<key>a</key><key>b</key>",
                              "<key>a</key><true/><true/>", "<key>a</key><string>&b;"})
    EXPECT_FALSE(isReadable(document(entries))) << entries;
  for (const char* text : {"", " ", "<plist/>", "<plist><array/></plist>",
                           "<plist><dict/><dict/></plist>", "<dict>", "bplist00", "{}"})
    EXPECT_FALSE(isReadable(text)) << text;
}

}  // namespace
}  // namespace veltrano::internal
