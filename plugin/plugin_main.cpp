// The plug-in's entry point: once-only set-up, the host checks, the swatch
// decision and the selector dispatch.
#include <cstdint>

#include "plugin/globals.h"
#include "plugin/read_handlers.h"
#include "plugin/rendering_method.h"
#include "plugin/suites.h"
#include "plugin/swatch_handlers.h"
#include "sdk/plugin_main.h"
#include "sdk/selectors.h"
#include "xmp/toolkit.h"

using namespace pixmere;

FormatRecord* gFormatRecord = nullptr;
int16_t* gResult = nullptr;
intptr_t* gDataHandle = nullptr;
int32_t gPluginRef = 0;
const PKBasicSuite* sPKBasic = nullptr;

namespace {

bool IsSwatchFileType(uint32_t type) {
  return type == FourCC("sxf ") || type == FourCC("SXF ") || type == FourCC("sxff") ||
         type == FourCC("SXFF");
}

// The host must offer its first, second and fourth required procedures and
// the advance-state procedure. A missing table counts as missing procedures.
bool HostHasRequiredProcs(const FormatRecord& record) {
  const RequiredProcs* procs = record.requiredProcs;
  return procs != nullptr && procs->proc[0] != nullptr && procs->proc[1] != nullptr &&
         procs->proc[3] != nullptr && record.advanceStateProc != nullptr;
}

void Dispatch(int16_t selector, bool swatchFile) {
  switch (selector) {
    case kSelectorReadStart:
    case kSelectorReadContinue:
      if (swatchFile) return;  // nothing to read; the suites stay
      if (selector == kSelectorReadStart)
        DoReadStart();
      else
        DoReadContinue();
      if (*gResult != 0) PIUSuitesRelease();
      return;
    case kSelectorFilterFile:
      // Everything that is not a swatch exchange file is accepted as a vector
      // file; a swatch file is checked again.
      if (swatchFile) DoFilterFile();
      PIUSuitesRelease();
      return;
    case kSelectorXMP:
      if (swatchFile) DoXMPRequest();  // the suites stay
      return;
    case kSelectorAbout:
    case kSelectorReadFinish:
    case kSelectorOptionsFinish:
    case kSelectorEstimateFinish:
    case kSelectorWriteFinish:
      PIUSuitesRelease();
      return;
    default:
      return;
  }
}

void Enter(int16_t selector, FormatRecord* record, intptr_t* data, int16_t* result) {
  sPKBasic = record->basicSuite;

  // Once per process: the suite is published by the first call and never
  // withdrawn.
  static bool suitePublished = false;
  if (!suitePublished) {
    // Publication may fail; the plug-in works without its suite.
    CQLRenderingMethodSuiteReg::PublishRenderingMethodSuite(sPKBasic);
    CQLRenderingMethodSuiteReg::InitializeRenderingMethodSuite();
    suitePublished = true;
    xmptk::Initialize();  // the file layer the suite reads through; never torn down
  }

  gPluginRef = record->pluginRef;
  gDataHandle = data;
  gResult = result;
  gFormatRecord = record;

  if (!HostHasRequiredProcs(*record)) {
    *gResult = kResultHostInsufficient;
    return;
  }

  bool sniffed = false;
  if (record->fileType == 0) {
    DoFilterFile();
    sniffed = *gResult == 0;
  }
  *gResult = kResultNoError;
  Dispatch(selector, IsSwatchFileType(record->fileType) || sniffed);
}

}  // namespace

extern "C" __attribute__((visibility("default"))) void PluginMain(int16_t selector,
                                                                  FormatRecord* record,
                                                                  intptr_t* data, int16_t* result) {
  // Without a record there is nothing to work on; without a result slot,
  // nowhere to say so.
  if (result == nullptr) return;
  if (record == nullptr) {
    *result = kResultHostInsufficient;
    return;
  }
  // Nothing may unwind into the host.
  try {
    Enter(selector, record, data, result);
  } catch (...) {
    if (result != nullptr) *result = kResultCannotRead;
  }
}
