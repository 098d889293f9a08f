// A stream over the file the host opened for the plug-in (its data-fork
// reference). The stream neither opens nor closes the file; building one
// rewinds it.
#pragma once

#include <cstdint>

#include "swatchio/stream.h"

class DataFilterStream : public KeltoSwatchbookStream {
 public:
  DataFilterStream() = default;
  explicit DataFilterStream(int32_t fileReference);
  DataFilterStream(const DataFilterStream&) = default;
  DataFilterStream& operator=(const DataFilterStream&) = default;

  int32_t IsValid() const override { return valid_; }
  int32_t IsReading() const override { return 1; }
  int32_t Read(char* buffer, int32_t count) override;
  int32_t Write(const char* buffer, int32_t count) override;
  // Modes as the host file system defines them: 1 from the start, 2 from the
  // end, 3 from the current mark. A refused position invalidates the stream.
  void Seek(int16_t mode, int32_t offset);

 private:
  int32_t valid_ = 0;
  int32_t fileRef_ = 0;  // only the low 16 bits are a file reference number
};
