// Test fixtures as files the host could have opened: in-memory files with a
// real descriptor, and files on disk for code that takes a path; and the
// command-line programs run on them.
#pragma once

#include <string>
#include <vector>

namespace qltest {

// An anonymous in-memory file holding bytes; closed on destruction.
class MemFile {
 public:
  explicit MemFile(const std::string& bytes);
  ~MemFile();
  MemFile(const MemFile&) = delete;
  MemFile& operator=(const MemFile&) = delete;
  int fd() const { return fd_; }

 private:
  int fd_;
};

// A file in a fresh temporary directory, removed with the directory.
class DiskFile {
 public:
  DiskFile(const std::string& name, const std::string& bytes);
  ~DiskFile();
  DiskFile(const DiskFile&) = delete;
  DiskFile& operator=(const DiskFile&) = delete;
  const std::string& path() const { return path_; }

 private:
  std::string dir_;
  std::string path_;
};

// What a command printed (standard output and standard error, in order) and
// its exit status (-1 when it did not exit normally).
struct Outcome {
  int status;
  std::string out;
};
Outcome Shell(const std::string& command);

// The names in a folder, sorted.
std::vector<std::string> Listing(const std::string& dir);

}  // namespace qltest
