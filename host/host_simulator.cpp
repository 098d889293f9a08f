#include "host/host_simulator.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>

using pixmere::FormatRecord;
using pixmere::Handle;

namespace pxhost {
namespace {

// Fields the plug-in may write start every call as this byte pattern, so any
// write shows, even one that stores what the host had.
constexpr unsigned char kUnwritten = 0xA5;

HostSession* gCurrent = nullptr;  // the session inside PluginMain; one request at a time

int16_t HostProcStub() {
  return 0;
}

int32_t BasicAcquire(const char* name, int32_t version, const void** suite) {
  return SuiteRegistry::Get().Acquire(name, version, suite);
}
int32_t BasicRelease(const char* name, int32_t version) {
  return SuiteRegistry::Get().Release(name, version);
}
const pixmere::PKBasicSuite kBasicSuite{&BasicAcquire, &BasicRelease};

int32_t SuitesCount(int32_t* count) {
  *count = 0;
  return 0;
}
int32_t SuitesFind(const char* name, int32_t version, pixmere::PKSuiteRef* ref) {
  const void* procs = SuiteRegistry::Get().Find(name, version);
  *ref = const_cast<void*>(procs);
  return procs != nullptr ? 0 : pixmere::kPKErrSuiteNotFound;
}
int32_t SuitesAdd(int32_t, int32_t, const char* name, int32_t version, int32_t, const void* procs,
                  pixmere::PKSuiteRef* ref) {
  int32_t err = SuiteRegistry::Get().Add(name, version, procs, true);
  if (ref != nullptr) *ref = err == 0 ? const_cast<void*>(procs) : nullptr;
  return err;
}
const pixmere::PKSuitesSuite kSuitesSuite{&SuitesCount, &SuitesFind, &SuitesAdd};

#define QL_FIELD(name, writes)                                                \
  FieldInfo {                                                                 \
#name, offsetof(FormatRecord, name), uint8_t(sizeof(FormatRecord::name)), \
        std::is_pointer_v < decltype(FormatRecord::name)>, writes             \
  }

}  // namespace

namespace {

struct LoadedModule {
  void* handle;
  PluginMainProc entry;
};
std::map<std::string, LoadedModule>& Loaded() {
  static std::map<std::string, LoadedModule> loaded;
  return loaded;
}

}  // namespace

PluginMainProc LoadPlugin(const std::string& path, std::string* error) {
  auto it = Loaded().find(path);
  if (it != Loaded().end()) return it->second.entry;
  void* module = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (module == nullptr) {
    *error = dlerror();
    return nullptr;
  }
  auto entry = reinterpret_cast<PluginMainProc>(dlsym(module, "PluginMain"));
  if (entry == nullptr) {
    *error = path + ": no PluginMain entry point";
    dlclose(module);
    return nullptr;
  }
  Loaded().emplace(path, LoadedModule{module, entry});
  return entry;
}

bool UnloadPlugin(const std::string& path) {
  auto it = Loaded().find(path);
  if (it == Loaded().end()) return false;
  // No registered entry may outlive the tables and code it points into.
  SuiteRegistry::Get().DropAddedSuites();
  dlclose(it->second.handle);
  Loaded().erase(it);
  return true;
}

std::string FindPlugin(const std::string& requested, std::vector<std::string>* tried) {
  if (!requested.empty()) return requested;
  if (const char* env = std::getenv("PXHOST_PLUGIN"); env != nullptr && *env != 0) return env;
  // The build tree puts the module beside the program; an installed program
  // finds it in the module folder relative to its own, so a moved prefix works
  // and an installed copy never loads a build tree's module.
  std::error_code ec;
  auto self = std::filesystem::read_symlink("/proc/self/exe", ec);
  if (ec) return {};
  for (const auto& candidate : {self.parent_path() / "qlformat.so",
                                self.parent_path() / QL_MODULE_RELDIR / "qlformat.so"}) {
    if (std::filesystem::is_regular_file(candidate, ec)) return candidate.lexically_normal();
    if (tried != nullptr) tried->push_back(candidate.lexically_normal());
  }
  return {};
}

bool ParseHostProc(const std::string& name, HostProc* proc) {
  static const std::map<std::string, HostProc> names{{"required1", HostProc::Required1},
                                                     {"required2", HostProc::Required2},
                                                     {"required3", HostProc::Required3},
                                                     {"required4", HostProc::Required4},
                                                     {"advance-state", HostProc::AdvanceState}};
  auto it = names.find(name);
  if (it == names.end()) return false;
  *proc = it->second;
  return true;
}

SuiteRegistry& SuiteRegistry::Get() {
  static SuiteRegistry registry;
  return registry;
}

SuiteRegistry::SuiteRegistry() {
  suites_.push_back(
      {pixmere::kPKSuitesSuite, pixmere::kPKSuitesSuiteVersion, &kSuitesSuite, false});
}

void SuiteRegistry::DropAddedSuites() {
  std::erase_if(suites_, [](const Entry& e) { return e.added; });
}

const pixmere::PKBasicSuite* SuiteRegistry::Basic() const {
  return &kBasicSuite;
}

const void* SuiteRegistry::Find(const std::string& name, int32_t version) const {
  for (const Entry& e : suites_)
    if (e.name == name && e.version == version) return e.procs;
  return nullptr;
}

int32_t SuiteRegistry::Acquire(const char* name, int32_t version, const void** suite) {
  const void* procs = Find(name, version);
  int32_t err = procs != nullptr ? 0 : pixmere::kPKErrSuiteNotFound;
  if (suite != nullptr) *suite = procs;
  events_.push_back({SuiteEvent::kAcquire, name, version, err});
  return err;
}

int32_t SuiteRegistry::Release(const char* name, int32_t version) {
  int32_t err = Find(name, version) != nullptr ? 0 : pixmere::kPKErrSuiteNotFound;
  events_.push_back({SuiteEvent::kRelease, name, version, err});
  return err;
}

int32_t SuiteRegistry::Add(const char* name, int32_t version, const void* procs, bool added) {
  int32_t err = Find(name, version) != nullptr ? pixmere::kPKErrSuiteExists : 0;
  if (err == 0) suites_.push_back({name, version, procs, added});
  events_.push_back({SuiteEvent::kAdd, name, version, err});
  return err;
}

const std::vector<FieldInfo>& RecordFields() {
  static const std::vector<FieldInfo> fields{
      QL_FIELD(dataForkRef, false), QL_FIELD(imageMode, true),         QL_FIELD(imageHeight, true),
      QL_FIELD(imageWidth, true),   QL_FIELD(imageDepth, true),        QL_FIELD(planeCount, true),
      QL_FIELD(pixelData, true),    QL_FIELD(rectTop, true),           QL_FIELD(rectLeft, true),
      QL_FIELD(rectBottom, true),   QL_FIELD(rectRight, true),         QL_FIELD(firstPlane, true),
      QL_FIELD(lastPlane, true),    QL_FIELD(columnStride, true),      QL_FIELD(rowStride, true),
      QL_FIELD(planeStride, true),  QL_FIELD(requiredProcs, false),    QL_FIELD(handleProcs, false),
      QL_FIELD(fileType, false),    QL_FIELD(advanceStateProc, false), QL_FIELD(basicSuite, false),
      QL_FIELD(pluginRef, false),   QL_FIELD(clearedPairA, true),      QL_FIELD(clearedPairB, true),
      QL_FIELD(previewOpen, false), QL_FIELD(xmpHandle, true)};
  return fields;
}

HostSession::HostSession(PluginMainProc entry, const std::string& path,
                         const SessionOptions& options) {
  fd_ = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd_ < 0) openError_ = path + ": " + std::strerror(errno);
  ownsFd_ = true;
  SetUp(entry, options);
}

HostSession::HostSession(PluginMainProc entry, int fd, const SessionOptions& options) : fd_(fd) {
  SetUp(entry, options);
}

HostSession::~HostSession() {
  for (HandleBlock* block : handles_) {
    delete[] block->data;
    delete block;
  }
  if (ownsFd_ && fd_ >= 0) close(fd_);
}

void HostSession::SetUp(PluginMainProc entry, const SessionOptions& options) {
  entry_ = entry;
  options_ = options;
  // The host's own fields get recognisable values; the record itself is
  // placed at a 16-byte boundary so that field offsets decide alignment.
  std::memset(recordStorage_, 0x5A, sizeof recordStorage_);
  record_ = reinterpret_cast<FormatRecord*>(recordStorage_);
  auto offered = [&](HostProc p) { return options.withheld.count(p) == 0; };
  requiredProcs_.header = 4;
  requiredProcs_.proc[0] = offered(HostProc::Required1) ? &HostProcStub : nullptr;
  requiredProcs_.proc[1] = offered(HostProc::Required2) ? &HostProcStub : nullptr;
  requiredProcs_.proc[2] = offered(HostProc::Required3) ? &HostProcStub : nullptr;
  requiredProcs_.proc[3] = offered(HostProc::Required4) ? &HostProcStub : nullptr;
  handleProcs_.header = 3;
  handleProcs_.newHandle = &OnNewHandle;
  handleProcs_.disposeHandle = &OnDisposeHandle;
  handleProcs_.getHandleSize = &OnGetHandleSize;

  FormatRecord& r = *record_;
  r.dataForkRef = fd_;
  r.requiredProcs = &requiredProcs_;
  r.handleProcs = &handleProcs_;
  r.fileType = options.fileType;
  r.advanceStateProc = offered(HostProc::AdvanceState) ? &OnAdvanceState : nullptr;
  r.basicSuite = SuiteRegistry::Get().Basic();
  r.pluginRef = 0x504C5547;  // any value: the plug-in copies it and never reads it
  r.previewOpen = options.previewOpen ? 1 : 0;
}

void HostSession::MarkWritableFields() {
  for (const FieldInfo& f : RecordFields())
    if (f.pluginWrites) std::memset(recordStorage_ + f.offset, kUnwritten, f.width);
}

int16_t HostSession::Call(int16_t selector) {
  MarkWritableFields();
  advanceCalls_.clear();
  int16_t result = 0x7A7A;  // anything but a real code: the plug-in must set it
  gCurrent = this;
  entry_(selector, record_, &pluginData_, &result);
  gCurrent = nullptr;
  return result;
}

std::vector<std::pair<const FieldInfo*, int64_t>> HostSession::WrittenFields() const {
  std::vector<std::pair<const FieldInfo*, int64_t>> written;
  for (const FieldInfo& f : RecordFields()) {
    if (!f.pluginWrites) continue;
    const unsigned char* at = recordStorage_ + f.offset;
    bool untouched = true;
    for (size_t k = 0; k < f.width; ++k) untouched = untouched && at[k] == kUnwritten;
    if (untouched) continue;
    int64_t value = 0;
    if (f.width == 1) value = int8_t(at[0]);
    if (f.width == 2)
      value = [&] {
        int16_t v;
        std::memcpy(&v, at, 2);
        return v;
      }();
    if (f.width == 4)
      value = [&] {
        int32_t v;
        std::memcpy(&v, at, 4);
        return v;
      }();
    if (f.width == 8)
      value = [&] {
        int64_t v;
        std::memcpy(&v, at, 8);
        return v;
      }();
    written.emplace_back(&f, value);
  }
  return written;
}

std::string HostSession::HandleBytes(Handle handle) const {
  for (const HandleBlock* block : handles_)
    if (&block->data == handle) return std::string(block->data, size_t(block->size));
  return {};
}

int16_t HostSession::OnAdvanceState() {
  HostSession& s = *gCurrent;
  const FormatRecord& r = *s.record_;
  AdvanceCall call{r.rectTop,   r.rectLeft,     r.rectBottom, r.rectRight,   r.firstPlane,
                   r.lastPlane, r.columnStride, r.rowStride,  r.planeStride, {}};
  const auto* base = static_cast<const uint8_t*>(r.pixelData);
  int planes = call.lastPlane - call.firstPlane + 1;
  if (base != nullptr && planes > 0) {
    for (int y = 0; y < call.bottom - call.top; ++y)
      for (int x = 0; x < call.right - call.left; ++x)
        for (int p = 0; p < planes; ++p)
          call.pixels.push_back(
              base[ptrdiff_t(y) * call.rowStride + ptrdiff_t(x) * call.columnStride +
                   ptrdiff_t(p) * call.planeStride]);
  }
  s.advanceCalls_.push_back(std::move(call));
  return 0;
}

Handle HostSession::OnNewHandle(int32_t size) {
  HostSession& s = *gCurrent;
  s.handleSizes_.push_back(size);
  if (s.options_.newHandleFails || size < 0) return nullptr;
  auto* block = new HandleBlock{new char[size_t(size) + 1], size};
  s.handles_.push_back(block);
  return &block->data;
}

void HostSession::OnDisposeHandle(Handle handle) {
  HostSession& s = *gCurrent;
  for (auto it = s.handles_.begin(); it != s.handles_.end(); ++it) {
    if (&(*it)->data != handle) continue;
    delete[](*it)->data;
    delete *it;
    s.handles_.erase(it);
    return;
  }
}

int32_t HostSession::OnGetHandleSize(Handle handle) {
  for (const HandleBlock* block : gCurrent->handles_)
    if (&block->data == handle) return block->size;
  return 0;
}

}  // namespace pxhost
