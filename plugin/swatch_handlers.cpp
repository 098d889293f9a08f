#include "plugin/swatch_handlers.h"

#include <cstring>
#include <string>

#include "plugin/globals.h"
#include "swatchbook/vantor_swatch_book.h"
#include "swatchio/data_filter_stream.h"
#include "xmp/host_binding.h"
#include "xmp/toolkit.h"
#include "xmp/xmp_mgmt.h"

namespace {

// Runs its action when the request leaves, also by an exception, so the
// toolkit and binding counts stay balanced.
template <typename F>
class AtExit {
 public:
  explicit AtExit(F f) : f_(f) {}
  ~AtExit() { f_(); }
  AtExit(const AtExit&) = delete;
  AtExit& operator=(const AtExit&) = delete;

 private:
  F f_;
};

}  // namespace

void DoFilterFile() {
  *gResult = 0;
  // The check needs no book; one is built around it all the same, as the
  // request that follows a positive answer works on a fresh one.
  VantorSwatchBook book;
  DataFilterStream stream(gFormatRecord->dataForkRef);  // rewinds the file
  int32_t unknownBlocks = 0;
  if (!KeltoSwatchbook::CheckSXF(stream, unknownBlocks)) *gResult = pixmere::kResultCannotRead;
}

void DoXMPRequest() {
  // Without the host's binding runtime there is no colour engine: no packet,
  // and no error either.
  WeftProcLookup lookup = FindWeftProcLookup();
  if (lookup == nullptr) return;
  WeftClientInit(lookup);
  AtExit binding([] { WeftClientTerminate(); });
  if (!xmptk::Initialize()) return;
  AtExit toolkit([] { xmptk::Terminate(); });

  VantorSwatchBook book;
  DataFilterStream stream(gFormatRecord->dataForkRef);
  book.ParseSXF(stream, 0);  // whatever the book holds is described, also after a fault

  std::string packet;
  XMPMgmt().GenerateXMP(book, packet);

  // The handle holds exactly the packet's bytes, without a terminator.
  pixmere::Handle handle = gFormatRecord->handleProcs->newHandle(int32_t(packet.size()));
  if (handle == nullptr || *handle == nullptr) {
    *gResult = pixmere::kResultCannotRead;
    return;
  }
  std::memcpy(*handle, packet.data(), packet.size());
  gFormatRecord->xmpHandle = handle;
}
