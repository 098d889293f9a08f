// The swatch book's one string type. Text is kept in the encoding it was given
// (ASCII, UTF-8 or UTF-16 in machine order) and converted only when two
// strings of different encodings meet or a caller asks for an encoding.
#pragma once

#include <cstdint>
#include <string>

class XMLString {
 public:
  enum Format : int32_t { kASCII = 0, kUTF8 = 1, kUTF16 = 2 };

  XMLString();
  // Rebuilds a string from GetSerializedData's bytes (format byte first).
  XMLString(int32_t size, const char* serialized);
  XMLString(const char* text);  // NOLINT: ASCII literals convert implicitly
  XMLString(const XMLString& other);
  // Takes over the other's bytes (books move swatches when their lists grow).
  // Assignment always copies, so a reassigned string keeps its own buffer.
  XMLString(XMLString&& other) noexcept;
  ~XMLString();

  // A string that shows bytes it does not own: it never frees them and
  // refuses every change. The bytes must outlive it.
  static XMLString ReadOnly(Format format, const char* bytes, int32_t size);

  int32_t SetData(int32_t size, const void* bytes);
  XMLString& operator=(const XMLString& other);
  XMLString& operator=(const char* text);
  XMLString& operator=(const uint16_t* units);
  int32_t SetASCII(const char* text, int32_t count);
  int32_t SetUTF16(const uint16_t* units, int32_t count);

  int32_t GetSerializedSize() const { return length_ + 1; }
  void GetSerializedData(char* out) const;

  int32_t ConvertOrMeasureString(Format target, void* out, uint32_t terminate) const;
  int32_t Length() const;
  // Writes the UTF-8 form with a terminator and answers its size with the
  // terminator; a null `out` only measures.
  int32_t GetUTF8(unsigned char* out) const;
  // The UTF-8 form, measured then filled, without the terminator (any zero
  // byte of the text itself kept).
  std::string ToUTF8() const;

  bool operator==(const XMLString& other) const;
  XMLString operator+(const XMLString& other) const;
  XMLString SubString(int32_t start, int32_t count) const;
  bool BeginsWith(const XMLString& s) const;
  bool EndsWith(const XMLString& s) const;

  const char* GetData() const { return data_; }
  int32_t GetLength() const { return length_; }

 private:
  friend struct SwatchbookProbe;  // the tests' view of the storage

  XMLString(Format format, char* data, int32_t length, int32_t capacity);

  Format format_ = kUTF8;
  char* data_ = nullptr;
  int32_t length_ = 0;
  int32_t capacity_ = 0;  // negative: the bytes are not owned and never change
};

// The three conversions XMLString uses. A null output only measures; the
// result is always the size of the output.
class XMLUnicodeUtils {
 public:
  // Returns UTF-8 bytes.
  static int32_t ConvertUTF16toUTF8(const uint16_t* in, int32_t units, unsigned char* out);
  // Returns 2 bytes per code point, also for a surrogate pair, which writes 4.
  static int32_t ConvertUTF8toUTF16(const unsigned char* in, int32_t bytes, uint16_t* out);
  // Returns characters written (one per code point).
  static int32_t ConvertUTF8toASCII(const unsigned char* in, int32_t bytes, char* out);
};
