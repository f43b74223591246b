// How a fuzzer says that the library and its model differ: both sides in full, then the end.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>

[[noreturn]] inline void differ(const char *what, const std::string &library,
                                const std::string &expected) {
  fprintf(stderr, "%s\nlibrary:  [%s]\nexpected: [%s]\n", what, library.c_str(), expected.c_str());
  abort();
}

inline void judge(const char *what, const std::string &library, const std::string &expected) {
  if (library != expected)
    differ(what, library, expected);
}

inline void judge(const char *what, long library, long expected) {
  if (library != expected)
    differ(what, std::to_string(library), std::to_string(expected));
}
