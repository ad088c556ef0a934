#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/host_callback.h"
#include "platform/mutex.h"
#include "platform/notification_center.h"

namespace veltrano::internal {

/// Delivers what the process posts itself.
class LocalNotificationCenter : public NotificationCenter {
 public:
  void addObserver(std::string_view name, std::function<void()> observer) override {
    auto shared = std::make_shared<const std::function<void()>>(std::move(observer));
    const Lock lock(mutex_);
    observers_[std::string(name)].push_back(std::move(shared));
  }

  /// Runs the current observers of `name` and drops their exceptions.
  void post(std::string_view name) const {
    Observers observers;
    {
      const Lock lock(mutex_);
      if (const auto found = observers_.find(name); found != observers_.end())
        observers = found->second;
    }
    for (const auto& observer : observers) {
      dropExceptions(*observer);
      if (isForkedChild()) return;
    }
  }

  /// Removes the observers once their library has ended.
  void drop() {
    const Lock lock(mutex_);
    observers_.clear();
  }

 private:
  using Observers = std::vector<std::shared_ptr<const std::function<void()>>>;

  mutable Mutex mutex_;
  std::map<std::string, Observers, std::less<>> observers_ GUARDED_BY(mutex_);
};

}  // namespace veltrano::internal
