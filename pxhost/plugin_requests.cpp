#include "pxhost/plugin_requests.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "pxhost/atomic_output.h"
#include "pxhost/report.h"
#include "sdk/host_types.h"
#include "sdk/selectors.h"
#include "sdk/suites.h"
#include "swatchio/swatch_file_survey.h"

namespace pxhost {
namespace {

// The reader holds the whole file in one heap block, which may not grow past
// 256 MiB (the heap's own limit): a larger file is refused before parsing.
constexpr int64_t kSwatchFileLimit = int64_t(256) << 20;

// Opens path for reading without waiting on a named pipe; -1 with *reason.
// A directory opens on Linux and fails at its first read: it is refused here.
int OpenPath(const std::string& path, std::string* reason) {
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (fd < 0) {
    *reason = SystemReason(errno);
    return -1;
  }
  struct stat st {};
  if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
    *reason = S_ISDIR(st.st_mode) ? SystemReason(EISDIR) : "not a regular file";
    ::close(fd);
    return -1;
  }
  ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) & ~O_NONBLOCK);
  return fd;
}

// Standard input as a seekable descriptor: itself when it is a regular file
// this user may open again by its /proc name, as the rendering-method suite
// and the renderers do, which take a path; else its bytes copied into an
// anonymous memory file. A file handed over by someone who may read it
// (`sudo -u nobody pxhost method - < private.ps`) is copied whole.
int OpenStandardInput(std::string* reason) {
  struct stat st {};
  if (::fstat(STDIN_FILENO, &st) == 0 && S_ISREG(st.st_mode) &&
      ::lseek(STDIN_FILENO, 0, SEEK_CUR) >= 0) {
    if (::faccessat(AT_FDCWD, "/proc/self/fd/0", R_OK, AT_EACCESS) == 0)
      return ::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0);
    ::lseek(STDIN_FILENO, 0, SEEK_SET);
  }
  int fd = ::memfd_create("pxhost-stdin", MFD_CLOEXEC);
  if (fd < 0) {
    *reason = SystemReason(errno);
    return -1;
  }
  char buffer[64 * 1024];
  for (;;) {
    ssize_t n = ::read(STDIN_FILENO, buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n == 0) break;
    if (n < 0 || WriteAll(fd, buffer, size_t(n)) != 0) {
      *reason = SystemReason(n < 0 ? errno : ENOSPC);
      ::close(fd);
      return -1;
    }
  }
  ::lseek(fd, 0, SEEK_SET);
  return fd;
}

// A reason with the plug-in's result code, when the code is an error.
std::string WithResult(const std::string& reason, int16_t result) {
  return result == 0 ? reason : reason + " (result " + std::to_string(result) + ")";
}

// Whether the last call wrote the record field of that name.
bool Wrote(const HostSession& session, const char* name) {
  for (const auto& [field, value] : session.WrittenFields())
    if (std::strcmp(field->name, name) == 0) return true;
  return false;
}

// The reader's verdict on a file it refuses, in its own words.
std::string FaultOf(const SwatchFileSurvey& survey) {
  switch (survey.result) {
    case kSXFBadSignature:
      return "not a swatch exchange file (bad signature)";
    case kSXFBadVersion:
      return "not a swatch exchange file (unknown major version)";
    case kSXFTruncated:
      return survey.failedBlock == 0
                 ? "damaged swatch file: the header is cut short"
                 : "damaged swatch file: block " + std::to_string(survey.failedBlock) +
                       " runs past the end";
    case kSXFTooManyBlocks:
      return "damaged swatch file: more than " + std::to_string(kSXFMaxBlocks) +
             " blocks, the most a swatch exchange file may hold";
    case kSXFUnreadable:
      return "cannot be read";
    default:
      return "refused by the plug-in";
  }
}

// Why the plug-in refuses a swatch file, in the words of its own reader
// ("damaged swatch file: block 3 runs past the end"), the same from every
// command whichever request met the refusal. A book the reader loads whole
// is refused by the packet when a name holds a character XML cannot hold;
// otherwise the plug-in's code is all there is to say.
std::string SwatchRefusal(const PluginInput& input, int16_t result) {
  struct stat st {};
  if (::fstat(input.Descriptor(), &st) == 0 && st.st_size > kSwatchFileLimit)
    return "swatch file over the 256 MiB limit";
  SwatchFileSurvey survey = SurveySwatchFile(input.Descriptor());
  if (survey.result != kSXFParsed) return FaultOf(survey);
  std::string shown;
  for (const SwatchFileSurvey::Swatch& s : survey.swatches)
    if (MendText(s.name, &shown))
      return "swatch \"" + shown +
             "\": its name holds a character XML cannot hold, so the swatch packet cannot "
             "list it (palette and thumbnail show the book)";
  return WithResult("refused by the plug-in", result);
}

SessionOptions SwatchSession() {
  SessionOptions options;
  options.fileType = pixmere::FourCC("SXF ");
  return options;
}

}  // namespace

PluginInput::PluginInput(const std::string& path) {
  fd_ = path == "-" ? OpenStandardInput(&error_) : OpenPath(path, &error_);
}

PluginInput::~PluginInput() {
  if (fd_ >= 0) ::close(fd_);
}

std::string PluginInput::DescriptorPath() const {
  return "/proc/self/fd/" + std::to_string(fd_);
}

std::string PluginInput::Head(size_t bytes) const {
  std::string head(bytes, '\0');
  ssize_t n = fd_ < 0 ? -1 : ::pread(fd_, head.data(), bytes, 0);
  head.resize(n < 0 ? 0 : size_t(n));
  return head;
}

bool ReadPreview(PluginMainProc entry, const PluginInput& input, uint32_t fileType, RgbImage* image,
                 std::string* reason) {
  SessionOptions options;
  options.fileType = fileType;
  options.previewOpen = true;
  HostSession session(entry, input.Descriptor(), options);
  int16_t result = session.Call(pixmere::kSelectorReadStart);
  // A file the plug-in takes as a swatch book answers the read selectors
  // without describing an image.
  bool started = result == 0 && Wrote(session, "imageWidth");
  if (started) result = session.Call(pixmere::kSelectorReadContinue);
  bool delivered = result == 0 && session.AdvanceCalls().size() == 1;
  if (delivered) {
    AdvanceCall call = session.AdvanceCalls().front();
    *image = RgbImage{call.right - call.left, call.bottom - call.top, std::move(call.pixels)};
  }
  session.Call(pixmere::kSelectorReadFinish);  // the plug-in gives back its suites
  if (delivered) return true;
  // The reason is what this one pass saw. Read start describes the preview
  // it found, so a refusal after it is a damaged preview. The plug-in gives
  // one code at read start for a file without the preview's marker and for a
  // marker whose header it cannot read or whose image its buffer cannot
  // hold: the words cover both rather than read the file again to guess.
  if (started)
    *reason = WithResult("embedded preview damaged", result);
  else if (result != 0)
    *reason = WithResult("no embedded preview could be read", result);
  else
    *reason = "no embedded preview";
  return false;
}

int16_t FilterSwatchFile(PluginMainProc entry, const PluginInput& input, std::string* reason) {
  HostSession session(entry, input.Descriptor(), SwatchSession());
  int16_t result = session.Call(pixmere::kSelectorFilterFile);
  if (result != 0) *reason = SwatchRefusal(input, 0);
  return result;
}

bool RequestSwatchPacket(PluginMainProc entry, const PluginInput& input, std::string* packet,
                         std::string* reason) {
  HostSession session(entry, input.Descriptor(), SwatchSession());
  int16_t result = session.Call(pixmere::kSelectorFilterFile);
  if (result == 0) result = session.Call(pixmere::kSelectorXMP);
  if (result != 0) {
    *reason = SwatchRefusal(input, result);
    return false;
  }
  if (!Wrote(session, "xmpHandle")) {
    *reason = "the plug-in handed over no XMP packet";
    return false;
  }
  *packet = session.HandleBytes(session.Record().xmpHandle);
  return true;
}

bool AskRenderingMethod(PluginMainProc entry, const PluginInput& input, int32_t* method,
                        std::string* reason) {
  auto& registry = SuiteRegistry::Get();
  const void* procs =
      registry.Find(pixmere::kQLRenderingMethodSuite, pixmere::kQLRenderingMethodSuiteVersion);
  if (procs == nullptr) {
    // The plug-in publishes its suite on its first call, whatever the file.
    SessionOptions options;
    options.fileType = pixmere::FourCC("TEXT");
    HostSession(entry, input.Descriptor(), options).Call(pixmere::kSelectorAbout);
  }
  if (registry.Acquire(pixmere::kQLRenderingMethodSuite, pixmere::kQLRenderingMethodSuiteVersion,
                       &procs) != 0 ||
      procs == nullptr) {
    *reason =
        std::string("the plug-in did not publish \"") + pixmere::kQLRenderingMethodSuite + "\"";
    return false;
  }
  auto* suite = static_cast<const pixmere::QLRenderingMethodSuite*>(procs);
  int32_t err = suite->GetQLRenderingMethodForFile(input.DescriptorPath().c_str(), method);
  registry.Release(pixmere::kQLRenderingMethodSuite, pixmere::kQLRenderingMethodSuiteVersion);
  ::lseek(input.Descriptor(), 0, SEEK_SET);
  if (err == 0) return true;
  *reason = (err == pixmere::kQLErrKXEC ? "cannot be read"
                                        : "the rendering-method suite could not examine it") +
            std::string(" (") + FourCCText(uint32_t(err)) + ")";
  return false;
}

bool ReadSwatchBook(PluginMainProc entry, const PluginInput& input,
                    std::vector<DisplaySwatch>* swatches, std::string* reason) {
  if (FilterSwatchFile(entry, input, reason) != 0) return false;
  SwatchFileSurvey survey = SurveySwatchFile(input.Descriptor());
  if (survey.result != kSXFParsed) {
    *reason = FaultOf(survey);
    return false;
  }
  return DisplaySwatchesOfBook(survey, swatches, reason);
}

}  // namespace pxhost
