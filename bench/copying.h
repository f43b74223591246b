// The works of copying, whoever copies: one large file, or many small ones.
#pragma once

#include "files.h"

namespace copying {

constexpr size_t kLargeSize = 64 << 20;
constexpr size_t kSmallSize = 1 << 10;

inline void make_large(const bench::Job &) {
  files::write_file(files::scratch() / "large", kLargeSize);
}

inline void make_small(const bench::Job &job) {
  files::fill_folder(files::scratch() / "small", job.count, kSmallSize);
  files::make_folder(files::scratch() / "copies");
}

using Copy = bool (*)(const char *source, const char *destination);

template <Copy copy> void copy_large(const bench::Job &job) {
  const std::string source = files::scratch() / "large";
  const std::string destination = files::scratch() / "copy";
  for (long i = 0; i < job.count; i++)
    if (!copy(source.c_str(), destination.c_str()))
      bench::die("the copy");
}

template <Copy copy> void copy_small(const bench::Job &job) {
  const std::string source = files::scratch() / "small/";
  const std::string destination = files::scratch() / "copies/";
  for (long i = 0; i < job.count; i++)
    if (!copy((source + files::name_of(i)).c_str(), (destination + files::name_of(i)).c_str()))
      bench::die("the copy");
}

} // namespace copying
