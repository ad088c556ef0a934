#pragma once

#include "platform/posix/device/guarded_text.h"
#include "platform/telephony.h"

namespace veltrano {

/// The subscription as the host last described it.
class PosixTelephony final : public CTTelephonyNetworkInfo {
 public:
  void setCarrierName(std::optional<std::string> name) { carrierName_.set(std::move(name)); }

  std::optional<std::string> carrierName() const override { return carrierName_.get(); }

 private:
  GuardedText carrierName_;
};

}  // namespace veltrano
