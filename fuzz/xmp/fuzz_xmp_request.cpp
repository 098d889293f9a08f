// The swatch XMP request (selector 21) through the host simulator on arbitrary
// bytes presented as a swatch exchange file. Whatever the reader makes of
// them, the answer is 0 or "cannot read", and a handle handed over holds a
// packet that parses.
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "host/host_simulator.h"
#include "sdk/plugin_main.h"
#include "sdk/selectors.h"
#include "xmp/toolkit.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const int fd = memfd_create("fuzz_xmp_request", MFD_CLOEXEC);
  // Keeps the toolkit up between runs, so each request's own start and stop
  // only count, as in a host that has other metadata work going on.
  static const bool toolkit = xmptk::Initialize();
  if (!toolkit) std::abort();
  if (ftruncate(fd, 0) != 0 || pwrite(fd, data, size, 0) != ssize_t(size)) std::abort();

  pxhost::SessionOptions options;
  options.fileType = pixmere::FourCC("SXF ");
  pxhost::HostSession session(&PluginMain, fd, options);
  int16_t result = session.Call(pixmere::kSelectorXMP);
  if (result != 0 && result != pixmere::kResultCannotRead) std::abort();
  bool handedOver = false;
  for (const auto& [field, value] : session.WrittenFields())
    handedOver = handedOver || std::strcmp(field->name, "xmpHandle") == 0;
  if (handedOver) {
    if (result != 0) std::abort();
    std::string packet = session.HandleBytes(session.Record().xmpHandle);
    try {
      xmptk::XMPMeta meta(packet.data(), uint32_t(packet.size()));
    } catch (const xmptk::XMPError&) {
      std::abort();
    }
  }
  return 0;
}
