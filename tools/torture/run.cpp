// One run of the program under the layer: the record that both share, the start, the time limit,
// and the end of whatever the program leaves running.
#include "run.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace torture {
namespace {

[[noreturn]] void give_up_because(const char *what, const char *reason) {
  fprintf(stderr, "orv-torture: %s: %s\n", what, reason);
  exit(kCannotRun);
}

// For the reason that errno tells.
[[noreturn]] void give_up(const char *what) {
  give_up_because(what, strerror(errno));
}

// A path by which every process below this one reaches the file behind a descriptor.
void write_path_of(int fd, char *path, size_t size) {
  snprintf(path, size, "/proc/%d/fd/%d", getpid(), fd);
}

// The layer lies where this program does, or where the installation puts it.
bool find_layer(char *path, size_t size) {
  char self[PATH_MAX];
  const ssize_t length = readlink("/proc/self/exe", self, sizeof self - 1);
  if (length < 0)
    return false;
  self[length] = '\0';
  char *slash = strrchr(self, '/');
  *slash = '\0';
  for (const char *folder : {"", "/" ORV_TORTURE_LAYER_FOLDER}) {
    const int needed = snprintf(path, size, "%s%s/liborv-torture.so", self, folder);
    if (needed < 0 || static_cast<size_t>(needed) >= size)
      errno = ENAMETOOLONG;
    else if (access(path, R_OK) == 0)
      return true;
  }
  return false;
}

// The loader separates paths by blanks and colons. A path that holds one is given in another form.
void make_loadable(char *path, size_t size) {
  if (strpbrk(path, " :\t\n") == nullptr)
    return;
  const int fd = open(path, O_RDONLY | O_CLOEXEC);
  if (fd < 0)
    give_up(path);
  write_path_of(fd, path, size);
}

// In front of what is preloaded already.
void preload(const char *layer) {
  const char *others = getenv("LD_PRELOAD");
  char list[2 * PATH_MAX];
  const int length = snprintf(list, sizeof list, "%s%s%s", layer, others == nullptr ? "" : ":",
                              others == nullptr ? "" : others);
  if (length < 0 || static_cast<size_t>(length) >= sizeof list)
    give_up_because("LD_PRELOAD", "too long");
  setenv("LD_PRELOAD", list, 1);
}

void take_null_device() {
  const int fd = open("/dev/null", O_RDWR);
  for (int number = 0; number < 3; number++)
    dup2(fd, number);
  if (fd > 2)
    close(fd);
}

[[noreturn]] void become_program(const Options &options, bool alone, Record *record) {
  record->first_process = getpid();
  prctl(PR_SET_PDEATHSIG, SIGKILL); // a run does not outlive its launcher
  if (alone) {
    setpgid(0, 0);
    take_null_device();
  }
  execvp(options.program[0], options.program);
  record->first_process = -errno;
  _exit(kCannotRun);
}

// False when the time was over first.
bool ends_in_time(pid_t process, double seconds) {
  if (seconds <= 0)
    return true;
  const int fd = static_cast<int>(syscall(SYS_pidfd_open, process, 0));
  if (fd < 0)
    give_up("pidfd_open");
  pollfd entry = {.fd = fd, .events = POLLIN, .revents = 0};
  int ready = -1;
  while (ready < 0) // a signal begins the wait anew
    ready = poll(&entry, 1, static_cast<int>(seconds * 1000));
  close(fd);
  return ready != 0;
}

// False where the system has no list of a process's children.
bool kill_children() {
  char path[64];
  snprintf(path, sizeof path, "/proc/self/task/%d/children", getpid());
  FILE *children = fopen(path, "re");
  if (children == nullptr)
    return false;
  int child = 0;
  while (fscanf(children, "%d", &child) == 1)
    kill(child, SIGKILL);
  fclose(children);
  return true;
}

// Processes that lose their parent come to this one, so everything below it can be found. Without a
// list of them what is still in the group of the run is ended, and nobody is waited for who may not
// be.
void end_what_is_left(pid_t group) {
  bool all_killed;
  do {
    all_killed = kill_children();
    if (!all_killed)
      kill(-group, SIGKILL);
  } while (waitpid(-1, nullptr, all_killed ? 0 : WNOHANG) > 0);
}

} // namespace

Record *set_up() {
  char path[PATH_MAX];
  if (!find_layer(path, sizeof path))
    give_up("liborv-torture.so");
  make_loadable(path, sizeof path);
  preload(path);
  const int fd = memfd_create("orv-torture", MFD_CLOEXEC);
  if (fd < 0)
    give_up("memfd_create");
  if (ftruncate(fd, sizeof(Record)) != 0)
    give_up("ftruncate");
  write_path_of(fd, path, sizeof path);
  setenv(kRecordVariable, path, 1);
  void *mapped = mmap(nullptr, sizeof(Record), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  if (mapped == MAP_FAILED)
    give_up("mmap");
  return static_cast<Record *>(mapped);
}

End run_once(const Options &options, const Order &order, bool alone, Record *record) {
  memset(static_cast<void *>(record), 0, sizeof *record);
  record->order = order;
  if (alone)
    prctl(PR_SET_CHILD_SUBREAPER, 1);
  const pid_t process = fork();
  if (process < 0)
    give_up("fork");
  if (process == 0)
    become_program(options, alone, record);
  End end = {.status = 0, .hung = false};
  if (!ends_in_time(process, options.limit)) {
    end.hung = true;
    kill(process, SIGKILL); // it may have gone to another group
    if (alone)
      kill(-process, SIGKILL);
  }
  if (waitpid(process, &end.status, 0) < 0)
    give_up("waitpid");
  if (alone)
    end_what_is_left(process);
  if (record->first_process < 0) {
    errno = -record->first_process;
    give_up(options.program[0]);
  }
  if (!record->was_loaded) {
    fprintf(stderr,
            "orv-torture: %s: the layer was not loaded: is the program linked statically?\n",
            options.program[0]);
    exit(kCannotRun);
  }
  return end;
}

} // namespace torture
