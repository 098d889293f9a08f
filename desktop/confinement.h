// Confining a process by the kernel, one step at a time: the renderer child
// takes every step before it loads the document renderers, the thumbnailer
// itself the file and call steps that its own work allows. Each step returns
// "" or the reason it could not be taken.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace pxhost {

// The Landlock version the kernel offers; 0 without Landlock (before Linux
// 5.13, or not enabled at boot).
int LandlockVersion();

// Keeps only the descriptors in *keep, moved onto 3, 4, ... in that order
// (*keep gets the new numbers), with standard input, output and error on
// /dev/null; every other descriptor is closed.
std::string KeepOnlyDescriptors(std::vector<int>* keep);

// The process dies with the one that forked it (parent is its pid, taken
// before the fork): a parent-death signal, then a check that the parent did
// not die before the signal was armed (if it did, the process exits at once).
std::string DieWithParent(pid_t parent);

// No program started from here on gains privileges (set-user-ID bits, file
// capabilities); Landlock and seccomp filters need it of an unprivileged
// process.
std::string ForbidNewPrivileges();

// Landlock: files are written (created, removed, renamed, linked) only beneath
// `write`; when readsAnywhere is false they are also read only beneath `read`
// and `write`. Paths that do not exist are skipped. Never programs started,
// TCP, abstract UNIX sockets or signals to processes outside (as far as the
// kernel's Landlock version knows them).
struct PathRules {
  bool readsAnywhere = false;
  std::vector<std::string> read;
  std::vector<std::string> write;
};
std::string RestrictPaths(const PathRules& rules);

// seccomp: the calls refused with an error (EPERM) whatever their arguments:
// starting programs, sockets, debugging other processes, mounts and
// namespaces, kernel keys, BPF, performance counters, userfaultfd, modules
// and the like. The renderer set also refuses new processes (threads stay
// allowed).
enum class CallSet { kThumbnailer, kRenderer };
std::string RefuseCalls(CallSet set);

}  // namespace pxhost
