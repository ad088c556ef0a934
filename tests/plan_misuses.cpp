// Wrong uses of the events of plan/plan.json. Each case must not compile, and its message has to
// contain the words after "//". Case 0 is right.
#include <chrono>
#include <map>
#include <string>
#include <vector>

#include "shop.h"

namespace {

using shop::EveryType;
using Lines = EveryType::Lines;

const veltrano::Date kNow;
const veltrano::URL kLink("https://example.com");
[[maybe_unused]] const std::vector<int> kNumbers{1};
[[maybe_unused]] const char* const kText = "text";

#define FIRST .text = "a", .count = 1, .number = 2.5, .flag = true
#define MIDDLE .at = kNow, .link = kLink, .source = EveryType::Source::search
#define LAST                                                                   \
  .tags = {"a"}, .lines = {Lines{.sku = "b"}}, .address = EveryType::Address { \
    .city = "c"                                                                \
  }

[[maybe_unused]] void use() {
#if CASE == 0
  shop::track(EveryType{FIRST, MIDDLE, LAST});
  shop::track(shop::Optional{});
#elif CASE == 1   // property_text
  shop::track(EveryType{.count = 1, .number = 2.5, .flag = true, MIDDLE, LAST});
#elif CASE == 2   // property_number
  shop::track(EveryType{.text = "a", .count = 1, .flag = true, MIDDLE, LAST});
#elif CASE == 3   // property_flag
  shop::track(EveryType{.text = "a", .count = 1, .number = 2.5, MIDDLE, LAST});
#elif CASE == 4   // property_link
  shop::track(EveryType{FIRST, .at = kNow, .source = EveryType::Source::search, LAST});
#elif CASE == 5   // property_source
  shop::track(EveryType{FIRST, .at = kNow, .link = kLink, LAST});
#elif CASE == 6   // property_tags
  shop::track(EveryType{FIRST, MIDDLE, .lines = {Lines{.sku = "b"}},
                        .address = EveryType::Address{.city = "c"}});
#elif CASE == 7   // property_address
  shop::track(EveryType{FIRST, MIDDLE, .tags = {"a"}, .lines = {Lines{.sku = "b"}}});
#elif CASE == 8   // property_city
  shop::track(EveryType{FIRST, MIDDLE, .tags = {"a"}, .lines = {Lines{.sku = "b"}},
                        .address = EveryType::Address{.floor = 1}});
#elif CASE == 9   // property_sku
  shop::track(EveryType{FIRST, MIDDLE, .tags = {"a"}, .lines = {Lines{}},
                        .address = EveryType::Address{.city = "c"}});
#elif CASE == 10  // texxt
  shop::track(EveryType{.texxt = "a"});
#elif CASE == 11  // additional
  shop::track(EveryType{FIRST, MIDDLE, LAST, .additional = 1});
#elif CASE == 12  // SongPlayed
  shop::track(shop::SongPlayed{});
#elif CASE == 13  // property_text
  shop::track(EveryType{.text = 3, .count = 1, .number = 2.5, .flag = true, MIDDLE, LAST});
#elif CASE == 14  // property_text
  shop::track(EveryType{.text = nullptr, .count = 1, .number = 2.5, .flag = true, MIDDLE, LAST});
#elif CASE == 15  // property_count
  shop::track(EveryType{.text = "a", .count = 1.5, .number = 2.5, .flag = true, MIDDLE, LAST});
#elif CASE == 16  // property_count
  shop::track(EveryType{.text = "a", .count = true, .number = 2.5, .flag = true, MIDDLE, LAST});
#elif CASE == 17  // property_count
  shop::track(EveryType{.text = "a", .count = 'c', .number = 2.5, .flag = true, MIDDLE, LAST});
#elif CASE == 18  // property_number
  shop::track(EveryType{.text = "a", .count = 1, .number = true, .flag = true, MIDDLE, LAST});
#elif CASE == 19  // property_number
  shop::track(EveryType{.text = "a", .count = 1, .number = "2.5", .flag = true, MIDDLE, LAST});
#elif CASE == 20  // property_flag
  shop::track(EveryType{.text = "a", .count = 1, .number = 2.5, .flag = 1, MIDDLE, LAST});
#elif CASE == 21  // property_flag
  shop::track(EveryType{.text = "a", .count = 1, .number = 2.5, .flag = kText, MIDDLE, LAST});
#elif CASE == 22  // property_at
  shop::track(EveryType{FIRST, .at = "2026-01-01T00:00:00Z", .link = kLink,
                        .source = EveryType::Source::search, LAST});
#elif CASE == 23  // property_at
  shop::track(
      EveryType{FIRST, .at = 1700000000, .link = kLink, .source = EveryType::Source::search, LAST});
#elif CASE == 24  // property_link
  shop::track(EveryType{FIRST, .at = kNow, .link = "https://example.com",
                        .source = EveryType::Source::search, LAST});
#elif CASE == 25  // property_source
  shop::track(EveryType{FIRST, .at = kNow, .link = kLink, .source = "search", LAST});
#elif CASE == 26  // property_source
  shop::track(EveryType{FIRST, .at = kNow, .link = kLink, .source = 0, LAST});
#elif CASE == 27  // property_source
  shop::track(EveryType{FIRST, .at = kNow, .link = kLink, .source = EveryType::Kinds::x, LAST});
#elif CASE == 28  // serach
  shop::track(EveryType{FIRST, .at = kNow, .link = kLink, .source = EveryType::Source::serach});
#elif CASE == 29  // property_tags
  shop::track(EveryType{FIRST, MIDDLE, .tags = {"a", 2}, .lines = {Lines{.sku = "b"}},
                        .address = EveryType::Address{.city = "c"}});
#elif CASE == 30  // property_sizes
  shop::track(EveryType{FIRST, MIDDLE, .tags = {"a"}, .sizes = std::vector<double>{1.5},
                        .lines = {Lines{.sku = "b"}}, .address = EveryType::Address{.city = "c"}});
#elif CASE == 31  // property_kinds
  shop::track(EveryType{FIRST, MIDDLE, .tags = {"a"}, .kinds = {"x"}, .lines = {Lines{.sku = "b"}},
                        .address = EveryType::Address{.city = "c"}});
#elif CASE == 32  // property_address
  shop::track(EveryType{FIRST, MIDDLE, .tags = {"a"}, .lines = {Lines{.sku = "b"}},
                        .address = std::map<std::string, std::string>{{"city", "c"}}});
#elif CASE == 33  // property_free_form
  shop::track(EveryType{FIRST, MIDDLE, LAST, .free_form = kNumbers});
#elif CASE == 34  // property_number
  shop::track(EveryType{"a", 1});
#elif CASE == 35  // property_text
  shop::track(EveryType{1, "a"});
#elif CASE == 36  // property_tier
  shop::setSuperProperties(shop::SuperProperties{.tier = "pro"});
#elif CASE == 37  // property_much
  shop::track(shop::Optional{.much = "a lot"});
#elif CASE == 38  // track
  shop::track(EveryType::Address{.city = "c"});
#else
#error "no such case"
#endif
}

}  // namespace
