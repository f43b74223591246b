// Small guards that give back what a function holds when it leaves: a descriptor, a stream, a
// block of the system's allocator, the error number. release() hands the thing to somebody else.
#pragma once

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <unistd.h>

namespace orv {

// Puts errno back as it stood, so that tidying up does not hide why a call failed.
class ErrnoGuard {
public:
  ErrnoGuard() : saved(errno) {}
  ErrnoGuard(const ErrnoGuard &) = delete;
  ErrnoGuard &operator=(const ErrnoGuard &) = delete;
  ~ErrnoGuard() { errno = saved; }
  [[nodiscard]] int value() const { return saved; }

private:
  int saved;
};

// Closes a descriptor; a negative one stands for none.
class DescriptorGuard {
public:
  explicit DescriptorGuard(int descriptor) : fd(descriptor) {}
  DescriptorGuard(const DescriptorGuard &) = delete;
  DescriptorGuard &operator=(const DescriptorGuard &) = delete;
  ~DescriptorGuard() {
    if (fd >= 0) {
      ErrnoGuard keep;
      close(fd);
    }
  }
  [[nodiscard]] int get() const { return fd; }
  [[nodiscard]] int release() {
    int given = fd;
    fd = -1;
    return given;
  }

private:
  int fd;
};

// Closes a stream; null stands for none.
class StreamGuard {
public:
  explicit StreamGuard(FILE *opened) : stream(opened) {}
  StreamGuard(const StreamGuard &) = delete;
  StreamGuard &operator=(const StreamGuard &) = delete;
  ~StreamGuard() {
    if (stream != nullptr) {
      ErrnoGuard keep;
      fclose(stream);
    }
  }
  [[nodiscard]] FILE *get() const { return stream; }
  [[nodiscard]] FILE *release() {
    FILE *given = stream;
    stream = nullptr;
    return given;
  }

private:
  FILE *stream;
};

// Frees a block of the system's allocator; null stands for none.
class BlockGuard {
public:
  explicit BlockGuard(void *allocated) : block(allocated) {}
  BlockGuard(const BlockGuard &) = delete;
  BlockGuard &operator=(const BlockGuard &) = delete;
  ~BlockGuard() {
    ErrnoGuard keep;
    free(block);
  }
  [[nodiscard]] void *get() const { return block; }
  [[nodiscard]] void *release() {
    void *given = block;
    block = nullptr;
    return given;
  }

private:
  void *block;
};

} // namespace orv
