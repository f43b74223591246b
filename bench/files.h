// What the benchmarks of files share: a folder in memory that is gone when the program ends, and
// files to fill it with.
#pragma once

#include "bench.h"

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace files {

class Scratch {
public:
  Scratch() {
    char pattern[] = "/dev/shm/bench.XXXXXX";
    if (mkdtemp(pattern) == nullptr)
      bench::die(pattern);
    path_ = pattern;
  }
  Scratch(const Scratch &) = delete;
  Scratch &operator=(const Scratch &) = delete;
  ~Scratch() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  // The path of a name in the folder.
  [[nodiscard]] std::string operator/(const std::string &name) const { return path_ + "/" + name; }

private:
  std::string path_;
};

inline const Scratch &scratch() {
  static const Scratch folder;
  return folder;
}

inline void write_file(const std::string &path, size_t size) {
  const std::string content(size, 'x');
  const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
  if (file < 0 || write(file, content.data(), size) != static_cast<ssize_t>(size))
    bench::die(path.c_str());
  close(file);
}

inline void make_folder(const std::string &path) {
  if (mkdir(path.c_str(), 0777) != 0)
    bench::die(path.c_str());
}

// Files of a folder, with names that sort as they are numbered.
inline std::string name_of(long number) {
  char name[32];
  snprintf(name, sizeof name, "file%07ld", number);
  return name;
}

inline void fill_folder(const std::string &path, long count, size_t size) {
  make_folder(path);
  for (long i = 0; i < count; i++)
    write_file(path + "/" + name_of(i), size);
}

} // namespace files
