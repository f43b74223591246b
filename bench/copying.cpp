// Files copied: by hand in blocks of 8 KiB, and by the library; a tree by the system's tool,
// started by hand and by the library.
#include "copying.h"
#include "tool.h"

#include <orv/platform.h>

namespace {

bool copy_by_hand(const char *source, const char *destination) {
  const int in = open(source, O_RDONLY);
  const int out = open(destination, O_WRONLY | O_CREAT | O_TRUNC, 0666);
  if (in < 0 || out < 0)
    return false;
  char block[8192];
  ssize_t length;
  while ((length = read(in, block, sizeof block)) > 0)
    if (write(out, block, static_cast<size_t>(length)) != length)
      return false;
  close(in);
  close(out);
  return length == 0;
}

bool copy_through_library(const char *source, const char *destination) {
  return platform_copy_file(source, destination) == 1;
}

bool copy_tree_with_tool(const char *source, const char *destination) {
  return tool::run("/bin/cp", "-a", source, destination);
}

bool copy_tree_through_library(const char *source, const char *destination) {
  return platform_cp_a(source, destination) == 1;
}

template <copying::Copy copy> void copy_tree(const bench::Job &) {
  const std::string source = files::scratch() / "small";
  const std::string destination = files::scratch() / "copies/tree";
  if (!copy(source.c_str(), destination.c_str()))
    bench::die("the copy");
}

using copying::copy_large;
using copying::copy_small;
using copying::make_large;
using copying::make_small;

constexpr bench::Contender kContenders[] = {
    {"raw-large", make_large, copy_large<copy_by_hand>},
    {"orv-large", make_large, copy_large<copy_through_library>},
    {"raw-small", make_small, copy_small<copy_by_hand>},
    {"orv-small", make_small, copy_small<copy_through_library>},
    {"raw-tree", make_small, copy_tree<copy_tree_with_tool>},
    {"orv-tree", make_small, copy_tree<copy_tree_through_library>},
};

} // namespace

int main(int argc, char **argv) {
  return bench::run(argc, argv, kContenders);
}
