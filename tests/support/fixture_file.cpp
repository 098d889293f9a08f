#include "tests/support/fixture_file.h"

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace qltest {

MemFile::MemFile(const std::string& bytes) : fd_(memfd_create("fixture", MFD_CLOEXEC)) {
  if (fd_ < 0) throw std::runtime_error("memfd_create failed");
  size_t done = 0;
  while (done < bytes.size()) {
    ssize_t n = write(fd_, bytes.data() + done, bytes.size() - done);
    if (n <= 0) throw std::runtime_error("writing the fixture failed");
    done += size_t(n);
  }
  lseek(fd_, 0, SEEK_SET);
}

MemFile::~MemFile() {
  close(fd_);
}

DiskFile::DiskFile(const std::string& name, const std::string& bytes) {
  std::string pattern = (std::filesystem::temp_directory_path() / "qltest-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
  dir_ = pattern;
  path_ = dir_ + "/" + name;
  std::ofstream(path_, std::ios::binary) << bytes;
}

DiskFile::~DiskFile() {
  std::error_code ec;
  std::filesystem::remove_all(dir_, ec);
}

Outcome Shell(const std::string& command) {
  FILE* p = popen((command + " 2>&1").c_str(), "r");
  if (p == nullptr) return {-1, {}};
  Outcome r{-1, {}};
  char buf[4096];
  for (size_t n; (n = std::fread(buf, 1, sizeof buf, p)) > 0;) r.out.append(buf, n);
  int status = pclose(p);
  r.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return r;
}

std::vector<std::string> Listing(const std::string& dir) {
  std::vector<std::string> names;
  for (const auto& e : std::filesystem::directory_iterator(dir))
    names.push_back(e.path().filename());
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace qltest
