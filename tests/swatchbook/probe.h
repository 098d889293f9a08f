// What the swatch book tests look at inside the strings and heaps: storage
// figures the classes keep to themselves.
#pragma once

#include "swatchbook/kelto_swatchbook_heap.h"
#include "swatchbook/xml_string.h"
#include "swatchbook/xml_string_heap.h"

struct SwatchbookProbe {
  static int32_t Capacity(const KeltoSwatchbookHeap& heap) { return heap.capacity_; }
  static int32_t Capacity(const XMLString& s) { return s.capacity_; }
  static XMLString::Format Format(const XMLString& s) { return s.format_; }
  static int32_t FreedBytes(const XMLStringHeap& strings) { return strings.freedBytes_; }
  static int32_t PoolSize(const XMLStringHeap& strings) { return strings.bytes_.GetSize(); }
};
