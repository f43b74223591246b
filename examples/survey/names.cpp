// Escaping names, so that no name can end a line, drive a terminal or be taken for a format.
#include "names.h"

#include <cstdio>
#include <cstring>
#include <orv/alloc.h>
#include <orv/diag.h>
#include <orv/msg.h>

namespace survey {
namespace {

constexpr char kHexDigits[] = "0123456789abcdef";

bool is_continuation(unsigned char byte) {
  return (byte & 0xC0) == 0x80;
}

// A UTF-8 sequence by its first two bytes; those that follow are any continuation bytes.
struct Sequence {
  unsigned char first_from, first_to;
  unsigned char second_from, second_to;
  int length;
};

// The sequences of more than one byte, without overlong ones, surrogates, characters out of range
// and the control characters below U+00A0.
constexpr Sequence kSequences[] = {
    {0xC2, 0xC2, 0xA0, 0xBF, 2}, {0xC3, 0xDF, 0x80, 0xBF, 2}, {0xE0, 0xE0, 0xA0, 0xBF, 3},
    {0xE1, 0xEC, 0x80, 0xBF, 3}, {0xED, 0xED, 0x80, 0x9F, 3}, {0xEE, 0xEF, 0x80, 0xBF, 3},
    {0xF0, 0xF0, 0x90, 0xBF, 4}, {0xF1, 0xF3, 0x80, 0xBF, 4}, {0xF4, 0xF4, 0x80, 0x8F, 4},
};

// The length of the sequence at the start of the text, 0 when there is none, or only a part of it.
int sequence_length(const unsigned char *text) {
  for (const Sequence &sequence : kSequences) {
    if (text[0] < sequence.first_from || text[0] > sequence.first_to)
      continue;
    if (text[1] < sequence.second_from || text[1] > sequence.second_to)
      return 0;
    for (int i = 2; i < sequence.length; i++)
      if (!is_continuation(text[i]))
        return 0;
    return sequence.length;
  }
  return 0;
}

char *append_hex(char *end, unsigned char byte) {
  *end++ = '\\';
  *end++ = 'x';
  *end++ = kHexDigits[byte >> 4];
  *end++ = kHexDigits[byte & 15];
  return end;
}

int hex_value(char digit) {
  const char *found = digit == '\0' ? nullptr : strchr(kHexDigits, digit);
  return found == nullptr ? -1 : static_cast<int>(found - kHexDigits);
}

// A copy in which each percent sign stands twice. Give it back with orv_free.
char *double_percent_signs(const char *text) {
  char *doubled = ORV_MALLOC_ARRAY(char, 2 * strlen(text) + 1);
  char *end = doubled;
  for (; *text != '\0'; text++) {
    *end++ = *text;
    if (*text == '%')
      *end++ = '%';
  }
  *end = '\0';
  return doubled;
}

} // namespace

char *escape_name(const char *name) {
  char *escaped = ORV_MALLOC_ARRAY(char, 4 * strlen(name) + 1);
  char *end = escaped;
  const auto *at = reinterpret_cast<const unsigned char *>(name);
  while (*at != '\0') {
    const int length = *at < 0x80 ? 1 : sequence_length(at);
    if (length == 0 || *at < ' ' || *at == 0x7F) {
      end = append_hex(end, *at++);
      continue;
    }
    if (*at == '\\')
      *end++ = '\\';
    memcpy(end, at, static_cast<size_t>(length));
    end += length;
    at += length;
  }
  *end = '\0';
  return escaped;
}

bool unescape_name(char *text) {
  char *end = text;
  while (*text != '\0') {
    if (*text != '\\') {
      *end++ = *text++;
    } else if (text[1] == '\\') {
      *end++ = '\\';
      text += 2;
    } else if (text[1] == 'x' && hex_value(text[2]) >= 0 && hex_value(text[3]) >= 0) {
      *end++ = static_cast<char>(hex_value(text[2]) << 4 | hex_value(text[3]));
      text += 4;
    } else {
      return false;
    }
  }
  *end = '\0';
  return true;
}

void trace_name(const char *event, const char *name) {
  if (_msg_get_stream_desc(MSG_DIAG)->count == 0)
    return;
  char *escaped = escape_name(name);
  // A trace text is interpreted twice: a percent sign of the name would be taken for a conversion.
  char *traced = double_percent_signs(escaped);
  diag_printf("%s: %s\n", event, traced);
  orv_free(traced);
  orv_free(escaped);
}

} // namespace survey
