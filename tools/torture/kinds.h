// The kinds of calls that can be refused, each with the ways of refusing it: the first is what
// --fail does by itself, a sweep goes through all of them.
#pragma once

#include <cerrno>
#include <cstddef>

namespace torture {

// Among the error numbers of a kind: the call is made, for half of its bytes.
constexpr int kShort = -1;

constexpr size_t kMostWays = 4;

// ROW(KIND, WAY...)
#define TORTURE_KINDS(ROW)                                                                         \
  ROW(malloc, ENOMEM)                                                                              \
  ROW(calloc, ENOMEM)                                                                              \
  ROW(realloc, ENOMEM)                                                                             \
  ROW(fork, EAGAIN, ENOMEM)                                                                        \
  ROW(execve, ENOENT, ENOMEM)                                                                      \
  ROW(socketpair, EMFILE)                                                                          \
  ROW(socket, EMFILE)                                                                              \
  ROW(setsockopt, ENOPROTOOPT)                                                                     \
  ROW(bind, EADDRINUSE)                                                                            \
  ROW(listen, EADDRINUSE)                                                                          \
  ROW(accept, ECONNABORTED, EINTR, EAGAIN)                                                         \
  ROW(connect, ECONNREFUSED, EINTR)                                                                \
  ROW(select, ENOMEM, EINTR)                                                                       \
  ROW(send, ECONNRESET, EINTR, EAGAIN, kShort)                                                     \
  ROW(recv, ECONNRESET, EINTR, EAGAIN, kShort)                                                     \
  ROW(open, EMFILE)                                                                                \
  ROW(fopen, EMFILE)                                                                               \
  ROW(read, EIO, EINTR, kShort)                                                                    \
  ROW(write, ENOSPC, EINTR, kShort)                                                                \
  ROW(fgets, EIO)                                                                                  \
  ROW(fwrite, ENOSPC)                                                                              \
  ROW(fflush, ENOSPC)                                                                              \
  ROW(fsync, EIO)                                                                                  \
  ROW(fcntl, EMFILE)                                                                               \
  ROW(dup2, EMFILE)                                                                                \
  ROW(waitpid, ECHILD, EINTR)                                                                      \
  ROW(kill, EPERM)                                                                                 \
  ROW(access, EACCES)                                                                              \
  ROW(stat, EACCES)                                                                                \
  ROW(statvfs, EIO)                                                                                \
  ROW(getcwd, ENOENT)                                                                              \
  ROW(chdir, EACCES)                                                                               \
  ROW(realpath, EACCES)                                                                            \
  ROW(mkdir, ENOSPC)                                                                               \
  ROW(rename, ENOSPC)                                                                              \
  ROW(remove, EBUSY)                                                                               \
  ROW(rmdir, EBUSY)                                                                                \
  ROW(glob, ENOMEM, EIO)                                                                           \
  ROW(getaddrinfo, EAGAIN, ENOMEM, EMFILE)                                                         \
  ROW(putenv, ENOMEM)

#define TORTURE_KIND(kind, ...) kind,
enum class Kind { TORTURE_KINDS(TORTURE_KIND) };
#undef TORTURE_KIND

struct KindRow {
  const char *name;
  int ways[kMostWays]; // those that are not used are 0
};

#define TORTURE_ROW(kind, ...) {#kind, {__VA_ARGS__}},
inline constexpr KindRow kKinds[] = {TORTURE_KINDS(TORTURE_ROW)};
#undef TORTURE_ROW

constexpr size_t kKindCount = sizeof kKinds / sizeof kKinds[0];

} // namespace torture
