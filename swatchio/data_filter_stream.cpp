#include "swatchio/data_filter_stream.h"

#include "swatchio/classic_file.h"

namespace {

int16_t RefNum(int32_t fileRef) {
  return int16_t(uint16_t(uint32_t(fileRef) & 0xFFFF));
}

}  // namespace

DataFilterStream::DataFilterStream(int32_t fileReference) : fileRef_(fileReference) {
  if (classic::SetFPos(RefNum(fileRef_), classic::fsFromStart, 0) == classic::noErr) valid_ = 1;
}

int32_t DataFilterStream::Read(char* buffer, int32_t count) {
  if (!valid_) return 0;
  int32_t n = count;
  classic::FSRead(RefNum(fileRef_), &n, buffer);  // end of file shows as a short count
  return n;
}

int32_t DataFilterStream::Write(const char* buffer, int32_t count) {
  if (!valid_) return 0;
  int32_t n = count;
  if (classic::FSWrite(RefNum(fileRef_), &n, buffer) != classic::noErr) return 0;
  return n;
}

void DataFilterStream::Seek(int16_t mode, int32_t offset) {
  if (classic::SetFPos(RefNum(fileRef_), mode, offset) != classic::noErr) valid_ = 0;
}
