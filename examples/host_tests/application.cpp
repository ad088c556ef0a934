#include "application.h"

#include <veltrano/posix_platform.h>
#include <veltrano/veltrano.h>

namespace {

std::string shownNotice;

}  // namespace

bool startApplication() {
  shownNotice.clear();
  veltrano::PosixOptions options;
  options.collectionHost = "events.example.com";
  options.infoDictionary = {{"CFBundleShortVersionString", "2.4"}};
  options.interfaceOrientation = 1;
  if (!veltrano::PosixPlatform::install(std::move(options))) return false;
  Veltrano::shared().setSuperProperties({{"plan", "pro"}});
  return true;
}

void signIn(const std::string& user) {
  Veltrano::shared().setUserId(user);
}

void buy(const std::vector<std::string>& items) {
  Veltrano::shared().track("Bought", {{"items", items}, {"count", items.size()}});
}

void pay(double amount) {
  Veltrano::shared().track("Paid", {{"amount", amount}}, [](bool accepted) {
    shownNotice = accepted ? "Thank you" : "We will keep trying";
    Veltrano::shared().track("Told", {{"notice", shownNotice}});
  });
}

std::string notice() {
  return shownNotice;
}
