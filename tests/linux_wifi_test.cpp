#include <gtest/gtest.h>

#include <map>
#include <string>

#include "platform/posix/system/linux/wifi.h"
#include "tests/support/directory.h"

namespace veltrano::internal {
namespace {

TEST(LinuxWiFiTest, TheDefaultRouteWithTheLeastMetricCounts) {
  const std::string header = "Iface\tDestination\tGateway\tFlags\tRefCnt\tUse\tMetric\tMask\tMTU\n";
  const std::string slow = "wlan0\t00000000\t010200C0\t0003\t0\t0\t600\t00000000\t0\t0\t0  \n";
  const std::string fast = "eth0\t00000000\t010200C0\t0003\t0\t0\t100\t00000000\t0\t0\t0\n";
  const std::string down =
      "ppp0\t00000000\t010200C0\t0002\t0\t0\t0\t00000000\t0\t0\t0\n"
      "ppp1\t00000000\t010200C0\t0203\t0\t0\t0\t00000000\t0\t0\t0\n";  // rejects
  const std::string zeros(32, '0');
  const std::string sixth = zeros + " 00 " + zeros + " 00 fe800000000000000000000000000001 " +
                            "00000400 00000001 00000000 00000003    wlan1\n";
  EXPECT_EQ(defaultRouteInterface(header + slow + fast + down, sixth), "eth0");
  EXPECT_EQ(defaultRouteInterface(header + down, sixth), "wlan1");
  EXPECT_EQ(defaultRouteInterface("wlan0\t00000000\n\n\xFF\t", "garbage"), "");
}

TEST(LinuxWiFiTest, AWirelessInterfaceCountsWhileItsLinkIsUp) {
  const Directory sys;
  sys.write("class/net/wlan1/phy80211/name", "");
  EXPECT_TRUE(isWirelessLinkUp("wlan1", sys / "")) << "a driver that tells nothing";
  for (const auto& [state, isUp] : std::map<std::string, bool>{
           {"up", true}, {"unknown", true}, {"down", false}, {"dormant", false}}) {
    for (const std::string interface : {"eth0", "wlan1"})
      sys.write("class/net/" + interface + "/operstate", state + "\n");
    EXPECT_EQ(isWirelessLinkUp("wlan1", sys / ""), isUp) << state;
    EXPECT_FALSE(isWirelessLinkUp("eth0", sys / "")) << state;
  }
  EXPECT_FALSE(isWirelessLinkUp("", sys / ""));
}

}  // namespace
}  // namespace veltrano::internal
