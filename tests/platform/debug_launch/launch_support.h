// What the tests of the debug launch share: a command line to start up with, a folder of their own.
#pragma once

#include "support/child.h"
#include "support/resources.h"
#include "support/system.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <initializer_list>
#include <orv/alloc.h>
#include <orv/diag.h>
#include <orv/msg.h>
#include <orv/platform.h>
#include <string>
#include <vector>

// An argument count and vector of the kind that main is given.
class CommandLine {
public:
  CommandLine(std::initializer_list<std::string> words) : CommandLine(std::vector(words)) {}
  explicit CommandLine(std::vector<std::string> words)
      : texts(std::move(words)), count(static_cast<int>(texts.size())) {
    for (std::string &text : texts)
      vector.push_back(text.data());
    vector.push_back(nullptr);
  }
  char **argv() { return vector.data(); }
  // The arguments without the program's path.
  char **args() { return vector.data() + 1; }
  // The arguments as they now stand, up to the count.
  std::vector<std::string> left() const {
    std::vector<std::string> found;
    for (int i = 0; i < count; i++)
      found.emplace_back(vector[static_cast<size_t>(i)]);
    return found;
  }

private:
  std::vector<std::string> texts;
  std::vector<char *> vector;

public:
  int count;
};

class TemporaryFolder {
public:
  TemporaryFolder() {
    char name[] = "/tmp/launch_test.XXXXXX";
    if (mkdtemp(name) == nullptr)
      abort();
    path = name;
  }
  TemporaryFolder(const TemporaryFolder &) = delete;
  TemporaryFolder &operator=(const TemporaryFolder &) = delete;
  ~TemporaryFolder() { std::filesystem::remove_all(path); }
  std::vector<std::string> names() const {
    std::vector<std::string> found;
    for (const auto &entry : std::filesystem::directory_iterator(path))
      found.push_back(entry.path().filename().string());
    return found;
  }

  std::string path;
};

// The probe as operands can name it, which are taken apart at blanks: the project may lie in a
// folder with one in its name.
inline std::string probe_without_blanks(const TemporaryFolder &folder) {
  const std::string link = folder.path + "/launch_probe";
  std::filesystem::create_symlink(LAUNCH_PROBE, link);
  return link;
}

// The variables that the start-up call reads, none of them set.
inline const support::Environment kNoRequest = {
    {"ORV_DEBUG", nullptr},        {"ORV_DIAGNOSTICS_PATH", nullptr},
    {"ORV_EXE", nullptr},          {"ORV_EXE_PARMS", nullptr},
    {"ORV_DEBUG_PROMPT", nullptr}, {"SHELL", nullptr},
    {"ORV_PERROR", nullptr},       {"ORV_DIST", nullptr},
};

// Runs the body with none of the variables set, its sleeps counted but not slept, and the trace on
// standard output.
inline support::Outcome launch(const std::function<void()> &body, const std::string &input = "") {
  return support::run_in_child(
      [&] {
        support::refuse("sleep", 0);
        msg_add_stream(MSG_DIAG, stdout);
        body();
      },
      kNoRequest, input);
}

// Prints how the program would be described to a debugging command, when the process ends: also
// when a call ends it.
inline void show_exports_at_exit() {
  atexit([] {
    for (const char *name : {"ORV_DEBUG_PROMPT", "ORV_EXE", "ORV_EXE_PARMS"}) {
      const char *value = getenv(name);
      printf("%s=%s\n", name, value == nullptr ? "(unset)" : value);
    }
  });
}
inline constexpr char kNothingExported[] =
    "ORV_DEBUG_PROMPT=(unset)\nORV_EXE=(unset)\nORV_EXE_PARMS=(unset)\n";

inline std::string times(size_t count, const std::string &text) {
  std::string all;
  for (size_t i = 0; i < count; i++)
    all += text;
  return all;
}
