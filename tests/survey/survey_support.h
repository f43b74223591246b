// What the tests of the survey share: a folder tree of their own, runs of the program, and what wc
// says.
#pragma once

#include "support/child.h"
#include "support/resources.h"

#include <cstdint>
#include <gmock/gmock.h>
#include <map>
#include <string>
#include <sys/types.h>
#include <utility>
#include <vector>

// A folder that is removed with everything in it.
class FolderTree {
public:
  FolderTree();
  FolderTree(const FolderTree &) = delete;
  FolderTree &operator=(const FolderTree &) = delete;
  ~FolderTree();
  std::string at(const std::string &name) const { return path + "/" + name; }
  void add_file(const std::string &name, const std::string &contents) const;
  void add_folder(const std::string &name) const;
  void add_link(const std::string &name, const std::string &target) const;

  std::string path;
};

struct Figures {
  uint64_t lines;
  uint64_t words;
  uint64_t bytes;
  bool operator==(const Figures &other) const = default;
};
std::ostream &operator<<(std::ostream &out, const Figures &figures);

// The rows of a table by their names as they were printed, the totals among them.
using Table = std::map<std::string, Figures>;

using Variables = std::vector<std::pair<std::string, std::string>>;

// Becomes the survey with these arguments. To be called in a child process.
[[noreturn]] void become_survey(const std::vector<std::string> &arguments,
                                const Variables &variables = {},
                                const std::string &program = SURVEY);

support::Outcome run_survey(const std::vector<std::string> &arguments,
                            const Variables &variables = {});

// Reads the rows of the table; fails the test when a name comes twice.
Table read_table(const std::string &output);

// What wc counts in a file, in the C locale.
Figures wc(const std::string &path);

std::string lines_with(const std::string &text, const std::string &part);
size_t count_of(const std::string &text, const std::string &part);

inline constexpr char kNothingLeft[] = "\norv_malloc_debug_report: No storage was allocated\n";

class SurveyTest : public support::ResourceTest {
protected:
  // Counts the tree and compares every row and the totals with wc. `files` are the names as they
  // are in the tree, each with the name that is to be printed.
  void expect_counted(const std::vector<std::pair<std::string, std::string>> &files,
                      const std::string &output);
  FolderTree tree;
};
