// The open descriptors of the process itself, as /proc tells them: for the tests and for the
// companion program alike.
#pragma once

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace pair_test {

// What the descriptor stands for, or "closed".
inline std::string target_of(int fd) {
  std::error_code gone;
  const auto target =
      std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(fd), gone).string();
  return gone ? "closed" : target;
}

// The numbers of the open descriptors, in order.
inline std::vector<int> own_descriptors() {
  std::vector<int> numbers;
  for (const auto &entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    const int fd = atoi(entry.path().filename().c_str());
    if (target_of(fd).find("/fd") == std::string::npos)
      numbers.push_back(fd);
  }
  std::sort(numbers.begin(), numbers.end());
  return numbers;
}

} // namespace pair_test
