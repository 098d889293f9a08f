// The string pool: serialized strings back to back in one byte heap, and a
// table of (offset, size) entries in another; entry i belongs to ID i + 1.
// A deleted entry has offset -1 and holds in its size word the ID of the
// next deleted entry, which makes the free list.
#include "swatchbook/xml_string_heap.h"

#include <cstring>
#include <vector>

namespace {

struct Entry {
  int32_t offset;  // byte offset in the pool; -1 once deleted
  int32_t size;    // serialized size; once deleted, the next free ID (0 ends the list)
};
static_assert(sizeof(Entry) == 8, "an entry is two 32-bit words");

constexpr int32_t kPoolBytes = 65536;         // initial size and growth of both heaps
constexpr int32_t kCompactAfterBytes = 1024;  // freed bytes tolerated before compacting

Entry LoadEntry(const KeltoSwatchbookHeap& entries, uint32_t id) {
  Entry e;
  std::memcpy(&e, entries.GetData(int32_t(id - 1)), sizeof e);
  return e;
}

void StoreEntry(KeltoSwatchbookHeap& entries, uint32_t id, Entry e) {
  std::memcpy(entries.GetData(int32_t(id - 1)), &e, sizeof e);
}

}  // namespace

XMLStringHeap::XMLStringHeap()
    : bytes_(1, kPoolBytes, kPoolBytes), entries_(sizeof(Entry), kPoolBytes, kPoolBytes) {}

uint32_t XMLStringHeap::AddString(const XMLString& s) {
  int32_t size = s.GetSerializedSize();
  int32_t offset = bytes_.GetSize();
  char* at = static_cast<char*>(bytes_.AppendData(size));
  if (at == nullptr) return 0;
  s.GetSerializedData(at);
  Entry fresh{offset, size};
  if (freeList_ != 0) {
    // The string takes over the first deleted entry, but its ID is not
    // reported: the caller gets 0, as the book has always done.
    uint32_t id = freeList_;
    freeList_ = uint32_t(LoadEntry(entries_, id).size);
    StoreEntry(entries_, id, fresh);
    return 0;
  }
  int32_t index = entries_.AppendData(&fresh, 1);
  return index < 0 ? 0 : uint32_t(index) + 1;
}

XMLString XMLStringHeap::GetStringFromID(uint32_t id) const {
  if (id < 1 || id > uint32_t(entries_.GetSize())) return XMLString();
  Entry e = LoadEntry(entries_, id);
  if (e.size < 0 || e.offset < 0 || e.size > bytes_.GetSize() - e.offset) return XMLString();
  return XMLString(e.size, bytes_.GetData(e.offset));
}

int32_t XMLStringHeap::DeleteString(uint32_t id) {
  if (id < 1 || id > uint32_t(entries_.GetSize())) return 0;
  Entry e = LoadEntry(entries_, id);
  if (e.offset < 0) return 0;
  freedBytes_ += e.size;
  StoreEntry(entries_, id, Entry{-1, int32_t(freeList_)});
  freeList_ = id;
  if (freedBytes_ > kCompactAfterBytes && freedBytes_ > bytes_.GetSize() / 2) CompactStringHeap();
  return 1;
}

uint32_t XMLStringHeap::SetString(uint32_t& id, const XMLString& s) {
  // Only an ID of 0 is "deleted", which does nothing: a reassigned text
  // stays in the pool.
  if (id == 0) DeleteString(id);
  id = AddString(s);
  return id;
}

void XMLStringHeap::CompactStringHeap() {
  int32_t liveBytes = bytes_.GetSize() - freedBytes_;
  std::vector<char> packed(size_t(liveBytes > 0 ? liveBytes : 0));
  int32_t next = 0;
  for (uint32_t id = 1; id <= uint32_t(entries_.GetSize()); ++id) {
    Entry e = LoadEntry(entries_, id);
    if (e.offset < 0) continue;
    std::memcpy(packed.data() + next, bytes_.GetData(e.offset), size_t(e.size));
    StoreEntry(entries_, id, Entry{next, e.size});
    next += e.size;
  }
  bytes_.SetHeap(packed.data(), next);
  freedBytes_ = 0;
}

void XMLStringHeap::RemoveExtraStorage() {
  bytes_.RemoveExtraStorage();
  entries_.RemoveExtraStorage();
}
