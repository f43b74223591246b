// A text whose terminator is the last byte that may be read: the page behind it is forbidden.
#pragma once

#include <cstddef>
#include <cstring>
#include <string>
#include <sys/mman.h>

namespace support {

class TextAtPageEnd {
public:
  // Takes up to 4095 characters.
  explicit TextAtPageEnd(const std::string &characters)
      : pages(static_cast<char *>(
            mmap(nullptr, 2 * kPage, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0))),
        text(pages + kPage - (characters.size() + 1)) {
    mprotect(pages, kPage, PROT_READ | PROT_WRITE);
    memcpy(text, characters.c_str(), characters.size() + 1);
  }
  ~TextAtPageEnd() { munmap(pages, 2 * kPage); }
  TextAtPageEnd(const TextAtPageEnd &) = delete;
  TextAtPageEnd &operator=(const TextAtPageEnd &) = delete;

  [[nodiscard]] const char *get() const { return text; }

private:
  static constexpr size_t kPage = 4096;
  char *pages;
  char *text;
};

} // namespace support
