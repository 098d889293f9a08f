// Finds and decodes the preview a vector-drawing file carries as PostScript
// comments: "%QL7_Thumbnail: width height bits", then a "%%BeginData:" block of
// hexadecimal text (an optional 768-byte colour table, an optional "RLE"
// marker, then the pixel codes), closed by "%%EndData".
#pragma once

#include <cstdint>

#include "swatchio/data_filter_stream.h"
#include "thumbnail/document_kind.h"

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
  // What GetValue reads the next token as.
  static constexpr int32_t kValueString = 1;
  static constexpr int32_t kValueNumber = 2;
  // Reads the next token as a string (kValueString, into `string`) or a
  // decimal number (kValueNumber, into `number`); returns the number of
  // characters taken, or 0.
  int32_t GetValue(char* string, int32_t* number, int32_t kind, int32_t maxLen);
  // The next byte of hexadecimal text. Sets the end-of-data state (see
  // HexExhausted) instead of reading past the file's last byte.
  uint8_t GetNextHexByte();
  int32_t ReadImageData(int32_t count, int32_t bitsPerPixel, int32_t width, int32_t height,
                        int32_t bufferSize, char* buffer);
  bool ReloadBuffer(char* buf, int32_t size, int32_t consumed);

  // What kind of document the file is, from its first 512 bytes and its XMP
  // packet: one of the kQLDocument codes (thumbnail/document_kind.h), or 0 when the file is shorter
  // than 512 bytes. Reads from the stream's current position.
  int32_t GetRenderingMethod();
  // Writes entry index of table (three bytes) at out[*pos] and adds 3 when
  // useTable and table are both set, else writes index itself and adds 1.
  static void AssignColor(int32_t useTable, const char* table, char* out, uint8_t index,
                          int32_t* pos);
  // Reads count bytes from the stream; true when all of them arrived.
  bool GetBytes(int32_t count, char* dest);
  // Refills the scan buffer once the position has run past its end; the
  // position returns to 0 only when the refill was complete.
  void ReloadIfNecessary();

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
