// Desktop thumbnails, whole processes timed from outside: `pxhost thumbnail
// -s 256` on documents with an embedded preview (E), on the same documents
// with the preview's keyword defaced so the first page is rendered in the
// limited child (F), and the renderer called directly by a program of its own
// (R). Each round runs E, F and R once per document, one after another; the
// ratios F/E (what the embedded preview saves) and F/R (what the fallback
// costs over the renderer alone) are taken within a round and their medians
// reported, so the machine's drift between rounds cancels out.

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "bench/desktop/whole_process.h"
#include "pxhost/image_io.h"
#include "tools/ql7embed/ql7_writer.h"

namespace {

namespace fs = std::filesystem;
using benchproc::Defaced;
using benchproc::Median;
using benchproc::RunSeconds;
using benchproc::Write;

constexpr int kRounds = 15;
constexpr char kSize[] = "256";

struct Document {
  std::string name, kind, withPreview, withoutPreview;
  std::vector<double> e, f, r, fOverE, fOverR;
};

}  // namespace

int main() {
  fs::path dir = fs::temp_directory_path() / ("bench-desktop-" + std::to_string(getpid()));
  fs::create_directories(dir);
  std::vector<Document> docs;
  // The bundled PostScript samples as they are, and each sample image also
  // as a PDF page carrying its preview.
  for (const char* name : {"badge.ps", "sunset.ps"}) {
    std::ifstream in(std::string(QL_SAMPLES) + "/vector/" + name, std::ios::binary);
    std::string bytes((std::istreambuf_iterator<char>(in)), {});
    std::string base = (dir / name).string();
    Write(base, bytes);
    Write(base + ".plain.ps", Defaced(bytes));
    docs.push_back({name, "ps", base, base + ".plain.ps", {}, {}, {}, {}, {}});
  }
  for (const char* stem : {"badge", "chart", "sunset"}) {
    pxhost::RgbImage image;
    std::string error =
        pxhost::ReadImage(std::string(QL_SAMPLES) + "/images/" + stem + ".ppm", &image);
    if (!error.empty()) {
      std::fprintf(stderr, "bench: %s\n", error.c_str());
      return 1;
    }
    ql7::Options o;
    o.pdf = true;
    std::string bytes = ql7::VectorFile(image, o);
    std::string base = (dir / (std::string(stem) + ".pdf")).string();
    Write(base, bytes);
    Write(base + ".plain.pdf", Defaced(bytes));
    docs.push_back(
        {std::string(stem) + ".pdf", "pdf", base, base + ".plain.pdf", {}, {}, {}, {}, {}});
  }

  std::string out = (dir / "out.png").string();
  for (int round = 0; round <= kRounds; ++round) {
    for (Document& d : docs) {
      double e = RunSeconds({QL_PXHOST, "thumbnail", d.withPreview, out, "-s", kSize});
      double f = RunSeconds({QL_PXHOST, "thumbnail", d.withoutPreview, out, "-s", kSize});
      double r = RunSeconds({QL_RENDER_PAGE, d.kind, d.withoutPreview, out, kSize});
      if (round == 0) continue;  // warm-up: caches filled, libraries paged in
      d.e.push_back(e);
      d.f.push_back(f);
      d.r.push_back(r);
      d.fOverE.push_back(f / e);
      d.fOverR.push_back(f / r);
    }
  }

  std::printf("%d rounds, -s %s; milliseconds are medians, ratios medians of per-round ratios\n",
              kRounds, kSize);
  std::printf("%-12s %9s %9s %9s %9s %9s\n", "document", "embedded", "fallback", "renderer",
              "fb/emb", "fb/rend");
  std::vector<double> allFE, allFR;
  for (const Document& d : docs) {
    std::printf("%-12s %9.1f %9.1f %9.1f %9.2f %9.3f\n", d.name.c_str(), Median(d.e) * 1e3,
                Median(d.f) * 1e3, Median(d.r) * 1e3, Median(d.fOverE), Median(d.fOverR));
    allFE.insert(allFE.end(), d.fOverE.begin(), d.fOverE.end());
    allFR.insert(allFR.end(), d.fOverR.begin(), d.fOverR.end());
  }
  std::printf("%-12s %9s %9s %9s %9.2f %9.3f\n", "all", "", "", "", Median(allFE), Median(allFR));
  fs::remove_all(dir);
  return 0;
}
