// How pxhost's commands tell what became of each input: a line per file on
// standard output (or a JSON object per file with --json, JSON Lines), one
// line `pxhost: FILE: reason` on standard error per failure, and the exit
// code that sums it up.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>

namespace pxhost {

inline constexpr int kExitOk = 0;       // every file done
inline constexpr int kExitRefused = 1;  // some file refused or unreadable; the rest were done
inline constexpr int kExitUsage = 2;    // usage error, or an output that cannot be written

class Report {
 public:
  explicit Report(bool json) : json_(json) {}

  // A file done: result goes out as the JSON object's "result", text (when
  // not empty) as the plain line.
  void Done(const std::string& file, const nlohmann::json& result, const std::string& text);
  // A file refused or unreadable: exit code at least 1.
  void Refused(const std::string& file, const std::string& reason);
  // An output that could not be written: exit code 2.
  void OutputFailed(const std::string& file, const std::string& reason);
  // Work on a file that stopped on something unexpected: exit code 2.
  void Unexpected(const std::string& file, const std::string& reason);
  // Folds in the exit code of a file reported elsewhere (by a worker).
  void Include(int exitCode) { exit_ = exitCode > exit_ ? exitCode : exit_; }

  int ExitCode() const { return exit_; }
  bool Json() const { return json_; }

 private:
  void Failed(const std::string& file, const std::string& reason, int exitCode);
  bool json_;
  int exit_ = kExitOk;
};

// One line of JSON. Text that is not UTF-8 (a file name is any bytes) has each
// bad byte replaced by U+FFFD, as the JSON library's replace mode does.
std::string JsonLine(const nlohmann::json& value);
// A four-character code as text ("KXEC", "HSV "), '?' for a byte that is not
// printable ASCII.
std::string FourCCText(uint32_t code);
// Prints the "pxhost: what: reason" line on standard error.
void ErrorLine(const std::string& what, const std::string& reason);

// Flushes standard output, keeping the reason of its first failed write.
void FlushStandardOutput();
// The last step of every run: standard output flushed and closed, so a write
// that failed (a full disk, a descriptor closed under it) is told with one
// line and exit code 2; otherwise exitCode.
int FinishStandardOutput(int exitCode);

}  // namespace pxhost
