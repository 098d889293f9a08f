// Builds two strings of any format from arbitrary bytes and runs every
// conversion, comparison, concatenation and substring on them.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "swatchbook/xml_string.h"
#include "swatchbook/xml_string_heap.h"

namespace {

// Converts into a buffer large enough for what is really written: the
// UTF-8 to UTF-16 size is counted short for supplementary characters.
void ConvertAll(const XMLString& s) {
  for (int target = 0; target <= 2; ++target)
    for (uint32_t terminate : {0u, 1u}) {
      std::vector<unsigned char> out(size_t(s.GetLength()) * 4 + 4);
      s.ConvertOrMeasureString(XMLString::Format(target), nullptr, terminate);
      s.ConvertOrMeasureString(XMLString::Format(target), out.data(), terminate);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 3) return 0;
  const char* bytes = reinterpret_cast<const char*>(data);
  // Byte 0 splits the rest into two serialized strings (format byte first);
  // bytes 1 and 2 pick a substring.
  size_t split = 3 + (size > 3 ? data[0] % (size - 3) : 0);
  XMLString a(int32_t(split - 3), bytes + 3);
  XMLString b(int32_t(size - split), bytes + split);
  int32_t start = data[1] % 64 - 4;
  int32_t count = data[2] % 64 - 4;

  ConvertAll(a);
  ConvertAll(b);
  a.ToUTF8();
  XMLString sum = a + b;
  ConvertAll(sum);
  XMLString part = sum.SubString(start, count);
  ConvertAll(part);
  (void)(a == b);
  (void)(b == a);
  (void)(part == a);
  (void)sum.BeginsWith(b);
  (void)sum.EndsWith(b);
  (void)a.BeginsWith(part);
  XMLString copy(b);
  copy = a;
  copy = part;

  XMLStringHeap heap;
  uint32_t id = heap.AddString(a);
  heap.AddString(b);
  heap.DeleteString(id);
  heap.SetString(id, sum);
  ConvertAll(heap.GetStringFromID(id));

  // The conversion routines on the raw bytes.
  const unsigned char* raw = data + 3;
  int32_t n = int32_t(size - 3);
  std::vector<uint16_t> units(size_t(n) + 1);
  XMLUnicodeUtils::ConvertUTF8toUTF16(raw, n, units.data());
  std::vector<char> ascii(size_t(n) + 1);
  XMLUnicodeUtils::ConvertUTF8toASCII(raw, n, ascii.data());
  std::vector<uint16_t> wide(size_t(n) / 2 + 1);
  std::memcpy(wide.data(), raw, size_t(n) / 2 * 2);
  std::vector<unsigned char> narrow(size_t(n) * 2 + 4);
  XMLUnicodeUtils::ConvertUTF16toUTF8(wide.data(), n / 2, narrow.data());
  return 0;
}
