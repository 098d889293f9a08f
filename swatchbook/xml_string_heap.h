// A pool of strings addressed by small integer IDs (0 = no string).
#pragma once

#include <cstdint>

#include "swatchbook/kelto_swatchbook_heap.h"
#include "swatchbook/xml_string.h"

class XMLStringHeap {
 public:
  XMLStringHeap();

  // The new string's ID; 0 on failure, and also when a deleted entry is reused.
  uint32_t AddString(const XMLString& s);
  XMLString GetStringFromID(uint32_t id) const;
  int32_t DeleteString(uint32_t id);
  // Stores s and writes its new ID to id; the old text is not freed.
  uint32_t SetString(uint32_t& id, const XMLString& s);
  void CompactStringHeap();
  void RemoveExtraStorage();

 private:
  friend struct SwatchbookProbe;  // the tests' view of the pool

  int32_t freedBytes_ = 0;
  KeltoSwatchbookHeap bytes_;
  KeltoSwatchbookHeap entries_;
  uint32_t freeList_ = 0;
};
