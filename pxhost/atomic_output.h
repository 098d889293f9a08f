// An output file that appears whole or not at all. Bytes go to a temporary
// file in the target's folder and a successful Commit renames it over the
// target; Abandon (or destruction without Commit) removes it. "-" is standard
// output. An existing target that is not a regular file (a device such as
// /dev/null or /dev/full, a pipe) is written in place: renaming over it would
// swap a device node for a file. An existing empty regular file is filled in
// place too: it has nothing to lose, and whoever made it may be holding it open
// to read the result (a desktop thumbnailer service hands its thumbnailer a
// file it created and reads it back through the descriptor it kept); if the
// run fails it is left empty again. A target that names one of the inputs is
// refused before anything is opened. Every write is checked; the first error
// sticks and is what Error() reports.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace pxhost {

class AtomicOutput {
 public:
  AtomicOutput() = default;
  ~AtomicOutput();
  AtomicOutput(const AtomicOutput&) = delete;
  AtomicOutput& operator=(const AtomicOutput&) = delete;

  // False with Error() set when the target cannot be written or is an input.
  bool Open(const std::string& target, const std::vector<std::string>& inputs);
  // False once any write failed.
  bool Write(std::string_view bytes);
  // Flushes and closes, every step checked; only the rename is left to
  // Commit. False with Error() set on failure, and nothing is kept (as
  // Abandon). Outputs that appear together are all closed before any is
  // renamed, so a disk that fills up changes none of their targets.
  bool Close();
  // Closes (unless Close did) and renames into place; false with Error() set
  // on failure, in which case nothing is left at the target (unless written
  // in place).
  bool Commit();
  void Abandon();

  // Outputs that belong together (a packet and its pages) are renamed into
  // place all or none: each is closed first, and when one cannot be renamed
  // those renamed before it are put back as they were (a replaced file
  // swapped back in, a new one removed, an empty file written in place
  // emptied again). nullptr, or the output that failed, its Error() set.
  static AtomicOutput* CommitAll(const std::vector<std::unique_ptr<AtomicOutput>>& outputs);

  const std::string& Target() const { return target_; }
  const std::string& Error() const { return error_; }

 private:
  // How a closed output reached its target, so that it can be taken back.
  enum class Placed { kNot, kNew, kSwapped, kFilledInPlace, kForGood };

  bool Flush();
  bool Fail(const std::string& reason);
  bool Place();
  void Unplace();

  std::string target_;
  std::string temp_;        // empty when writing in place
  bool emptyFile_ = false;  // an empty regular file written in place
  int fd_ = -1;
  bool ownsFd_ = false;
  bool closed_ = false;       // Close succeeded: only the rename is left
  bool filledEmpty_ = false;  // closed, and it was an empty file written in place
  Placed placed_ = Placed::kNot;
  std::string buffer_;
  std::string error_;
};

// Writes all of data to fd, retrying short writes and interruptions: 0, or
// the errno value of the failure (EIO for a write that took nothing).
int WriteAll(int fd, const void* data, size_t size);

// A lower-case reason a person can act on for an errno value ("no such file",
// "permission denied", "no space left on device", ...).
std::string SystemReason(int err);

}  // namespace pxhost
