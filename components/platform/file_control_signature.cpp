// File signatures: a compact record of a file's status, by which a caller tells later whether the
// file has changed.
#include "platform/file_control_internal.h"

#include <cstddef>
#include <cstdio>
#include <orv/platform.h>

using orv::file_control::read_status;

static_assert(offsetof(platform_file_sig_t, gid) == 0);
static_assert(offsetof(platform_file_sig_t, ctime) == 4);
static_assert(offsetof(platform_file_sig_t, mtime) == 8);
static_assert(offsetof(platform_file_sig_t, atime) == 12);
static_assert(offsetof(platform_file_sig_t, dev) == 16);
static_assert(offsetof(platform_file_sig_t, ino) == 20);
static_assert(offsetof(platform_file_sig_t, mode) == 24);
static_assert(offsetof(platform_file_sig_t, size) == 32);
static_assert(offsetof(platform_file_sig_t, check) == 40);
static_assert(sizeof(platform_file_sig_t) == 48);

namespace {

// What the size is mixed with to make the check.
constexpr uint64_t kCheckMask = 0x404040;

// The file type that the lowest two bits of a mode request stand for; 0 stands for any.
constexpr uint32_t kTypeBits = 3;
constexpr uint32_t kRequestedTypes[] = {0, S_IFREG, S_IFDIR, S_IFSOCK};
static_assert(sizeof kRequestedTypes / sizeof kRequestedTypes[0] == kTypeBits + 1);

// The permission of the owner that each further bit of a mode request asks for.
struct Permission {
  uint32_t request_bit;
  uint32_t mode_bit;
};
constexpr Permission kPermissions[] = {{0x100, S_IRUSR}, {0x200, S_IWUSR}, {0x400, S_IXUSR}};

[[nodiscard]] platform_file_sig_t signature_of(const struct stat &status) {
  const auto size = static_cast<uint64_t>(status.st_size);
  return {
      // Kept: the group's id, not the owner's: a change of the owner alone shows in ctime.
      .gid = status.st_gid,
      .ctime = static_cast<uint32_t>(status.st_ctime),
      .mtime = static_cast<uint32_t>(status.st_mtime),
      .atime = static_cast<uint32_t>(status.st_atime),
      .dev = static_cast<uint32_t>(status.st_dev),
      .ino = static_cast<uint32_t>(status.st_ino),
      .mode = status.st_mode,
      .size = size,
      .check = size ^ kCheckMask,
  };
}

[[nodiscard]] int descriptor_of(FILE *stream) {
  return stream != nullptr ? fileno(stream) : -1;
}

[[nodiscard]] bool has_requested_type(uint32_t request, uint32_t mode) {
  const uint32_t type = kRequestedTypes[request & kTypeBits];
  return type == 0 || (mode & S_IFMT) == type;
}

[[nodiscard]] bool has_requested_permissions(uint32_t request, uint32_t mode) {
  for (const Permission &permission : kPermissions)
    if ((request & permission.request_bit) != 0 && (mode & permission.mode_bit) == 0)
      return false;
  return true;
}

} // namespace

platform_file_sig_t platform_file_sig(const char *path) {
  struct stat status;
  return read_status(path, status) ? signature_of(status) : platform_file_sig_t{};
}

platform_file_sig_t platform_fd_sig(int fd) {
  struct stat status;
  return fstat(fd, &status) == 0 ? signature_of(status) : platform_file_sig_t{};
}

platform_file_sig_t platform_stream_sig(FILE *stream) {
  return platform_fd_sig(descriptor_of(stream));
}

int platform_sig_differs(platform_file_sig_t a, platform_file_sig_t b) {
  // Kept: neither atime nor check is compared, so reading a file is no change.
  return a.gid != b.gid || a.ctime != b.ctime || a.mtime != b.mtime || a.dev != b.dev ||
                 a.ino != b.ino || a.mode != b.mode || a.size != b.size
             ? 1
             : 0;
}

int platform_sig_valid(platform_file_sig_t sig) {
  return (sig.size ^ kCheckMask) == sig.check ? 1 : 0;
}

int platform_file_changed(const char *path, platform_file_sig_t earlier) {
  return platform_sig_differs(earlier, platform_file_sig(path));
}

int platform_fd_changed(int fd, platform_file_sig_t earlier) {
  return platform_sig_differs(earlier, platform_fd_sig(fd));
}

int platform_stream_changed(FILE *stream, platform_file_sig_t earlier) {
  return platform_sig_differs(earlier, platform_stream_sig(stream));
}

int platform_sig_mode_test(int request, platform_file_sig_t sig) {
  const auto bits = static_cast<uint32_t>(request);
  return has_requested_type(bits, sig.mode) && has_requested_permissions(bits, sig.mode) ? 1 : 0;
}
