// What survey and its companion say to each other over their pair: framed messages of lines.
//
//   count, NUMBER, PATH                     count this file; the path is escaped
//   counted, NUMBER, COUNTS, SIGNATURE      lines, words and bytes; the fields of the signature
//   failed, NUMBER, ERROR                   the errno value of what failed
//   end                                     report and end
//
// The companion answers in the order of the requests.
#pragma once

#include "survey.h"

namespace survey {

inline constexpr char kPairVariable[] = "SURVEY_PAIR"; // tells the companion where its pair is
inline constexpr char kCompanionOption[] = "--companion";

inline constexpr char kCount[] = "count";
inline constexpr char kCounted[] = "counted";
inline constexpr char kFailed[] = "failed";
inline constexpr char kEnd[] = "end";

// Bytes of a message buffer: more than the longest message, an escaped path of 4096 bytes, and what
// is received at once.
inline constexpr int kMessageBuffer = 65536;

// A line of numbers: nine of at most 20 digits, with blanks.
struct NumbersLine {
  char text[200];
};

NumbersLine write_number(uint64_t number);
NumbersLine write_counts(const Counts &counts);
NumbersLine write_signature(const platform_file_sig_t &signature);

// False for a line that the matching call did not write.
bool read_number(const char *line, uint64_t &number);
bool read_counts(const char *line, Counts &counts);
bool read_signature(const char *line, platform_file_sig_t &signature);

} // namespace survey
