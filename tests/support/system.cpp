// The wrapped system calls: counted, and refused where a test has planned so.
#include "support/system.h"

#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <malloc.h>
#include <poll.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

namespace support {
namespace {

struct Call {
  const char *name;
  long made;
  int skip;
  int count; // refusals still to come, -1 for all
  int error;
  size_t last_size;
};

// Fixed storage: the wrapped allocator must not allocate.
Call known[] = {
    {"malloc", 0, 0, 0, 0, 0},     {"realloc", 0, 0, 0, 0, 0}, {"fork", 0, 0, 0, 0, 0},
    {"socketpair", 0, 0, 0, 0, 0}, {"socket", 0, 0, 0, 0, 0},  {"bind", 0, 0, 0, 0, 0},
    {"listen", 0, 0, 0, 0, 0},     {"accept", 0, 0, 0, 0, 0},  {"connect", 0, 0, 0, 0, 0},
    {"select", 0, 0, 0, 0, 0},     {"send", 0, 0, 0, 0, 0},    {"recv", 0, 0, 0, 0, 0},
    {"waitpid", 0, 0, 0, 0, 0},    {"kill", 0, 0, 0, 0, 0},    {"fsync", 0, 0, 0, 0, 0},
    {"fflush", 0, 0, 0, 0, 0},     {"read", 0, 0, 0, 0, 0},    {"vsnprintf", 0, 0, 0, 0, 0},
    {"sleep", 0, 0, 0, 0, 0},      {"poll", 0, 0, 0, 0, 0},    {"close", 0, 0, 0, 0, 0},
    {"fopen", 0, 0, 0, 0, 0},      {"fgets", 0, 0, 0, 0, 0},   {"getlogin", 0, 0, 0, 0, 0},
    {"time", 0, 0, 0, 0, 0},       {"calloc", 0, 0, 0, 0, 0},  {"putenv", 0, 0, 0, 0, 0},
};

Call &call_named(const char *name) {
  for (Call &call : known)
    if (strcmp(call.name, name) == 0)
      return call;
  fprintf(stderr, "%s is not a wrapped call\n", name);
  abort();
}

// Counts the call; true, with errno set, when a test wants it refused.
bool refused(Call &call) {
  call.made++;
  if (call.count == 0)
    return false;
  if (call.skip > 0) {
    call.skip--;
    return false;
  }
  if (call.count > 0)
    call.count--;
  errno = call.error;
  return true;
}

struct Answers {
  char path_opened[8192];
  time_t now; // 0: the true time
  bool login_name_set;
  const char *login_name;
  bool sleep_replaced;
  void (*sleep_action)();
};
Answers answers;

// The live blocks: an open-addressed table of addresses, large enough for any test.
constexpr size_t kSlots = 1U << 20;
uintptr_t slots[kSlots];
constexpr uintptr_t kRemoved = 1;
long live = 0;

size_t slot_of(uintptr_t address) {
  return (address >> 4) * 2654435761U % kSlots;
}

void note_block(void *block) {
  const auto address = reinterpret_cast<uintptr_t>(block);
  if (address == 0)
    return;
  size_t slot = slot_of(address);
  while (slots[slot] > kRemoved)
    slot = (slot + 1) % kSlots;
  slots[slot] = address;
  live++;
}

// A block that was not noted came from elsewhere (the C library's own strdup, say) and is let be.
void forget_block(uintptr_t address) {
  for (size_t slot = slot_of(address); slots[slot] != 0; slot = (slot + 1) % kSlots) {
    if (slots[slot] == address) {
      slots[slot] = kRemoved;
      live--;
      return;
    }
  }
}

// Blocks that were given back and are kept: held here, so that leak checkers find them.
bool keeping = false;
constexpr size_t kMostKept = 4096;
void *kept[kMostKept];
size_t kept_count = 0;

void keep_block(void *block) {
  if (kept_count == kMostKept) {
    fprintf(stderr, "no room to keep another freed block\n");
    abort();
  }
  kept[kept_count++] = block;
}

} // namespace

void refuse(const char *name, int error, int skip, int count) {
  Call &call = call_named(name);
  call.error = error;
  call.skip = skip;
  call.count = count;
}

void refuse_nothing() {
  for (Call &call : known)
    call.count = 0;
  answers = {};
}

long calls(const char *name) {
  return call_named(name).made;
}
size_t last_size(const char *name) {
  return call_named(name).last_size;
}
long live_blocks() {
  return live;
}
void keep_freed_blocks() {
  keeping = true;
}
const char *last_path_opened() {
  return answers.path_opened;
}
void set_time(time_t now) {
  answers.now = now;
}
void set_login_name(const char *name) {
  answers.login_name_set = true;
  answers.login_name = name;
}
void replace_sleep(void (*action)()) {
  answers.sleep_replaced = true;
  answers.sleep_action = action;
}

} // namespace support

using support::answers;
using support::call_named;
using support::refused;

extern "C" {

void *__real_malloc(size_t size);
void *__real_calloc(size_t count, size_t size);
void *__real_realloc(void *block, size_t size);
void __real_free(void *block);

void *__wrap_malloc(size_t size) {
  static support::Call &call = call_named("malloc");
  call.last_size = size;
  if (refused(call))
    return nullptr;
  void *block = __real_malloc(size);
  support::note_block(block);
  return block;
}

void *__wrap_calloc(size_t count, size_t size) {
  static support::Call &call = call_named("calloc");
  call.last_size = count * size;
  if (refused(call))
    return nullptr;
  void *block = __real_calloc(count, size);
  support::note_block(block);
  return block;
}

// What realloc does when the old block must stay as it is.
static void *move_to_new_block(void *block, size_t size) {
  void *moved = __real_malloc(size);
  if (moved == nullptr || block == nullptr)
    return moved;
  memset(moved, support::kBytesOfMovedBlocks, size);
  const size_t old_size = malloc_usable_size(block);
  memcpy(moved, block, old_size < size ? old_size : size);
  support::keep_block(block);
  return moved;
}

void *__wrap_realloc(void *block, size_t size) {
  static support::Call &call = call_named("realloc");
  call.last_size = size;
  if (refused(call))
    return nullptr;
  const auto old_address = reinterpret_cast<uintptr_t>(block);
  void *moved = support::keeping ? move_to_new_block(block, size) : __real_realloc(block, size);
  if (moved != nullptr) {
    support::forget_block(old_address);
    support::note_block(moved);
  }
  return moved;
}

void __wrap_free(void *block) {
  if (block != nullptr)
    support::forget_block(reinterpret_cast<uintptr_t>(block));
  if (support::keeping && block != nullptr)
    support::keep_block(block);
  else
    __real_free(block);
}

// A call whose refusal is -1 with errno set.
#define WRAP(result, name, parameters, arguments)                                                  \
  result __real_##name parameters;                                                                 \
  result __wrap_##name parameters {                                                                \
    static support::Call &call = call_named(#name);                                                \
    if (refused(call))                                                                             \
      return -1;                                                                                   \
    return __real_##name arguments;                                                                \
  }

WRAP(pid_t, fork, (void), ())
WRAP(int, socketpair, (int domain, int type, int protocol, int *fds), (domain, type, protocol, fds))
WRAP(int, socket, (int domain, int type, int protocol), (domain, type, protocol))
WRAP(int, bind, (int fd, const sockaddr *address, socklen_t length), (fd, address, length))
WRAP(int, listen, (int fd, int backlog), (fd, backlog))
WRAP(int, accept, (int fd, sockaddr *address, socklen_t *length), (fd, address, length))
WRAP(int, connect, (int fd, const sockaddr *address, socklen_t length), (fd, address, length))
WRAP(ssize_t, send, (int fd, const void *bytes, size_t length, int flags),
     (fd, bytes, length, flags))
WRAP(ssize_t, recv, (int fd, void *buffer, size_t length, int flags), (fd, buffer, length, flags))
WRAP(pid_t, waitpid, (pid_t pid, int *status, int options), (pid, status, options))
WRAP(int, kill, (pid_t pid, int signal), (pid, signal))
WRAP(int, fflush, (FILE * stream), (stream))
WRAP(ssize_t, read, (int fd, void *buffer, size_t length), (fd, buffer, length))
WRAP(int, vsnprintf, (char *buffer, size_t size, const char *format, va_list args),
     (buffer, size, format, args))
// What a build with checks of the C library calls instead.
int __real___vsnprintf_chk(char *buffer, size_t size, int flag, size_t room, const char *format,
                           va_list args);
int __wrap___vsnprintf_chk(char *buffer, size_t size, int flag, size_t room, const char *format,
                           va_list args) {
  static support::Call &call = call_named("vsnprintf");
  if (refused(call))
    return -1;
  return __real___vsnprintf_chk(buffer, size, flag, room, format, args);
}

WRAP(int, poll, (pollfd * fds, nfds_t count, int limit), (fds, count, limit))
WRAP(int, close, (int fd), (fd))
WRAP(int, putenv, (char *assignment), (assignment))

int __real_fsync(int fd);
int __wrap_fsync(int fd) {
  static support::Call &call = call_named("fsync");
  call.last_size = static_cast<size_t>(fd);
  return refused(call) ? -1 : __real_fsync(fd);
}

FILE *__real_fopen(const char *path, const char *mode);
FILE *__wrap_fopen(const char *path, const char *mode) {
  static support::Call &call = call_named("fopen");
  snprintf(answers.path_opened, sizeof answers.path_opened, "%s", path);
  return refused(call) ? nullptr : __real_fopen(path, mode);
}

char *__real_fgets(char *line, int size, FILE *stream);
char *__wrap_fgets(char *line, int size, FILE *stream) {
  static support::Call &call = call_named("fgets");
  return refused(call) ? nullptr : __real_fgets(line, size, stream);
}

char *__real_getlogin(void);
char *__wrap_getlogin(void) {
  static support::Call &call = call_named("getlogin");
  if (refused(call))
    return nullptr;
  return answers.login_name_set ? const_cast<char *>(answers.login_name) : __real_getlogin();
}

time_t __real_time(time_t *result);
time_t __wrap_time(time_t *result) {
  static support::Call &call = call_named("time");
  call.made++;
  if (answers.now == 0)
    return __real_time(result);
  if (result != nullptr)
    *result = answers.now;
  return answers.now;
}

int __real_select(int width, fd_set *reads, fd_set *writes, fd_set *errors, timeval *limit);
// The size of a select is its time-out in microseconds.
int __wrap_select(int width, fd_set *reads, fd_set *writes, fd_set *errors, timeval *limit) {
  static support::Call &call = call_named("select");
  if (limit != nullptr)
    call.last_size = static_cast<size_t>(limit->tv_sec * 1000000 + limit->tv_usec);
  if (refused(call))
    return -1;
  return __real_select(width, reads, writes, errors, limit);
}

unsigned __real_sleep(unsigned seconds);
// A refused sleep returns at once, as if nothing were left to sleep.
unsigned __wrap_sleep(unsigned seconds) {
  static support::Call &call = call_named("sleep");
  call.last_size = seconds;
  if (refused(call))
    return 0;
  if (!answers.sleep_replaced)
    return __real_sleep(seconds);
  if (answers.sleep_action != nullptr)
    answers.sleep_action();
  return 0;
}

} // extern "C"
