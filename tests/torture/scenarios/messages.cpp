// Messages and trace: streams that cannot be added or written to, texts and prefixes without
// storage.
#include "scenario.h"

#include <cstring>
#include <iterator>
#include <orv/diag.h>
#include <orv/msg.h>
#include <sys/mman.h>
#include <unistd.h>

using namespace scenario;

namespace {

struct Stream {
  int fd;
  FILE *file;
};

Stream memory_stream() {
  const int fd = memory_file("stream");
  FILE *file = fdopen(dup(fd), "a");
  need(file != nullptr);
  return {fd, file};
}

size_t count_of(std::string_view part, std::string_view text) {
  size_t count = 0;
  for (size_t at = text.find(part); at != text.npos; at = text.find(part, at + part.size()))
    count++;
  return count;
}

// The lists exist from here on.
void settle() {
  msg_clear_streams(MSG_INFO | MSG_DEBUG | MSG_WARN | MSG_ERROR | MSG_DIAG);
  msg_add_stream(MSG_WARN | MSG_ERROR, stderr);
}

void add_and_remove_streams() {
  settle();
  const Stream stream = memory_stream();
  const msg_stream_desc *desc = _msg_get_stream_desc(MSG_INFO);
  int added = 0;
  for (int i = 0; i < 17; i++) {
    const int before = desc->count;
    const int result = msg_add_stream(MSG_INFO, stream.file);
    EXPECT(result == 0 ? desc->count == before : desc->count == before + 1);
    EXPECT(desc->count <= desc->capacity);
    added += result != 0 ? 1 : 0;
  }
  EXPECT(added >= 12); // a growth that was refused is tried again by the next call
  msg_print("once a stream");
  const auto lost = static_cast<size_t>(added - desc->count);
  fflush(stream.file);
  // A stream that fails and the one that moves into its place miss the rest of a write.
  EXPECT(count_of("once a stream", contents(stream.fd)) + 3 >= static_cast<size_t>(added));
  EXPECT(lost <= 1);
  while (desc->count > 0)
    msg_remove_stream(MSG_INFO, stream.file);
  msg_print("nobody hears this");
  EXPECT(count_of("nobody", contents(stream.fd)) == 0);
}

void set_prefixes() {
  settle();
  const Level level;
  msg_set_print_prefix("first: ");
  const bool first = strcmp(msg_get_print_prefix(), "first: ") == 0;
  EXPECT(first || strcmp(msg_get_print_prefix(), "") == 0);
  msg_set_print_prefix("second: ");
  const char *second = msg_get_print_prefix();
  EXPECT(strcmp(second, "second: ") == 0 || strcmp(second, first ? "first: " : "") == 0);
  msg_set_mp_prefix("[1] ");
  EXPECT(strcmp(msg_get_mp_prefix(), "[1] ") == 0 || strcmp(msg_get_mp_prefix(), "") == 0);
  level.expect_heap(100);
}

// A message always gets out: a long one is cut where there is no storage for it.
void write_long_text() {
  settle();
  const Stream stream = memory_stream();
  msg_add_stream(MSG_INFO, stream.file);
  msg_set_width_limit(0);
  static char text[60001];
  memset(text, 'x', sizeof text - 1);
  const Level level;
  msg_print("%s", text);
  level.expect_heap(5000); // the stream's buffer
  const std::string_view written = contents(stream.fd);
  if (_msg_get_stream_desc(MSG_INFO)->count == 0)
    return; // a refused write took the stream from the list
  EXPECT(written.size() > 9000 && written.back() == '\n');
  EXPECT(written.find_first_not_of('x') == written.size() - 1);
}

void go_on_in_a_line() {
  settle();
  const Stream stream = memory_stream();
  msg_add_stream(MSG_INFO, stream.file);
  msg_set_print_prefix("prefix: ");
  msg_print_wrap("a line that stays %s", "open ");
  msg_cont("and goes on\nin the next one");
  msg_print("end");
  fflush(stream.file);
  if (_msg_get_stream_desc(MSG_INFO)->count == 0)
    return;
  EXPECT(count_of("a line that stays open and goes on\n", contents(stream.fd)) == 1);
  EXPECT(count_of("in the next one", contents(stream.fd)) == 1);
  EXPECT(count_of("end\n", contents(stream.fd)) == 1);
}

void end_with_a_sentence() {
  msg_warn("a warning before");
  msg_fatal("the end, %d", 1);
}

void force_to_disk() {
  settle();
  const Stream stream = memory_stream();
  msg_add_stream(MSG_DIAG, stream.file);
  EXPECT(msg_set_sync(MSG_DIAG, 1) == 1);
  EXPECT(msg_set_sync(MSG_DIAG, -1) == 1);
  diag_printf("trace %d\n", 1);
  diag_printf("trace %d\n", 2);
  // The trace ignores failures, and the stream stays.
  EXPECT(_msg_get_stream_desc(MSG_DIAG)->count == 1);
  fflush(stream.file);
  EXPECT(count_of("trace", contents(stream.fd)) >= 1);
}

// Of two directories one after the other: each log is open, or tracing is off.
void open_process_log() {
  settle();
  folder();
  const Level level;
  const char *stored = diag_set_dir(folder());
  EXPECT(strcmp(stored, folder()) == 0);
  const int streams = _msg_get_stream_desc(MSG_DIAG)->count;
  EXPECT(streams == 0 || streams == 1);
  level.expect_descriptors(streams);
  level.expect_heap(streams == 0 ? 0 : 6000);
  diag_printf("traced\n");
}

void report_a_failed_call() {
  settle();
  const Stream stream = memory_stream();
  msg_add_stream(MSG_DIAG, stream.file);
  EXPECT(access("/no/such/file", F_OK) != 0);
  diag_perror("access");
  fflush(stream.file);
  EXPECT(contents(stream.fd).empty() || contents(stream.fd).starts_with("access: No such file"));
}

constexpr Scenario kScenarios[] = {
    {"message-streams", add_and_remove_streams, true, {}},
    {"message-prefixes", set_prefixes, true, {}},
    {"message-long-text", write_long_text, true, {}},
    {"message-continued", go_on_in_a_line, true, {}},
    {"message-fatal", end_with_a_sentence, true, {}},
    {"trace-sync", force_to_disk, true, {}},
    {"trace-log", open_process_log, true, {}},
    {"trace-perror", report_a_failed_call, true, {}},
};

} // namespace

Table scenario::message_scenarios() {
  return {kScenarios, std::size(kScenarios)};
}
