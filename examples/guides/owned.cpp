// Owned: blocks of the library owned as C++ owns things.
#include <cstdlib>
#include <cstring>
#include <memory>
#include <orv/alloc.h>
#include <orv/msg.h>
#include <orv/platform.h>

namespace {

struct Release {
  void operator()(void *block) const { orv_free(block); }
};
template <class T> using Owned = std::unique_ptr<T, Release>;

Owned<char> base_name(const char *path) {
  return Owned<char>(platform_base_name(path, nullptr)); // a new block: the caller's
}

} // namespace

int main(int argc, char **argv) {
  platform_init_args(&argc, argv);
  orv_enable_malloc_debug(ORV_MALLOC_CHECK_PTR);
  for (int i = 1; i < argc; i++) {
    const Owned<char> name = base_name(argv[i]);
    msg_print("%s is %zu characters long.", name.get(), std::strlen(name.get()));
  }
  orv_malloc_debug_report(1);
  return EXIT_SUCCESS;
}
