// The verdict on a call: whether it counts, which number it has, and whether it is the one that is
// to be refused. Nothing in here calls what the layer stands in front of.
#include "layer.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace torture {
namespace {

enum class Stage { untouched, preparing, ready };

struct State {
  std::atomic<Stage> stage; // calls that are made while the layer prepares itself are let through
  Record *record;           // null where no launcher stands behind this process
};
constinit State state = {.stage = Stage::untouched, .record = nullptr};

Record *map_record() {
  const char *path = getenv(kRecordVariable);
  if (path == nullptr)
    return nullptr;
  const long fd = syscall(SYS_open, path, O_RDWR | O_CLOEXEC, 0);
  if (fd < 0)
    return nullptr;
  void *mapped =
      mmap(nullptr, sizeof(Record), PROT_READ | PROT_WRITE, MAP_SHARED, static_cast<int>(fd), 0);
  syscall(SYS_close, fd);
  return mapped == MAP_FAILED ? nullptr : static_cast<Record *>(mapped);
}

// Everything is looked for at once: a search takes locks and storage, which no signal handler and
// no forked child may do.
void prepare() {
  state.stage = Stage::preparing;
  const int error = errno;
  for (Next *next = &first_next; next < &end_of_next; next++)
    next->address = dlsym(RTLD_NEXT, next->name);
  state.record = map_record();
  if (state.record != nullptr)
    state.record->was_loaded = true;
  errno = error;
  state.stage = Stage::ready;
}

// Before the C library has been set up there is no environment to look into.
bool is_ready() {
  if (state.stage == Stage::untouched && environ != nullptr)
    prepare();
  return state.stage == Stage::ready;
}

[[gnu::constructor]] void prepare_at_start() {
  static_cast<void>(is_ready());
}

// The C library may hold an id of the process before a fork; the system does not.
int this_process() {
  return static_cast<int>(syscall(SYS_getpid));
}

const char *base_name(const char *path) {
  const char *slash = strrchr(path, '/');
  return slash == nullptr ? path : slash + 1;
}

// The object that the address belongs to. The program itself has no name for the loader.
struct Place {
  const char *object;
  uint64_t offset;
};

Place place_of(const void *address) {
  dl_find_object found;
  if (_dl_find_object(const_cast<void *>(address), &found) != 0)
    return {.object = "?", .offset = reinterpret_cast<uint64_t>(address)};
  const char *name = found.dlfo_link_map->l_name;
  return {.object = *name == '\0' ? program_invocation_short_name : base_name(name),
          .offset = reinterpret_cast<uint64_t>(address) - found.dlfo_link_map->l_addr};
}

bool is_made_from_chosen_object(const Order &order, const void *return_address) {
  if (order.object_count == 0)
    return true;
  const char *object = place_of(return_address).object;
  for (size_t i = 0; i < order.object_count; i++)
    if (strcmp(order.objects[i], object) == 0)
      return true;
  return false;
}

void note_first_refusal(Refusal &refusal, const char *call, const void *return_address) {
  const Place place = place_of(return_address);
  strncpy(refusal.call, call, sizeof refusal.call - 1);
  strncpy(refusal.object, place.object, sizeof refusal.object - 1);
  refusal.offset = place.offset;
  refusal.process = this_process();
}

} // namespace

Record *record() {
  return is_ready() ? state.record : nullptr;
}

void *find(Next &next) {
  if (next.address == nullptr)
    next.address = dlsym(RTLD_NEXT, next.name);
  return next.address;
}

Verdict judge(Kind kind, const char *call, const void *return_address) {
  Record *const shared = record();
  if (shared == nullptr)
    return {};
  const Order &order = shared->order;
  if (!order.children && this_process() != shared->first_process)
    return {};
  if (!is_made_from_chosen_object(order, return_address))
    return {};
  const uint64_t number = ++shared->calls[static_cast<size_t>(kind)];
  const bool chosen = order.refuses && kind == order.kind &&
                      (order.onward ? number >= order.number : number == order.number);
  if (!chosen)
    return {};
  if (shared->refused++ == 0)
    note_first_refusal(shared->first_refusal, call, return_address);
  if (order.way == kShort)
    return {.error = 0, .cut = true};
  errno = order.way;
  return {.error = order.way, .cut = false};
}

} // namespace torture
