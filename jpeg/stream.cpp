// The buffered output stream and the ready-made buffer row source.
#include <cstring>
#include <new>

#include "jpeg/zjpeg.h"

namespace ZJPEG {

namespace {
constexpr uint32_t kDefaultCapacity = 65536;
}  // namespace

JPEGOutputStream::JPEGOutputStream() {
  Initialize();
}

JPEGOutputStream::JPEGOutputStream(void* callerBuffer, uint32_t size) {
  if (size == 0 || callerBuffer == nullptr) {
    Initialize();
    return;
  }
  buffer = static_cast<uint8_t*>(callerBuffer);
  capacity = size;
  count = 0;
  ownsBuffer = 1;  // the caller's array-new buffer now belongs to the stream
}

JPEGOutputStream::~JPEGOutputStream() {
  if (ownsBuffer) delete[] buffer;
}

void JPEGOutputStream::Initialize() {
  buffer = new (std::nothrow) uint8_t[kDefaultCapacity];
  capacity = buffer ? kDefaultCapacity : 0;
  count = 0;
  ownsBuffer = 1;
}

void JPEGOutputStream::PutByte(uint8_t b) {
  if (failed) return;
  if (count >= capacity) DumpBuffer();
  if (failed || count >= capacity) {
    failed = 1;  // a sink that took nothing cannot take the rest either
    return;
  }
  buffer[count++] = b;
}

void JPEGOutputStream::PutToken(uint8_t code) {
  PutByte(0xFF);
  PutByte(code);
}

void JPEGOutputStream::Put2Bytes(uint16_t v) {
  PutByte(static_cast<uint8_t>(v >> 8));
  PutByte(static_cast<uint8_t>(v));
}

void JPEGOutputStream::PutData(uint8_t* p, unsigned n) {
  if (!failed) DumpBuffer();
  if (!failed) DumpBytes(p, n);
}

void JPEGOutputStream::Flush() {
  if (!failed) DumpBuffer();
}

BufferRowMemoryRequester::BufferRowMemoryRequester(const uint8_t* pixels, uint32_t stride,
                                                   uint16_t height)
    : pixels_(pixels), height_(height) {
  rowStride = stride;
}

int BufferRowMemoryRequester::Request() {
  if (pixels_ == nullptr || firstRowWanted >= height_) return 0;
  red = pixels_ + size_t{firstRowWanted} * rowStride;
  green = red + 1;
  blue = red + 2;
  return 1;
}

}  // namespace ZJPEG
