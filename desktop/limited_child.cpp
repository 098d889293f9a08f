#include "desktop/limited_child.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <new>

#include "common/coverage_counts.h"
#include "pxhost/atomic_output.h"

namespace pxhost {
namespace {

// What the child writes: 'I', width and height (int32, native order), then
// the pixels; or 'E' and a one-line reason.
constexpr char kImageTag = 'I';
constexpr char kErrorTag = 'E';
constexpr size_t kImageHeader = 1 + 2 * sizeof(int32_t);
constexpr size_t kMaxReason = 200;

// The address space the process already has: the limit is a budget on top of
// it, so a sanitizer's large up-front reservations do not use it up.
uint64_t CurrentAddressSpace() {
  FILE* f = std::fopen("/proc/self/statm", "r");
  unsigned long long pages = 0;
  if (f != nullptr) {
    if (std::fscanf(f, "%llu", &pages) != 1) pages = 0;
    std::fclose(f);
  }
  return uint64_t(pages) * uint64_t(sysconf(_SC_PAGESIZE));
}

[[noreturn]] void Child(int out, const std::function<std::string(RgbImage*)>& render,
                        const RenderLimits& limits) {
  setpgid(0, 0);
  // Renderers talk on the standard streams; the thumbnailer's own standard
  // error carries one line per failure, so theirs go nowhere.
  int null = open("/dev/null", O_RDWR);
  if (null >= 0) {
    dup2(null, 0);
    dup2(null, 1);
    dup2(null, 2);
    if (null > 2) close(null);
  }
  rlimit memory{};
  memory.rlim_cur = memory.rlim_max = CurrentAddressSpace() + uint64_t(limits.memoryBytes);
  setrlimit(RLIMIT_AS, &memory);
  // A second guard should the parent itself be gone: CPU time is bounded too.
  rlimit cpu{rlim_t(limits.seconds) + 1, rlim_t(limits.seconds) + 2};
  setrlimit(RLIMIT_CPU, &cpu);
  rlimit core{0, 0};
  setrlimit(RLIMIT_CORE, &core);

  RgbImage image;
  std::string error;
  try {
    error = render(&image);
  } catch (const std::bad_alloc&) {
    error = "renderer ran out of memory";
  } catch (...) {
    error = "renderer failed";
  }
  bool ok;
  if (error.empty()) {
    char header[kImageHeader] = {kImageTag};
    std::memcpy(header + 1, &image.width, sizeof(int32_t));
    std::memcpy(header + 1 + sizeof(int32_t), &image.height, sizeof(int32_t));
    ok = WriteAll(out, header, sizeof header) == 0 &&
         WriteAll(out, image.pixels.data(), image.pixels.size()) == 0;
  } else {
    error.resize(std::min(error.size(), kMaxReason));
    ok = WriteAll(out, &kErrorTag, 1) == 0 && WriteAll(out, error.data(), error.size()) == 0;
  }
  ql::FlushCoverageCounts();
  _exit(ok ? 0 : 1);
}

}  // namespace

std::string RunLimited(const std::function<std::string(RgbImage*)>& render,
                       const RenderLimits& limits, int32_t maxSide, RgbImage* image) {
  int fds[2];
  if (pipe2(fds, O_CLOEXEC) != 0)
    return std::string("cannot start the renderer: ") + strerror(errno);
  std::fflush(nullptr);  // nothing buffered is written twice
  pid_t pid = fork();
  if (pid < 0) {
    close(fds[0]);
    close(fds[1]);
    return std::string("cannot start the renderer: ") + strerror(errno);
  }
  if (pid == 0) {
    close(fds[0]);
    Child(fds[1], render, limits);
  }
  close(fds[1]);
  setpgid(pid, pid);  // also here, so the group exists whichever runs first

  const size_t cap = kImageHeader + size_t(maxSide) * size_t(maxSide) * 3;
  std::string got;
  bool timedOut = false;
  auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(limits.seconds);
  char chunk[65536];
  for (;;) {
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) {
      timedOut = true;
      break;
    }
    pollfd p{fds[0], POLLIN, 0};
    int ready = poll(&p, 1, int(left.count()));
    if (ready < 0 && errno == EINTR) continue;
    if (ready <= 0) continue;  // the deadline is checked above
    ssize_t n = read(fds[0], chunk, sizeof chunk);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    if (got.size() + size_t(n) > cap) break;  // more than any answer can be
    got.append(chunk, size_t(n));
  }
  close(fds[0]);
  // Whatever is left of the group goes, whether it finished or not: nothing
  // the renderer started outlives the request.
  killpg(pid, SIGKILL);
  int status = 0;
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }

  if (timedOut) return "renderer ran over its " + std::to_string(limits.seconds) + " s time limit";
  if (!got.empty() && got[0] == kErrorTag) return got.substr(1);
  if (got.size() >= kImageHeader && got[0] == kImageTag) {
    int32_t w = 0, h = 0;
    std::memcpy(&w, got.data() + 1, sizeof w);
    std::memcpy(&h, got.data() + 1 + sizeof w, sizeof h);
    if (w >= 1 && h >= 1 && w <= maxSide && h <= maxSide &&
        got.size() - kImageHeader == size_t(w) * size_t(h) * 3) {
      image->width = w;
      image->height = h;
      image->pixels.assign(got.begin() + kImageHeader, got.end());
      return {};
    }
  }
  if (WIFSIGNALED(status) && WTERMSIG(status) == SIGXCPU)
    return "renderer ran over its " + std::to_string(limits.seconds) + " s time limit";
  if (WIFSIGNALED(status) && WTERMSIG(status) != SIGKILL)
    return "renderer crashed (signal " + std::to_string(WTERMSIG(status)) + ")";
  return "renderer gave no image";
}

}  // namespace pxhost
