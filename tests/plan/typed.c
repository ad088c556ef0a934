#include "shop_c.h"

/* Tracks the event whose counterpart plan_test.cpp tracks without types. */
void track_typed(void) {
  const char* tags[] = {"a", "b"};
  const int64_t sizes[] = {1, 2};
  const enum shop_every_type_kinds kinds[] = {SHOP_EVERY_TYPE_KINDS_Y};
  const shop_every_type_lines lines[] = {{.sku = "b", .price = 1.5, .has_price = true},
                                         {.sku = "c"}};
  const shop_every_type_address address = {.city = "c"};
  const shop_every_type event = {
      .text = "word 1",
      .count = 7,
      .number = 2.5,
      .flag = true,
      .at = 1700000000.25,
      .link = "https://example.com",
      .source = SHOP_EVERY_TYPE_SOURCE_CLASS,
      .tags = tags,
      .tags_count = 2,
      .sizes = sizes,
      .sizes_count = 2,
      .kinds = kinds,
      .kinds_count = 1,
      .lines = lines,
      .lines_count = 2,
      .address = &address,
      .class_ = "d",
      .gru00F6u00DFe = 3,
      .has_gru00F6u00DFe = true,
  };
  shop_track_every_type(&event, NULL, NULL);
}

void track_without_text(void) {
  const shop_every_type event = {.count = 1};
  shop_track_every_type(&event, NULL, NULL);
}
