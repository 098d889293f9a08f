// Checks and parses arbitrary bytes as a swatch exchange file, with names
// stripped and kept whole, then reads back everything the book holds.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "swatchbook/vantor_swatch_book.h"
#include "swatchio/sxf_reader.h"

namespace {

class BytesStream : public KeltoSwatchbookStream {
 public:
  BytesStream(const uint8_t* data, size_t size) : data_(data), size_(size) {}
  int32_t IsValid() const override { return 1; }
  int32_t IsReading() const override { return 1; }
  int32_t Read(char* buffer, int32_t count) override {
    size_t n = std::min(size_t(count), size_ - at_);
    std::copy_n(data_ + at_, n, buffer);
    at_ += n;
    return int32_t(n);
  }
  int32_t Write(const char*, int32_t) override { return 0; }

 private:
  const uint8_t* data_;
  size_t size_;
  size_t at_ = 0;
};

void ReadBack(VantorSwatchBook& book) {
  int32_t unused = 0;
  int32_t groups = book.CountSwatchGroups(unused);
  for (int32_t g = 0; g < groups; ++g) {
    book.SetActiveSwatchGroup(g);
    book.IsUngrouped(g);
    std::vector<unsigned char> utf8(size_t(book.GetSwatchGroupName(0).GetUTF8(nullptr)));
    book.GetSwatchGroupName(0).GetUTF8(utf8.data());
    for (int32_t s = 0; s < book.CountSwatchesInActiveGroup(); ++s) {
      XMLString name = book.GetSwatchName(s, 0);
      std::vector<unsigned char> text(size_t(name.GetUTF8(nullptr)));
      name.GetUTF8(text.data());
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
  BytesStream checked(data, size);
  int32_t unknown = 0;
  KeltoSwatchbook::CheckSXF(checked, unknown);
  for (int32_t flags : {0, 1}) {
    VantorSwatchBook book;
    BytesStream parsed(data, size);
    book.ParseSXF(parsed, flags);
    ReadBack(book);
  }
  return 0;
}
