// sxfwrite IN.json OUT.sxf: writes a swatch exchange file from a JSON
// description (see --help).
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>

#include "tools/sxfwrite/sxf_writer.h"

namespace {

constexpr int kExitUsage = 2;  // bad arguments, unreadable input, unwritable output

int Usage(std::FILE* to) {
  std::fprintf(to, "usage: sxfwrite IN.json OUT.sxf\n\n%s", sxfwrite::kDescriptionHelp);
  return to == stdout ? 0 : kExitUsage;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 2 && (std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0))
    return Usage(stdout);
  if (argc != 3) return Usage(stderr);
  std::ifstream in(argv[1], std::ios::binary);
  if (!in) {
    std::fprintf(stderr, "sxfwrite: cannot read %s\n", argv[1]);
    return kExitUsage;
  }
  std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  nlohmann::json description = nlohmann::json::parse(text, nullptr, false);
  if (description.is_discarded()) {
    std::fprintf(stderr, "sxfwrite: %s is not valid JSON\n", argv[1]);
    return kExitUsage;
  }
  std::string bytes;
  std::string error;
  if (!sxfwrite::BuildSxf(description, &bytes, &error)) {
    std::fprintf(stderr, "sxfwrite: %s: %s\n", argv[1], error.c_str());
    return kExitUsage;
  }
  std::ofstream out(argv[2], std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), std::streamsize(bytes.size()));
  if (!out.flush()) {
    std::fprintf(stderr, "sxfwrite: cannot write %s\n", argv[2]);
    return kExitUsage;
  }
  return 0;
}
