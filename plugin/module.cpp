// The module's one exported symbol is PluginMain, defined in the plug-in
// library; this reference makes the linker keep it.
#include "sdk/plugin_main.h"

__attribute__((used)) static const PluginMainProc kEntry = &PluginMain;
