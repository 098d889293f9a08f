// pxhost palette IN.sxf [-f gpl|json|css] [-o OUT]: a swatch book's colours
// in the palette formats of paint, layout and web programs, as the
// plug-in's reader loads the book.
#include <CLI/CLI.hpp>
#include <filesystem>
#include <memory>

#include "pxhost/atomic_output.h"
#include "pxhost/commands.h"
#include "pxhost/palette_formats.h"
#include "pxhost/plugin_requests.h"
#include "pxhost/report.h"

namespace pxhost {
namespace {

struct PaletteOptions {
  std::string file;
  std::string format = "gpl";
  std::string out = "-";
  bool json = false;
};

int Palette(PluginMainProc entry, const PaletteOptions& o) {
  Report report(o.json);
  if (o.json && o.out == "-") {
    std::fputs("pxhost: palette: --json needs -o OUT (the palette would share standard output)\n",
               stderr);
    return kExitUsage;
  }
  PluginInput input(o.file);
  if (!input.IsOpen()) {
    report.Refused(o.file, input.Error());
    return report.ExitCode();
  }
  std::string error;
  std::vector<DisplaySwatch> swatches;
  if (!ReadSwatchBook(entry, input, &swatches, &error)) {
    report.Refused(o.file, error);
    return report.ExitCode();
  }
  std::string name = o.file == "-" ? "stdin" : std::filesystem::path(o.file).stem().string();
  std::string text = o.format == "json"  ? PaletteJson(name, swatches)
                     : o.format == "css" ? PaletteCss(swatches)
                                         : PaletteGpl(name, swatches);
  AtomicOutput output;
  if (!output.Open(o.out, {o.file}) || !output.Write(text) || !output.Commit()) {
    report.OutputFailed(o.out, output.Error());
    return report.ExitCode();
  }
  // What was left out is told once the palette is written: a run that
  // cannot write it says only that.
  int skipped = 0;
  for (const DisplaySwatch& s : swatches) {
    for (const std::string& warning : {MendedNameWarning(s), SkippedWarning(s)})
      if (!warning.empty()) ErrorLine(o.file, warning);
    skipped += !s.drawable;
  }
  int written = int(swatches.size()) - skipped;
  if (skipped > 0)
    ErrorLine(o.file, std::to_string(skipped) + " swatch" + (skipped == 1 ? "" : "es") +
                          " skipped, " + std::to_string(written) + " written");
  report.Done(
      o.file,
      {{"output", o.out}, {"format", o.format}, {"swatches", written}, {"skipped", skipped}},
      o.out == "-" ? "" : o.file + ": " + std::to_string(written) + " swatches -> " + o.out);
  return report.ExitCode();
}

}  // namespace

CommandRun SetUpPalette(CLI::App& command) {
  auto o = std::make_shared<PaletteOptions>();
  command.add_option("FILE", o->file, "a swatch exchange file; - is standard input")->required();
  command.add_option("-f,--format", o->format, "gpl (GIMP palette), json or css")
      ->check(CLI::IsMember({"gpl", "json", "css"}))
      ->capture_default_str();
  command.add_option("-o,--output", o->out, "where the palette goes (default: standard output)");
  command.add_flag("--json", o->json, "a JSON object telling what was written (needs -o)");
  return [o](PluginMainProc entry) { return Palette(entry, *o); };
}

}  // namespace pxhost
