#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "swatchbook/kelto_swatchbook_heap.h"
#include "swatchbook/xml_string_heap.h"
#include "swatchio/stream.h"
#include "tests/swatchbook/probe.h"

namespace {

// Delivers `size` bytes of a counting pattern, `count` bytes per call at most.
class PatternStream : public KeltoSwatchbookStream {
 public:
  explicit PatternStream(int64_t size, bool reading = true) : size_(size), reading_(reading) {}
  int32_t IsValid() const override { return 1; }
  int32_t IsReading() const override { return reading_; }
  int32_t Read(char* buffer, int32_t count) override {
    ++reads;
    if (buffer - at_ != base_) ++blocks, base_ = buffer - at_;
    int32_t n = int32_t(std::min<int64_t>(count, size_ - at_));
    for (int32_t i = 0; i < n; ++i) buffer[i] = char((at_ + i) % 251);
    at_ += n;
    return n;
  }
  int32_t Write(const char*, int32_t) override { return 0; }
  int reads = 0;
  int blocks = 0;  // distinct blocks the heap read into

 private:
  const char* base_ = nullptr;
  int64_t size_;
  int64_t at_ = 0;
  bool reading_;
};

TEST(KeltoSwatchbookHeapTest, GetDataBoundsAndInsertion) {
  KeltoSwatchbookHeap heap(4, 16, 16);
  EXPECT_EQ(heap.GetData(0), nullptr);  // no block yet
  const int32_t values[3] = {1, 2, 3};
  EXPECT_EQ(heap.AppendData(values, 3), 0);
  EXPECT_NE(heap.GetData(3), nullptr);  // one past the end
  EXPECT_EQ(heap.GetData(4), nullptr);
  EXPECT_EQ(heap.GetData(-1), nullptr);

  const int32_t middle = 9;
  EXPECT_EQ(heap.InsertData(&middle, 1, 1), 1);
  int32_t got[4];
  std::memcpy(got, heap.GetData(0), sizeof got);
  EXPECT_EQ(std::vector<int32_t>(got, got + 4), (std::vector<int32_t>{1, 9, 2, 3}));
  EXPECT_EQ(heap.InsertData(&middle, 6, 1), -1);  // past the elements in use
  EXPECT_EQ(heap.GetSize(), 4);
}

TEST(KeltoSwatchbookHeapTest, StaleCapacityAfterShrinking) {
  KeltoSwatchbookHeap heap(1, 16, 16);
  ASSERT_EQ(heap.AppendData("abc", 3), 0);
  heap.RemoveExtraStorage();
  EXPECT_EQ(SwatchbookProbe::Capacity(heap), 16);  // the figure is kept though the block shrank
  // Growing within the stale capacity must neither lose nor overrun data.
  ASSERT_EQ(heap.AppendData("defghij", 7), 3);
  EXPECT_EQ(std::string(heap.GetData(0), 10), "abcdefghij");
}

// Replacing the contents: into no block yet, within the capacity, past it,
// within a stale capacity after shrinking, and emptied by a null source.
TEST(KeltoSwatchbookHeapTest, SetHeapReplacesTheContents) {
  KeltoSwatchbookHeap heap(1, 8, 8);
  heap.SetHeap("abcd", 4);
  EXPECT_EQ(std::string(heap.GetData(0), heap.GetSize()), "abcd");
  heap.SetHeap("0123456789ABCDEF", 16);  // past the capacity: the block grows
  EXPECT_EQ(std::string(heap.GetData(0), heap.GetSize()), "0123456789ABCDEF");
  heap.SetHeap("xy", 2);
  heap.RemoveExtraStorage();
  heap.SetHeap("klmnopq", 7);  // within the stale capacity, past the shrunk block
  EXPECT_EQ(std::string(heap.GetData(0), heap.GetSize()), "klmnopq");
  heap.SetHeap(nullptr, 0);
  EXPECT_EQ(heap.GetSize(), 0);
  EXPECT_EQ(heap.GetData(0), nullptr);
}

TEST(KeltoSwatchbookHeapTest, InflateFromStream) {
  KeltoSwatchbookHeap exact(1, 65536, 65536);
  PatternStream full(65536);
  ASSERT_EQ(exact.InflateFromStream(full), 1);
  EXPECT_EQ(full.reads, 2);  // the second read returns 0
  EXPECT_EQ(exact.GetSize(), 65536);

  KeltoSwatchbookHeap several(1, 65536, 65536);
  const int64_t size = 65536 * 5 + 17;
  PatternStream longer(size);
  ASSERT_EQ(several.InflateFromStream(longer), 1);
  ASSERT_EQ(several.GetSize(), size);
  const char* data = several.GetData(0);
  bool same = true;
  for (int64_t i = 0; i < size; ++i) same = same && data[i] == char(i % 251);
  EXPECT_TRUE(same);

  // 1024 chunks move the block about log2(1024) times, not once per chunk.
  KeltoSwatchbookHeap large(1, 65536, 65536);
  PatternStream big(int64_t(64) << 20);
  ASSERT_EQ(large.InflateFromStream(big), 1);
  EXPECT_EQ(large.GetSize(), int64_t(64) << 20);
  EXPECT_LE(big.blocks, 12);

  PatternStream closed(10, false);
  EXPECT_EQ(several.InflateFromStream(closed), 0);
  EXPECT_EQ(several.GetSize(), 0);
}

TEST(KeltoSwatchbookHeapTest, BlocksAreCappedAt256MiB) {
  KeltoSwatchbookHeap heap(1 << 20, 1 << 20, 1 << 20);  // 1 MiB elements
  EXPECT_EQ(heap.InsertDataInternal(0, 256), 1);        // exactly the cap: allowed
  EXPECT_EQ(heap.InsertDataInternal(0, 1), 0);          // one element more: refused
  EXPECT_EQ(heap.GetSize(), 256);
}

TEST(XMLStringHeapTest, IDsAndTheFreeList) {
  XMLStringHeap strings;
  EXPECT_EQ(strings.AddString(XMLString("A")), 1u);
  EXPECT_EQ(strings.AddString(XMLString("B")), 2u);
  EXPECT_TRUE(strings.GetStringFromID(2) == XMLString("B"));
  EXPECT_EQ(strings.GetStringFromID(0).GetLength(), 0);
  EXPECT_EQ(strings.GetStringFromID(3).GetLength(), 0);

  EXPECT_EQ(strings.DeleteString(1), 1);
  EXPECT_EQ(strings.DeleteString(1), 0);
  EXPECT_EQ(strings.DeleteString(0), 0);
  EXPECT_EQ(strings.GetStringFromID(1).GetLength(), 0);
  // Reusing the deleted entry stores the string but reports ID 0.
  EXPECT_EQ(strings.AddString(XMLString("C")), 0u);
  EXPECT_TRUE(strings.GetStringFromID(1) == XMLString("C"));
  EXPECT_EQ(strings.AddString(XMLString("D")), 3u);
}

TEST(XMLStringHeapTest, SetStringKeepsTheOldText) {
  XMLStringHeap strings;
  uint32_t id = 0;
  EXPECT_EQ(strings.SetString(id, XMLString("first")), 1u);
  EXPECT_EQ(id, 1u);
  int32_t pool = SwatchbookProbe::PoolSize(strings);
  EXPECT_EQ(strings.SetString(id, XMLString("second")), 2u);
  EXPECT_TRUE(strings.GetStringFromID(1) == XMLString("first"));
  EXPECT_EQ(SwatchbookProbe::PoolSize(strings), pool + 7);
  EXPECT_EQ(SwatchbookProbe::FreedBytes(strings), 0);
}

TEST(XMLStringHeapTest, CompactionThresholds) {
  XMLStringHeap strings;
  const std::string hundred(100, 'x');  // 101 serialized bytes each
  for (int i = 0; i < 40; ++i) strings.AddString(XMLString((hundred + char('A' + i % 26)).c_str()));
  const int32_t pool = SwatchbookProbe::PoolSize(strings);  // 40 x 102
  for (uint32_t id = 1; id <= 10; ++id) strings.DeleteString(id);
  EXPECT_EQ(SwatchbookProbe::FreedBytes(strings), 1020);  // not above 1024: kept
  for (uint32_t id = 11; id <= 20; ++id) strings.DeleteString(id);
  EXPECT_EQ(SwatchbookProbe::FreedBytes(strings), 2040);  // above 1024 but exactly half: kept
  EXPECT_EQ(SwatchbookProbe::PoolSize(strings), pool);
  strings.DeleteString(21);  // more than half: compacted
  EXPECT_EQ(SwatchbookProbe::FreedBytes(strings), 0);
  EXPECT_EQ(SwatchbookProbe::PoolSize(strings), 19 * 102);
  EXPECT_TRUE(strings.GetStringFromID(22) == XMLString((hundred + char('A' + 21 % 26)).c_str()));
  EXPECT_TRUE(strings.GetStringFromID(40) == XMLString((hundred + char('A' + 39 % 26)).c_str()));
  strings.RemoveExtraStorage();
  EXPECT_EQ(strings.AddString(XMLString("after")), 0u);  // reuses a deleted entry
  EXPECT_TRUE(strings.GetStringFromID(21) == XMLString("after"));
}

}  // namespace
