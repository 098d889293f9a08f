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
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <new>
#include <system_error>
#include <vector>

#include "common/coverage_counts.h"
#include "desktop/confinement.h"
#include "pxhost/atomic_output.h"

namespace pxhost {
namespace {

// What the child writes: 'I', width and height (int32, native order), then
// the pixels; or 'E' and a one-line reason.
constexpr char kImageTag = 'I';
constexpr char kErrorTag = 'E';
constexpr size_t kImageHeader = 1 + 2 * sizeof(int32_t);
constexpr size_t kMaxReason = 300;

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

// What every renderer reads besides the document and its module: the
// system's programs, libraries and data (fonts, Ghostscript's resources and
// CMaps, Poppler's data), fontconfig's settings and caches, Ghostscript's
// font maps, the paper size and the loader's cache.
const char* const kSystemReadable[] = {
    "/usr",
    "/etc/fonts",
    "/var/cache/fontconfig",
    "/etc/ghostscript",
    "/var/lib/ghostscript",
    "/etc/papersize",
    "/etc/ld.so.cache",
    "/dev/urandom",
};

}  // namespace

std::string ConfineRenderer(const RenderJob& job, int input, const std::string& folder) {
  std::string error = ForbidNewPrivileges();
  PathRules rules;
  rules.read.assign(std::begin(kSystemReadable), std::end(kSystemReadable));
  rules.read.insert(rules.read.end(), job.readable.begin(), job.readable.end());
  // The document by the descriptor the child holds, whatever its name.
  rules.read.push_back("/proc/self/fd/" + std::to_string(input));
  rules.write = {folder, "/dev/null"};
  if (error.empty()) error = RestrictPaths(rules);
  if (error.empty()) error = RefuseCalls(CallSet::kRenderer);
  return error;
}

namespace {

[[noreturn]] void Child(pid_t parent, int out, int input, const RenderJob& job,
                        const std::string& folder, const RenderProc& render,
                        const RenderLimits& limits) {
  setpgid(0, 0);
  std::string error = DieWithParent(parent);
  // Renderers talk on the standard streams; the thumbnailer's own standard
  // error carries one line per failure, so theirs go nowhere. Nothing else
  // the caller had open reaches the renderer.
  std::vector<int> keep = {out, input};
  if (error.empty()) error = KeepOnlyDescriptors(&keep);
  out = keep[0];
  RenderRoom room{keep[1], "/proc/self/fd/" + std::to_string(keep[1]), folder};

  rlimit memory{};
  memory.rlim_cur = memory.rlim_max = CurrentAddressSpace() + uint64_t(limits.memoryBytes);
  setrlimit(RLIMIT_AS, &memory);
  // A second guard should the parent itself be gone: CPU time is bounded too.
  rlimit cpu{rlim_t(limits.seconds) + 1, rlim_t(limits.seconds) + 2};
  setrlimit(RLIMIT_CPU, &cpu);
  rlimit core{0, 0};
  setrlimit(RLIMIT_CORE, &core);
  setenv("TMPDIR", folder.c_str(), 1);

  if (error.empty()) {
    std::string refused = ConfineRenderer(job, room.input, folder);
    if (!refused.empty() && !limits.unconfined)
      error = "the kernel cannot confine the renderer (" + refused +
              "), so the document is not rendered; --render-unconfined renders it anyway";
  }
  RgbImage image;
  try {
    if (error.empty()) error = render(room, &image);
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

// The child's private folder, made empty for one run and removed after it
// with whatever the child left in it.
class PrivateFolder {
 public:
  explicit PrivateFolder(const std::string& scratch) {
    std::string base = scratch;
    if (base.empty()) {
      const char* tmp = std::getenv("TMPDIR");
      base = tmp != nullptr && *tmp != '\0' ? tmp : "/tmp";
    }
    std::string pattern = base + "/.qlformat-render-XXXXXX";
    if (mkdtemp(pattern.data()) != nullptr)
      path_ = pattern;
    else
      error_ = base + ": " + SystemReason(errno);
  }
  ~PrivateFolder() {
    std::error_code ignored;
    if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
  }
  PrivateFolder(const PrivateFolder&) = delete;
  PrivateFolder& operator=(const PrivateFolder&) = delete;
  const std::string& Path() const { return path_; }
  const std::string& Error() const { return error_; }

 private:
  std::string path_, error_;
};

}  // namespace

std::string RunLimited(const RenderJob& job, const RenderProc& render, const RenderLimits& limits,
                       int32_t maxSide, RgbImage* image) {
  PrivateFolder folder(limits.scratchFolder);
  if (folder.Path().empty()) return "cannot make the renderer's folder: " + folder.Error();
  int fds[2];
  if (pipe2(fds, O_CLOEXEC) != 0) return "cannot start the renderer: " + SystemReason(errno);
  std::fflush(nullptr);  // nothing buffered is written twice
  pid_t parent = getpid();
  pid_t pid = fork();
  if (pid < 0) {
    close(fds[0]);
    close(fds[1]);
    return "cannot start the renderer: " + SystemReason(errno);
  }
  if (pid == 0) {
    close(fds[0]);
    Child(parent, fds[1], job.input, job, folder.Path(), render, limits);
  }
  close(fds[1]);
  setpgid(pid, pid);  // also here, so the group exists whichever runs first

  // The largest answer: an image of maxSide squared, or a reason (which may
  // be the longer of the two when maxSide is small).
  const size_t cap = std::max(kImageHeader + size_t(maxSide) * size_t(maxSide) * 3, 1 + kMaxReason);
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
  // Whatever is left of the group goes, whether it finished or not: nothing
  // the renderer started outlives the request. Killed before the pipe
  // closes, a child still writing dies of this and not of a broken pipe,
  // which would read as a crash.
  killpg(pid, SIGKILL);
  close(fds[0]);
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
