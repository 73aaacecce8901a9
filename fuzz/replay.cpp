// Runs a fuzz target once over every file of the folders that are given: what the fuzzer has found worth
// keeping stays tested in every build. Prints each name before its turn, so that a crash names its input.

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <set>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
extern "C" [[gnu::weak]] int LLVMFuzzerInitialize(int* argc, char*** argv);

namespace {

using Path = std::filesystem::path;

void Replay(const Path& file) {
  std::cout << file.filename().string() << std::endl;  // NOLINT(performance-avoid-endl): seen before a crash
  std::ifstream in(file, std::ios::binary);
  const std::vector<char> bytes(std::istreambuf_iterator<char>(in), {});
  LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
}

}  // namespace

int main(int argc, char** argv) {
  if (LLVMFuzzerInitialize != nullptr) LLVMFuzzerInitialize(&argc, &argv);
  std::set<Path> files;
  for (int i = 1; i < argc; ++i) {
    for (const auto& entry : std::filesystem::directory_iterator(argv[i])) files.insert(entry.path());
  }
  for (const auto& file : files) Replay(file);
  std::cout << "replayed " << files.size() << " inputs\n";
  return files.empty() ? 1 : 0;
}
