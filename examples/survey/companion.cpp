// The companion's side: it opens the pair that survey left in the environment, counts one file a
// request, and answers with the counts and the file's signature.
#include "companion.h"

#include "names.h"
#include "protocol.h"

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <orv/alloc.h>
#include <orv/diag.h>
#include <orv/msg.h>

namespace survey {
namespace {

// The message handler is given a socket and lines, nothing else: what it needs besides is here.
struct Companion {
  uint64_t requests;     // received so far
  uint64_t dies_at;      // the request at which the companion dies, 0 for none
  char moment;           // '~' in the middle of the answer, '+' after it, NUL before it
  bool was_asked_to_end; // survey says so; it did not just go away
};
Companion companion;

bool is_time_to_die(char moment) {
  return companion.requests == companion.dies_at && companion.moment == moment;
}

void die_at(char moment) {
  if (is_time_to_die(moment))
    raise(SIGKILL);
}

// Answers the request; 0 when survey does not listen any more.
int answer(int sock, const char *number, const char *path) {
  Counts counts;
  platform_file_sig_t signature;
  const int error = count_file(path, counts, signature);
  if (is_time_to_die('~'))
    platform_sock_send_line(sock, kCounted);
  die_at('~');
  int sent = 0;
  if (error == 0)
    sent = platform_sock_send_message(sock, kCounted, number, write_counts(counts).text,
                                      write_signature(signature).text, nullptr);
  else
    sent = platform_sock_send_message(sock, kFailed, number,
                                      write_number(static_cast<uint64_t>(error)).text, nullptr);
  die_at('+');
  return sent;
}

// The message handler: the message loop goes on while it returns non-zero.
int take_request(int sock, char *first, char **further) {
  if (strcmp(first, kEnd) == 0) {
    companion.was_asked_to_end = true;
    return 0;
  }
  if (strcmp(first, kCount) != 0 || further[0] == nullptr || further[1] == nullptr ||
      !unescape_name(further[1])) {
    diag_printf("a request that the companion does not understand\n");
    return 0;
  }
  companion.requests++;
  trace_name("counts", further[1]);
  die_at('\0');
  return answer(sock, further[0], further[1]);
}

} // namespace

int run_companion(const char *fault) {
  char *moment = nullptr;
  companion.dies_at = strtoull(fault, &moment, 10);
  companion.moment = *moment;
  // Signals are left to survey: an interrupt from the terminal reaches both processes, and survey
  // still wants answers then.
  platform_pair_handle *pair = platform_pair_child_open(kPairVariable, 1, 1);
  if (platform_pair_ok(pair) == 0 || platform_pair_rx_fd(pair) < 0) {
    msg_error_shared("%s is not for you: survey starts its companion itself.", kCompanionOption);
    platform_pair_close(pair);
    return 2;
  }
  msg_set_mp_prefix("companion: ");
  platform_msgbuf *buffer = platform_msgbuf_create(kMessageBuffer);
  platform_set_message_buffer(buffer);
  platform_message_loop(platform_pair_rx_fd(pair), take_request, nullptr, 0);
  platform_set_message_buffer(nullptr);
  platform_msgbuf_free(buffer);
  platform_pair_close(pair);
  // What opening the pair leaves on purpose is all that this report names.
  if (companion.was_asked_to_end)
    orv_malloc_debug_report(1);
  return 0;
}

} // namespace survey
