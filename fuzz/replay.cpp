// Gives a fuzzer the files of its corpus, one after the other, without the fuzzing engine: a test
// that any compiler can build.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace {

void run(const std::filesystem::path &path) {
  std::ifstream file(path, std::ios::binary);
  const std::string bytes((std::istreambuf_iterator<char>(file)), {});
  if (file.bad()) {
    fprintf(stderr, "%s cannot be read\n", path.c_str());
    exit(1);
  }
  LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size());
}

} // namespace

// Fails when the corpus is missing or empty, and ends by a signal where the fuzzer finds something.
int main(int argc, char **argv) {
  if (argc != 2) {
    fprintf(stderr, "usage: %s FOLDER\n", argv[0]);
    return 2;
  }
  int count = 0;
  for (const auto &entry : std::filesystem::directory_iterator(argv[1])) {
    run(entry.path());
    count++;
  }
  printf("%d inputs\n", count);
  return count > 0 ? 0 : 1;
}
