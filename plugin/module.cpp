// The module's one exported symbol is PluginMain, defined in the plug-in
// library; this reference makes the linker keep it.
#include "sdk/plugin_main.h"

extern "C" void PluginMain(int16_t, pixmere::FormatRecord*, intptr_t*, int16_t*);

__attribute__((used)) static const PluginMainProc kEntry = &PluginMain;
