// Checks and parses arbitrary bytes as a swatch exchange file, with names
// stripped and kept whole, then reads back everything the book holds.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "swatchbook/vantor_swatch_book.h"
#include "swatchio/sxf_reader.h"
#include "tests/support/memory_stream.h"

namespace {

std::string_view Bytes(const uint8_t* data, size_t size) {
  return {reinterpret_cast<const char*>(data), size};
}

void ReadBack(VantorSwatchBook& book) {
  int32_t unused = 0;
  int32_t groups = book.CountSwatchGroups(unused);
  for (int32_t g = 0; g < groups; ++g) {
    book.SetActiveSwatchGroup(g);
    book.IsUngrouped(g);
    book.GetSwatchGroupName(0).ToUTF8();
    for (int32_t s = 0; s < book.CountSwatchesInActiveGroup(); ++s) {
      XMLString name = book.GetSwatchName(s, 0);
      name.ToUTF8();
      int32_t format = book.GetBestFormat(s, book.GetSwatchColorSpace(s));
      double values[4];
      book.GetColorValues(s, format, values);
      unsigned char bytes[4];
      book.GetColorValues(s, format, KeltoSwatchbook::kEncoding8Bit, bytes);
      uint32_t flag = 0;
      book.GetSwatchTint(s, flag);
      book.FindSwatchByName(name, 1, 1);
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  qltest::MemoryStream checked(Bytes(data, size));
  int32_t unknown = 0;
  KeltoSwatchbook::CheckSXF(checked, unknown);
  for (int32_t flags : {0, 1}) {
    VantorSwatchBook book;
    qltest::MemoryStream parsed(Bytes(data, size));
    book.ParseSXF(parsed, flags);
    ReadBack(book);
  }
  return 0;
}
