// The rendering-method suite the plug-in adds to the host's registry: other
// host components ask it whether a vector file should be previewed from its
// PDF, from a JPEG thumbnail in its XMP, or from its embedded thumbnail.
#pragma once

#include <cstdint>

#include "sdk/suites.h"

namespace xmptk {
class XMPMeta;
}

class CQLRenderingMethodSuiteReg {
 public:
  // Adds the suite through "PK Suites Suite"; returns the host's error code.
  static int32_t PublishRenderingMethodSuite(const pixmere::PKBasicSuite* basic);
  // Fills the suite's one procedure slot when the suite was published.
  static int32_t InitializeRenderingMethodSuite();
  // Clears the slot, frees the table and forgets it; returns 0. Runs when the
  // module is unloaded, after the host has dropped the suites it added.
  static int32_t ReleaseRenderingMethodSuite();

  static pixmere::QLRenderingMethodSuite* sQLRenderingMethod;
};

class CQLRenderingMethodSuite {
 public:
  // The suite's procedure: 0 and *method set, "Parm" for a null argument or
  // any failure while examining the file, "KXEC" when it cannot be read.
  static int32_t GetQLRenderingMethodForFile(const char* path, int32_t* method);
  static int32_t GetRenderingMethod(const char* header, int32_t length, const xmptk::XMPMeta& meta);
  static bool isFormatPDF(const xmptk::XMPMeta& meta);
  static bool hasThumbnailInXMP(const xmptk::XMPMeta& meta);
  // True when the header holds at least five bytes and starts with "%PDF-".
  static bool hasPDFHeader(const char* header, int32_t length);
};
