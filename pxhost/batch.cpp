#include "pxhost/batch.h"

#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <map>

#include "common/coverage_counts.h"
#include "pxhost/atomic_output.h"

namespace pxhost {
namespace {

using Clock = std::chrono::steady_clock;

// "pxhost: 37 of 120 files" on standard error, redrawn in place. Shown only
// on a terminal and only once the run has taken a second: a short run, or
// one whose standard error goes to a file or a pipe, prints nothing extra.
class Progress {
 public:
  explicit Progress(size_t total) : total_(total), start_(Clock::now()) {
    enabled_ = total > 1 && isatty(STDERR_FILENO) == 1;
  }
  ~Progress() { Clear(); }

  // Before anything else is written to the terminal.
  void Clear() {
    if (!shown_) return;
    std::fputs("\r\033[K", stderr);
    std::fflush(stderr);
    shown_ = false;
  }

  void Show(size_t done) {
    if (!enabled_) return;
    auto now = Clock::now();
    if (now - start_ < std::chrono::seconds(1)) return;
    // At most ten redraws a second, and only of a changed count, unless the
    // line was cleared for output.
    if (shown_ && (done == drawnDone_ || now - drawn_ < std::chrono::milliseconds(100))) return;
    std::fprintf(stderr, "\r\033[Kpxhost: %zu of %zu files", done, total_);
    std::fflush(stderr);
    shown_ = true;
    drawn_ = now;
    drawnDone_ = done;
  }

 private:
  size_t total_;
  Clock::time_point start_, drawn_;
  size_t drawnDone_ = 0;
  bool enabled_ = false;
  bool shown_ = false;
};

// Runs the work on one file; anything the work lets escape fails that file
// alone, as a usage-level failure, and the run goes on.
void RunOne(const FileWork& work, size_t index, const std::string& file, Report& report) {
  try {
    work(index, file, report);
  } catch (...) {
    std::fflush(stdout);
    report.Unexpected(file, "stopped by an unexpected failure");
  }
}

// What a worker sends back per file: this header, then the file's standard
// output and standard error bytes.
struct ResultHeader {
  uint64_t index;
  int32_t exitCode;
  int32_t padding;
  uint64_t outBytes;
  uint64_t errBytes;
};

// The bytes written to fd since it was last emptied; empties it.
std::string TakeCaptured(int fd) {
  std::string bytes(size_t(lseek(fd, 0, SEEK_CUR)), '\0');
  size_t got = 0;
  while (got < bytes.size()) {
    ssize_t n = pread(fd, bytes.data() + got, bytes.size() - got, off_t(got));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    got += size_t(n);
  }
  bytes.resize(got);
  if (ftruncate(fd, 0) != 0 || lseek(fd, 0, SEEK_SET) != 0) bytes.clear();
  return bytes;
}

// A worker process's life: standard output and error go to memory files, so
// each file's output can be sent back whole; it takes file indices from the
// socket until the parent closes it.
[[noreturn]] void WorkerMain(int socket, const std::vector<std::string>& files, bool json,
                             const FileWork& work) {
  int out = memfd_create("pxhost-stdout", MFD_CLOEXEC);
  int err = memfd_create("pxhost-stderr", MFD_CLOEXEC);
  if (out < 0 || err < 0 || dup2(out, STDOUT_FILENO) < 0 || dup2(err, STDERR_FILENO) < 0) _exit(3);
  uint64_t index = 0;
  for (;;) {
    ssize_t n = read(socket, &index, sizeof index);
    if (n < 0 && errno == EINTR) continue;
    if (n != sizeof index || index >= files.size()) break;
    Report report(json);
    RunOne(work, size_t(index), files[index], report);
    std::fflush(stdout);
    std::fflush(stderr);
    std::string o = TakeCaptured(STDOUT_FILENO), e = TakeCaptured(STDERR_FILENO);
    ResultHeader h{index, report.ExitCode(), 0, o.size(), e.size()};
    if (WriteAll(socket, &h, sizeof h) != 0 || WriteAll(socket, o.data(), o.size()) != 0 ||
        WriteAll(socket, e.data(), e.size()) != 0)
      break;
  }
  ql::FlushCoverageCounts();
  _exit(0);
}

struct Result {
  int exitCode = 0;
  std::string out, err;
  std::string failure;  // set when the worker died on the file
};

struct Worker {
  pid_t pid = -1;
  int socket = -1;
  bool busy = false;
  size_t index = 0;     // the file it is working on, when busy
  std::string pending;  // bytes of a result not yet whole
};

class Pool {
 public:
  Pool(const std::vector<std::string>& files, int jobs, Report& report, const FileWork& work)
      : files_(files), report_(report), work_(work), progress_(files.size()) {
    workers_.resize(size_t(jobs) < files.size() ? size_t(jobs) : files.size());
  }

  void Run() {
    for (Worker& w : workers_)
      if (Start(w)) Feed(w);
    while (emitted_ < files_.size()) {
      std::vector<pollfd> fds;
      std::vector<Worker*> owners;
      for (Worker& w : workers_)
        if (w.socket >= 0) {
          fds.push_back({w.socket, POLLIN, 0});
          owners.push_back(&w);
        }
      if (fds.empty()) {  // no worker could be started: the rest here
        Emit();
        for (; next_ < files_.size(); ++next_, ++emitted_) {
          progress_.Clear();
          RunOne(work_, next_, files_[next_], report_);
        }
        break;
      }
      int ready = poll(fds.data(), fds.size(), 250);
      if (ready < 0 && errno != EINTR) {
        // Workers that cannot be waited on are given up; the rest is done
        // here (the branch above, once no worker is left).
        for (Worker& w : workers_) Lost(w, "its worker could not be waited on");
        continue;
      }
      for (size_t k = 0; ready > 0 && k < fds.size(); ++k)
        if (fds[k].revents != 0) Receive(*owners[k]);
      Emit();
      progress_.Show(emitted_);
    }
    for (Worker& w : workers_) Lost(w, "its worker was stopped");
  }

 private:
  bool Start(Worker& w) {
    int pair[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair) != 0) return false;
    std::fflush(nullptr);  // nothing buffered may be written twice
    pid_t pid = fork();
    if (pid < 0) {
      close(pair[0]);
      close(pair[1]);
      return false;
    }
    if (pid == 0) {
      close(pair[0]);
      for (const Worker& other : workers_)
        if (other.socket >= 0) close(other.socket);
      WorkerMain(pair[1], files_, report_.Json(), work_);
    }
    close(pair[1]);
    w = Worker{};
    w.pid = pid;
    w.socket = pair[0];
    return true;
  }

  // Hands the worker the next file, or tells it there is none left.
  void Feed(Worker& w) {
    if (next_ >= files_.size()) {
      shutdown(w.socket, SHUT_WR);
      return;
    }
    uint64_t index = next_;
    // MSG_NOSIGNAL: a worker that died is found by its end of file, not by
    // a SIGPIPE that would end pxhost itself.
    if (send(w.socket, &index, sizeof index, MSG_NOSIGNAL) != ssize_t(sizeof index)) return;
    w.busy = true;
    w.index = next_++;
  }

  void Receive(Worker& w) {
    char buffer[65536];
    ssize_t n = read(w.socket, buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) return;
    if (n <= 0) {
      Died(w);
      return;
    }
    w.pending.append(buffer, size_t(n));
    while (w.pending.size() >= sizeof(ResultHeader)) {
      ResultHeader h;
      std::memcpy(&h, w.pending.data(), sizeof h);
      if (w.pending.size() - sizeof h < h.outBytes ||
          w.pending.size() - sizeof h - h.outBytes < h.errBytes)
        break;
      Result& r = results_[size_t(h.index)];
      r.exitCode = h.exitCode;
      r.out = w.pending.substr(sizeof h, h.outBytes);
      r.err = w.pending.substr(sizeof h + h.outBytes, h.errBytes);
      w.pending.erase(0, sizeof h + h.outBytes + h.errBytes);
      w.busy = false;
      Feed(w);
    }
  }

  // The worker's end of the socket closed: it ended, on a file or not.
  void Died(Worker& w) {
    int status = Lost(w, "");
    if (status < 0) return;
    std::string how = WIFSIGNALED(status) ? "signal " + std::to_string(WTERMSIG(status))
                                          : "exit code " + std::to_string(WEXITSTATUS(status));
    results_[w.index].failure = "the work on this file stopped its worker (" + how + ")";
    if (next_ < files_.size() && Start(w)) Feed(w);
  }

  // Closes the worker's socket and waits for it. A file it was on fails with
  // reason, or is left for the caller to fail when reason is empty: then the
  // worker's wait status is returned, -1 when it was not on a file.
  int Lost(Worker& w, const std::string& reason) {
    if (w.socket < 0) return -1;
    close(w.socket);
    w.socket = -1;
    int status = 0;
    while (waitpid(w.pid, &status, 0) < 0 && errno == EINTR) {
    }
    w.pid = -1;
    if (!w.busy) return -1;
    w.busy = false;
    if (!reason.empty()) results_[w.index].failure = reason;
    return status;
  }

  // Writes the results that are next in input order.
  void Emit() {
    for (auto it = results_.find(emitted_); it != results_.end(); it = results_.find(emitted_)) {
      progress_.Clear();
      Result& r = it->second;
      if (!r.failure.empty()) {
        report_.Unexpected(files_[emitted_], r.failure);
      } else {
        std::fwrite(r.out.data(), 1, r.out.size(), stdout);
        FlushStandardOutput();
        std::fwrite(r.err.data(), 1, r.err.size(), stderr);
        std::fflush(stderr);
        report_.Include(r.exitCode);
      }
      results_.erase(it);
      ++emitted_;
    }
  }

  const std::vector<std::string>& files_;
  Report& report_;
  const FileWork& work_;
  Progress progress_;
  std::vector<Worker> workers_;
  std::map<size_t, Result> results_;
  size_t next_ = 0;
  size_t emitted_ = 0;
};

}  // namespace

void RunBatch(const std::vector<std::string>& files, int jobs, Report& report,
              const FileWork& work) {
  if (jobs > 1 && files.size() > 1) {
    Pool(files, jobs, report, work).Run();
    return;
  }
  Progress progress(files.size());
  for (size_t i = 0; i < files.size(); ++i) {
    progress.Clear();
    RunOne(work, i, files[i], report);
    progress.Show(i + 1);
  }
}

}  // namespace pxhost
