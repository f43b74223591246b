// The parts of a path and the relative path against a plain model: random paths, long ones among
// them, in every kind of buffer. What the system would make of a path is made up.
#include "bytes.h"
#include "judge.h"
#include "library_run.h"

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <orv/alloc.h>
#include <orv/platform.h>
#include <string>

namespace {

using Path = std::string;
using MaybePath = std::optional<Path>;

constexpr size_t kLongestPath = 4095; // that the system takes
constexpr size_t kLongestResult = 4096;

// What the fuzzer's bytes mean here: paths of few different characters, so that two of them often
// begin alike.
struct Input : Bytes {
  Path piece() {
    static constexpr char kCharacters[] = {'/', '/', '.', 'a', 'a', 'b', '\\', '\xC3'};
    Path made;
    for (unsigned length = byte() % 24; length > 0; length--)
      made += kCharacters[byte() % sizeof kCharacters];
    return made;
  }

  Path path() {
    const unsigned kind = byte();
    Path made = kind % 4 == 0 ? piece() : "/" + piece();
    if (kind >= 248)
      return repeated(made, kLongestPath - 20 + byte() % 40);
    return made;
  }
};

// ---- the file system: a path exists or not, and stands where it stands, by its bytes ----

MaybePath resolved(const Path &path) {
  unsigned sum = static_cast<unsigned>(path.size());
  for (const char c : path)
    sum += static_cast<unsigned char>(c);
  if (path.empty() || path.size() > kLongestPath || sum % 7 == 0)
    return std::nullopt;
  return sum % 2 == 0 ? "/a/b" : ("/" + path).substr(0, kLongestPath);
}

// ---- the model ----

MaybePath dir_name(const Path &path) {
  const size_t slash = path.rfind('/');
  return slash == Path::npos ? "" : path.substr(0, slash);
}

Path base_of(const Path &path) {
  return path.substr(path.rfind('/') + 1); // the whole path without a slash: npos + 1 is 0
}

MaybePath base_name(const Path &path) {
  return base_of(path);
}

// Where the extension of a base name begins: its end when there is none.
size_t extension_at(const Path &name) {
  const size_t dot = name.rfind('.');
  return dot == Path::npos || dot == 0 ? name.size() : dot;
}

MaybePath extension(const Path &path) {
  const Path name = base_of(path);
  const size_t at = extension_at(name);
  return at == name.size() ? MaybePath() : name.substr(at);
}

MaybePath root_name(const Path &path) {
  const Path name = base_of(path);
  return name.substr(0, extension_at(name));
}

MaybePath absolute(const Path &path) {
  if (path.empty() || path[0] != '/')
    return resolved(path);
  return path.size() <= kLongestPath ? MaybePath(path) : std::nullopt;
}

size_t common_length(const Path &one, const Path &other) {
  size_t length = 0;
  while (length < one.size() && length < other.size() && one[length] == other[length])
    length++;
  return length;
}

MaybePath steps(const Path &from, const Path &to) {
  if (from == to)
    return ".";
  const size_t common = common_length(from, to);
  if (common < to.size() && to[common] == '/')
    return to.substr(common + 1);
  const size_t slash = to.rfind('/', common - 1);
  Path result;
  for (size_t at = slash; at < from.size(); at++)
    if (from[at] == '/')
      result += "../";
  result += to.substr(slash + 1);
  return result.size() <= kLongestResult ? MaybePath(result) : std::nullopt;
}

MaybePath relative(const Path &from, const Path &to) {
  if (from.empty() && to.empty())
    return ".";
  const MaybePath start = absolute(from);
  const MaybePath goal = absolute(to);
  return start && goal ? steps(*start, *goal) : std::nullopt;
}

// ---- the comparison ----

struct PartCall {
  const char *name;
  char *(*library)(const char *path, char *buffer);
  MaybePath (*model)(const Path &path);
  size_t (*room)(const Path &path); // that the call may use of the caller's buffer
};

size_t room_of_path(const Path &path) {
  return path.size() + 1;
}
size_t room_of_base(const Path &path) {
  return base_of(path).size() + 1;
}
size_t room_of_extension(const Path &path) {
  const Path name = base_of(path);
  return name.size() - extension_at(name) + 1;
}

constexpr PartCall kPartCalls[] = {
    {"platform_dir_name", platform_dir_name, dir_name, room_of_path},
    {"platform_base_name", platform_base_name, base_name, room_of_base},
    {"platform_extension", platform_extension, extension, room_of_extension},
    {"platform_root_name", platform_root_name, root_name, room_of_base},
};

// The caller's texts: in blocks of just their size, so that a byte too many is noticed.
struct Block {
  char *bytes;

  explicit Block(size_t size) : bytes(static_cast<char *>(malloc(size))) {}
  explicit Block(const Path &text) : Block(text.size() + 1) {
    memcpy(bytes, text.c_str(), text.size() + 1);
  }
  Block(const Block &) = delete;
  Block &operator=(const Block &) = delete;
  ~Block() { free(bytes); }
};

void compare(const char *what, const char *result, const MaybePath &expected) {
  if (result == nullptr || !expected)
    judge(what, result == nullptr ? "null" : result, expected ? *expected : "null");
  else if (*expected != result)
    differ(what, result, *expected);
}

void part_in_new_block(const PartCall &call, const Path &path) {
  const Block argument(path);
  char *result = library_run::run([&] { return call.library(argument.bytes, nullptr); });
  compare(call.name, result, call.model(path));
  orv_free(result);
}

void part_in_buffer(const PartCall &call, const Path &path) {
  const Block argument(path);
  const Block buffer(call.room(path));
  char *result = library_run::run([&] { return call.library(argument.bytes, buffer.bytes); });
  compare(call.name, result, call.model(path));
  if (result != nullptr && result != buffer.bytes)
    differ(call.name, "another buffer", "the caller's");
}

// The buffer begins somewhere in the argument, or at it.
void part_in_argument(const PartCall &call, const Path &path, size_t offset) {
  offset %= path.size() + 1;
  const Block argument(offset + path.size() + 1);
  memcpy(argument.bytes, path.c_str(), path.size() + 1);
  compare(call.name,
          library_run::run([&] { return call.library(argument.bytes, argument.bytes + offset); }),
          call.model(path));
}

void compare_part(Input &input) {
  const PartCall &call = kPartCalls[input.byte() % std::size(kPartCalls)];
  const unsigned way = input.byte();
  const Path path = input.path();
  if (way % 3 == 0)
    part_in_new_block(call, path);
  else if (way % 3 == 1)
    part_in_buffer(call, path);
  else
    part_in_argument(call, path, way < 128 ? 0 : input.byte());
}

void compare_relative(Input &input) {
  const unsigned way = input.byte();
  const Path from = input.path();
  const Path to = way % 8 == 0 ? from : input.path();
  const MaybePath expected = relative(from, to);
  const Block from_block(from);
  const Block to_block(to);
  const Block buffer(kLongestResult + 1);
  char *given = way < 128 ? buffer.bytes : nullptr;
  errno = 0;
  char *result = library_run::run(
      [&] { return platform_relative_path(from_block.bytes, to_block.bytes, given); });
  if (result == nullptr)
    judge("errno of a refused relative path", errno == ENOENT || errno == ENAMETOOLONG, 1);
  compare("platform_relative_path", result, expected);
  if (given == nullptr)
    orv_free(result);
}

} // namespace

extern "C" {

char *__real_realpath(const char *path, char *area);
char *__wrap_realpath(const char *path, char *area) {
  if (!library_run::active)
    return __real_realpath(path, area);
  const MaybePath found = resolved(path);
  if (!found) {
    errno = ENOENT;
    return nullptr;
  }
  memcpy(area, found->c_str(), found->size() + 1);
  return area;
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  Input input = {{.data = data, .left = size}};
  if (input.byte() % 2 == 0)
    compare_part(input);
  else
    compare_relative(input);
  return 0;
}

} // extern "C"
