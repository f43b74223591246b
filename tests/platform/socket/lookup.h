// Host lookups and socket options as the tests see them: both pass through to the system unless a
// test has planned other addresses.
#pragma once

#include <netdb.h>
#include <netinet/in.h>
#include <string>
#include <vector>

namespace lookup {

struct Address {
  int family = AF_INET;
  int type = SOCK_STREAM;
  int protocol = IPPROTO_TCP;
  uint32_t ipv4 = INADDR_LOOPBACK; // in the order of the host
  int port = 0;                    // 0: the one that was asked for
};

// What has been asked for and given back since the process started.
struct Record {
  std::vector<std::string> asked; // "host:service"
  std::vector<addrinfo> hints;
  int released = 0;
  std::vector<int> undelayed; // sockets on which TCP_NODELAY was set
};
extern Record record;

// The lookups to come find these addresses; an empty list ends the plan.
void find(const std::vector<Address> &addresses);

// The lookups to come all find this one result, which belongs to the test; null ends the plan.
void find_same(addrinfo *result);

// The lookups to come fail with this error; after `skip` that pass. 0 ends the plan.
void fail(int error, int skip = 0);

// Whether setting a socket option is refused.
extern bool refuse_options;

} // namespace lookup
