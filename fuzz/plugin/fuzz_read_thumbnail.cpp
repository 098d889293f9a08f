// Read start then read continue, through the host simulator, on arbitrary
// bytes presented as a vector file opened for preview.
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>

#include "host/host_simulator.h"
#include "sdk/plugin_main.h"
#include "sdk/selectors.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const int fd = memfd_create("fuzz_read_thumbnail", MFD_CLOEXEC);
  if (ftruncate(fd, 0) != 0 || pwrite(fd, data, size, 0) != ssize_t(size)) std::abort();

  pxhost::SessionOptions options;
  options.fileType = pixmere::FourCC("EPSF");
  pxhost::HostSession session(&PluginMain, fd, options);
  int16_t start = session.Call(pixmere::kSelectorReadStart);
  int16_t result = session.Call(pixmere::kSelectorReadContinue);
  // Both answers are 0 or "cannot read"; a delivered image is whole.
  if (start != 0 && start != pixmere::kResultCannotRead) std::abort();
  if (result != 0 && result != pixmere::kResultCannotRead) std::abort();
  if (result == 0) {
    const auto& calls = session.AdvanceCalls();
    if (calls.size() != 1) std::abort();
    const auto& c = calls[0];
    if (c.pixels.size() != size_t(c.right) * size_t(c.bottom) * 3 || c.pixels.size() > 49152)
      std::abort();
  }
  return 0;
}
