#include "platform/posix/threads/notification_center.h"

#include <utility>

#include "platform/host_callback.h"

namespace veltrano::internal {

void PosixNotificationCenter::addObserver(std::string_view name, std::function<void()> observer) {
  auto shared = std::make_shared<const std::function<void()>>(std::move(observer));
  const Lock lock(mutex_);
  observers_[std::string(name)].push_back(std::move(shared));
}

void PosixNotificationCenter::post(std::string_view name) const {
  Observers observers;
  {
    const Lock lock(mutex_);
    const auto found = observers_.find(name);
    if (found != observers_.end()) observers = found->second;
  }
  for (const auto& observer : observers) {
    dropExceptions(*observer);
    if (isForkedChild()) return;
  }
}

}  // namespace veltrano::internal
