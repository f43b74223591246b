// The wrapped lookups and socket options.
#include "platform/socket/lookup.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstdlib>
#include <memory>
#include <netinet/tcp.h>
#include <sys/socket.h>

namespace lookup {

Record record;
bool refuse_options = false;

namespace {

std::vector<Address> planned;
addrinfo *same_result = nullptr;
int planned_error = 0;
int passing = 0;

struct Planned {
  addrinfo info;
  sockaddr_in address;
};

addrinfo *make(const Address &address, const char *service) {
  auto *made = static_cast<Planned *>(calloc(1, sizeof(Planned)));
  made->address.sin_family = static_cast<sa_family_t>(address.family);
  made->address.sin_addr.s_addr = htonl(address.ipv4);
  made->address.sin_port =
      htons(static_cast<uint16_t>(address.port != 0 ? address.port : atoi(service)));
  made->info.ai_family = address.family;
  made->info.ai_socktype = address.type;
  made->info.ai_protocol = address.protocol;
  made->info.ai_addr = reinterpret_cast<sockaddr *>(&made->address);
  made->info.ai_addrlen = sizeof made->address;
  return &made->info;
}

} // namespace

void find(const std::vector<Address> &addresses) {
  planned = addresses;
}

void find_same(addrinfo *result) {
  same_result = result;
}

void fail(int error, int skip) {
  planned_error = error;
  passing = skip;
}

} // namespace lookup

extern "C" {

int __real_getaddrinfo(const char *host, const char *service, const addrinfo *hints,
                       addrinfo **found);
void __real_freeaddrinfo(addrinfo *found);
int __real_setsockopt(int fd, int level, int name, const void *value, socklen_t length);

int __wrap_getaddrinfo(const char *host, const char *service, const addrinfo *hints,
                       addrinfo **found) {
  using namespace lookup;
  record.asked.push_back(std::string(host == nullptr ? "" : host) + ":" + service);
  record.hints.push_back(*hints);
  if (planned_error != 0 && passing-- <= 0)
    return planned_error;
  if (same_result != nullptr) {
    *found = same_result;
    return 0;
  }
  if (planned.empty())
    return __real_getaddrinfo(host, service, hints, found);
  addrinfo **next = found;
  for (const Address &address : planned) {
    *next = make(address, service);
    next = &(*next)->ai_next;
  }
  return 0;
}

void __wrap_freeaddrinfo(addrinfo *found) {
  lookup::record.released++;
  if (found == lookup::same_result)
    return;
  if (lookup::planned.empty()) {
    __real_freeaddrinfo(found);
    return;
  }
  while (found != nullptr) {
    addrinfo *next = found->ai_next;
    free(found);
    found = next;
  }
}

int __wrap_setsockopt(int fd, int level, int name, const void *value, socklen_t length) {
  if (lookup::refuse_options) {
    errno = ENOPROTOOPT;
    return -1;
  }
  const int result = __real_setsockopt(fd, level, name, value, length);
  if (level == IPPROTO_TCP && name == TCP_NODELAY && result == 0 &&
      *static_cast<const int *>(value) != 0)
    lookup::record.undelayed.push_back(fd);
  return result;
}

} // extern "C"
