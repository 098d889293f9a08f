// XMLString and its Unicode conversions.
//
// The conversions follow the Unicode Consortium's ConvertUTF reference
// scheme: a lead byte's table entry says how many trailing bytes follow, the
// bytes are accumulated six bits at a time without checking them, and a
// per-length offset removes the lead and continuation marker bits in one
// subtraction. Nothing is rejected: stray continuation bytes, overlong forms
// and lone surrogates pass through as values, values above U+10FFFF become
// U+FFFD, and a sequence cut off by the end of the input is dropped. The
// UTF-8 to UTF-16 count grows by 2 per code point, also when a surrogate
// pair (4 bytes) is written; callers here size their buffers for what is
// really written, never from that count.
#include "swatchbook/xml_string.h"

#include <cstring>
#include <new>
#include <vector>

namespace {

// Offsets subtracted after accumulating a sequence of 1 to 6 bytes.
constexpr uint32_t kOffsetsFromUTF8[6] = {0x00000000, 0x00003080, 0x000E2080,
                                          0x03C82080, 0xFA082080, 0x82082080};
// Lead-byte marks by total sequence length (index 1 to 6).
constexpr unsigned char kFirstByteMark[7] = {0x00, 0x00, 0xC0, 0xE0, 0xF0, 0xF8, 0xFC};

constexpr uint32_t kReplacementChar = 0xFFFD;
constexpr uint32_t kMaxUTF16 = 0x10FFFF;
constexpr uint16_t kAsciiStandIn = 0x7F;  // what any non-ASCII character becomes

int TrailingBytes(unsigned char lead) {
  if (lead < 0xC0) return 0;
  if (lead < 0xE0) return 1;
  if (lead < 0xF0) return 2;
  if (lead < 0xF8) return 3;
  if (lead < 0xFC) return 4;
  return 5;
}

uint16_t LoadUnit(const unsigned char* p) {
  uint16_t u;
  std::memcpy(&u, p, 2);
  return u;
}

void StoreUnit(unsigned char* p, uint16_t u) {
  std::memcpy(p, &u, 2);
}

// Decodes the sequence at in[*i]; false when it would run past the end.
bool DecodeUTF8(const unsigned char* in, int32_t bytes, int32_t* i, uint32_t* value) {
  int extra = TrailingBytes(in[*i]);
  if (extra >= bytes - *i) return false;
  uint32_t v = 0;
  for (int k = 0; k <= extra; ++k) v = (v << 6) + in[(*i)++];
  *value = v - kOffsetsFromUTF8[extra];
  return true;
}

// The UTF-8 to UTF-16 conversion over raw bytes. Returns the kept short
// count (2 per code point, also for a surrogate pair); *written gets the
// bytes really written.
int32_t UTF8toUTF16Bytes(const unsigned char* in, int32_t bytes, unsigned char* out,
                         int32_t* written) {
  int32_t count = 0;
  int32_t real = 0;
  int32_t i = 0;
  uint32_t v = 0;
  while (i < bytes && DecodeUTF8(in, bytes, &i, &v)) {
    if (v <= 0xFFFF) {
      if (out) StoreUnit(out + real, uint16_t(v));
      real += 2;
    } else if (v <= kMaxUTF16) {
      if (out) {
        StoreUnit(out + real, uint16_t(((v - 0x10000) >> 10) + 0xD800));
        StoreUnit(out + real + 2, uint16_t(((v - 0x10000) & 0x3FF) + 0xDC00));
      }
      real += 4;
    } else {
      if (out) StoreUnit(out + real, uint16_t(kReplacementChar));
      real += 2;
    }
    count += 2;
  }
  if (written) *written = real;
  return count;
}

int32_t UTF16toUTF8Bytes(const unsigned char* in, int32_t units, unsigned char* out) {
  int32_t written = 0;
  for (int32_t i = 0; i < units;) {
    uint32_t ch = LoadUnit(in + 2 * i++);
    if (ch >= 0xD800 && ch <= 0xDBFF && i < units) {
      uint32_t low = LoadUnit(in + 2 * i);
      if (low >= 0xDC00 && low <= 0xDFFF) {
        ch = ((ch - 0xD800) << 10) + (low - 0xDC00) + 0x10000;
        ++i;
      }
    }
    int n = ch < 0x80 ? 1 : ch < 0x800 ? 2 : ch < 0x10000 ? 3 : ch < 0x200000 ? 4 : 5;
    if (out) {
      unsigned char* p = out + written + n;
      for (int k = n; k > 1; --k) {
        *--p = static_cast<unsigned char>(0x80 | (ch & 0x3F));
        ch >>= 6;
      }
      *--p = static_cast<unsigned char>(ch | kFirstByteMark[n]);
    }
    written += n;
  }
  return written;
}

int32_t UTF8toASCIIBytes(const unsigned char* in, int32_t bytes, char* out) {
  int32_t count = 0;
  int32_t i = 0;
  uint32_t v = 0;
  while (i < bytes && DecodeUTF8(in, bytes, &i, &v)) {
    if (out) out[count] = char(v < 0x80 ? v : kAsciiStandIn);
    ++count;
  }
  return count;
}

// Converts s into target in a buffer sized for what the conversion really
// writes (4 bytes per source byte bounds every pair of formats), so that the
// short UTF-8 to UTF-16 count cannot make anyone write past a buffer.
// *reported gets ConvertOrMeasureString's result.
std::vector<unsigned char> ConvertSafely(const XMLString& s, XMLString::Format target,
                                         uint32_t terminate, int32_t* reported) {
  std::vector<unsigned char> buffer(size_t(s.GetLength()) * 4 + 4);
  *reported = s.ConvertOrMeasureString(target, buffer.data(), terminate);
  return buffer;
}

}  // namespace

int32_t XMLUnicodeUtils::ConvertUTF16toUTF8(const uint16_t* in, int32_t units, unsigned char* out) {
  return UTF16toUTF8Bytes(reinterpret_cast<const unsigned char*>(in), units, out);
}

int32_t XMLUnicodeUtils::ConvertUTF8toUTF16(const unsigned char* in, int32_t bytes, uint16_t* out) {
  return UTF8toUTF16Bytes(in, bytes, reinterpret_cast<unsigned char*>(out), nullptr);
}

int32_t XMLUnicodeUtils::ConvertUTF8toASCII(const unsigned char* in, int32_t bytes, char* out) {
  return UTF8toASCIIBytes(in, bytes, out);
}

XMLString::XMLString() = default;

XMLString::XMLString(int32_t size, const char* serialized) {
  if (size <= 0 || serialized == nullptr || static_cast<unsigned char>(serialized[0]) > kUTF16)
    return;
  char* copy = nullptr;
  if (size > 1) {
    copy = new (std::nothrow) char[size_t(size - 1)];
    if (copy == nullptr) return;
    std::memcpy(copy, serialized + 1, size_t(size - 1));
  }
  format_ = Format(serialized[0]);
  data_ = copy;
  length_ = capacity_ = size - 1;
}

XMLString::XMLString(const char* text) : format_(kASCII) {
  int32_t n = text ? int32_t(std::strlen(text)) : 0;
  if (n == 0) return;
  data_ = new (std::nothrow) char[size_t(n)];
  if (data_ == nullptr) return;
  std::memcpy(data_, text, size_t(n));
  length_ = capacity_ = n;
}

XMLString::XMLString(const XMLString& other) {
  if (SetData(other.length_, other.data_)) format_ = other.format_;
}

XMLString::XMLString(XMLString&& other) noexcept
    : format_(other.format_),
      data_(other.data_),
      length_(other.length_),
      capacity_(other.capacity_) {
  other.format_ = kUTF8;
  other.data_ = nullptr;
  other.length_ = other.capacity_ = 0;
}

XMLString::~XMLString() {
  if (capacity_ >= 0) delete[] data_;
}

XMLString::XMLString(Format format, char* data, int32_t length, int32_t capacity)
    : format_(format), data_(data), length_(length), capacity_(capacity) {}

XMLString XMLString::ReadOnly(Format format, const char* bytes, int32_t size) {
  // Never written through: a negative capacity refuses every change.
  return XMLString(format, const_cast<char*>(bytes), size, -1);
}

int32_t XMLString::SetData(int32_t size, const void* bytes) {
  if (capacity_ < 0 || size < 0) return 0;
  if (capacity_ < size) {
    // A string that is reassigned gets 256 bytes of slack, so that a few
    // slightly longer texts do not each cost an allocation.
    int64_t allocation = data_ ? int64_t(size) + 256 : size;
    if (allocation > INT32_MAX) return 0;
    char* fresh = new (std::nothrow) char[size_t(allocation)];
    if (fresh == nullptr) return 0;
    if (size >= 1) std::memcpy(fresh, bytes, size_t(size));  // before freeing: bytes may be ours
    delete[] data_;
    data_ = fresh;
    length_ = size;
    capacity_ = int32_t(allocation);
    return 1;
  }
  length_ = size;
  if (length_ >= 1) std::memmove(data_, bytes, size_t(length_));
  return 1;
}

XMLString& XMLString::operator=(const XMLString& other) {
  if (SetData(other.length_, other.data_)) format_ = other.format_;
  return *this;
}

XMLString& XMLString::operator=(const char* text) {
  SetASCII(text, -1);
  return *this;
}

XMLString& XMLString::operator=(const uint16_t* units) {
  SetUTF16(units, -1);
  return *this;
}

int32_t XMLString::SetASCII(const char* text, int32_t count) {
  if (count < 0) count = text ? int32_t(std::strlen(text)) : 0;
  if (!SetData(count, text)) return 0;
  format_ = kASCII;
  return 1;
}

int32_t XMLString::SetUTF16(const uint16_t* units, int32_t count) {
  if (count < 0) {
    count = 0;
    while (units && units[count] != 0) ++count;
  }
  if (count > INT32_MAX / 2 || !SetData(count * 2, units)) return 0;
  format_ = kUTF16;
  return 1;
}

void XMLString::GetSerializedData(char* out) const {
  if (out == nullptr) return;
  out[0] = char(format_);
  if (length_ > 0) std::memcpy(out + 1, data_, size_t(length_));
}

int32_t XMLString::ConvertOrMeasureString(Format target, void* out, uint32_t terminate) const {
  unsigned char* o = static_cast<unsigned char*>(out);
  const unsigned char* in = reinterpret_cast<const unsigned char*>(data_);
  const int32_t n = length_;
  const int32_t t = terminate ? 1 : 0;
  // Writes the terminator at byte offset `at` and returns its size.
  auto terminator = [&](int32_t at, bool wide) -> int32_t {
    if (!t) return 0;
    if (o) {
      o[at] = 0;
      if (wide) o[at + 1] = 0;
    }
    return wide ? 2 : 1;
  };
  bool validTarget = target >= kASCII && target <= kUTF16;
  if (n == 0) return terminator(0, target == kUTF16);
  if (!validTarget) return 0;

  if (format_ == target) {
    if (o) std::memcpy(o, in, size_t(n));
    return n + terminator(n, target == kUTF16);
  }
  switch (format_) {
    case kASCII:
      if (target == kUTF8) {
        if (o)
          for (int32_t i = 0; i < n; ++i) o[i] = in[i] < 0x80 ? in[i] : kAsciiStandIn;
        return n + terminator(n, false);
      }
      if (o)
        for (int32_t i = 0; i < n; ++i) StoreUnit(o + 2 * i, in[i] < 0x80 ? in[i] : kAsciiStandIn);
      return 2 * n + terminator(2 * n, true);
    case kUTF8:
      if (target == kASCII) {
        int32_t count = UTF8toASCIIBytes(in, n, reinterpret_cast<char*>(o));
        return count + terminator(count, false);
      } else {
        int32_t count = UTF8toUTF16Bytes(in, n, o, nullptr);
        return count + terminator(count, true);
      }
    case kUTF16:
      if (target == kASCII) {
        if (o)
          for (int32_t i = 0; i < n / 2; ++i) {
            uint16_t u = LoadUnit(in + 2 * i);
            o[i] = static_cast<unsigned char>(u < 0x80 ? u : kAsciiStandIn);
          }
        return n / 2 + terminator(n / 2, false);
      } else {
        int32_t count = UTF16toUTF8Bytes(in, n / 2, o);
        return count + terminator(count, false);
      }
  }
  return 0;
}

int32_t XMLString::Length() const {
  return ConvertOrMeasureString(kASCII, nullptr, 0);
}

int32_t XMLString::GetUTF8(unsigned char* out) const {
  return ConvertOrMeasureString(kUTF8, out, 1);
}

std::string XMLString::ToUTF8() const {
  const int32_t size = GetUTF8(nullptr);  // with the terminator
  if (size <= 1) return {};
  std::string text(size_t(size), '\0');
  GetUTF8(reinterpret_cast<unsigned char*>(text.data()));
  text.pop_back();
  return text;
}

bool XMLString::operator==(const XMLString& other) const {
  if (format_ == other.format_)
    return length_ == other.length_ &&
           (length_ == 0 || std::memcmp(data_, other.data_, size_t(length_)) == 0);
  // An ASCII string is converted to the other's format, anything else
  // converts the other into its own.
  const XMLString& from = format_ == kASCII ? *this : other;
  const XMLString& to = format_ == kASCII ? other : *this;
  int32_t size = 0;
  std::vector<unsigned char> converted = ConvertSafely(from, to.format_, 0, &size);
  return size == to.length_ &&
         (size == 0 || std::memcmp(converted.data(), to.data_, size_t(size)) == 0);
}

XMLString XMLString::operator+(const XMLString& other) const {
  // The result takes the non-ASCII format when only one side is ASCII,
  // otherwise this string's format.
  bool takeOthers = format_ == kASCII && other.format_ != kASCII;
  Format format = takeOthers ? other.format_ : format_;
  const XMLString& converted = takeOthers ? *this : other;
  int32_t size = 0;
  std::vector<unsigned char> bytes = ConvertSafely(converted, format, 0, &size);
  std::vector<char> joined;
  if (takeOthers) {
    joined.assign(bytes.begin(), bytes.begin() + size);
    joined.insert(joined.end(), other.data_, other.data_ + other.length_);
  } else {
    joined.assign(data_, data_ + length_);
    joined.insert(joined.end(), bytes.begin(), bytes.begin() + size);
  }
  XMLString result;  // empty with no buffer: SetData allocates exactly the length
  if (result.SetData(int32_t(joined.size()), joined.data())) result.format_ = format;
  return result;
}

XMLString XMLString::SubString(int32_t start, int32_t count) const {
  XMLString result;
  int32_t length = Length();
  if (start < 0 || count < 0 || start >= length) return result;
  if (count > length - start) count = length - start;
  switch (format_) {
    case kASCII:
      result.SetASCII(data_ + start, count);
      break;
    case kUTF16:
      if (result.SetData(count * 2, data_ + 2 * start)) result.format_ = kUTF16;
      break;
    case kUTF8: {
      // A substring of UTF-8 text comes back as UTF-16: the text is first
      // converted whole, and the units counted as characters. Length()
      // counts code points, so start + count never passes the units written.
      int32_t size = 0;
      std::vector<unsigned char> units = ConvertSafely(*this, kUTF16, 1, &size);
      if (result.SetData(count * 2, units.data() + 2 * start)) result.format_ = kUTF16;
      break;
    }
  }
  return result;
}

bool XMLString::BeginsWith(const XMLString& s) const {
  int32_t n = s.Length();
  if (n == 0) return true;
  if (n > Length()) return false;
  return SubString(0, n) == s;
}

bool XMLString::EndsWith(const XMLString& s) const {
  int32_t n = s.Length();
  if (n == 0) return true;
  if (n > Length()) return false;
  return SubString(Length() - n, n) == s;
}
