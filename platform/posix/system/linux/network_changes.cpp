#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "platform/posix/system/system.h"

namespace veltrano::internal {
namespace {

// Receives one message. Its content does not matter: something changed. An overrun means the same.
bool receiveChange(int changes) {
  char message[1];
  return recv(changes, message, sizeof message, MSG_DONTWAIT | MSG_TRUNC) >= 0 ||
         errno == ENOBUFS || errno == EINTR;
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
  if (descriptor_ >= 0) close(descriptor_);
}

void NetworkChanges::clear() {
  while (receiveChange(descriptor_)) {
  }
  if (errno == EAGAIN) return;
  close(std::exchange(descriptor_, -1));  // broken: poll would report input forever
}

}  // namespace veltrano::internal
