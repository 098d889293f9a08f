// A growable array of fixed-size elements in one contiguous block.
#pragma once

#include <cstdint>

class KeltoSwatchbookStream;

class KeltoSwatchbookHeap {
 public:
  KeltoSwatchbookHeap(int32_t elementSize, int32_t initialBytes, int32_t growBytes);
  ~KeltoSwatchbookHeap();
  KeltoSwatchbookHeap(const KeltoSwatchbookHeap&) = delete;
  KeltoSwatchbookHeap& operator=(const KeltoSwatchbookHeap&) = delete;

  int32_t GetSize() const { return count_; }
  // Element `index`; one past the last element is allowed.
  char* GetData(int32_t index) const;

  int32_t InsertDataInternal(int32_t index, int32_t n);
  int32_t InsertData(const void* source, int32_t index, int32_t n);
  void* AppendData(int32_t n);
  int32_t AppendData(const void* source, int32_t n);
  void SetHeap(const void* source, int32_t n);
  void RemoveExtraStorage();
  void Clear();
  int32_t InflateFromStream(KeltoSwatchbookStream& stream);

 private:
  friend struct SwatchbookProbe;  // the tests' view of the growth arithmetic

  char* data_ = nullptr;
  int32_t elementSize_;
  int32_t capacity_;  // elements; may overstate the block after RemoveExtraStorage
  int32_t count_ = 0;
  int32_t growBy_;
  int32_t allocated_ = 0;  // elements the block really holds
};
