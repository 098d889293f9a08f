// pxhost preview FILE... -o OUT: each file's embedded thumbnail through read
// start and read continue, written as PNG or PPM.
#include <CLI/CLI.hpp>
#include <filesystem>
#include <memory>
#include <set>

#include "pxhost/atomic_output.h"
#include "pxhost/batch.h"
#include "pxhost/commands.h"
#include "pxhost/image_io.h"
#include "pxhost/input_files.h"
#include "pxhost/plugin_requests.h"

namespace pxhost {
namespace {

namespace fs = std::filesystem;

struct PreviewOptions {
  InputOptions inputs;
  std::string out;
};

// The file name an input's preview gets in an output folder: its stem, then
// -2, -3, ... for a stem already used; standard input is "stdin".
std::string TargetInFolder(const std::string& folder, const std::string& file,
                           std::set<std::string>* used) {
  std::string stem = file == "-" ? "stdin" : fs::path(file).stem().string();
  std::string base = (fs::path(folder) / stem).string();
  std::string target = base + ".png";
  for (int n = 2; used->count(target) != 0; ++n) target = base + "-" + std::to_string(n) + ".png";
  used->insert(target);
  return target;
}

int Preview(PluginMainProc entry, const PreviewOptions& o) {
  Report report(o.inputs.json);
  std::vector<std::string> files = ExpandInputs(o.inputs, report);
  std::error_code ec;
  const std::string& out = o.out;
  bool toFolder = out != "-" && (out.back() == '/' || fs::is_directory(out, ec));
  if (files.size() > 1 && !toFolder) {
    std::fputs("pxhost: preview: several files need -o FOLDER/\n", stderr);
    return kExitUsage;
  }
  if (out == "-" && o.inputs.json) {
    std::fputs("pxhost: preview: --json and -o - would share standard output\n", stderr);
    return kExitUsage;
  }
  auto kind = fs::status(out, ec).type();
  bool special = kind != fs::file_type::not_found && kind != fs::file_type::regular && !toFolder;
  // Standard output and devices get PNG whatever their name.
  if (!toFolder && out != "-" && !special && !IsImageName(out)) {
    std::fprintf(stderr, "pxhost: %s: unknown image format (use .png or .ppm)\n", out.c_str());
    return kExitUsage;
  }
  if (toFolder) {
    fs::create_directories(out, ec);
    if (ec) {
      report.OutputFailed(out, "cannot make the folder: " + SystemReason(ec.value()));
      return report.ExitCode();
    }
  }
  // Names are given in input order before any work, so a run on several
  // workers names every preview as a serial run does.
  std::vector<std::string> targets;
  std::set<std::string> used;
  for (const std::string& file : files)
    targets.push_back(toFolder ? TargetInFolder(out, file, &used) : out);
  auto preview = [&](size_t index, const std::string& file, Report& report) {
    PluginInput input(file);
    RgbImage image;
    std::string why;
    if (!input.IsOpen() || !ReadPreview(entry, input, 0, &image, &why)) {
      report.Refused(file, input.IsOpen() ? why : input.Error());
      return;
    }
    const std::string& target = targets[index];
    std::string bytes;
    std::string err = EncodeImage(target, image, &bytes);
    AtomicOutput output;
    if (err.empty() && !(output.Open(target, files) && output.Write(bytes) && output.Commit()))
      err = output.Error();
    if (!err.empty()) {
      report.OutputFailed(target, err);
      return;
    }
    report.Done(file, {{"width", image.width}, {"height", image.height}, {"output", target}},
                target == "-" ? ""
                              : file + ": " + std::to_string(image.width) + "x" +
                                    std::to_string(image.height) + " -> " + target);
  };
  RunBatch(files, Jobs(o.inputs), report, preview);
  return report.ExitCode();
}

}  // namespace

CommandRun SetUpPreview(CLI::App& command) {
  auto o = std::make_shared<PreviewOptions>();
  AddInputOptions(command, &o->inputs);
  command
      .add_option("-o,--output", o->out,
                  "a .png or .ppm file, - for standard output (PNG), or a folder (ending in /) "
                  "for several files, each written as NAME.png")
      ->required();
  return [o](PluginMainProc entry) { return Preview(entry, *o); };
}

}  // namespace pxhost
