// Each command's set-up, one file each; the table in command_table.cpp
// lists them.
#pragma once

#include "pxhost/command_table.h"

namespace pxhost {

CommandRun SetUpPreview(CLI::App& command);
CommandRun SetUpMethod(CLI::App& command);
CommandRun SetUpIdentify(CLI::App& command);
CommandRun SetUpXmp(CLI::App& command);
CommandRun SetUpCall(CLI::App& command);
CommandRun SetUpThumbnail(CLI::App& command);
CommandRun SetUpPalette(CLI::App& command);

}  // namespace pxhost
