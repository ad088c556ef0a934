#include "tracker/refresh_triggers.h"

#include <algorithm>
#include <utility>

#include "encoding/canonical_equivalence.h"
#include "encoding/utf8.h"

namespace veltrano::internal {
namespace {

std::string decomposed(std::string_view text) {
  if (isASCII(text)) return std::string(text);
  return canonicalDecomposition(wellFormedUTF8(text));
}

}  // namespace

void RefreshTriggers::set(const std::optional<std::vector<std::string>>& triggers,
                          HostFunction<> handler) {
  std::shared_ptr<Pair> pair;
  if (triggers && handler) {
    pair = std::make_shared<Pair>();
    for (const std::string& name : *triggers) pair->decomposedTriggers.push_back(decomposed(name));
    pair->handler = std::move(handler);
  }
  // The old handler is destroyed after the lock is released: it may own the host's objects.
  std::shared_ptr<const Pair> replaced = std::move(pair);
  const Lock lock(mutex_);
  isSet_.store(replaced != nullptr, std::memory_order_release);
  pair_.swap(replaced);
}

bool RefreshTriggers::callHandlerIfTriggered(std::string_view eventName) const {
  std::shared_ptr<const Pair> pair;
  {
    const Lock lock(mutex_);
    pair = pair_;
  }
  if (!pair) return true;
  const auto& triggers = pair->decomposedTriggers;
  return std::find(triggers.begin(), triggers.end(), decomposed(eventName)) == triggers.end() ||
         pair->handler.call();
}

}  // namespace veltrano::internal
