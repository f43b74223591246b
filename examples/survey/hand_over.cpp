// The parent's side of the counting. A few files are handed over ahead of the answers, so that the
// companion always has one to count; the answers come back in the same order.
#include "hand_over.h"

#include "names.h"
#include "protocol.h"
#include "terminal.h"

#include <cstdio>
#include <cstring>
#include <orv/alloc.h>
#include <orv/diag.h>
#include <orv/msg.h>
#include <sys/wait.h>

namespace survey {
namespace {

constexpr size_t kAhead = 16;           // files handed over and not yet answered
constexpr int kTurnsAllowed = 3;        // companions that may end at the turn of one file
constexpr int kFutileStartsAllowed = 9; // companions in a row that may end without any answer

enum : int { kUnderstood = 1, kNotUnderstood = 2 }; // what the message handler returns

// What the message handler and the idle callback work on: they are given no argument for it.
struct HandOver {
  Tree *tree;
  platform_pair_handle *pair; // null while there is no companion
  platform_msgbuf *buffer;    // where its answers gather
  size_t next;                // the first entry that was not looked at for handing over
  size_t oldest;              // the first entry that may be unanswered
  size_t unanswered;
  size_t done;       // entries counted or found unreadable
  int futile_starts; // companions in a row that ended without any answer
};
HandOver state;

void settle(Entry &entry, EntryState result, int error) {
  trace_name(result == EntryState::counted ? "counted" : "not counted", entry.path);
  entry.state = result;
  entry.error = error;
  state.done++;
}

// The entry that an answer is about; null when nobody asked.
Entry *entry_asked_about(const char *line) {
  uint64_t number = 0;
  if (!read_number(line, number) || number >= state.tree->count ||
      state.tree->entries[number].state != EntryState::handed_over)
    return nullptr;
  return &state.tree->entries[number];
}

// The message handler.
int take_answer(int, char *first, char **further) {
  Entry *entry = entry_asked_about(further[0]);
  uint64_t error = 0;
  if (entry == nullptr)
    return kNotUnderstood;
  if (strcmp(first, kCounted) == 0 && read_counts(further[1], entry->counts) &&
      read_signature(further[2], entry->signature)) {
    settle(*entry, EntryState::counted, 0);
  } else if (strcmp(first, kFailed) == 0 && read_number(further[1], error)) {
    settle(*entry, EntryState::unreadable, static_cast<int>(error));
  } else {
    return kNotUnderstood;
  }
  state.unanswered--;
  state.futile_starts = 0;
  return kUnderstood;
}

// The idle callback.
void show_progress_so_far() {
  show_progress(state.done, state.tree->count);
}

// Cuts the faults of the next companion to be started off the list.
void take_fault(CompanionStart &start, char *fault, size_t size) {
  const size_t length = strcspn(start.faults, ",");
  snprintf(fault, size, "%.*s", static_cast<int>(length), start.faults);
  start.faults += length + (start.faults[length] == ',' ? 1 : 0);
}

bool start_companion(CompanionStart &start) {
  char fault[32];
  take_fault(start, fault, sizeof fault);
  // The companion has nothing to read but its pair; what it says goes where survey's words go.
  const int null_fd = platform_null_fd_acquire();
  const int std_fds[] = {null_fd, 1, 2};
  state.pair =
      platform_pair_parent_open_lp(kPairVariable, 1, 1, start.program, std_fds, "survey-companion",
                                   kCompanionOption, fault, static_cast<char *>(nullptr));
  platform_null_fd_release(null_fd);
  if (platform_pair_ok(state.pair) == 0) {
    end_progress();
    msg_error_shared("The companion could not be started: %s.", platform_pair_errstr(state.pair));
    platform_pair_close(state.pair);
    state.pair = nullptr;
    return false;
  }
  state.buffer = platform_msgbuf_create(kMessageBuffer);
  platform_set_message_buffer(state.buffer);
  char description[PLATFORM_PAIR_DESCRIBE_SIZE];
  diag_printf("companion started: %s\n", platform_pair_describe(state.pair, description));
  return true;
}

bool have_companion(CompanionStart &start) {
  if (state.pair != nullptr)
    return true;
  if (state.futile_starts < kFutileStartsAllowed)
    return start_companion(start);
  end_progress();
  msg_error_shared("The companions end before they answer.  Giving up.");
  return false;
}

// Lets go of the companion and waits until it is gone: without its pair it ends by itself. Half an
// answer that it left behind goes with the buffer. Returns its wait status.
int release_companion() {
  const int pid = platform_pair_companion_pid(state.pair);
  platform_pair_close(state.pair);
  state.pair = nullptr;
  platform_set_message_buffer(nullptr);
  platform_msgbuf_free(state.buffer);
  state.buffer = nullptr;
  int status = 0;
  platform_wait_child(pid, &status);
  return status;
}

void say_how_it_ended(int status) {
  end_progress();
  if (WIFSIGNALED(status))
    msg_warn("The companion was ended by signal %d (%s).", WTERMSIG(status),
             strsignal(WTERMSIG(status)));
  else
    msg_warn("The companion ended with exit status %d.", WEXITSTATUS(status));
}

// A file at whose turn one companion after the other ends is not handed over for ever.
void charge_with_end(Entry &entry) {
  entry.ended_at_turn++;
  if (entry.ended_at_turn == kTurnsAllowed)
    settle(entry, EntryState::unreadable, kCompanionsEnded);
}

// The companion is gone: what it did not answer waits again.
void lose_companion() {
  say_how_it_ended(release_companion());
  state.futile_starts++;
  Entry *turn = nullptr;
  for (size_t i = state.oldest; i < state.next; i++) {
    Entry &entry = state.tree->entries[i];
    if (entry.state != EntryState::handed_over)
      continue;
    entry.state = EntryState::waiting;
    if (turn == nullptr)
      turn = &entry;
  }
  if (turn != nullptr)
    charge_with_end(*turn);
  state.next = state.oldest;
  state.unanswered = 0;
}

bool hand_over(Entry &entry, size_t number) {
  char *path = escape_name(entry.path);
  const int sent =
      platform_sock_send_message(platform_pair_tx_fd(state.pair), kCount, write_number(number).text,
                                 path, static_cast<char *>(nullptr));
  orv_free(path);
  // Also when it was not sent whole: it is the companion's turn that is charged with its end.
  entry.state = EntryState::handed_over;
  state.unanswered++;
  return sent != 0;
}

// Hands over what waits, as far ahead as is allowed. False when the companion is gone.
bool hand_over_ahead() {
  for (; state.next < state.tree->count && state.unanswered < kAhead; state.next++) {
    Entry &entry = state.tree->entries[state.next];
    if (entry.state == EntryState::waiting && !hand_over(entry, state.next)) {
      state.next++;
      return false;
    }
  }
  return true;
}

// False when the companion is gone, or says what nobody can understand.
bool collect_answer() {
  const int result = platform_get_one_message(platform_pair_rx_fd(state.pair), take_answer,
                                              show_progress_so_far, 1);
  if (result == kNotUnderstood)
    diag_printf("an answer that survey does not understand\n");
  const Tree &tree = *state.tree;
  while (state.oldest < state.next && tree.entries[state.oldest].state != EntryState::handed_over)
    state.oldest++;
  return result == kUnderstood;
}

size_t entries_done(const Tree &tree) {
  size_t done = 0;
  for (size_t i = 0; i < tree.count; i++)
    done += tree.entries[i].state == EntryState::waiting ? 0 : 1;
  return done;
}

} // namespace

bool count_waiting(Tree &tree, CompanionStart &start, const volatile int &stop) {
  state.tree = &tree;
  state.next = state.oldest = state.unanswered = 0;
  state.done = entries_done(tree);
  while (state.done < tree.count && stop == 0 && have_companion(start)) {
    if (!hand_over_ahead() || !collect_answer())
      lose_companion();
    show_progress_so_far();
  }
  end_progress();
  return state.done == tree.count;
}

void end_companion() {
  if (state.pair == nullptr)
    return;
  const int sock = platform_pair_tx_fd(state.pair);
  // What it still answers is taken; then it closes its end. Where the word did not go out, it is
  // the closing of this end that tells the companion.
  if (platform_sock_send_message(sock, kEnd, nullptr) != 0)
    while (platform_get_one_message(sock, take_answer, nullptr, 1) != 0) {
    }
  const int status = release_companion();
  if (status != 0)
    say_how_it_ended(status);
}

} // namespace survey
