// Work on many files in worker processes: reported as a serial run reports
// it, whatever a file's work does.
#include <gtest/gtest.h>

#include <unistd.h>

#include <csignal>
#include <stdexcept>
#include <string>
#include <vector>

#include "pxhost/batch.h"

namespace {

struct Captured {
  int exitCode;
  std::string out, err;
};

Captured Batch(const std::vector<std::string>& files, int jobs, bool json,
               const pxhost::FileWork& work) {
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  pxhost::Report report(json);
  pxhost::RunBatch(files, jobs, report, work);
  Captured r{report.ExitCode(), "", ""};
  r.out = testing::internal::GetCapturedStdout();
  r.err = testing::internal::GetCapturedStderr();
  return r;
}

// Done, refused and throwing files, unevenly slow, on one process and on
// three: the same lines in the same order and the same exit code, and an
// exception fails its file alone without its text reaching the user.
TEST(Batch, WorkersReportAsASerialRunDoes) {
  std::vector<std::string> files;
  for (int i = 0; i < 24; ++i) files.push_back("file" + std::to_string(i));
  auto work = [](size_t index, const std::string& file, pxhost::Report& report) {
    if (index % 7 == 0) usleep(20000);  // later files finish first
    if (index == 5) throw std::runtime_error("internal detail");
    if (index % 4 == 1)
      report.Refused(file, "not a swatch exchange file");
    else
      report.Done(file, {{"index", index}}, file + ": done");
  };
  for (bool json : {false, true}) {
    Captured serial = Batch(files, 1, json, work);
    Captured parallel = Batch(files, 3, json, work);
    EXPECT_EQ(serial.exitCode, 2);
    EXPECT_EQ(parallel.exitCode, serial.exitCode);
    EXPECT_EQ(parallel.out, serial.out);
    EXPECT_EQ(parallel.err, serial.err);
    EXPECT_NE(serial.err.find("pxhost: file5: stopped by an unexpected failure\n"),
              std::string::npos)
        << serial.err;
    EXPECT_EQ(serial.err.find("internal detail"), std::string::npos);
    EXPECT_NE(serial.out.find("file23"), std::string::npos);
  }
}

// A worker that dies, or that a library ends with exit(), fails the file it
// was on; a new worker does the rest.
TEST(Batch, AWorkerThatDiesFailsOnlyItsFile) {
  std::vector<std::string> files{"a", "dies", "b", "exits", "c", "d"};
  Captured r = Batch(files, 2, false, [](size_t, const std::string& file, pxhost::Report& report) {
    if (file == "dies") raise(SIGKILL);
    if (file == "exits") _exit(1);
    report.Done(file, {}, file + ": done");
  });
  EXPECT_EQ(r.exitCode, 2);
  EXPECT_EQ(r.out, "a: done\nb: done\nc: done\nd: done\n");
  EXPECT_EQ(r.err,
            "pxhost: dies: the work on this file stopped its worker (signal 9)\n"
            "pxhost: exits: the work on this file stopped its worker (exit code 1)\n");
}

}  // namespace
