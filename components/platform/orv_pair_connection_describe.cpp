// The one-line description of a pair handle's state.
#include <cstdint>
#include <cstdio>
#include <orv/platform.h>

namespace {

constexpr std::size_t kStaticSize = 2048;
static_assert(kStaticSize >= PLATFORM_PAIR_DESCRIBE_SIZE);

void describe_corrupt(const platform_pair_handle *ph, char *text) {
  snprintf(text, PLATFORM_PAIR_DESCRIBE_SIZE, "handle corrupt 0x%08lx != 0x%08lx; ",
           reinterpret_cast<unsigned long>(ph), reinterpret_cast<unsigned long>(ph->self));
}

void describe_state(const platform_pair_handle *ph, char *text) {
  char child_status[32] = "";
  if (ph->side != 0)
    snprintf(child_status, sizeof child_status, "child status %d; ", ph->child_exit_status);
  snprintf(text, PLATFORM_PAIR_DESCRIBE_SIZE,
           "handle intact; %s side; companion pid %ld; reads %s; read FD %d; write FD %d; "
           "%sterm signal %d; errno %d; orv: None",
           ph->side != 0 ? "parent" : "child", static_cast<long>(ph->companion_pid),
           ph->blocking != 0 ? "block" : "non-blocking", ph->read_fd, ph->write_fd, child_status,
           ph->term_signal, ph->saved_errno);
}

} // namespace

char *platform_pair_describe(const platform_pair_handle *ph, char *buffer) {
  static char shared[kStaticSize];
  char *text = buffer != nullptr ? buffer : shared;
  if (ph->self != ph)
    describe_corrupt(ph, text);
  else if (ph->error_text != nullptr)
    // Kept: the failed step is all that is told; the state before it would only distract.
    snprintf(text, PLATFORM_PAIR_DESCRIBE_SIZE, "orv: %s", ph->error_text);
  else
    describe_state(ph, text);
  return text;
}
