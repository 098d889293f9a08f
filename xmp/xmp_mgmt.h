// Turns a loaded swatch book into one serialized XMP packet: the swatch
// groups with every colorant and its values, and the thumbnail pages.
#pragma once

#include <string>

class KeltoSwatchbook;

class XMPMgmt {
 public:
  // Where the thumbnail pages are encoded: on a second thread while the
  // calling thread writes the swatch groups (on the calling thread after
  // them for a single page, or if no thread can be started), or on the
  // calling thread after the groups. The packet is the same byte for byte; the second thread never
  // outlives GenerateXMP.
  enum class PageEncoding { kAside, kInline };
  explicit XMPMgmt(PageEncoding encoding = PageEncoding::kAside);

  // Exceptions of the XMP toolkit, and of the page encoding on either
  // thread, propagate to the caller.
  void GenerateXMP(KeltoSwatchbook& book, std::string& packet);

 private:
  PageEncoding encoding_;
};
