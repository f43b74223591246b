// What the sources of the file control share: how a null path is read and how a status is taken.
#pragma once

#include <sys/stat.h>

namespace orv::file_control {

// A null path counts as the empty one, which the system refuses like any name of no file.
[[nodiscard]] inline const char *or_empty(const char *path) {
  return path != nullptr ? path : "";
}

// Takes the status of the file that the path leads to, links followed.
[[nodiscard]] inline bool read_status(const char *path, struct stat &status) {
  return stat(or_empty(path), &status) == 0;
}

} // namespace orv::file_control
