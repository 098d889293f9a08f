// What the desktop benchmarks share: timing a whole process, medians, and
// the test documents' bytes.
#pragma once

#include <spawn.h>
#include <sys/wait.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

extern char** environ;

namespace benchproc {

// Seconds one run of args takes, start to reaped; the bench stops when the
// program fails, since a failed run's time means nothing.
inline double RunSeconds(const std::vector<std::string>& args) {
  std::vector<char*> argv;
  for (const auto& a : args) argv.push_back(const_cast<char*>(a.c_str()));
  argv.push_back(nullptr);
  auto start = std::chrono::steady_clock::now();
  pid_t pid = 0;
  int status = 0;
  if (posix_spawn(&pid, argv[0], nullptr, nullptr, argv.data(), environ) != 0 ||
      waitpid(pid, &status, 0) != pid || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    std::fprintf(stderr, "bench: failed: %s %s\n", args[0].c_str(),
                 args.size() > 2 ? args[2].c_str() : "");
    std::exit(1);
  }
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

inline double Median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  return v.size() % 2 ? v[v.size() / 2] : (v[v.size() / 2 - 1] + v[v.size() / 2]) / 2;
}

inline void Write(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}

// The same bytes with "%QL7_Thumbnail:" turned into a keyword the reader
// does not know, so only the preview's presence differs.
inline std::string Defaced(std::string file) {
  size_t at = file.find("%QL7_Thumbnail:");
  if (at != std::string::npos) file[at + 1] = 'X';
  return file;
}

}  // namespace benchproc
