// The growable element array of the swatch book and the whole-file buffer of
// the swatch exchange reader.
//
// Every block size comes from a caller's count or from how long a file is, so
// no block may exceed kMaxBlockBytes: a larger request fails like a failed
// allocation. RemoveExtraStorage keeps the capacity figure it had (later
// insertions within it are not reallocated by the figure alone); the heap
// tracks the elements its block really holds beside it, so such an insertion
// gets a block of the stated capacity instead of writing past the shrunk one.
#include "swatchbook/kelto_swatchbook_heap.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "swatchio/stream.h"

namespace {

constexpr int64_t kMaxBlockBytes = int64_t(256) << 20;  // 268435456 bytes

}  // namespace

KeltoSwatchbookHeap::KeltoSwatchbookHeap(int32_t elementSize, int32_t initialBytes,
                                         int32_t growBytes)
    : elementSize_(std::max(elementSize, int32_t(1))),
      capacity_(std::max(initialBytes / elementSize_, int32_t(1))),
      growBy_(std::max(growBytes / elementSize_, int32_t(1))) {}

KeltoSwatchbookHeap::~KeltoSwatchbookHeap() {
  delete[] data_;
}

char* KeltoSwatchbookHeap::GetData(int32_t index) const {
  if (index < 0 || index > count_ || index > allocated_ || data_ == nullptr) return nullptr;
  return data_ + int64_t(index) * elementSize_;
}

namespace {

// A block of `elements` elements, or null beyond the cap or when memory runs out.
char* Allocate(int64_t elements, int32_t elementSize) {
  int64_t bytes = elements * elementSize;
  if (elements < 0 || bytes > kMaxBlockBytes) return nullptr;
  return new (std::nothrow) char[size_t(bytes)];
}

}  // namespace

int32_t KeltoSwatchbookHeap::InsertDataInternal(int32_t index, int32_t n) {
  // An index past the elements in use would move or write outside the block.
  if (n < 0 || index < 0 || index > count_) return 0;
  if (data_ == nullptr) {
    data_ = Allocate(capacity_, elementSize_);
    if (data_ == nullptr) return 0;
    allocated_ = capacity_;
  }
  int64_t needed = int64_t(count_) + n;
  int64_t target = 0;
  if (needed > capacity_)
    target = std::max(int64_t(capacity_) + growBy_, needed);
  else if (needed > allocated_)
    target = capacity_;  // the stale capacity of a shrunk heap
  if (target > 0) {
    if (target > INT32_MAX) return 0;
    char* block = Allocate(target, elementSize_);
    if (block == nullptr) return 0;
    std::memcpy(block, data_, size_t(std::min(count_, allocated_)) * size_t(elementSize_));
    delete[] data_;
    data_ = block;
    allocated_ = int32_t(target);
    capacity_ = std::max(capacity_, int32_t(target));
  }
  if (index < count_)
    std::memmove(data_ + int64_t(index + n) * elementSize_, data_ + int64_t(index) * elementSize_,
                 size_t(count_ - index) * size_t(elementSize_));
  count_ += n;
  return 1;
}

int32_t KeltoSwatchbookHeap::InsertData(const void* source, int32_t index, int32_t n) {
  if (!InsertDataInternal(index, n)) return -1;
  char* at = data_ + int64_t(index) * elementSize_;
  size_t bytes = size_t(n) * size_t(elementSize_);
  if (source)
    std::memcpy(at, source, bytes);
  else
    std::memset(at, 0, bytes);
  return index;
}

void* KeltoSwatchbookHeap::AppendData(int32_t n) {
  int32_t index = InsertData(nullptr, count_, n);
  return index < 0 ? nullptr : GetData(index);
}

int32_t KeltoSwatchbookHeap::AppendData(const void* source, int32_t n) {
  return InsertData(source, count_, n);
}

void KeltoSwatchbookHeap::SetHeap(const void* source, int32_t n) {
  if (source == nullptr || n == 0) {
    delete[] data_;
    data_ = nullptr;
    allocated_ = 0;
    count_ = n;
    return;
  }
  if (data_ == nullptr) {
    data_ = Allocate(capacity_, elementSize_);
    if (data_ == nullptr) {
      count_ = n;
      return;
    }
    allocated_ = capacity_;
  }
  if (n > capacity_) {
    if (InsertData(nullptr, count_, n - count_) < 0) return;
  } else if (n > allocated_) {
    char* block = Allocate(capacity_, elementSize_);
    if (block == nullptr) return;
    delete[] data_;
    data_ = block;
    allocated_ = capacity_;
  }
  std::memcpy(data_, source, size_t(n) * size_t(elementSize_));
  count_ = n;
}

void KeltoSwatchbookHeap::RemoveExtraStorage() {
  if (data_ == nullptr) return;
  if (count_ == 0) {
    delete[] data_;
    data_ = nullptr;
    allocated_ = 0;
    return;
  }
  int32_t keep = std::min(count_, allocated_);
  char* block = Allocate(keep, elementSize_);
  if (block == nullptr) return;
  std::memcpy(block, data_, size_t(keep) * size_t(elementSize_));
  delete[] data_;
  data_ = block;
  allocated_ = keep;  // capacity_ deliberately keeps its old figure
}

void KeltoSwatchbookHeap::Clear() {
  count_ = 0;
  RemoveExtraStorage();
}

int32_t KeltoSwatchbookHeap::InflateFromStream(KeltoSwatchbookStream& stream) {
  count_ = 0;
  RemoveExtraStorage();
  if (!stream.IsReading()) return 0;
  const int32_t chunk = capacity_;  // bytes asked for per read (65536 for every user)
  if (data_ == nullptr) {
    data_ = Allocate(capacity_, elementSize_);
    if (data_ == nullptr) return 0;
    allocated_ = capacity_;
  }
  int32_t total = 0;
  for (;;) {
    int32_t got = stream.Read(data_ + total, chunk);
    got = std::clamp(got, int32_t(0), chunk);  // a stream cannot claim more than it was given
    total += got;
    count_ = total;
    if (got < chunk) return 1;
    if (chunk <= allocated_ - total) continue;  // the next read still fits
    // The block doubles rather than growing by one chunk, so a long file
    // costs linear copying, not a copy of everything read so far per chunk;
    // past kMaxBlockBytes the growth fails and the file is refused.
    if (!InsertDataInternal(total, std::max(growBy_, total))) {
      count_ = 0;
      RemoveExtraStorage();
      return 0;
    }
    count_ = total;
  }
}
