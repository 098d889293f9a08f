// EPS thumbnails, whole processes timed from outside: `pxhost thumbnail -s
// 256` on the same drawing written three ways: a PostScript file with an
// embedded preview (E), a DOS EPS file whose TIFF section holds the same
// picture in colour (C), and the PostScript with neither, so its page is
// rendered (R). Each round runs E, C and R once per drawing, one after
// another; the ratios C/E (what the colour preview costs over the embedded
// one) and R/C (what it saves over the interpreter) are taken within a round
// and their medians reported, so the machine's drift between rounds cancels.
//
// Then the EPS files other programs write (epstool, ps2epsi, ImageMagick,
// Ghostscript's EPS writer, each when installed), of one drawing, timed in
// the same rotation beside the embedded-preview file, with and without
// rendering: which picture each kind gives, at what cost.
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "bench/desktop/whole_process.h"
#include "pxhost/image_io.h"
#include "tools/doseps/doseps_writer.h"
#include "tools/ql7embed/ql7_writer.h"

namespace {

namespace fs = std::filesystem;
using benchproc::Defaced;
using benchproc::Median;
using benchproc::RunSeconds;
using benchproc::Write;

constexpr int kRounds = 15;

bool Have(const std::string& program) {
  return std::system(("command -v " + program + " >/dev/null 2>&1").c_str()) == 0;
}

// One EPS file another program wrote, thumbnailed with these options.
struct Kind {
  std::string label, file, options;
  std::vector<double> ms, overEmbedded;
};

struct Drawing {
  std::string name, embedded, colour, rendered;
  std::vector<double> e, c, r, cOverE, rOverC;
};

}  // namespace

int main() {
  fs::path dir = fs::temp_directory_path() / ("bench-eps-" + std::to_string(getpid()));
  fs::create_directories(dir);
  std::vector<Drawing> drawings;
  for (const char* stem : {"badge", "chart", "sunset"}) {
    pxhost::RgbImage image;
    std::string error =
        pxhost::ReadImage(std::string(QL_SAMPLES) + "/images/" + stem + ".ppm", &image);
    if (!error.empty()) {
      std::fprintf(stderr, "bench: %s\n", error.c_str());
      return 1;
    }
    ql7::Options o;
    o.bitsPerPixel = 24;
    std::string postscript = ql7::VectorFile(image, o);
    std::string base = (dir / stem).string();
    Write(base + ".ps", postscript);
    Write(base + ".tiff.eps", doseps::DosEps(Defaced(postscript), doseps::Tiff(image)));
    Write(base + ".plain.ps", Defaced(postscript));
    drawings.push_back(
        {stem, base + ".ps", base + ".tiff.eps", base + ".plain.ps", {}, {}, {}, {}, {}});
  }

  // A drawing placed far from the page's corner, as other programs save it.
  std::string drawing = (dir / "drawing.eps").string();
  Write(drawing,
        "%!PS-Adobe-3.0 EPSF-3.0\n%%BoundingBox: 300 400 364 432\n%%EndComments\n"
        "1 0 0 setrgbcolor 300 400 32 32 rectfill 0 0 1 setrgbcolor 332 400 32 32 rectfill\n"
        "showpage\n%%EOF\n");
  std::vector<Kind> kinds;
  auto make = [&](const std::string& program, const std::string& command, const std::string& name,
                  const std::string& label, bool sketch) {
    if (!Have(program)) return;
    std::string file = (dir / name).string();
    if (std::system(("cd " + dir.string() + " && " + command + " >/dev/null 2>&1").c_str()) != 0)
      return;
    kinds.push_back({label, file, "", {}, {}});
    if (sketch) kinds.push_back({label + ", --no-render", file, "--no-render", {}, {}});
  };
  make("epstool", "epstool --quiet -t6p drawing.eps t6p.eps", "t6p.eps", "epstool TIFF 6 colour",
       false);
  make("epstool", "epstool --quiet -t4 drawing.eps t4.eps", "t4.eps", "epstool TIFF 4 bilevel",
       true);
  make("epstool", "epstool --quiet -i drawing.eps i.eps", "i.eps", "epstool EPSI", true);
  make("epstool", "epstool --quiet -w drawing.eps w.eps", "w.eps", "epstool WMF", false);
  make("ps2epsi", "ps2epsi drawing.eps ps2epsi.eps", "ps2epsi.eps", "ps2epsi EPSI", true);
  make("gs", "gs -q -dNOPAUSE -dBATCH -sDEVICE=eps2write -sOutputFile=eps2write.eps drawing.eps",
       "eps2write.eps", "Ghostscript eps2write", false);
  make("/usr/bin/convert", "/usr/bin/convert -size 32x32 xc:red xc:blue +append ept2:ept2.eps",
       "ept2.eps", "ImageMagick EPT2 (TIFF)", false);
  make("/usr/bin/convert", "/usr/bin/convert -size 32x32 xc:red xc:blue +append epsi:im.epsi",
       "im.epsi", "ImageMagick EPSI", true);

  std::string out = (dir / "out.png").string();
  for (int round = 0; round <= kRounds; ++round) {
    double embedded = 0;
    for (Drawing& d : drawings) {
      double e = RunSeconds({QL_PXHOST, "thumbnail", d.embedded, out, "-s", "256"});
      double c = RunSeconds({QL_PXHOST, "thumbnail", d.colour, out, "-s", "256"});
      double r = RunSeconds({QL_PXHOST, "thumbnail", d.rendered, out, "-s", "256"});
      if (round == 0) continue;  // warm-up: caches filled, libraries paged in
      d.e.push_back(e);
      d.c.push_back(c);
      d.r.push_back(r);
      d.cOverE.push_back(c / e);
      d.rOverC.push_back(r / c);
      if (&d == &drawings.front()) embedded = e;
    }
    for (Kind& k : kinds) {
      std::vector<std::string> args = {QL_PXHOST, "thumbnail", k.file, out, "-s", "256"};
      if (!k.options.empty()) args.push_back(k.options);
      double t = RunSeconds(args);
      if (round == 0) continue;
      k.ms.push_back(t * 1e3);
      k.overEmbedded.push_back(t / embedded);
    }
  }

  std::printf("%d rounds, -s 256; milliseconds are medians, ratios medians of per-round ratios\n",
              kRounds);
  std::printf("%-8s %9s %9s %9s %9s %9s\n", "drawing", "embedded", "tiff", "rendered", "tiff/emb",
              "rend/tiff");
  std::vector<double> allCE, allRC;
  for (const Drawing& d : drawings) {
    std::printf("%-8s %9.1f %9.1f %9.1f %9.2f %9.1f\n", d.name.c_str(), Median(d.e) * 1e3,
                Median(d.c) * 1e3, Median(d.r) * 1e3, Median(d.cOverE), Median(d.rOverC));
    allCE.insert(allCE.end(), d.cOverE.begin(), d.cOverE.end());
    allRC.insert(allRC.end(), d.rOverC.begin(), d.rOverC.end());
  }
  std::printf("%-8s %9s %9s %9s %9.2f %9.1f\n", "all", "", "", "", Median(allCE), Median(allRC));
  std::printf("\n%-36s %9s %14s\n", "EPS written by", "ms", "/ embedded");
  for (const Kind& k : kinds)
    std::printf("%-36s %9.1f %14.2f\n", k.label.c_str(), Median(k.ms), Median(k.overEmbedded));
  fs::remove_all(dir);
  return 0;
}
