// The formatting of messages against the system's: any format over the same arguments must give
// the same length and the same text, in a buffer of any size.
#include "bytes.h"
#include "messages/format.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

constexpr size_t kLargestBuffer = 200;

// The conversions that a format may use, in the order of the arguments below. Each is followed by
// ordinary characters.
constexpr const char *kConversions[][4] = {
    {"s", "s", "p", "s"},     {"d", "d", "u", "i"},     {"u", "d", "x", "c"},
    {"ld", "ld", "lu", "lx"}, {"lu", "ld", "zu", "zd"}, {"s", "s", "p", "s"},
    {"f", "g", "e", "f"},     {"d", "d", "hd", "hhu"},  {"s", "s", "s", "s"},
};
constexpr const char *kModifiers[] = {"", "", "", "", "5", "-4", ".3", "0"};

std::string ordinary_characters(Bytes &input) {
  static constexpr char kCharacters[] = "ab %\n";
  std::string made;
  for (unsigned left = input.byte() % 6; left > 0; left--) {
    const char character = kCharacters[input.byte() % (sizeof kCharacters - 1)];
    made += character == '%' ? std::string("%%") : std::string(1, character);
  }
  return made;
}

std::string make_format(Bytes &input) {
  std::string format = ordinary_characters(input);
  for (const auto &conversion : kConversions) {
    if (input.byte() % 8 == 0)
      break;
    format += "%";
    format += kModifiers[input.byte() % 8];
    format += conversion[input.byte() % 4];
    format += ordinary_characters(input);
  }
  return input.byte() % 16 == 0 ? format + "%" : format;
}

std::string make_text(Bytes &input) {
  std::string text;
  for (unsigned left = input.byte() % 50; left > 0; left--)
    text += static_cast<char>(1 + input.byte() % 255);
  return text;
}

long make_number(Bytes &input) {
  unsigned long number = 0;
  for (unsigned left = input.byte() % 9; left > 0; left--)
    number = number << 8 | input.byte();
  return static_cast<long>(number);
}

void compare(size_t size, const char *format, ...) {
  char text[kLargestBuffer] = {};
  char expected[kLargestBuffer] = {};
  va_list args;
  va_start(args, format);
  va_list again;
  va_copy(again, args);
  const int length = orv::messages::format_text(text, size, format, args);
  const int expected_length = vsnprintf(expected, size, format, again);
  va_end(again);
  va_end(args);
  if (length == expected_length && memcmp(text, expected, sizeof text) == 0)
    return;
  fprintf(stderr, "[%s] in %zu\n%d [%s], expected %d [%s]\n", format, size, length, text,
          expected_length, expected);
  abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  Bytes input{data, size};
  const size_t room = input.byte() % (kLargestBuffer + 1);
  const std::string format = make_format(input);
  const std::string first = make_text(input);
  const std::string second = make_text(input);
  const std::string last = make_text(input);
  const long number = make_number(input);
  compare(room, format.c_str(), first.c_str(), static_cast<int>(number),
          static_cast<unsigned>(number), number, static_cast<unsigned long>(number), second.c_str(),
          2.5, static_cast<int>(number), last.c_str());
  return 0;
}
