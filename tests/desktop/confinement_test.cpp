// Each confinement step on its own, in a forked child that reports what it
// found through its exit code (0 when every expectation held, otherwise the
// number of the first that failed); then the renderer child as RunLimited
// makes it, and pxhost where the kernel has no Landlock.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <seccomp.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "common/coverage_counts.h"
#include "desktop/confinement.h"
#include "desktop/limited_child.h"
#include "tests/support/fixture_file.h"

namespace {

namespace fs = std::filesystem;

fs::path TempDir(const std::string& name) {
  std::string pattern = (fs::temp_directory_path() / (name + "-XXXXXX")).string();
  return mkdtemp(pattern.data()) != nullptr ? fs::path(pattern) : fs::path();
}

// Runs body in a child; its result is the child's exit code (-1: killed).
int InChild(const std::function<int()>& body) {
  pid_t pid = fork();
  if (pid == 0) {
    int code = body();
    ql::FlushCoverageCounts();
    _exit(code);
  }
  int status = 0;
  waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

bool Opens(const std::string& path, int flags, int* err = nullptr) {
  int fd = open(path.c_str(), flags | O_CLOEXEC, 0600);
  if (err != nullptr) *err = fd < 0 ? errno : 0;
  if (fd >= 0) close(fd);
  return fd >= 0;
}

struct Folders {
  fs::path root = TempDir("confinement");
  fs::path open = root / "open", closed = root / "closed";
  Folders() {
    fs::create_directories(open);
    fs::create_directories(closed);
    std::ofstream(closed / "secret") << "secret";
    std::ofstream(open / "mine") << "mine";
  }
  ~Folders() { fs::remove_all(root); }
};

TEST(Descriptors, OnlyTheKeptOnesStayOpenMovedAboveTheStandardStreams) {
  EXPECT_EQ(InChild([] {
              int stray = open("/dev/zero", O_RDONLY);
              if (dup2(stray, 57) != 57) return 1;
              int fds[2];
              if (pipe(fds) != 0) return 2;
              std::vector<int> keep = {fds[1], fds[0]};
              if (!pxhost::KeepOnlyDescriptors(&keep).empty() || keep != std::vector<int>{3, 4})
                return 3;
              if (fcntl(57, F_GETFD) != -1 || errno != EBADF) return 4;
              if (fcntl(5, F_GETFD) != -1) return 5;
              struct stat in {
              }, null{};
              if (fstat(0, &in) != 0 || stat("/dev/null", &null) != 0 || in.st_rdev != null.st_rdev)
                return 6;
              char c = 0;
              return write(3, "x", 1) == 1 && read(4, &c, 1) == 1 && c == 'x' ? 0 : 7;
            }),
            0);
}

TEST(ParentDeath, ChildDiesWithItsParentAndNoticesAParentAlreadyGone) {
  // This process adopts what its children leave, so it can wait for the
  // grandchild whose parent it kills.
  ASSERT_EQ(prctl(PR_SET_CHILD_SUBREAPER, 1), 0);
  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  pid_t middle = fork();
  if (middle == 0) {
    pid_t self = getpid();
    pid_t grandchild = fork();
    if (grandchild == 0) {
      if (!pxhost::DieWithParent(self).empty()) _exit(3);
      pause();
      _exit(4);
    }
    if (write(fds[1], &grandchild, sizeof grandchild) != sizeof grandchild) _exit(5);
    pause();
  }
  pid_t grandchild = 0;
  ASSERT_EQ(read(fds[0], &grandchild, sizeof grandchild), ssize_t(sizeof grandchild));
  usleep(100 * 1000);  // the signal is armed by then
  kill(middle, SIGKILL);
  int status = 0;
  waitpid(middle, &status, 0);
  ASSERT_EQ(waitpid(grandchild, &status, 0), grandchild);
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
  close(fds[0]);
  close(fds[1]);

  // A parent that is not the one named (it died before the signal was armed):
  // out at once.
  EXPECT_EQ(InChild([] {
              pxhost::DieWithParent(getppid() + 1);
              return 0;
            }),
            1);
  prctl(PR_SET_CHILD_SUBREAPER, 0);
}

TEST(NoNewPrivileges, IsSet) {
  EXPECT_EQ(InChild([] {
              if (!pxhost::ForbidNewPrivileges().empty()) return 1;
              return prctl(PR_GET_NO_NEW_PRIVS, 0, 0, 0, 0) == 1 ? 0 : 2;
            }),
            0);
}

TEST(Paths, ReadsAndWritesOnlyWhereAllowed) {
  if (pxhost::LandlockVersion() < 1) GTEST_SKIP() << "no Landlock in this kernel";
  Folders f;
  EXPECT_EQ(InChild([&] {
              pxhost::ForbidNewPrivileges();
              pxhost::PathRules rules;
              rules.read = {"/usr", "/no/such/folder"};  // a missing one is skipped
              rules.write = {f.open.string()};
              if (!pxhost::RestrictPaths(rules).empty()) return 1;
              int err = 0;
              if (Opens((f.closed / "secret").string(), O_RDONLY, &err) || err != EACCES) return 2;
              if (Opens(f.closed.string(), O_RDONLY | O_DIRECTORY)) return 3;
              if (Opens((f.closed / "new").string(), O_WRONLY | O_CREAT)) return 4;
              if (Opens("/etc/passwd", O_RDONLY) || Opens("/proc/self/status", O_RDONLY)) return 5;
              if (!Opens("/usr/include/stdio.h", O_RDONLY)) return 6;
              if (Opens("/usr/new-file", O_WRONLY | O_CREAT)) return 7;
              if (!Opens((f.open / "mine").string(), O_RDWR)) return 8;
              if (!Opens((f.open / "new").string(), O_WRONLY | O_CREAT)) return 9;
              // Out of the writable folder by renaming or linking: refused.
              if (rename((f.open / "new").c_str(), (f.closed / "moved").c_str()) == 0) return 10;
              if (link((f.closed / "secret").c_str(), (f.open / "linked").c_str()) == 0) return 11;
              return 0;
            }),
            0);
  EXPECT_FALSE(fs::exists(f.closed / "new"));
  EXPECT_TRUE(fs::exists(f.open / "new"));
}

TEST(Paths, ThumbnailerReadsAnywhereWritesInItsFolder) {
  if (pxhost::LandlockVersion() < 1) GTEST_SKIP() << "no Landlock in this kernel";
  Folders f;
  EXPECT_EQ(InChild([&] {
              pxhost::ForbidNewPrivileges();
              pxhost::PathRules rules;
              rules.readsAnywhere = true;
              // A file named for reading adds no rule: there is nothing
              // left to allow on it (the kernel refuses an empty rule).
              rules.read = {"/etc/passwd"};
              rules.write = {f.open.string()};
              if (!pxhost::RestrictPaths(rules).empty()) return 1;
              if (!Opens((f.closed / "secret").string(), O_RDONLY)) return 2;
              if (Opens((f.closed / "secret").string(), O_WRONLY)) return 3;
              if (unlink((f.closed / "secret").c_str()) == 0) return 4;
              if (!Opens((f.open / "new").string(), O_WRONLY | O_CREAT)) return 5;
              return 0;
            }),
            0);
  EXPECT_TRUE(fs::exists(f.closed / "secret"));
}

// All a pipe's reading end gives until the writers close it.
std::string ReadAndClose(int fd) {
  std::string all;
  char chunk[512];
  for (ssize_t n; (n = read(fd, chunk, sizeof chunk)) > 0;) all.append(chunk, size_t(n));
  close(fd);
  return all;
}

// What the filters leave: 0 when allowed, else the error the call failed with.
int Errno(int result) {
  return result < 0 ? errno : 0;
}

int ForkErrno() {
  pid_t pid = fork();
  if (pid == 0) _exit(0);
  if (pid < 0) return errno;
  waitpid(pid, nullptr, 0);
  return 0;
}

TEST(Calls, RendererStartsNothingAndOpensNoSocketButKeepsThreads) {
  EXPECT_EQ(InChild([] {
              if (!pxhost::RefuseCalls(pxhost::CallSet::kRenderer).empty()) return 1;
              if (Errno(socket(AF_UNIX, SOCK_STREAM, 0)) != EPERM) return 2;
              if (Errno(socket(AF_INET, SOCK_DGRAM, 0)) != EPERM) return 3;
              if (ForkErrno() != EPERM) return 4;
              char* argv[] = {const_cast<char*>("/bin/true"), nullptr};
              if (Errno(execv("/bin/true", argv)) != EPERM) return 5;
              if (Errno(unshare(CLONE_NEWUSER)) != EPERM) return 6;
              if (Errno(int(syscall(SYS_ptrace, 0 /* PTRACE_TRACEME */, 0, 0, 0))) != EPERM)
                return 7;
              bool ran = false;
              std::thread([&] { ran = true; }).join();
              return ran ? 0 : 8;
            }),
            0);
}

TEST(Calls, ThumbnailerStillForksTheRenderer) {
  EXPECT_EQ(InChild([] {
              if (!pxhost::RefuseCalls(pxhost::CallSet::kThumbnailer).empty()) return 1;
              if (Errno(socket(AF_INET6, SOCK_STREAM, 0)) != EPERM) return 2;
              char* argv[] = {const_cast<char*>("/bin/true"), nullptr};
              if (Errno(execv("/bin/true", argv)) != EPERM) return 3;
              return ForkErrno() == 0 ? 0 : 4;
            }),
            0);
}

TEST(RendererChild, ConfinedWithAPrivateFolderThatIsRemovedAfterwards) {
  if (pxhost::LandlockVersion() < 1) GTEST_SKIP() << "no Landlock in this kernel";
  Folders f;
  std::string input = (f.open / "mine").string();
  pxhost::RenderLimits limits;
  limits.scratchFolder = f.open.string();
  auto render = [&](const pxhost::RenderRoom& room, pxhost::RgbImage* image) -> std::string {
    const char* tmp = std::getenv("TMPDIR");
    if (tmp == nullptr || room.folder != tmp) return "TMPDIR is not the private folder";
    if (!Opens(room.folder + "/scratch", O_WRONLY | O_CREAT)) return "private folder not writable";
    if (Opens((f.open / "beside").string(), O_WRONLY | O_CREAT)) return "wrote beside it";
    if (Opens((f.closed / "secret").string(), O_RDONLY)) return "read a secret";
    if (!Opens(room.document, O_RDONLY)) return "cannot read its input by its name";
    if (Opens("/proc/self/status", O_RDONLY)) return "read elsewhere in /proc";
    char c = 0;
    if (read(room.input, &c, 1) != 1 || c != 'm') return "input descriptor unreadable";
    if (write(room.input, "x", 1) >= 0) return "input descriptor writable";
    *image = pxhost::RgbImage{1, 1, {1, 2, 3}};
    return {};
  };
  pxhost::RgbImage image;
  int fd = open(input.c_str(), O_RDONLY | O_CLOEXEC);
  EXPECT_EQ(pxhost::RunLimited({fd, {}}, render, limits, 4, &image), "");
  close(fd);
  EXPECT_EQ(image.pixels, (std::vector<uint8_t>{1, 2, 3}));
  EXPECT_FALSE(fs::exists(f.open / "beside"));
  for (const auto& entry : fs::directory_iterator(f.open))
    EXPECT_EQ(entry.path().filename(), "mine") << "left behind";
}

// What the parent makes of each way a renderer can end; it survives them
// all and leaves no private folder behind.
TEST(RendererChild, EveryEndingGetsItsOwnReason) {
  Folders f;
  // A file on disk: Landlock takes no rule on an in-memory file.
  int input = open((f.open / "mine").c_str(), O_RDONLY | O_CLOEXEC);
  using pxhost::RenderRoom;
  using pxhost::RgbImage;
#if defined(__SANITIZE_ADDRESS__)
  // The sanitizer's allocator reports running out and ends the process
  // rather than throwing: by abort() when the run asks for that.
  const char* asan = std::getenv("ASAN_OPTIONS");
  const std::string outOfMemory =
      asan != nullptr && std::string(asan).find("abort_on_error=1") != std::string::npos
          ? "renderer crashed (signal 6)"
          : "renderer gave no image";
#else
  const std::string outOfMemory = "renderer ran out of memory";
#endif
  using Render = std::function<std::string(const RenderRoom&, RgbImage*)>;
  // A renderer that hands over this picture and no reason.
  auto gives = [](RgbImage picture) -> Render {
    return [picture](const RenderRoom&, RgbImage* image) {
      *image = picture;
      return std::string();
    };
  };
  struct Case {
    const char* what;
    Render render;
    std::string reason;
  } cases[] = {
      {"an image", gives({2, 1, {1, 2, 3, 4, 5, 6}}), ""},
      {"its own reason, cut to one short line",
       [](const RenderRoom&, RgbImage*) { return std::string(1000, 'x'); }, std::string(300, 'x')},
      {"past the memory limit",
       [](const RenderRoom&, RgbImage* image) {
         image->pixels.assign(size_t(1) << 30, 1);
         return std::string("allocated");
       },
       outOfMemory},
      {"an exception",
       [](const RenderRoom&, RgbImage*) -> std::string { throw std::runtime_error("lost"); },
       "renderer failed"},
      {"a crash", [](const RenderRoom&, RgbImage*) -> std::string { std::abort(); },
       "renderer crashed (signal 6)"},
      {"the CPU limit's signal",
       [](const RenderRoom&, RgbImage*) {
         raise(SIGXCPU);
         return std::string();
       },
       "renderer ran over its 3 s time limit"},
      {"the wall-clock limit",
       [](const RenderRoom&, RgbImage*) {
         sleep(5);
         return std::string();
       },
       "renderer ran over its 3 s time limit"},
      {"killed from outside",
       [](const RenderRoom&, RgbImage*) {
         raise(SIGKILL);
         return std::string();
       },
       "renderer gave no image"},
      {"no image", gives({}), "renderer gave no image"},
      {"a side above the most asked for", gives({5, 1, std::vector<uint8_t>(15)}),
       "renderer gave no image"},
      {"fewer pixels than its size", gives({2, 2, std::vector<uint8_t>(9)}),
       "renderer gave no image"},
      {"a side above the most asked for, the other way", gives({1, 5, std::vector<uint8_t>(15)}),
       "renderer gave no image"},
      {"a negative size", gives({-1, -3, std::vector<uint8_t>(9)}), "renderer gave no image"},
      // Answers written by hand on the pipe (kept on descriptor 3): a header
      // cut short, and one that is neither an image nor a reason.
      {"a header cut short",
       [](const RenderRoom&, RgbImage*) -> std::string {
         _exit(write(3, "I\1\0\0", 4) == 4 ? 0 : 1);
       },
       "renderer gave no image"},
      {"an unknown answer",
       [](const RenderRoom&, RgbImage*) -> std::string {
         _exit(write(3, "Z\1\0\0\0\1\0\0\0abc", 12) == 12 ? 0 : 1);
       },
       "renderer gave no image"},
      {"more bytes than any answer", gives({1, 1, std::vector<uint8_t>(size_t(4) << 20)}),
       "renderer gave no image"},
  };
  pxhost::RenderLimits limits;
  // Room enough for the quick ones on a busy machine.
  limits.seconds = 3;
  limits.memoryBytes = int64_t(64) << 20;
  limits.scratchFolder = f.open.string();
  limits.unconfined = pxhost::LandlockVersion() < 1;
  for (const Case& c : cases) {
    RgbImage image;
    EXPECT_EQ(pxhost::RunLimited({input, {}}, c.render, limits, 4, &image), c.reason) << c.what;
    EXPECT_EQ(image.pixels.empty(), !c.reason.empty()) << c.what;
  }
  for (const auto& entry : fs::directory_iterator(f.open))
    EXPECT_EQ(entry.path().filename(), "mine") << "left behind";
  // The private folder goes where it is asked, else in $TMPDIR, else /tmp.
  limits.scratchFolder = (f.root / "gone").string();
  RgbImage image;
  EXPECT_EQ(pxhost::RunLimited({input, {}}, cases[0].render, limits, 4, &image),
            "cannot make the renderer's folder: " + limits.scratchFolder + ": no such file");
  const char* tmp = std::getenv("TMPDIR");
  std::string saved = tmp != nullptr ? tmp : "";
  limits.scratchFolder.clear();
  setenv("TMPDIR", (f.root / "gone too").c_str(), 1);
  EXPECT_EQ(
      pxhost::RunLimited({input, {}}, cases[0].render, limits, 4, &image),
      "cannot make the renderer's folder: " + (f.root / "gone too").string() + ": no such file");
  setenv("TMPDIR", "", 1);
  EXPECT_EQ(pxhost::RunLimited({input, {}}, cases[0].render, limits, 4, &image), "");
  if (tmp != nullptr)
    setenv("TMPDIR", saved.c_str(), 1);
  else
    unsetenv("TMPDIR");
  close(input);
}

// RunLimited in a child where the kernel fails one call of the renderer
// child's steps with err (only when the call's arguments match `when`): the
// seccomp filter answers for the kernel, and its children inherit it.
struct KernelFault {
  const char* call;
  int err;
  std::optional<scmp_arg_cmp> when;  // the argument that singles the call out
};

std::string RenderUnder(const KernelFault& fault, const pxhost::RenderJob& job,
                        const pxhost::RenderLimits& limits, bool* rendered) {
  int fds[2];
  if (pipe(fds) != 0) return "pipe";
  pid_t pid = fork();
  if (pid == 0) {
    close(fds[0]);
    scmp_filter_ctx filter = seccomp_init(SCMP_ACT_ALLOW);
    if (seccomp_rule_add_array(filter, SCMP_ACT_ERRNO(fault.err),
                               seccomp_syscall_resolve_name(fault.call), fault.when ? 1U : 0U,
                               fault.when ? &*fault.when : nullptr) != 0 ||
        seccomp_load(filter) != 0)
      _exit(99);
    auto render = [](const pxhost::RenderRoom&, pxhost::RgbImage* image) {
      *image = pxhost::RgbImage{1, 1, {7, 8, 9}};
      return std::string();
    };
    pxhost::RgbImage image;
    std::string reason = pxhost::RunLimited(job, render, limits, 4, &image);
    reason += image.pixels.empty() ? "" : "|rendered";
    bool written = write(fds[1], reason.data(), reason.size()) == ssize_t(reason.size());
    ql::FlushCoverageCounts();
    _exit(written ? 0 : 98);
  }
  close(fds[1]);
  std::string reason = ReadAndClose(fds[0]);
  int status = 0;
  waitpid(pid, &status, 0);
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) return "test child failed";
  *rendered = reason.size() >= 9 && reason.compare(reason.size() - 9, 9, "|rendered") == 0;
  if (*rendered) reason.resize(reason.size() - 9);
  return reason;
}

TEST(RendererChild, NothingIsRenderedWhenAStepFailsAndTheReasonNamesIt) {
  if (pxhost::LandlockVersion() < 1) GTEST_SKIP() << "no Landlock in this kernel";
  Folders f;
  const std::string confine = "the kernel cannot confine the renderer (";
  const std::string anyway =
      "), so the document is not rendered; --render-unconfined renders it anyway";
  struct Case {
    KernelFault fault;
    std::vector<std::string> readable;
    std::string reason;
  } cases[] = {
      // The thumbnailer's own calls: no pipe, no process.
      {{"pipe2", EMFILE, {}}, {}, "cannot start the renderer: too many open files"},
      {{"clone", EAGAIN, {SCMP_A0(SCMP_CMP_MASKED_EQ, CLONE_THREAD, 0)}},
       {},
       "cannot start the renderer: resource temporarily unavailable"},
      {{"prctl", EPERM, {SCMP_A0(SCMP_CMP_EQ, PR_SET_PDEATHSIG)}},
       {},
       "parent-death signal: permission denied"},
      // Only /dev/null is opened read-write without O_CLOEXEC.
      {{"openat", EACCES, {SCMP_A2(SCMP_CMP_EQ, O_RDWR)}}, {}, "/dev/null: permission denied"},
      {{"fcntl", EMFILE, {SCMP_A1(SCMP_CMP_EQ, F_DUPFD_CLOEXEC)}}, {}, "too many open files"},
      {{"dup2", EBUSY, {SCMP_A1(SCMP_CMP_EQ, 0)}}, {}, "device or resource busy"},
      // Moving the kept descriptors down from where they were parked.
      {{"dup2", EBUSY, {SCMP_A0(SCMP_CMP_GE, 100)}}, {}, "device or resource busy"},
      {{"close_range", ENOSYS, {}}, {}, "close_range: function not implemented"},
      {{"prctl", EPERM, {SCMP_A0(SCMP_CMP_EQ, PR_SET_NO_NEW_PRIVS)}},
       {},
       confine + "no new privileges: permission denied" + anyway},
      // A ruleset the kernel does not accept (asking the version passes).
      {{"landlock_create_ruleset", EINVAL, {SCMP_A2(SCMP_CMP_EQ, 0)}},
       {},
       confine + "Landlock: invalid argument" + anyway},
      {{"landlock_add_rule", EINVAL, {}},
       {},
       confine + "Landlock: /usr: invalid argument" + anyway},
      {{"newfstatat", EIO, {SCMP_A3(SCMP_CMP_MASKED_EQ, AT_EMPTY_PATH, AT_EMPTY_PATH)}},
       {},
       confine + "Landlock: /usr: input/output error" + anyway},
      {{"landlock_restrict_self", EPERM, {}}, {}, confine + "Landlock: permission denied" + anyway},
      // A path to read that cannot be opened for a reason other than absence.
      {{"acct", EPERM, {}},
       {"/etc/passwd/module.so"},
       confine + "Landlock: /etc/passwd/module.so: a component of the path is not a directory" +
           anyway},
      {{"seccomp", EPERM, {SCMP_A0(SCMP_CMP_EQ, 1 /* SECCOMP_SET_MODE_FILTER */)}},
       {},
       confine + "seccomp: operation canceled" + anyway},
  };
  int input = open((f.open / "mine").c_str(), O_RDONLY | O_CLOEXEC);
  pxhost::RenderLimits limits;
  limits.scratchFolder = f.open.string();
  for (const Case& c : cases) {
    bool rendered = true;
    EXPECT_EQ(RenderUnder(c.fault, {input, c.readable}, limits, &rendered), c.reason)
        << c.fault.call;
    EXPECT_FALSE(rendered) << c.fault.call;
  }
  // Asked to render anyway, it does, where the kernel could not confine it.
  limits.unconfined = true;
  bool rendered = false;
  EXPECT_EQ(RenderUnder({"landlock_restrict_self", EPERM, {}}, {input, {}}, limits, &rendered), "");
  EXPECT_TRUE(rendered);
  close(input);
}

// A plug-in installed without its renderer module, or beside a module that
// is not one: the page is not rendered, and the line says which.
TEST(RendererChild, AMissingOrForeignRendererModuleIsNamed) {
  if (pxhost::LandlockVersion() < 1) GTEST_SKIP() << "no Landlock in this kernel";
  Folders f;
  fs::copy_file(QL_PLUGIN, f.open / "qlformat.so");
  std::string ps = "%!PS-Adobe-3.0\n%%BoundingBox: 0 0 20 20\n%%EndComments\n" +
                   std::string(600, '%') + "\n0 0 20 20 rectfill\nshowpage\n";
  std::ofstream(f.open / "page.ps") << ps;
  std::string run = "cd " + f.open.string() + " && " + QL_PXHOST +
                    " --plugin ./qlformat.so thumbnail page.ps out.png";
  qltest::Outcome missing = qltest::Shell(run);
  EXPECT_EQ(missing.status, 1);
  EXPECT_EQ(missing.out, "pxhost: page.ps: the renderer module cannot be loaded\n");
  // Any other module under its name.
  fs::copy_file(QL_PLUGIN, f.open / "qlformat-render.so");
  qltest::Outcome foreign = qltest::Shell(run);
  EXPECT_EQ(foreign.status, 1);
  EXPECT_EQ(foreign.out, "pxhost: page.ps: the renderer module has no entry\n");
  EXPECT_FALSE(fs::exists(f.open / "out.png"));
}

// pxhost on a kernel without Landlock, as a filter that answers "not
// implemented" makes it look: no rendering, one line saying why, unless asked.
qltest::Outcome WithoutLandlock(const std::string& args) {
  int out[2];
  if (pipe(out) != 0) return {-1, "pipe"};
  pid_t pid = fork();
  if (pid == 0) {
    dup2(out[1], 2);
    scmp_filter_ctx filter = seccomp_init(SCMP_ACT_ALLOW);
    seccomp_rule_add(filter, SCMP_ACT_ERRNO(ENOSYS), SCMP_SYS(landlock_create_ruleset), 0);
    if (seccomp_load(filter) != 0) _exit(99);
    execl("/bin/sh", "sh", "-c", (std::string(QL_PXHOST) + " thumbnail " + args).c_str(), nullptr);
    _exit(98);
  }
  close(out[1]);
  qltest::Outcome outcome{-1, ReadAndClose(out[0])};
  int status = 0;
  waitpid(pid, &status, 0);
  outcome.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return outcome;
}

TEST(WithoutLandlock, RenderingRefusedInOneLineUnlessAskedEmbeddedStillWorks) {
  fs::path dir = TempDir("no-landlock");
  std::string ps = "%!PS-Adobe-3.0\n%%BoundingBox: 0 0 20 20\n%%Pages: 1\n%%EndComments\n" +
                   std::string(600, '%') + "\n%%Page: 1 1\n0 0 20 20 rectfill\nshowpage\n%%EOF\n";
  std::ofstream(dir / "plain.ps") << ps;
  std::string in = (dir / "plain.ps").string(), out = (dir / "out.png").string();
  qltest::Outcome refused = WithoutLandlock(in + " " + out);
  EXPECT_NE(refused.status, 0);
  EXPECT_NE(refused.out.find("cannot confine the renderer"), std::string::npos) << refused.out;
  EXPECT_NE(refused.out.find("--render-unconfined"), std::string::npos);
  EXPECT_EQ(std::count(refused.out.begin(), refused.out.end(), '\n'), 1) << refused.out;
  EXPECT_FALSE(fs::exists(out));
  qltest::Outcome asked = WithoutLandlock("--render-unconfined " + in + " " + out);
  EXPECT_EQ(asked.status, 0) << asked.out;
  EXPECT_TRUE(fs::exists(out));
  // An embedded preview needs no renderer.
  std::string badge = std::string(QL_SAMPLES) + "/vector/badge.ps";
  qltest::Outcome embedded = WithoutLandlock(badge + " " + (dir / "badge.png").string());
  EXPECT_EQ(embedded.status, 0) << embedded.out;
  EXPECT_TRUE(fs::exists(dir / "badge.png"));
  fs::remove_all(dir);
}

}  // namespace
