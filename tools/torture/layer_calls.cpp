// The calls that the layer stands in front of, one a line: each asks for the verdict, and is
// refused in its own way or passed on. The names in front are the layer's; what the program calls
// is the name behind asm().
#include "layer.h"

#include <cstdarg>
#include <cstdio>
#include <dirent.h>
#include <fcntl.h>
#include <glob.h>
#include <netdb.h>
#include <poll.h>
#include <spawn.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

using torture::find;
using torture::judge;
using torture::Kind;
using torture::Next;
using torture::Verdict;

// The allocator's own names: usable before anything could be looked for.
extern "C" void *__libc_malloc(size_t size);
extern "C" void *__libc_calloc(size_t count, size_t size);
extern "C" void *__libc_realloc(void *block, size_t size);

namespace {

// Half of the bytes, but at least one: none would be the end of a file.
size_t cut(size_t length) {
  return length < 2 ? length : length / 2;
}

// A stream that could not be written to says so from then on.
template <typename Result> Result fail_stream(FILE *stream, Result result) {
  stream->_flags |= _IO_ERR_SEEN;
  return result;
}

int glob_error(int error) {
  return error == ENOMEM ? GLOB_NOSPACE : GLOB_ABORTED;
}

int lookup_error(int error) {
  switch (error) {
  case EAGAIN:
    return EAI_AGAIN;
  case ENOMEM:
    return EAI_MEMORY;
  default:
    return EAI_SYSTEM;
  }
}

} // namespace

// NOLINTBEGIN(bugprone-macro-parentheses): types and lists of parameters take none.
#define DECLARE(type, call, parameters)                                                            \
  extern "C" [[gnu::visibility("default")]] type refusable_##call parameters asm(#call);           \
  [[gnu::section("torture_next"), gnu::used]] static constinit Next next_##call = {#call, nullptr};

#define VERDICT(kind, call)                                                                        \
  const Verdict verdict = judge(Kind::kind, #call, __builtin_return_address(0))

#define NEXT(call) reinterpret_cast<decltype(&refusable_##call)>(find(next_##call))

// A call that is refused with `answer`.
#define REFUSABLE(kind, type, call, parameters, arguments, answer)                                 \
  DECLARE(type, call, parameters)                                                                  \
  type refusable_##call parameters {                                                               \
    VERDICT(kind, call);                                                                           \
    return verdict.error != 0 ? answer : NEXT(call) arguments;                                     \
  }

// A call that can be cut short as well; it has a parameter `length`.
#define CUTTABLE(kind, call, parameters, arguments)                                                \
  DECLARE(ssize_t, call, parameters)                                                               \
  ssize_t refusable_##call parameters {                                                            \
    VERDICT(kind, call);                                                                           \
    if (verdict.error != 0)                                                                        \
      return -1;                                                                                   \
    if (verdict.cut)                                                                               \
      length = cut(length);                                                                        \
    return NEXT(call) arguments;                                                                   \
  }

// A call of the allocator.
#define ALLOCATION(kind, parameters, own)                                                          \
  extern "C" [[gnu::visibility("default")]] void *refusable_##kind parameters asm(#kind);          \
  void *refusable_##kind parameters {                                                              \
    VERDICT(kind, kind);                                                                           \
    return verdict.error != 0 ? nullptr : own;                                                     \
  }

// The longest lines are laid out by hand: a line a call.
// clang-format off

ALLOCATION(malloc, (size_t size), __libc_malloc(size))
ALLOCATION(calloc, (size_t count, size_t size), __libc_calloc(count, size))
ALLOCATION(realloc, (void *block, size_t size), __libc_realloc(block, size))

REFUSABLE(fork, pid_t, fork, (), (), -1)
REFUSABLE(fork, int, posix_spawn, (pid_t *pid, const char *path, const posix_spawn_file_actions_t *actions, const posix_spawnattr_t *attributes, char *const *argv, char *const *envp), (pid, path, actions, attributes, argv, envp), verdict.error)
REFUSABLE(fork, int, posix_spawnp, (pid_t *pid, const char *file, const posix_spawn_file_actions_t *actions, const posix_spawnattr_t *attributes, char *const *argv, char *const *envp), (pid, file, actions, attributes, argv, envp), verdict.error)
REFUSABLE(execve, int, execve, (const char *path, char *const *argv, char *const *envp), (path, argv, envp), -1)
REFUSABLE(execve, int, execv, (const char *path, char *const *argv), (path, argv), -1)
REFUSABLE(execve, int, execvp, (const char *file, char *const *argv), (file, argv), -1)
REFUSABLE(execve, int, execvpe, (const char *file, char *const *argv, char *const *envp), (file, argv, envp), -1)
REFUSABLE(waitpid, pid_t, waitpid, (pid_t pid, int *status, int options), (pid, status, options), -1)
REFUSABLE(waitpid, pid_t, wait, (int *status), (status), -1)
REFUSABLE(waitpid, pid_t, wait4, (pid_t pid, int *status, int options, struct rusage *usage), (pid, status, options, usage), -1)
REFUSABLE(waitpid, int, waitid, (idtype_t type, id_t id, siginfo_t *info, int options), (type, id, info, options), -1)
REFUSABLE(kill, int, kill, (pid_t pid, int signal_number), (pid, signal_number), -1)
REFUSABLE(kill, int, killpg, (pid_t group, int signal_number), (group, signal_number), -1)

REFUSABLE(socketpair, int, socketpair, (int domain, int type, int protocol, int *ends), (domain, type, protocol, ends), -1)
REFUSABLE(socket, int, socket, (int domain, int type, int protocol), (domain, type, protocol), -1)
REFUSABLE(setsockopt, int, setsockopt, (int fd, int level, int option, const void *value, socklen_t size), (fd, level, option, value, size), -1)
REFUSABLE(bind, int, bind, (int fd, const sockaddr *address, socklen_t size), (fd, address, size), -1)
REFUSABLE(listen, int, listen, (int fd, int backlog), (fd, backlog), -1)
REFUSABLE(accept, int, accept, (int fd, sockaddr *address, socklen_t *size), (fd, address, size), -1)
REFUSABLE(accept, int, accept4, (int fd, sockaddr *address, socklen_t *size, int flags), (fd, address, size, flags), -1)
REFUSABLE(connect, int, connect, (int fd, const sockaddr *address, socklen_t size), (fd, address, size), -1)
REFUSABLE(select, int, select, (int count, fd_set *in, fd_set *out, fd_set *exceptions, timeval *limit), (count, in, out, exceptions, limit), -1)
REFUSABLE(select, int, pselect, (int count, fd_set *in, fd_set *out, fd_set *exceptions, const timespec *limit, const sigset_t *mask), (count, in, out, exceptions, limit, mask), -1)
REFUSABLE(select, int, poll, (pollfd *entries, nfds_t count, int limit), (entries, count, limit), -1)
REFUSABLE(select, int, __poll_chk, (pollfd *entries, nfds_t count, int limit, size_t room), (entries, count, limit, room), -1)
REFUSABLE(select, int, ppoll, (pollfd *entries, nfds_t count, const timespec *limit, const sigset_t *mask), (entries, count, limit, mask), -1)
CUTTABLE(send, send, (int fd, const void *bytes, size_t length, int flags), (fd, bytes, length, flags))
CUTTABLE(send, sendto, (int fd, const void *bytes, size_t length, int flags, const sockaddr *address, socklen_t size), (fd, bytes, length, flags, address, size))
REFUSABLE(send, ssize_t, sendmsg, (int fd, const msghdr *message, int flags), (fd, message, flags), -1)
CUTTABLE(recv, recv, (int fd, void *bytes, size_t length, int flags), (fd, bytes, length, flags))
CUTTABLE(recv, __recv_chk, (int fd, void *bytes, size_t length, size_t room, int flags), (fd, bytes, length, room, flags))
CUTTABLE(recv, recvfrom, (int fd, void *bytes, size_t length, int flags, sockaddr *address, socklen_t *size), (fd, bytes, length, flags, address, size))
CUTTABLE(recv, __recvfrom_chk, (int fd, void *bytes, size_t length, size_t room, int flags, sockaddr *address, socklen_t *size), (fd, bytes, length, room, flags, address, size))
REFUSABLE(recv, ssize_t, recvmsg, (int fd, msghdr *message, int flags), (fd, message, flags), -1)

REFUSABLE(open, int, creat, (const char *path, mode_t mode), (path, mode), -1)
REFUSABLE(open, int, creat64, (const char *path, mode_t mode), (path, mode), -1)
REFUSABLE(open, int, __open_2, (const char *path, int flags), (path, flags), -1)
REFUSABLE(open, int, __open64_2, (const char *path, int flags), (path, flags), -1)
REFUSABLE(open, int, __openat_2, (int folder, const char *path, int flags), (folder, path, flags), -1)
REFUSABLE(open, int, __openat64_2, (int folder, const char *path, int flags), (folder, path, flags), -1)
REFUSABLE(open, DIR *, opendir, (const char *path), (path), nullptr)
CUTTABLE(read, read, (int fd, void *bytes, size_t length), (fd, bytes, length))
CUTTABLE(read, __read_chk, (int fd, void *bytes, size_t length, size_t room), (fd, bytes, length, room))
CUTTABLE(read, pread, (int fd, void *bytes, size_t length, off_t at), (fd, bytes, length, at))
CUTTABLE(read, pread64, (int fd, void *bytes, size_t length, off_t at), (fd, bytes, length, at))
CUTTABLE(read, __pread_chk, (int fd, void *bytes, size_t length, off_t at, size_t room), (fd, bytes, length, at, room))
CUTTABLE(read, __pread64_chk, (int fd, void *bytes, size_t length, off_t at, size_t room), (fd, bytes, length, at, room))
REFUSABLE(read, ssize_t, readv, (int fd, const iovec *pieces, int count), (fd, pieces, count), -1)
CUTTABLE(write, write, (int fd, const void *bytes, size_t length), (fd, bytes, length))
CUTTABLE(write, pwrite, (int fd, const void *bytes, size_t length, off_t at), (fd, bytes, length, at))
CUTTABLE(write, pwrite64, (int fd, const void *bytes, size_t length, off_t at), (fd, bytes, length, at))
REFUSABLE(write, ssize_t, writev, (int fd, const iovec *pieces, int count), (fd, pieces, count), -1)
REFUSABLE(fsync, int, fsync, (int fd), (fd), -1)
REFUSABLE(fsync, int, fdatasync, (int fd), (fd), -1)
REFUSABLE(dup2, int, dup, (int fd), (fd), -1)
REFUSABLE(dup2, int, dup2, (int fd, int number), (fd, number), -1)
REFUSABLE(dup2, int, dup3, (int fd, int number, int flags), (fd, number, flags), -1)

REFUSABLE(fopen, FILE *, fopen, (const char *path, const char *mode), (path, mode), nullptr)
REFUSABLE(fopen, FILE *, fopen64, (const char *path, const char *mode), (path, mode), nullptr)
REFUSABLE(fopen, FILE *, fdopen, (int fd, const char *mode), (fd, mode), nullptr)
REFUSABLE(fgets, char *, fgets, (char *line, int size, FILE *stream), (line, size, stream), fail_stream<char *>(stream, nullptr))
REFUSABLE(fgets, char *, __fgets_chk, (char *line, size_t room, int size, FILE *stream), (line, room, size, stream), fail_stream<char *>(stream, nullptr))
REFUSABLE(fwrite, size_t, fwrite, (const void *bytes, size_t size, size_t count, FILE *stream), (bytes, size, count, stream), fail_stream<size_t>(stream, 0))
REFUSABLE(fwrite, int, fputs, (const char *text, FILE *stream), (text, stream), fail_stream(stream, EOF))
REFUSABLE(fwrite, int, fputc, (int character, FILE *stream), (character, stream), fail_stream(stream, EOF))
REFUSABLE(fwrite, int, putc, (int character, FILE *stream), (character, stream), fail_stream(stream, EOF))
REFUSABLE(fwrite, int, puts, (const char *text), (text), fail_stream(stdout, EOF))
REFUSABLE(fwrite, int, putchar, (int character), (character), fail_stream(stdout, EOF))
REFUSABLE(fflush, int, fflush, (FILE *stream), (stream), stream != nullptr ? fail_stream(stream, EOF) : EOF)

REFUSABLE(access, int, access, (const char *path, int mode), (path, mode), -1)
REFUSABLE(stat, int, stat, (const char *path, struct stat *status), (path, status), -1)
REFUSABLE(stat, int, stat64, (const char *path, struct stat64 *status), (path, status), -1)
REFUSABLE(stat, int, lstat, (const char *path, struct stat *status), (path, status), -1)
REFUSABLE(stat, int, lstat64, (const char *path, struct stat64 *status), (path, status), -1)
REFUSABLE(stat, int, fstat, (int fd, struct stat *status), (fd, status), -1)
REFUSABLE(stat, int, fstat64, (int fd, struct stat64 *status), (fd, status), -1)
REFUSABLE(stat, int, fstatat, (int folder, const char *path, struct stat *status, int flags), (folder, path, status, flags), -1)
REFUSABLE(stat, int, fstatat64, (int folder, const char *path, struct stat64 *status, int flags), (folder, path, status, flags), -1)
REFUSABLE(statvfs, int, statvfs, (const char *path, struct statvfs *space), (path, space), -1)
REFUSABLE(statvfs, int, statvfs64, (const char *path, struct statvfs64 *space), (path, space), -1)
REFUSABLE(statvfs, int, fstatvfs, (int fd, struct statvfs *space), (fd, space), -1)
REFUSABLE(statvfs, int, fstatvfs64, (int fd, struct statvfs64 *space), (fd, space), -1)
REFUSABLE(getcwd, char *, getcwd, (char *area, size_t size), (area, size), nullptr)
REFUSABLE(getcwd, char *, __getcwd_chk, (char *area, size_t size, size_t room), (area, size, room), nullptr)
REFUSABLE(chdir, int, chdir, (const char *path), (path), -1)
REFUSABLE(chdir, int, fchdir, (int fd), (fd), -1)
REFUSABLE(realpath, char *, realpath, (const char *path, char *area), (path, area), nullptr)
REFUSABLE(realpath, char *, __realpath_chk, (const char *path, char *area, size_t room), (path, area, room), nullptr)
REFUSABLE(mkdir, int, mkdir, (const char *path, mode_t mode), (path, mode), -1)
REFUSABLE(rename, int, rename, (const char *from, const char *to), (from, to), -1)
REFUSABLE(remove, int, remove, (const char *path), (path), -1)
REFUSABLE(remove, int, unlink, (const char *path), (path), -1)
REFUSABLE(rmdir, int, rmdir, (const char *path), (path), -1)
REFUSABLE(glob, int, glob, (const char *pattern, int flags, int (*on_error)(const char *, int), glob_t *result), (pattern, flags, on_error, result), glob_error(verdict.error))
REFUSABLE(glob, int, glob64, (const char *pattern, int flags, int (*on_error)(const char *, int), glob64_t *result), (pattern, flags, on_error, result), glob_error(verdict.error))
REFUSABLE(getaddrinfo, int, getaddrinfo, (const char *host, const char *service, const addrinfo *hints, addrinfo **found), (host, service, hints, found), lookup_error(verdict.error))
REFUSABLE(putenv, int, putenv, (char *assignment), (assignment), -1)
REFUSABLE(putenv, int, setenv, (const char *name, const char *value, int replace), (name, value, replace), -1)

// clang-format on

// What takes further arguments hands them over as they were passed.

#define OPENING(call)                                                                              \
  DECLARE(int, call, (const char *path, int flags, ...))                                           \
  int refusable_##call(const char *path, int flags, ...) {                                         \
    VERDICT(open, call);                                                                           \
    va_list further;                                                                               \
    va_start(further, flags);                                                                      \
    const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(further, mode_t) : 0;        \
    va_end(further);                                                                               \
    return verdict.error != 0 ? -1 : NEXT(call)(path, flags, mode);                                \
  }

OPENING(open)
OPENING(open64)

#define OPENING_BELOW(call)                                                                        \
  DECLARE(int, call, (int folder, const char *path, int flags, ...))                               \
  int refusable_##call(int folder, const char *path, int flags, ...) {                             \
    VERDICT(open, call);                                                                           \
    va_list further;                                                                               \
    va_start(further, flags);                                                                      \
    const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(further, mode_t) : 0;        \
    va_end(further);                                                                               \
    return verdict.error != 0 ? -1 : NEXT(call)(folder, path, flags, mode);                        \
  }

OPENING_BELOW(openat)
OPENING_BELOW(openat64)

// Whatever the argument is, it comes in the place of a pointer.
#define CONTROLLING(call)                                                                          \
  DECLARE(int, call, (int fd, int command, ...))                                                   \
  int refusable_##call(int fd, int command, ...) {                                                 \
    VERDICT(fcntl, call);                                                                          \
    va_list further;                                                                               \
    va_start(further, command);                                                                    \
    void *argument = va_arg(further, void *);                                                      \
    va_end(further);                                                                               \
    return verdict.error != 0 ? -1 : NEXT(call)(fd, command, argument);                            \
  }

CONTROLLING(fcntl)
CONTROLLING(fcntl64)

// Lists of arguments become vectors, on the stack: a forked child must not allocate.
#define LISTED_EXEC(call, type, vector_call)                                                       \
  DECLARE(type, call, (const char *path, const char *arg0, ...))                                   \
  type refusable_##call(const char *path, const char *arg0, ...) {                                 \
    VERDICT(execve, call);                                                                         \
    if (verdict.error != 0)                                                                        \
      return -1;                                                                                   \
    va_list further;                                                                               \
    va_start(further, arg0);                                                                       \
    size_t count = 1;                                                                              \
    va_list counted;                                                                               \
    va_copy(counted, further);                                                                     \
    for (const char *arg = arg0; arg != nullptr; arg = va_arg(counted, const char *))              \
      count++;                                                                                     \
    va_end(counted);                                                                               \
    auto **vector = static_cast<const char **>(__builtin_alloca(count * sizeof(char *)));          \
    vector[0] = arg0;                                                                              \
    for (size_t i = 1; i < count; i++)                                                             \
      vector[i] = va_arg(further, const char *);                                                   \
    va_end(further);                                                                               \
    return NEXT(vector_call)(path, const_cast<char *const *>(vector));                             \
  }

LISTED_EXEC(execl, int, execv)
LISTED_EXEC(execlp, int, execvp)

// The ends of a process: what it leaves is counted before it is gone.

#define ENDING(call)                                                                               \
  DECLARE(void, call, (int status))                                                                \
  void refusable_##call(int status) {                                                              \
    torture::report_remains();                                                                     \
    NEXT(call)(status);                                                                            \
  }

ENDING(_exit)
ENDING(_Exit)
// NOLINTEND(bugprone-macro-parentheses)
