#include "platform/posix/device/connectivity.h"

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <iterator>
#include <string>

#include "platform/posix/device/default_route.h"
#include "platform/posix/threads/background_thread.h"

namespace veltrano {
namespace {

// The system's tables have no size beforehand.
std::string readTable(const char* path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), {}};
}

// A socket that receives a message for each change of routes or interfaces; -1 when not permitted.
int openChanges() {
  const int changes = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
  if (changes < 0) return -1;
  sockaddr_nl address = {};
  address.nl_family = AF_NETLINK;
  address.nl_groups = RTMGRP_LINK | RTMGRP_IPV4_ROUTE | RTMGRP_IPV6_ROUTE;
  if (bind(changes, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0)
    return changes;
  close(changes);
  return -1;
}

// Takes one message, which says no more than that something changed. An overrun says the same.
bool receiveChange(int changes, int flags) {
  char message[1];
  return recv(changes, message, sizeof message, flags | MSG_TRUNC) >= 0 || errno == ENOBUFS ||
         errno == EINTR;
}

}  // namespace

void PosixConnectivity::startWatching() {
  const int changes = openChanges();  // before the first look, so that no change is missed
  look();
  if (changes >= 0 && !startBackgroundThread("veltrano-net", [this, changes] { watch(changes); }))
    close(changes);
}

void PosixConnectivity::look() {
  const std::string interface =
      defaultRouteInterface(readTable("/proc/net/route"), readTable("/proc/net/ipv6_route"));
  isOnWiFi_.store(isWireless(interface, "/sys"), std::memory_order_relaxed);
}

void PosixConnectivity::watch(int changes) {
  while (receiveChange(changes, 0)) {
    while (receiveChange(changes, MSG_DONTWAIT)) {
    }
    look();
  }
  close(changes);
}

}  // namespace veltrano
