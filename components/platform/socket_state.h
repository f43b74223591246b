// The process-wide state of the socket calls, beside the installed message buffer `gMsgBuf` itself.
#pragma once

#include <cstdint>
#include <netdb.h>

namespace orv {

struct SocketState {
  // Counts what the calls of this library did to message buffers: a search that was interrupted by
  // an idle callback learns from it whether it may go on where it stopped.
  uint64_t buffer_changes;
  // The first of the address lookups that are never released: here a leak checker sees them held.
  // Few programs open so many ports and connections.
  const addrinfo *kept_lookups[64];
};

extern constinit SocketState socket_state;

} // namespace orv
