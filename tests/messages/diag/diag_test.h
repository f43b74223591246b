// The fixture of the diagnostic log's tests: an environment without the variables that the log
// reads, a folder to write logs into, and a look at what the streams of MSG_DIAG hold.
#pragma once

#include "support/resources.h"
#include "support/system.h"

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <iterator>
#include <orv/diag.h>
#include <orv/msg.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

class DiagTest : public support::ResourceTest {
protected:
  void SetUp() override {
    for (const char *name : {"ORV_DIAG_DIR", "ORV_DIAGNOSTICS_PATH", "ORV_TMPDIR", "TMP", "TEMP",
                             "ORV_PERROR", "ORV_MSGERR_WRAP"})
      unsetenv(name);
    char name[] = "/tmp/orv-diag-test-XXXXXX";
    folder = mkdtemp(name);
    chmod(folder.c_str(), 0755);
    support::replace_sleep(nullptr);
    ResourceTest::SetUp();
    // The list's first slots stay for the life of the process: not a test's own block.
    const long blocks = support::live_blocks();
    msg_add_stream(MSG_DIAG, stdout);
    msg_clear_streams(MSG_DIAG);
    expect_blocks_left(support::live_blocks() - blocks);
  }

  void TearDown() override {
    close_logs();
    ResourceTest::TearDown();
    std::filesystem::remove_all(folder);
  }

  static const msg_stream_desc &destinations() { return *_msg_get_stream_desc(MSG_DIAG); }

  // Ends the logs that the library opened, which it leaves to the end of the process itself.
  static void close_logs() {
    for (int32_t i = 0; i < destinations().count; i++)
      if (destinations().streams[i] != stdout && destinations().streams[i] != stderr)
        fclose(destinations().streams[i]);
    msg_clear_streams(MSG_DIAG);
  }

  [[nodiscard]] std::string path(const std::string &name) const { return folder + "/" + name; }

  std::string make_folder(const std::string &name) const {
    mkdir(path(name).c_str(), 0755);
    return path(name);
  }

  void write_file(const std::string &name, const std::string &contents) const {
    std::ofstream(path(name)) << contents;
  }

  [[nodiscard]] std::vector<std::string> files() const { return files_in(folder); }

  static std::vector<std::string> files_in(const std::string &directory) {
    std::vector<std::string> names;
    for (const auto &entry : std::filesystem::directory_iterator(directory))
      names.push_back(entry.path().filename().string());
    return names;
  }

  // What the file holds once the streams have written what they keep back.
  static std::string contents_of(const std::string &file) {
    fflush(nullptr);
    std::ifstream stream(file);
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
  }

  // The path with as many slashes in it as give the length.
  static std::string stretched(const std::string &directory, size_t length) {
    return directory + std::string(length - directory.size(), '/');
  }

  std::string folder;
};

// Runs the rest of a forked child as a user who is not root, to whom permissions apply.
inline void become_nobody() {
  if (geteuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0))
    _exit(99);
}
