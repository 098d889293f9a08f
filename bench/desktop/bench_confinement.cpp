// What confining the renderer child costs per rendered thumbnail. Each round
// times, one after another and in a rotating order: a child set up as the
// renderer child is (own group, parent-death signal, descriptors, then
// no-new-privileges, the Landlock ruleset and the seccomp filter) that ends
// at once (C); the same child without the confinement steps (U); the same
// child taking the thumbnailer's own steps instead (T: what pxhost thumbnail
// spends on itself, once a run); and the whole fallback, RunLimited rendering
// a PostScript page with the renderer module (F). The costs are (C - U) / F
// and (T - U) / F within a round; their medians over the rounds are
// reported, so the machine's drift between rounds cancels out.
//   bench_confinement [ROUNDS]
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "desktop/confinement.h"
#include "desktop/document_pages.h"
#include "desktop/limited_child.h"
#include "thumbnail/ql_thumbnail.h"

namespace {

using Clock = std::chrono::steady_clock;

double Median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  return v.empty()      ? 0
         : v.size() % 2 ? v[v.size() / 2]
                        : (v[v.size() / 2 - 1] + v[v.size() / 2]) / 2;
}

enum class Steps { kNone, kRenderer, kThumbnailer };

// A child that answers one byte through a pipe, confined or not; seconds
// from fork to its end.
double ChildSeconds(Steps steps, const std::string& input, const std::string& folder) {
  int fds[2];
  if (pipe(fds) != 0) std::exit(1);
  int document = open(input.c_str(), O_RDONLY | O_CLOEXEC);
  if (document < 0) std::exit(1);
  pid_t parent = getpid();
  auto start = Clock::now();
  pid_t pid = fork();
  if (pid == 0) {
    setpgid(0, 0);
    pxhost::DieWithParent(parent);
    std::vector<int> keep = {fds[1], document};
    pxhost::KeepOnlyDescriptors(&keep);
    // The renderer child's own confinement, as RunLimited applies it.
    if (steps == Steps::kRenderer &&
        !pxhost::ConfineRenderer({keep[1], {RENDER_MODULE}}, keep[1], folder).empty())
      _exit(2);
    if (steps == Steps::kThumbnailer) {
      pxhost::PathRules rules;
      rules.readsAnywhere = true;
      rules.write = {folder, "/dev/null"};
      if (!pxhost::ForbidNewPrivileges().empty() || !pxhost::RestrictPaths(rules).empty() ||
          !pxhost::RefuseCalls(pxhost::CallSet::kThumbnailer).empty())
        _exit(2);
    }
    _exit(write(keep[0], "x", 1) == 1 ? 0 : 1);
  }
  close(fds[1]);
  close(document);
  char c;
  if (read(fds[0], &c, 1) != 1) std::exit(3);
  int status = 0;
  waitpid(pid, &status, 0);
  close(fds[0]);
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) std::exit(4);
  return std::chrono::duration<double>(Clock::now() - start).count();
}

double FallbackSeconds(const std::string& input) {
  auto render = [&](const pxhost::RenderRoom& room, pxhost::RgbImage* out) -> std::string {
    void* handle = dlopen(RENDER_MODULE, RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) return "no module";
    auto proc =
        reinterpret_cast<pxhost::RenderFirstPageProc>(dlsym(handle, pxhost::kRenderFirstPageName));
    std::string reason;
    proc(kQLDocumentPostScript, room.document, 256, out, &reason);
    return reason;
  };
  pxhost::RgbImage image;
  auto start = Clock::now();
  int fd = open(input.c_str(), O_RDONLY | O_CLOEXEC);
  std::string error = pxhost::RunLimited({fd, {RENDER_MODULE}}, render, {}, 256, &image);
  close(fd);
  if (!error.empty()) {
    std::fprintf(stderr, "bench_confinement: %s\n", error.c_str());
    std::exit(5);
  }
  return std::chrono::duration<double>(Clock::now() - start).count();
}

}  // namespace

int main(int argc, char** argv) {
  int rounds = argc > 1 ? std::atoi(argv[1]) : 30;
  std::string input = QL_SAMPLES "/vector/sunset.ps";
  std::string folder = std::filesystem::temp_directory_path().string();
  std::vector<double> c, t, u, f, cost, own;
  for (int r = 0; r < rounds; ++r) {
    double tc = 0, tt = 0, tu = 0, tf = 0;
    for (int k = 0; k < 4; ++k) {
      int which = (r + k) % 4;
      if (which == 0) tc = ChildSeconds(Steps::kRenderer, input, folder);
      if (which == 1) tu = ChildSeconds(Steps::kNone, input, folder);
      if (which == 2) tt = ChildSeconds(Steps::kThumbnailer, input, folder);
      if (which == 3) tf = FallbackSeconds(input);
    }
    c.push_back(tc);
    t.push_back(tt);
    u.push_back(tu);
    f.push_back(tf);
    cost.push_back((tc - tu) / tf);
    own.push_back((tt - tu) / tf);
  }
  std::printf("%d rounds; medians\n", rounds);
  std::printf("confined child set-up   %8.3f ms\n", Median(c) * 1e3);
  std::printf("unconfined child set-up %8.3f ms\n", Median(u) * 1e3);
  std::printf("thumbnailer's own steps %8.3f ms\n", Median(t) * 1e3);
  std::printf("fallback (PostScript)   %8.1f ms\n", Median(f) * 1e3);
  std::printf("child's steps / fallback %8.2f %% (median of per-round ratios)\n",
              Median(cost) * 100);
  std::printf("own steps / fallback    %8.2f %% (median of per-round ratios)\n", Median(own) * 100);
  return 0;
}
