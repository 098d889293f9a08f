// Bytes in memory as the swatch readers' input stream, for tests, fuzz
// targets and benchmarks that feed the readers without a host file.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string_view>

#include "swatchio/stream.h"

namespace qltest {

// Reads the bytes front to back; the bytes must outlive the stream.
class MemoryStream : public KeltoSwatchbookStream {
 public:
  explicit MemoryStream(std::string_view bytes, int32_t valid = 1) : bytes_(bytes), valid_(valid) {}
  int32_t IsValid() const override { return valid_; }
  int32_t IsReading() const override { return 1; }
  int32_t Read(char* buffer, int32_t count) override {
    size_t n = std::min(size_t(std::max(count, int32_t(0))), bytes_.size() - at_);
    std::copy_n(bytes_.data() + at_, n, buffer);
    at_ += n;
    return int32_t(n);
  }
  int32_t Write(const char*, int32_t) override { return 0; }

 private:
  std::string_view bytes_;
  int32_t valid_;
  size_t at_ = 0;
};

}  // namespace qltest
