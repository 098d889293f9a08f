// The host simulator: loads the plug-in module as the host does, lays out the
// format record, offers the procedure tables and the suite registry, and
// records what the plug-in did so callers and tests can look at it.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "sdk/format_record.h"
#include "sdk/plugin_main.h"
#include "sdk/suites.h"

namespace pxhost {

// Loads the module once per process, like the host: the plug-in's globals and
// its suite publication live until it is unloaded. Returns null and sets
// *error when the module or its entry is missing.
PluginMainProc LoadPlugin(const std::string& path, std::string* error);
// The module to load: the requested path when there is one, else $PXHOST_PLUGIN,
// else qlformat.so beside the running program, else in QL_MODULE_RELDIR
// relative to it. Empty when none exists; *tried (optional) lists the places
// looked at.
std::string FindPlugin(const std::string& requested, std::vector<std::string>* tried);
// Unloads a module LoadPlugin loaded, as the host does when it lets a plug-in
// go: the suites plug-ins added leave the registry first, then the module
// goes. The next LoadPlugin loads it afresh. False when it was not loaded.
bool UnloadPlugin(const std::string& path);

// Procedures the host can withhold from the plug-in.
enum class HostProc { Required1, Required2, Required3, Required4, AdvanceState };
bool ParseHostProc(const std::string& name, HostProc* proc);

struct SuiteEvent {
  enum Kind { kAcquire, kRelease, kAdd } kind;
  std::string name;
  int32_t version;
  int32_t result;
};

// The host's suite registry, process-wide. It offers "PK Suites Suite"
// version 2 and whatever plug-ins add, and logs every acquire, release and add.
class SuiteRegistry {
 public:
  static SuiteRegistry& Get();
  const pixmere::PKBasicSuite* Basic() const;
  const void* Find(const std::string& name, int32_t version) const;
  const std::vector<SuiteEvent>& Events() const { return events_; }
  // Forgets the events so far: a long-running host keeps no growing log.
  void ClearEvents() { events_.clear(); }

  int32_t Acquire(const char* name, int32_t version, const void** suite);
  int32_t Release(const char* name, int32_t version);
  // Registers a table; `added` marks one a plug-in added (dropped at unload).
  int32_t Add(const char* name, int32_t version, const void* procs, bool added = false);
  // Drops every suite added through "PK Suites Suite".
  void DropAddedSuites();

 private:
  SuiteRegistry();
  struct Entry {
    std::string name;
    int32_t version;
    const void* procs;
    bool added;  // through "PK Suites Suite", so owned by a plug-in
  };
  std::vector<Entry> suites_;
  std::vector<SuiteEvent> events_;
};

// One advance-state call: the rectangle and strides the record described and
// a copy of the pixels, packed row by row, channel after channel within a pixel.
struct AdvanceCall {
  int16_t top, left, bottom, right;
  int16_t firstPlane, lastPlane, columnStride;
  int32_t rowStride, planeStride;
  std::vector<uint8_t> pixels;
};

struct SessionOptions {
  uint32_t fileType = 0;
  bool previewOpen = true;
  std::set<HostProc> withheld;
  bool newHandleFails = false;  // the handle procedure answers null
};

// A record field as the plug-in sees it.
struct FieldInfo {
  const char* name;
  size_t offset;
  uint8_t width;  // bytes
  bool pointer;
  bool pluginWrites;
};
const std::vector<FieldInfo>& RecordFields();

class HostSession {
 public:
  // Opens path read-only; its descriptor becomes the data-fork reference.
  HostSession(PluginMainProc entry, const std::string& path, const SessionOptions& options);
  // Uses a descriptor the caller owns.
  HostSession(PluginMainProc entry, int fd, const SessionOptions& options);
  ~HostSession();
  HostSession(const HostSession&) = delete;
  HostSession& operator=(const HostSession&) = delete;

  bool IsOpen() const { return fd_ >= 0; }
  const std::string& OpenError() const { return openError_; }

  int16_t Call(int16_t selector);

  pixmere::FormatRecord& Record() { return *record_; }
  // The plug-in-written fields that the last call wrote, with their values.
  std::vector<std::pair<const FieldInfo*, int64_t>> WrittenFields() const;
  const std::vector<AdvanceCall>& AdvanceCalls() const { return advanceCalls_; }
  // Sizes of the handles the plug-in asked for, in order.
  const std::vector<int32_t>& HandleSizes() const { return handleSizes_; }
  // The bytes of a handle this session allocated.
  std::string HandleBytes(pixmere::Handle handle) const;

 private:
  void SetUp(PluginMainProc entry, const SessionOptions& options);
  void MarkWritableFields();
  static int16_t OnAdvanceState();
  static pixmere::Handle OnNewHandle(int32_t size);
  static void OnDisposeHandle(pixmere::Handle handle);
  static int32_t OnGetHandleSize(pixmere::Handle handle);

  struct HandleBlock {
    char* data;
    int32_t size;
  };

  PluginMainProc entry_ = nullptr;
  int fd_ = -1;
  bool ownsFd_ = false;
  std::string openError_;
  SessionOptions options_;
  pixmere::FormatRecord* record_ = nullptr;
  alignas(16) unsigned char recordStorage_[sizeof(pixmere::FormatRecord)];
  pixmere::RequiredProcs requiredProcs_{};
  pixmere::HandleProcs handleProcs_{};
  intptr_t pluginData_ = 0;
  std::vector<AdvanceCall> advanceCalls_;
  std::vector<int32_t> handleSizes_;
  std::vector<HandleBlock*> handles_;
};

}  // namespace pxhost
