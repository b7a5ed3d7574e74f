// Replays a corpus through a fuzz target's entry point: every file under the given folders (or
// the given files) is fed once. Used by CTest so that the sanitizer build re-runs every corpus.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv) {
  namespace fs = std::filesystem;
  size_t fed = 0;
  auto feed = [&](const fs::path& p) {
    std::ifstream in(p, std::ios::binary);
    std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), {});
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    ++fed;
  };
  for (int i = 1; i < argc; ++i) {
    fs::path p(argv[i]);
    if (fs::is_directory(p)) {
      for (const auto& e : fs::recursive_directory_iterator(p))
        if (e.is_regular_file()) feed(e.path());
    } else if (fs::exists(p)) {
      feed(p);
    }
  }
  std::printf("replayed %zu inputs\n", fed);
  return 0;
}
