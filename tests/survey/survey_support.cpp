// Runs of the survey and of wc.
#include "survey_support.h"

#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <ostream>
#include <regex>
#include <sstream>
#include <unistd.h>

using support::Outcome;

FolderTree::FolderTree() {
  char name[] = "/tmp/survey_test.XXXXXX";
  if (mkdtemp(name) == nullptr)
    abort();
  path = name;
}

FolderTree::~FolderTree() {
  std::error_code ignored;
  std::filesystem::remove_all(path, ignored);
}

void FolderTree::add_file(const std::string &name, const std::string &contents) const {
  // A survey that is watching sees the file whole or not at all.
  const std::string aside = path + ".new";
  std::ofstream(aside, std::ios::binary) << contents;
  std::filesystem::rename(aside, at(name));
}

void FolderTree::add_folder(const std::string &name) const {
  std::filesystem::create_directories(at(name));
}

void FolderTree::add_link(const std::string &name, const std::string &target) const {
  std::filesystem::create_symlink(target, at(name));
}

std::ostream &operator<<(std::ostream &out, const Figures &figures) {
  return out << figures.lines << " lines, " << figures.words << " words, " << figures.bytes
             << " bytes";
}

void become_survey(const std::vector<std::string> &arguments, const Variables &variables,
                   const std::string &program) {
  for (const char *name : {"ORV_DEBUG", "ORV_DIAGNOSTICS_PATH", "ORV_MSGERR_WRAP", "ORV_PERROR",
                           "COLUMNS", "SURVEY_COMPANION_DIES", "SURVEY_PAIR", "SURVEY_PAIR_HYBRID"})
    unsetenv(name);
  for (const auto &[name, value] : variables)
    setenv(name.c_str(), value.c_str(), 1);
  std::vector<std::string> words = arguments;
  words.insert(words.begin(), program);
  std::vector<char *> vector;
  for (std::string &word : words)
    vector.push_back(word.data());
  vector.push_back(nullptr);
  execv(program.c_str(), vector.data());
  _exit(99);
}

Outcome run_survey(const std::vector<std::string> &arguments, const Variables &variables) {
  return support::run_in_child([&] { become_survey(arguments, variables); });
}

Table read_table(const std::string &output) {
  static const std::regex row(" *([0-9]+) +([0-9]+) +([0-9]+)  (.*)");
  Table table;
  std::istringstream lines(output);
  for (std::string line; std::getline(lines, line);) {
    std::smatch match;
    if (!std::regex_match(line, match, row))
      continue;
    const Figures figures = {std::stoull(match[1]), std::stoull(match[2]), std::stoull(match[3])};
    EXPECT_TRUE(table.emplace(match[4], figures).second) << match[4] << " comes twice";
  }
  return table;
}

Figures wc(const std::string &path) {
  const Outcome outcome = support::run_in_child(
      [&] {
        dup2(open(path.c_str(), O_RDONLY), STDIN_FILENO);
        execlp("wc", "wc", "-lwc", static_cast<char *>(nullptr));
        _exit(99);
      },
      {{"LC_ALL", "C"}});
  EXPECT_EQ(outcome.exit_status, 0) << "wc";
  Figures figures = {};
  std::istringstream(outcome.out) >> figures.lines >> figures.words >> figures.bytes;
  return figures;
}

std::string lines_with(const std::string &text, const std::string &part) {
  std::string found;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);)
    if (line.find(part) != std::string::npos)
      found += line + "\n";
  return found;
}

size_t count_of(const std::string &text, const std::string &part) {
  size_t count = 0;
  for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
    count++;
  return count;
}

void SurveyTest::expect_counted(const std::vector<std::pair<std::string, std::string>> &files,
                                const std::string &output) {
  Table expected;
  Figures totals = {};
  for (const auto &[name, printed] : files) {
    const Figures figures = wc(tree.at(name));
    expected[tree.at(printed)] = figures;
    totals.lines += figures.lines;
    totals.words += figures.words;
    totals.bytes += figures.bytes;
  }
  expected["total of " + std::to_string(files.size()) + " file" + (files.size() == 1 ? "" : "s")] =
      totals;
  EXPECT_EQ(read_table(output), expected) << output;
}
