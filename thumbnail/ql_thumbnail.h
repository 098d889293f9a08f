// Finds and decodes the preview a vector-drawing file carries as PostScript
// comments: "%QL7_Thumbnail: width height bits", then a "%%BeginData:" block of
// hexadecimal text (an optional 768-byte colour table, an optional "RLE"
// marker, then the pixel codes), closed by "%%EndData".
#pragma once

#include <cstdint>

#include "swatchio/data_filter_stream.h"

// The largest thumbnail the host's read buffer holds: 128 x 128 RGB pixels.
inline constexpr int32_t kThumbnailBufferBytes = 128 * 128 * 3;

class QLThumbnail {
 public:
  explicit QLThumbnail(int32_t fileRef);

  // 1 on success, 0 on failure. With a null buffer only the size is read.
  // The decoder never writes at or past bufferSize.
  int32_t GetThumbnailInfo(int32_t* width, int32_t* height, char* buffer, int32_t bufferSize);

  // Rewinds the file and searches for text; on success the scan position is
  // at its first character.
  int32_t ScanForString(const char* text);
  // 1 when text begins with pattern; the character of text that follows the
  // match is then overwritten with a blank.
  static int32_t EqualString(const char* pattern, char* text);
  // Reads the next token as a string (kind 1) or a decimal number (kind 2);
  // returns the number of characters taken, or 0.
  int32_t GetValue(char* string, int32_t* number, int32_t kind, int32_t maxLen);
  // The next byte of hexadecimal text. Sets the end-of-data state (see
  // HexExhausted) instead of reading past the file's last byte.
  uint8_t GetNextHexByte();
  int32_t ReadImageData(int32_t count, int32_t bitsPerPixel, int32_t width, int32_t height,
                        int32_t bufferSize, char* buffer);
  bool ReloadBuffer(char* buf, int32_t size, int32_t consumed);

  bool HexExhausted() const { return hexExhausted_; }

 private:
  // Replaces the whole scan buffer with the next 256 bytes; position 0.
  void RefillWhole();
  // Skips '%' and white space, refilling as the buffer runs out.
  void SkipSeparators();

  int32_t fileRef_;
  DataFilterStream stream_;
  bool hexExhausted_ = false;
};

// Whether a thumbnail of this size can be delivered through the host's
// fixed read buffer.
bool ThumbnailFits(int32_t width, int32_t height);
