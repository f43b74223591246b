// What a test holds: descriptors from /proc, children from waitpid, blocks from the wrapped
// allocator.
#include "support/resources.h"
#include "support/system.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <orv/msg.h>
#include <sys/wait.h>

namespace support {
namespace {

std::vector<std::string> open_descriptors() {
  std::vector<std::string> found;
  for (const auto &entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code gone;
    const auto target = std::filesystem::read_symlink(entry.path(), gone);
    if (!gone && target.string().find("/fd") == std::string::npos)
      found.push_back(entry.path().filename().string() + " -> " + target.string());
  }
  std::sort(found.begin(), found.end());
  return found;
}

std::string listed(const std::vector<std::string> &lines) {
  std::string text;
  for (const std::string &line : lines)
    text += "  " + line + "\n";
  return text;
}

} // namespace

void ResourceTest::SetUp() {
  msg_has_print_streams(); // the stream tables are set up once and kept: not a test's own blocks
  descriptors_before = open_descriptors();
  blocks_before = live_blocks();
}

void ResourceTest::TearDown() {
  refuse_nothing();
  const auto descriptors_after = open_descriptors();
  EXPECT_EQ(descriptors_before.size() + static_cast<size_t>(descriptors_left_on_purpose),
            descriptors_after.size())
      << "before:\n"
      << listed(descriptors_before) << "after:\n"
      << listed(descriptors_after);
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a child process is left";
  EXPECT_EQ(blocks_before + blocks_left_on_purpose, live_blocks()) << "blocks are left";
}

} // namespace support
