// Runs a fuzz target over the files of folders, once each: placement_corpus DIR...
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* input, size_t size);

int main(int argc, char** argv) {
  size_t files = 0;
  for (int i = 1; i < argc; ++i) {
    for (const auto& entry : std::filesystem::directory_iterator(argv[i])) {
      std::ifstream file(entry.path(), std::ios::binary);
      const std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(file)),
                                       std::istreambuf_iterator<char>());
      LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
      ++files;
    }
  }
  std::printf("%zu inputs\n", files);
  return files == 0 ? EXIT_FAILURE : EXIT_SUCCESS;
}
