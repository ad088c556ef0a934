#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

#include "platform/posix/system/system.h"

namespace veltrano::internal {
namespace {

// Receives one message. Its content does not matter: something changed. An overrun means the same.
bool receiveChange(int changes, int flags) {
  char message[1];
  return recv(changes, message, sizeof message, flags | MSG_TRUNC) >= 0 || errno == ENOBUFS ||
         errno == EINTR;
}

}  // namespace

NetworkChanges::NetworkChanges() {
  const int changes = openSocket(AF_NETLINK, SOCK_RAW, NETLINK_ROUTE);
  if (changes < 0) return;
  sockaddr_nl address = {};
  address.nl_family = AF_NETLINK;
  address.nl_groups = RTMGRP_LINK | RTMGRP_IPV4_ROUTE | RTMGRP_IPV6_ROUTE;
  if (bind(changes, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
    descriptor_ = changes;
  } else {
    close(changes);
  }
}

NetworkChanges::~NetworkChanges() {
  if (isOpen()) close(descriptor_);
}

bool NetworkChanges::wait() const {
  if (!receiveChange(descriptor_, 0)) return false;
  while (receiveChange(descriptor_, MSG_DONTWAIT)) {
  }
  return true;
}

}  // namespace veltrano::internal
