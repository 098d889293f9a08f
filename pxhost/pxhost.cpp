// pxhost: runs the plug-in the way the host does, from the command line.
#include <cstdio>
#include <exception>

#include "pxhost/command_table.h"
#include "pxhost/report.h"

int main(int argc, char** argv) {
  // Whatever escapes a command (a library's exception, memory running out)
  // ends the run as a usage-level failure with a message, never an abort.
  // Standard output is checked last, whatever the command: a write that
  // failed is told and exits 2.
  try {
    return pxhost::FinishStandardOutput(pxhost::RunPxhost(argc, argv));
  } catch (...) {
    std::fflush(stdout);
    std::fputs("pxhost: stopped by an unexpected failure; nothing more was done\n", stderr);
    return pxhost::kExitUsage;
  }
}
