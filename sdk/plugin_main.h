// The plug-in's one exported entry point.
#pragma once

#include <cstdint>

#include "sdk/format_record.h"

extern "C" {
using PluginMainProc = void (*)(int16_t selector, pixmere::FormatRecord* record, intptr_t* data,
                                int16_t* result);
// Defined by the plug-in library; programs linking it call it directly.
void PluginMain(int16_t selector, pixmere::FormatRecord* record, intptr_t* data, int16_t* result);
}
