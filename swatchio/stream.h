// The byte stream every swatch and thumbnail reader reads through.
#pragma once

#include <cstdint>

class KeltoSwatchbookStream {
 public:
  virtual ~KeltoSwatchbookStream() = default;
  // Non-zero when the stream can be used.
  virtual int32_t IsValid() const = 0;
  // Non-zero when the stream is open for reading.
  virtual int32_t IsReading() const = 0;
  // Returns the number of bytes delivered; fewer than asked means the end.
  virtual int32_t Read(char* buffer, int32_t count) = 0;
  // Returns the number of bytes written.
  virtual int32_t Write(const char* buffer, int32_t count) = 0;
};
