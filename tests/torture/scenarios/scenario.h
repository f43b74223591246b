// What the scenarios share: each uses a family of the library's calls, while orv-torture refuses
// one call that the library makes, and judges every outcome by what the header says. A scenario
// ends with one of these exit statuses:
//
//   0   every outcome was one that the header allows
//   1   the library ended the process after a sentence on standard error, as the scenario allows
//   2   what the scenario needs for itself was refused, so there was nothing to judge
//   3   an assertion of the library ended the process, one that the scenario allows
//   99  anything else; what it was stands in the report (the file that TORTURE_REPORT names)
#pragma once

#include <cstddef>
#include <cstdio>
#include <initializer_list>
#include <string_view>

namespace scenario {

using Body = void (*)();

struct Scenario {
  std::string_view name;
  Body body;
  // How the library may end the process here: by a sentence, and by these assertions.
  bool sentence_allowed;
  std::string_view assertions_allowed[2];
};

// Of each file of scenarios.
struct Table {
  const Scenario *first;
  size_t count;
};
Table message_scenarios();
Table allocation_scenarios();
Table pair_scenarios();
Table socket_scenarios();
Table file_scenarios();
Table start_scenarios();

// The other side of a pair connection: this program again.
[[noreturn]] void be_companion();
extern const char *const kSelf; // the program's path

// Writes into the report and ends the process with 99.
[[noreturn]] void violated(const char *condition, const char *file, int line);

#define EXPECT(condition)                                                                          \
  ((condition) ? static_cast<void>(0) : scenario::violated(#condition, __FILE__, __LINE__))

// What the scenario needs of the system for itself: where that is refused there is nothing to
// judge, and the process ends with 2.
void need(bool granted);

// Ends this process if it is a copy that the library's call came back in: with a status that is no
// success, which the call may answer by in the first process.
void end_copies();

// Descriptors, children and live bytes at one moment, compared at a later one.
class Level {
public:
  Level();
  void expect_descriptors(int more = 0) const;
  // Within what the header says is left allocated.
  void expect_heap(size_t more_at_most = 0) const;
  static void expect_no_children();

private:
  int descriptors;
  size_t bytes;
};

int open_descriptors();

// A file in memory, and what is in it.
int memory_file(const char *name);
std::string_view contents(int fd);

// The scenario's own folder, made afresh and removed at the end of the process.
const char *folder();
// A path in it; good until the eighth further call.
const char *in_folder(const char *name);
void write_file(const char *path, std::string_view text);
bool exists(const char *path);

} // namespace scenario
