#pragma once

#include "platform/platform.h"

namespace veltrano {

/// A platform on which nothing happens: it takes the calls and does nothing.
Platform makeInertPlatform();

}  // namespace veltrano
