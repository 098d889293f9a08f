// Host state of the current request. The host calls the plug-in on one thread,
// one request at a time, so these are plain globals, set on every call.
#pragma once

#include <cstdint>

#include "sdk/format_record.h"
#include "sdk/suites.h"

extern pixmere::FormatRecord* gFormatRecord;
extern int16_t* gResult;
extern intptr_t* gDataHandle;
extern int32_t gPluginRef;
extern const pixmere::PKBasicSuite* sPKBasic;
