// Replays fuzz inputs without libFuzzer: every file named on the command line,
// or every file below a named directory, is fed to LLVMFuzzerTestOneInput once.
// The sanitizer build runs each target this way over its seeds and over every
// input that once crashed, so a fixed finding stays fixed.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

int Replay(const std::filesystem::path& file) {
  std::ifstream in(file, std::ios::binary);
  std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  int replayed = 0;
  for (int a = 1; a < argc; ++a) {
    std::filesystem::path p(argv[a]);
    if (std::filesystem::is_directory(p)) {
      for (const auto& e : std::filesystem::recursive_directory_iterator(p))
        if (e.is_regular_file()) replayed += Replay(e.path());
    } else if (std::filesystem::is_regular_file(p)) {
      replayed += Replay(p);
    } else {
      std::fprintf(stderr, "replay: %s: no such file or directory\n", argv[a]);
      return 2;
    }
  }
  std::printf("replayed %d inputs\n", replayed);
  return replayed > 0 ? 0 : 1;
}
