#pragma once

#include "platform/random_source.h"

namespace veltrano {

class PosixRandomSource final : public RandomSource {
 public:
  RandomBytes bytes() override;
};

}  // namespace veltrano
