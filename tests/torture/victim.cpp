// What orv-torture is tried on: makes one call and tells how it ended, or behaves as badly as a
// program can that does not reckon with a refusal. Linked dynamically, and without the library.
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <glob.h>
#include <iterator>
#include <netdb.h>
#include <poll.h>
#include <spawn.h>
#include <string_view>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

volatile int no_descriptor = -1;
void *block = nullptr;

struct Call {
  std::string_view name;
  bool (*fails)();
};

pid_t start_nothing() {
  const pid_t pid = fork();
  if (pid == 0)
    _exit(0);
  return pid;
}

// The program itself, as its own child.
const char *const itself[] = {"/proc/self/exe", "nothing", nullptr};
char *const *const vector = const_cast<char *const *>(itself);

int spawn(decltype(&posix_spawn) call) {
  pid_t pid = 0;
  errno = call(&pid, itself[0], nullptr, nullptr, vector, environ);
  return errno;
}

// An empty select ends at once.
timeval no_time = {.tv_sec = 0, .tv_usec = 0};
char area[5000];
char variable[] = "VICTIM=1";
FILE *null_device() {
  static FILE *stream = fopen("/dev/null", "r+");
  return stream;
}
// A descriptor on which 100 bytes can be read and written.
int ends[2];
int filled_pipe() {
  if (pipe(ends) != 0 || write(ends[1], area, 100) != 100)
    abort();
  return ends[0];
}
int filled_socket() {
  if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0 || write(ends[1], area, 100) != 100)
    abort();
  return ends[0];
}

int look_up() {
  addrinfo *found = nullptr;
  errno = 0;
  const int error = getaddrinfo("127.0.0.1", "80", nullptr, &found);
  printf("%s ", error == 0 ? "found" : gai_strerror(error));
  return error;
}

// Calls with valid arguments, which succeed when nobody refuses them; those on no descriptor are
// told by another error number.
constexpr Call kCalls[] = {
    {"malloc", [] { return (block = malloc(10)) == nullptr; }},
    {"calloc", [] { return (block = calloc(10, 10)) == nullptr; }},
    {"realloc", [] { return (block = realloc(block, 10)) == nullptr; }},
    {"fork", [] { return start_nothing() < 0; }},
    {"posix_spawn", [] { return spawn(posix_spawn) != 0; }},
    {"posix_spawnp", [] { return spawn(posix_spawnp) != 0; }},
    {"execve", [] { return execve(itself[0], vector, environ) != 0; }},
    {"execv", [] { return execv(itself[0], vector) != 0; }},
    {"execvp", [] { return execvp(itself[0], vector) != 0; }},
    {"execvpe", [] { return execvpe(itself[0], vector, environ) != 0; }},
    {"execl", [] { return execl(itself[0], "victim", "nothing", nullptr) != 0; }},
    {"execlp", [] { return execlp(itself[0], "victim", "nothing", nullptr) != 0; }},
    {"waitpid", [] { return waitpid(start_nothing(), nullptr, 0) < 0; }},
    {"wait", [] { return start_nothing() < 0 || wait(nullptr) < 0; }},
    {"wait4", [] { return wait4(start_nothing(), nullptr, 0, nullptr) < 0; }},
    {"kill", [] { return kill(getpid(), 0) != 0; }},
    {"killpg", [] { return killpg(getpgrp(), 0) != 0; }},
    {"socketpair", [] { return socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0; }},
    {"socket", [] { return socket(AF_UNIX, SOCK_STREAM, 0) < 0; }},
    {"setsockopt", [] { return setsockopt(no_descriptor, 0, 0, nullptr, 0) != 0; }},
    {"bind", [] { return bind(no_descriptor, nullptr, 0) != 0; }},
    {"listen", [] { return listen(no_descriptor, 1) != 0; }},
    {"accept", [] { return accept(no_descriptor, nullptr, nullptr) < 0; }},
    {"accept4", [] { return accept4(no_descriptor, nullptr, nullptr, 0) < 0; }},
    {"connect", [] { return connect(no_descriptor, nullptr, 0) != 0; }},
    {"select", [] { return select(0, nullptr, nullptr, nullptr, &no_time) < 0; }},
    {"poll", [] { return poll(nullptr, 0, 0) < 0; }},
    {"send", [] { return send(filled_socket(), area, 100, 0) != 100; }},
    {"sendto", [] { return sendto(filled_socket(), area, 100, 0, nullptr, 0) != 100; }},
    {"recv", [] { return recv(filled_socket(), area, 100, 0) != 100; }},
    {"recvfrom", [] { return recvfrom(filled_socket(), area, 100, 0, nullptr, nullptr) != 100; }},
    {"open", [] { return open("/dev/null", O_RDONLY) < 0; }},
    {"open64", [] { return open64("/dev/null", O_RDONLY) < 0; }},
    {"openat", [] { return openat(AT_FDCWD, "/dev/null", O_RDONLY) < 0; }},
    {"opendir", [] { return opendir("/") == nullptr; }},
    {"fopen", [] { return fopen("/dev/null", "r") == nullptr; }},
    {"fdopen", [] { return fdopen(dup(0), "r") == nullptr; }},
    {"read", [] { return read(filled_pipe(), area, 100) != 100; }},
    {"write", [] { return filled_pipe() < 0 || write(ends[1], area, 100) != 100; }},
    {"fgets", [] { return fgets(area, 100, null_device()) == nullptr && ferror(null_device()); }},
    {"fwrite", [] { return fwrite(area, 1, 10, null_device()) != 10 && ferror(null_device()); }},
    {"fputs", [] { return fputs("text", null_device()) == EOF && ferror(null_device()); }},
    {"fputc", [] { return fputc('c', null_device()) == EOF && ferror(null_device()); }},
    {"fflush", [] { return fflush(null_device()) == EOF; }},
    {"fsync", [] { return fsync(no_descriptor) != 0; }},
    {"fdatasync", [] { return fdatasync(no_descriptor) != 0; }},
    {"fcntl", [] { return fcntl(0, F_GETFD) < 0; }},
    {"fcntl64", [] { return fcntl64(0, F_GETFD) < 0; }},
    {"dup", [] { return dup(0) < 0; }},
    {"dup2", [] { return dup2(0, 9) < 0; }},
    {"access", [] { return access("/", R_OK) != 0; }},
    {"stat",
     [] {
       struct stat status;
       return stat("/", &status) != 0;
     }},
    {"lstat",
     [] {
       struct stat status;
       return lstat("/", &status) != 0;
     }},
    {"fstat",
     [] {
       struct stat status;
       return fstat(0, &status) != 0;
     }},
    {"stat64",
     [] {
       struct stat64 status;
       return stat64("/", &status) != 0;
     }},
    {"fstatat",
     [] {
       struct stat status;
       return fstatat(AT_FDCWD, "/", &status, 0) != 0;
     }},
    {"statvfs",
     [] {
       struct statvfs space;
       return statvfs("/", &space) != 0;
     }},
    {"getcwd", [] { return getcwd(area, sizeof area) == nullptr; }},
    {"chdir", [] { return chdir(".") != 0; }},
    {"realpath", [] { return realpath("/", area) == nullptr; }},
    {"mkdir", [] { return mkdir("/", 0) != 0; }},
    {"rename", [] { return rename("", "") != 0; }},
    {"remove", [] { return remove("") != 0; }},
    {"unlink", [] { return unlink("") != 0; }},
    {"rmdir", [] { return rmdir("") != 0; }},
    {"glob",
     [] {
       glob_t found;
       return glob("/*", 0, nullptr, &found) == GLOB_NOSPACE;
     }},
    {"getaddrinfo", [] { return look_up() != 0; }},
    {"putenv", [] { return putenv(variable) != 0; }},
    {"setenv", [] { return setenv("VICTIM", "1", 1) != 0; }},
};

[[noreturn]] void make_call(const Call &call) {
  errno = 0;
  const bool failed = call.fails();
  const int error = errno;
  printf("%s\n", !failed ? "passed" : error == 0 ? "0" : strerrorname_np(error));
  exit(0);
}

// The first refusal is borne, the second is not.
void trust_the_second_block() {
  if ((block = malloc(10)) == nullptr)
    exit(3);
  block = malloc(10);
  static_cast<char volatile *>(block)[0] = 'a';
}

void make_ten_calls() {
  for (int i = 0; i < 10; i++)
    kill(getpid(), 0);
}

void wait_for_ever_without_a_file() {
  while (fopen("/dev/null", "r") == nullptr)
    pause();
}

void forget_to_close() {
  const int fd = open("/dev/null", O_WRONLY);
  if (fsync(fd) != 0 && errno == EIO)
    return;
  close(fd);
}

void forget_a_child() {
  waitpid(start_nothing(), nullptr, 0);
}

// The child makes no call that could be refused.
void leave_a_child_running() {
  if (fork() == 0)
    for (;;)
      pause();
  kill(getpid(), 0);
}

void end_badly_in_a_child() {
  int status = 0;
  const pid_t pid = fork();
  if (pid == 0)
    _exit((block = malloc(10)) == nullptr ? 7 : 0);
  waitpid(pid, &status, 0);
  exit(WEXITSTATUS(status));
}

void read_in_a_signal_handler() {
  signal(SIGUSR1, [](int) {
    char byte;
    if (read(ends[0], &byte, 1) < 0)
      _exit(errno == EIO ? 5 : 6);
  });
  filled_pipe();
  raise(SIGUSR1);
}

constexpr struct {
  std::string_view name;
  void (*behave)();
} kBehaviours[] = {
    {"nothing", [] {}},
    {"second-block", trust_the_second_block},
    {"ten-calls", make_ten_calls},
    {"for-ever", wait_for_ever_without_a_file},
    {"open-file", forget_to_close},
    {"zombie", forget_a_child},
    {"left-child", leave_a_child_running},
    {"child", end_badly_in_a_child},
    {"handler", read_in_a_signal_handler},
};

} // namespace

int main(int argc, char **argv) {
  const std::string_view wish = argc > 1 ? argv[1] : "";
  setvbuf(stdout, area + 4000, _IOLBF, 1000); // no block of its own for standard output
  for (const Call &call : kCalls)
    if (call.name == wish)
      make_call(call);
  for (const auto &[name, behave] : kBehaviours)
    if (name == wish) {
      behave();
      return 0;
    }
  return 64;
}
