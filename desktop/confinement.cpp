#include "desktop/confinement.h"

#include <fcntl.h>
#include <linux/landlock.h>
#include <sched.h>
#include <seccomp.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

#include "common/coverage_counts.h"
#include "pxhost/atomic_output.h"

namespace pxhost {
namespace {

// The rights and fields later Landlock versions added, numbered as the
// kernel's ABI numbers them: Debian 12's kernel headers stop at version 2.
constexpr uint64_t kFsTruncate = 1ULL << 14;        // version 3
constexpr uint64_t kFsIoctlDev = 1ULL << 15;        // version 5
constexpr uint64_t kNetBindTcp = 1ULL << 0;         // version 4
constexpr uint64_t kNetConnectTcp = 1ULL << 1;      // version 4
constexpr uint64_t kScopeAbstractUnix = 1ULL << 0;  // version 6
constexpr uint64_t kScopeSignal = 1ULL << 1;        // version 6

// The ruleset's attributes as version 6 lays them out; older kernels are
// given the prefix they know.
struct RulesetAttr {
  uint64_t handledFs;
  uint64_t handledNet;
  uint64_t scoped;
};

constexpr uint64_t kFsRead = LANDLOCK_ACCESS_FS_READ_FILE | LANDLOCK_ACCESS_FS_READ_DIR;
// What may happen beneath a writable folder: everything but starting
// programs and making device nodes.
constexpr uint64_t kFsWrite = LANDLOCK_ACCESS_FS_WRITE_FILE | LANDLOCK_ACCESS_FS_REMOVE_DIR |
                              LANDLOCK_ACCESS_FS_REMOVE_FILE | LANDLOCK_ACCESS_FS_MAKE_DIR |
                              LANDLOCK_ACCESS_FS_MAKE_REG | LANDLOCK_ACCESS_FS_MAKE_SOCK |
                              LANDLOCK_ACCESS_FS_MAKE_FIFO | LANDLOCK_ACCESS_FS_MAKE_SYM |
                              LANDLOCK_ACCESS_FS_REFER | kFsTruncate;
// The rights Landlock accepts on a rule for a file rather than a folder.
constexpr uint64_t kFsFileRights = LANDLOCK_ACCESS_FS_EXECUTE | LANDLOCK_ACCESS_FS_WRITE_FILE |
                                   LANDLOCK_ACCESS_FS_READ_FILE | kFsTruncate | kFsIoctlDev;

uint64_t HandledFs(int version) {
  uint64_t fs = (LANDLOCK_ACCESS_FS_MAKE_SYM << 1) - 1;  // version 1: bits 0 to 12
  if (version >= 2) fs |= LANDLOCK_ACCESS_FS_REFER;
  if (version >= 3) fs |= kFsTruncate;
  if (version >= 5) fs |= kFsIoctlDev;
  return fs;
}

// Allows `access` (as far as the ruleset handles it) beneath path, or on the
// file itself. A path that does not exist is no error: nothing is there to allow.
std::string AllowPath(int ruleset, const std::string& path, uint64_t access, uint64_t handled) {
  int fd = open(path.c_str(), O_PATH | O_CLOEXEC);
  if (fd < 0) return errno == ENOENT ? "" : path + ": " + SystemReason(errno);
  struct stat st {};
  if (fstat(fd, &st) != 0) {
    int e = errno;
    close(fd);
    return path + ": " + SystemReason(e);
  }
  if (!S_ISDIR(st.st_mode)) access &= kFsFileRights;
  landlock_path_beneath_attr rule{access & handled, fd};
  std::string error;
  if (rule.allowed_access != 0 &&
      syscall(SYS_landlock_add_rule, ruleset, LANDLOCK_RULE_PATH_BENEATH, &rule, 0) != 0)
    error = path + ": " + SystemReason(errno);
  close(fd);
  return error;
}

}  // namespace

int LandlockVersion() {
  long version = syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION);
  return version < 0 ? 0 : int(version);
}

std::string KeepOnlyDescriptors(std::vector<int>* keep) {
  int null = open("/dev/null", O_RDWR);
  if (null < 0) return "/dev/null: " + SystemReason(errno);
  // First out of the way of 0 to 2 and of the numbers they are given, then
  // onto them: a kept descriptor may already sit on 3 or 4.
  constexpr int kAbove = 100;
  std::vector<int> moved;
  for (int fd : *keep) {
    int high = fcntl(fd, F_DUPFD_CLOEXEC, kAbove);
    if (high < 0) return SystemReason(errno);
    moved.push_back(high);
  }
  for (int standard = 0; standard <= 2; ++standard)
    if (dup2(null, standard) < 0) return SystemReason(errno);
  for (size_t i = 0; i < moved.size(); ++i) {
    int target = 3 + int(i);
    if (dup2(moved[i], target) < 0) return SystemReason(errno);
    (*keep)[i] = target;
  }
  // What dup2 made is inherited and stays across exec; nothing is executed.
  if (syscall(SYS_close_range, unsigned(3 + moved.size()), ~0U, 0) != 0)
    return "close_range: " + SystemReason(errno);
  return {};
}

std::string DieWithParent(pid_t parent) {
  if (prctl(PR_SET_PDEATHSIG, SIGKILL) != 0) return "parent-death signal: " + SystemReason(errno);
  // Had the parent died before the signal was armed, the child would already
  // belong to another process (init or a subreaper).
  if (getppid() != parent) _exit(1);
  return {};
}

std::string ForbidNewPrivileges() {
  if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0)
    return "no new privileges: " + SystemReason(errno);
  return {};
}

std::string RestrictPaths(const PathRules& rules) {
  int version = LandlockVersion();
  if (version < 1) return "Landlock: not offered by this kernel";
  RulesetAttr attr{HandledFs(version), 0, 0};
  if (rules.readsAnywhere) attr.handledFs &= ~kFsRead;
  size_t size = sizeof attr.handledFs;
  if (version >= 4) {
    attr.handledNet = kNetBindTcp | kNetConnectTcp;  // and no rule allows a port
    size = offsetof(RulesetAttr, scoped);
  }
  if (version >= 6) {
    attr.scoped = kScopeAbstractUnix | kScopeSignal;
    size = sizeof attr;
  }
  int ruleset = int(syscall(SYS_landlock_create_ruleset, &attr, size, 0));
  if (ruleset < 0) return "Landlock: " + SystemReason(errno);
  std::string error;
  for (const std::string& path : rules.read)
    if (error.empty()) error = AllowPath(ruleset, path, kFsRead, attr.handledFs);
  for (const std::string& path : rules.write)
    if (error.empty()) error = AllowPath(ruleset, path, kFsRead | kFsWrite, attr.handledFs);
  // The coverage build's counts are written as each process ends, confined
  // or not (nothing in other builds).
  std::string counts = ql::CoverageCountsFolder();
  if (error.empty() && !counts.empty())
    error = AllowPath(ruleset, counts, kFsRead | kFsWrite, attr.handledFs);
  if (error.empty() && syscall(SYS_landlock_restrict_self, ruleset, 0) != 0)
    error = SystemReason(errno);
  close(ruleset);
  return error.empty() ? "" : "Landlock: " + error;
}

std::string RefuseCalls(CallSet set) {
  scmp_filter_ctx filter = seccomp_init(SCMP_ACT_ALLOW);
  if (filter == nullptr) return "seccomp: cannot make a filter";
  // A 64-bit process can still make the 32-bit calls; the rules cover them
  // too (the helper numbers each call per architecture).
  if (seccomp_arch_native() == SCMP_ARCH_X86_64) {
    seccomp_arch_add(filter, SCMP_ARCH_X86);
    seccomp_arch_add(filter, SCMP_ARCH_X32);
  }
  const uint32_t refuse = SCMP_ACT_ERRNO(EPERM);
  int failed = 0;
  auto add = [&](int call) {
    // Calls an architecture does not have are no error.
    int r = seccomp_rule_add(filter, refuse, call, 0);
    if (r != 0 && r != -EDOM && failed == 0) failed = r;
  };
  for (int call : {SCMP_SYS(execve),
                   SCMP_SYS(execveat),
                   SCMP_SYS(socket),
                   SCMP_SYS(socketpair),
                   SCMP_SYS(process_vm_readv),
                   SCMP_SYS(process_vm_writev),
                   SCMP_SYS(mount),
                   SCMP_SYS(umount2),
                   SCMP_SYS(umount),
                   SCMP_SYS(pivot_root),
                   SCMP_SYS(chroot),
                   SCMP_SYS(unshare),
                   SCMP_SYS(setns),
                   SCMP_SYS(move_mount),
                   SCMP_SYS(open_tree),
                   SCMP_SYS(fsopen),
                   SCMP_SYS(fsconfig),
                   SCMP_SYS(fsmount),
                   SCMP_SYS(fspick),
                   SCMP_SYS(mount_setattr),
                   SCMP_SYS(keyctl),
                   SCMP_SYS(add_key),
                   SCMP_SYS(request_key),
                   SCMP_SYS(bpf),
                   SCMP_SYS(perf_event_open),
                   SCMP_SYS(userfaultfd),
                   SCMP_SYS(kexec_load),
                   SCMP_SYS(kexec_file_load),
                   SCMP_SYS(init_module),
                   SCMP_SYS(finit_module),
                   SCMP_SYS(delete_module),
                   SCMP_SYS(reboot),
                   SCMP_SYS(swapon),
                   SCMP_SYS(swapoff),
                   SCMP_SYS(acct),
                   SCMP_SYS(quotactl),
                   SCMP_SYS(open_by_handle_at),
                   SCMP_SYS(name_to_handle_at),
                   SCMP_SYS(fanotify_init),
                   SCMP_SYS(io_uring_setup),
                   SCMP_SYS(personality),
                   SCMP_SYS(syslog),
                   SCMP_SYS(uselib),
                   SCMP_SYS(ioperm),
                   SCMP_SYS(iopl),
                   SCMP_SYS(vhangup)})
    add(call);
    // LeakSanitizer inspects the process at its end from a helper it traces;
    // sanitizer builds of the thumbnailer keep ptrace, the renderer child ends
    // with _exit and never runs it.
#if defined(__SANITIZE_ADDRESS__)
  constexpr bool kLeakChecked = true;
#elif defined(__has_feature)
  constexpr bool kLeakChecked = __has_feature(address_sanitizer);
#else
  constexpr bool kLeakChecked = false;
#endif
  if (set == CallSet::kRenderer || !kLeakChecked) add(SCMP_SYS(ptrace));
  if (set == CallSet::kRenderer) {
    add(SCMP_SYS(fork));
    add(SCMP_SYS(vfork));
    // A thread shares the process; anything else clone makes is a process.
    int r = seccomp_rule_add(filter, refuse, SCMP_SYS(clone), 1,
                             SCMP_A0(SCMP_CMP_MASKED_EQ, CLONE_THREAD, 0));
    if (r != 0 && failed == 0) failed = r;
    // clone3 passes its flags in memory a filter cannot read: "not
    // implemented" sends the C library back to clone for its threads.
    r = seccomp_rule_add(filter, SCMP_ACT_ERRNO(ENOSYS), SCMP_SYS(clone3), 0);
    if (r != 0 && r != -EDOM && failed == 0) failed = r;
  }
  if (failed == 0) failed = seccomp_load(filter);
  seccomp_release(filter);
  return failed == 0 ? "" : "seccomp: " + SystemReason(-failed);
}

}  // namespace pxhost
