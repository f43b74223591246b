// The trace print: its test for streams, and the expansion and writing of a line of trace.
#include <orv/diag.h>

#include "common/guards.h"
#include "messages/format.h"
#include "messages/state.h"

#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <orv/msg.h>
#include <unistd.h>

namespace orv::messages {
namespace {

constexpr size_t kTraceBytes = 16384;

// Kept: the expanded text is the format of a second print, so a percent sign in it is interpreted
// once more. Without a percent sign the second print would write the text as it stands.
void write_trace(FILE *stream, const char *text, bool has_percent) {
  if (!has_percent) {
    fputs(text, stream);
    return;
  }
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security" // the second interpretation, as said above
  fprintf(stream, text);
#pragma GCC diagnostic pop
}

// Expands the text, cut where it does not fit; a cut text still ends its line.
[[gnu::format(printf, 2, 0)]] bool expand_trace(char *text, const char *format, va_list args) {
  const int length = format_text(text, kTraceBytes, format, args);
  if (length >= static_cast<int>(kTraceBytes))
    text[kTraceBytes - 2] = '\n';
  return length >= 0;
}

void write_to_streams(const msg_stream_desc &desc, const char *text) {
  const bool has_percent = strchr(text, '%') != nullptr;
  for (int32_t i = 0; i < desc.count; i++) {
    write_trace(desc.streams[i], text, has_percent);
    if (desc.sync != 0) {
      fflush(desc.streams[i]);
      fsync(fileno(desc.streams[i]));
    }
  }
}

} // namespace

// What diag_printf does once there is a stream.
__attribute__((used, format(printf, 1, 2))) void trace(const char *format, ...) {
  ErrnoGuard keep;
  char text[kTraceBytes];
  va_list args;
  va_start(args, format);
  const bool expanded = expand_trace(text, format, args);
  va_end(args);
  if (expanded)
    write_to_streams(state.streams[kDiagIndex], text);
}

// diag_printf, written out: a compiler stores every argument register of a function like this
// before it looks at the streams, which costs several times the test. Here the arguments stay
// where they are, for trace to find. Before the stream lists are set up the count is 0 as well.
static_assert(offsetof(State, streams) == 0 && offsetof(msg_stream_desc, count) == 0);
static_assert(kDiagIndex * sizeof(msg_stream_desc) == 96);
asm(R"(
	.pushsection .text
	.p2align 4
	.globl	diag_printf
	.type	diag_printf, @function
diag_printf:
	.cfi_startproc
	endbr64
	cmpl	$0, _ZN3orv8messages5stateE+96(%rip)
	jne	_ZN3orv8messages5traceEPKcz
	ret
	.cfi_endproc
	.size	diag_printf, . - diag_printf
	.popsection
)");

} // namespace orv::messages
