// Gives a fuzzer inputs without the fuzzing engine, so that any compiler can build a test of it:
//   NAME_replay FOLDER                the files of its corpus, one after the other
//   NAME_replay --random COUNT SEED   so many inputs of random bytes
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

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

int replay(const char *folder) {
  int count = 0;
  for (const auto &entry : std::filesystem::directory_iterator(folder)) {
    run(entry.path());
    count++;
  }
  return count;
}

int make_up(int count, unsigned long seed) {
  constexpr size_t kLongest = 256;
  std::mt19937 numbers(static_cast<std::mt19937::result_type>(seed));
  for (int i = 0; i < count; i++) {
    std::vector<uint8_t> bytes(numbers() % (kLongest + 1));
    for (uint8_t &byte : bytes)
      byte = static_cast<uint8_t>(numbers());
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
  }
  return count;
}

} // namespace

// Fails when there is no input, and ends by a signal where the fuzzer finds something.
int main(int argc, char **argv) {
  const bool random = argc == 4 && strcmp(argv[1], "--random") == 0;
  if (!random && argc != 2) {
    fprintf(stderr, "usage: %s FOLDER | --random COUNT SEED\n", argv[0]);
    return 2;
  }
  const int count =
      random ? make_up(atoi(argv[2]), strtoul(argv[3], nullptr, 10)) : replay(argv[1]);
  printf("%d inputs\n", count);
  return count > 0 ? 0 : 1;
}
