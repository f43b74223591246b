// What the sources of the debug launch share: the state, the sizes of the fixed areas, the joining
// of words within one of them, the refusal that ends the process, and the program's description.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace orv::debug_launch {

inline constexpr char kBlanks[] = " \t";              // what separates the words of an operation
inline constexpr std::string_view kUsing = "using";   // also what an operation without words means
inline constexpr int kMostProgramArguments = 510;     // looked at in front of the marker
inline constexpr int kMostOperands = 256;             // words after an operation's name
inline constexpr size_t kOperationStringSize = 4096;  // words after the marker, joined
inline constexpr size_t kCommandLineSize = 1024;      // operands of "using", joined
inline constexpr size_t kReplySize = 256;             // line read back after a prompt
inline constexpr size_t kPromptSize = 256;            // value of "ORV_DEBUG_PROMPT"
inline constexpr size_t kProgramArgumentsSize = 4096; // value of "ORV_EXE_PARMS"
inline constexpr size_t kTracedArgumentSize = 32768;  // more than a trace line ever holds
inline constexpr size_t kDistributionPathSize = 4096; // path of the distribution file
inline constexpr size_t kDistributionNameSize = 128;  // its first word

// The state of the debug launch.
struct State {
  char *request;                                 // copy of the latest request of the environment
  char *operation;                               // copy of the latest operation, cut into words
  char distribution_name[kDistributionNameSize]; // what platform_distribution returns
};
extern State state;

// Everything up to the null that ends a list of words.
inline constexpr size_t kWholeList = SIZE_MAX;

// Joins `count` words, or those up to a null if there are fewer, with single blanks. False when
// they do not fit: what the area then holds is of no use.
[[nodiscard]] bool join_words(const char *const *words, size_t count, char *area, size_t size);

// A copy that is never freed; the process ends when there is no storage for it.
char *copy_for_life(const char *text);

// Says on standard error what is wrong with a request and ends the process with status 1.
[[noreturn]] void refuse(std::string_view word, const char *reason);

// Sets the three variables that describe the program to a debugging command. False, with nothing
// set, when the program's arguments do not fit.
[[nodiscard]] bool export_program(const char *program, char *const *args);

// The text, or the empty one for null: a program may be started without even a name.
inline const char *text_or_empty(const char *text) {
  return text == nullptr ? "" : text;
}

} // namespace orv::debug_launch
