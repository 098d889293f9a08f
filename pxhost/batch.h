// Runs a command's work on each of its input files, on several worker
// processes when asked (-j), and reports every file in input order, as a
// serial run would. A progress line goes to standard error when it is a
// terminal and the run takes longer than a second.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "pxhost/report.h"

namespace pxhost {

// The work on one file: what it prints and reports is that file's outcome.
// `index` is the file's place in the list.
using FileWork = std::function<void(size_t index, const std::string& file, Report& report)>;

// Runs work on every file and folds each file's outcome into report's exit
// code. With jobs > 1 and more than one file, each file is done by one of
// `jobs` forked worker processes (the host simulator keeps one session per
// process), its standard output and error held back and written in input
// order. A worker that dies on a file fails that file (exit code 2) and a new
// worker takes the rest.
void RunBatch(const std::vector<std::string>& files, int jobs, Report& report,
              const FileWork& work);

}  // namespace pxhost
