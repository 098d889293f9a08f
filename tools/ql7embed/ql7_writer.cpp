#include "tools/ql7embed/ql7_writer.h"

#include <cstdio>
#include <map>
#include <vector>

#include "xmp/toolkit.h"

namespace ql7 {
namespace {

constexpr uint8_t kRunMarker = 0xFD;
constexpr uint32_t kArrayIsAlternate = 0x800;  // the toolkit's option bit for rdf:Alt
constexpr int kLongestRun = 252;  // a count of 253 (0xFD) would read as the literal pair

const char kHex[] = "0123456789ABCDEF";

// Hexadecimal comment lines of 32 bytes each, every line starting with '%'.
class HexLines {
 public:
  explicit HexLines(std::string* out) : out_(out) {}
  void Byte(uint8_t b) {
    if (column_ == 0) *out_ += '%';
    *out_ += kHex[b >> 4];
    *out_ += kHex[b & 15];
    if (++column_ == 32) EndLine();
  }
  void EndLine() {
    if (column_ != 0) *out_ += '\n';
    column_ = 0;
  }

 private:
  std::string* out_;
  int column_ = 0;
};

// Codes for each pixel of an 8-bit thumbnail, and the table they index: the
// image's own colours when there are at most 256, else a 3-3-2 bit cube.
std::vector<uint8_t> Palettize(const pxhost::RgbImage& image, std::vector<uint8_t>* table) {
  size_t pixels = image.pixels.size() / 3;
  std::map<uint32_t, uint8_t> colours;
  for (size_t p = 0; p < pixels && colours.size() <= 256; ++p) {
    uint32_t rgb = uint32_t(image.pixels[3 * p]) << 16 | uint32_t(image.pixels[3 * p + 1]) << 8 |
                   image.pixels[3 * p + 2];
    colours.emplace(rgb, 0);
  }
  table->assign(768, 0);
  std::vector<uint8_t> codes(pixels);
  if (colours.size() <= 256) {
    int next = 0;
    for (auto& [rgb, code] : colours) {
      code = uint8_t(next);
      (*table)[3 * next] = uint8_t(rgb >> 16);
      (*table)[3 * next + 1] = uint8_t(rgb >> 8);
      (*table)[3 * next + 2] = uint8_t(rgb);
      ++next;
    }
    for (size_t p = 0; p < pixels; ++p) {
      uint32_t rgb = uint32_t(image.pixels[3 * p]) << 16 | uint32_t(image.pixels[3 * p + 1]) << 8 |
                     image.pixels[3 * p + 2];
      codes[p] = colours[rgb];
    }
    return codes;
  }
  for (int c = 0; c < 256; ++c) {
    (*table)[3 * c] = uint8_t((c >> 5) * 255 / 7);
    (*table)[3 * c + 1] = uint8_t(((c >> 2) & 7) * 255 / 7);
    (*table)[3 * c + 2] = uint8_t((c & 3) * 255 / 3);
  }
  for (size_t p = 0; p < pixels; ++p) {
    int r = (image.pixels[3 * p] * 7 + 127) / 255;
    int g = (image.pixels[3 * p + 1] * 7 + 127) / 255;
    int b = (image.pixels[3 * p + 2] * 3 + 127) / 255;
    codes[p] = uint8_t(r << 5 | g << 2 | b);
  }
  return codes;
}

// Run-length codes: FD n v repeats v n times, FD FD is the literal FD.
std::vector<uint8_t> RunLength(const std::vector<uint8_t>& codes) {
  std::vector<uint8_t> out;
  for (size_t k = 0; k < codes.size();) {
    size_t run = 1;
    while (k + run < codes.size() && codes[k + run] == codes[k] && run < kLongestRun) ++run;
    if (run >= 4) {
      out.insert(out.end(), {kRunMarker, uint8_t(run), codes[k]});
    } else {
      for (size_t r = 0; r < run; ++r) {
        if (codes[k] == kRunMarker)
          out.insert(out.end(), {kRunMarker, kRunMarker});
        else
          out.push_back(codes[k]);
      }
    }
    k += run;
  }
  return out;
}

std::string HexImage(const pxhost::RgbImage& image) {
  std::string hex;
  hex.reserve(image.pixels.size() * 2 + image.pixels.size() / 32);
  for (size_t k = 0; k < image.pixels.size(); ++k) {
    hex += kHex[image.pixels[k] >> 4];
    hex += kHex[image.pixels[k] & 15];
    if (k % 40 == 39) hex += '\n';
  }
  return hex;
}

std::string XmpPacket(const Options& options) {
  // The toolkit's set-up is counted, so this nests inside any caller's.
  struct Toolkit {
    Toolkit() { xmptk::Initialize(); }
    ~Toolkit() { xmptk::Terminate(); }
  } toolkit;
  xmptk::XMPMeta meta;
  const char* xmpNS = xmptk::NamespaceURI("xmp");
  if (!options.xmpFormat.empty()) meta.SetProperty(xmpNS, "Format", options.xmpFormat.c_str());
  if (options.xmpJpegThumbnail) {
    const char* imgNS = xmptk::NamespaceURI("xmpGImg");
    // An alternative array of thumbnail structs, as writers of such files use.
    meta.AppendArrayItem(xmpNS, "Thumbnails", kArrayIsAlternate | xmptk::kXMP_PropArrayIsOrdered,
                         nullptr, xmptk::kXMP_PropValueIsStruct);
    std::string item;
    xmptk::XMPUtils::ComposeArrayItemPath(xmpNS, "Thumbnails", 1, &item);
    auto field = [&](const char* name, const char* value) {
      std::string path;
      xmptk::XMPUtils::ComposeStructFieldPath(xmpNS, item.c_str(), imgNS, name, &path);
      meta.SetProperty(xmpNS, path.c_str(), value);
    };
    field("format", "JPEG");
    std::string image = "/9j/4AAQSkZJRgABAQAAAQABAAD/2wBDAP//2Q==";  // SOI, APP0, DQT cut, EOI
    if (!options.xmpJpeg.empty())
      xmptk::XMPUtils::EncodeToBase64(options.xmpJpeg.data(), uint32_t(options.xmpJpeg.size()),
                                      &image);
    field("width", "8");
    field("height", "8");
    field("image", image.c_str());
  }
  std::string packet;
  meta.SerializeToBuffer(&packet, 0, 0);
  return packet;
}

}  // namespace

std::string ThumbnailBlock(const pxhost::RgbImage& image, int bitsPerPixel, bool runLength) {
  std::vector<uint8_t> table;
  std::vector<uint8_t> codes =
      bitsPerPixel == 8 ? Palettize(image, &table) : std::vector<uint8_t>(image.pixels);
  if (runLength) codes = RunLength(codes);
  size_t bytes = table.size() + (runLength ? 3 : 0) + codes.size();

  char header[160];
  std::snprintf(header, sizeof header, "%%QL7_Thumbnail: %d %d %d\n%%%%BeginData: %zu Hex Bytes\n",
                image.width, image.height, bitsPerPixel, bytes);
  std::string out = header;
  HexLines hex(&out);
  for (uint8_t b : table) hex.Byte(b);
  hex.EndLine();  // the run-length marker must stand whole at the start of a line
  if (runLength)
    for (uint8_t b : {0x52, 0x4C, 0x45}) hex.Byte(b);
  for (uint8_t b : codes) hex.Byte(b);
  hex.EndLine();
  out += "%%EndData\n";
  return out;
}

std::string VectorFile(const pxhost::RgbImage& image, const Options& options) {
  std::string block = ThumbnailBlock(image, options.bitsPerPixel, options.runLength);
  int w = image.width, h = image.height;
  char line[256];

  if (!options.pdf) {
    std::string ps = "%!PS-Adobe-3.0\n";
    std::snprintf(line, sizeof line, "%%%%BoundingBox: 0 0 %d %d\n", w, h);
    ps += line;
    ps += "%%Creator: ql7embed\n%%Pages: 1\n%%EndComments\n";
    ps += block;
    // A prolog long enough that the preview never lies in the file's last
    // few hundred bytes, where the reader does not look.
    ps +=
        "%%BeginProlog\n"
        "% The page is the image itself, drawn from hexadecimal RGB samples that\n"
        "% follow the colorimage operator inline, one row of samples at a time.\n"
        "% Viewers show the page; image hosts show the preview above.\n"
        "%%EndProlog\n%%Page: 1 1\n";
    std::snprintf(line, sizeof line,
                  "/rowbytes %d string def\ngsave\n%d %d scale\n"
                  "%d %d 8 [%d 0 0 %d neg 0 %d]\n"
                  "{currentfile rowbytes readhexstring pop} false 3 colorimage\n",
                  w * 3, w, h, w, h, w, h, h);
    ps += line;
    ps += HexImage(image);
    ps += "\ngrestore\nshowpage\n%%Trailer\n%%EOF\n";
    return ps;
  }

  bool withXmp = !options.xmpFormat.empty() || options.xmpJpegThumbnail;
  std::string packet = withXmp ? XmpPacket(options) : std::string();
  std::string pdf = "%PDF-1.4\n%\xE2\xE3\xCF\xD3\n";
  pdf += block;
  std::vector<size_t> offsets;
  auto object = [&](const std::string& body) {
    offsets.push_back(pdf.size());
    std::snprintf(line, sizeof line, "%zu 0 obj\n", offsets.size());
    pdf += line;
    pdf += body;
    pdf += "\nendobj\n";
  };
  object(withXmp ? "<< /Type /Catalog /Pages 2 0 R /Metadata 5 0 R >>"
                 : "<< /Type /Catalog /Pages 2 0 R >>");
  object("<< /Type /Pages /Kids [3 0 R] /Count 1 >>");
  std::snprintf(line, sizeof line,
                "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 %d %d] /Contents 4 0 R "
                "/Resources << >> >>",
                w, h);
  object(line);
  std::snprintf(line, sizeof line,
                "q %d 0 0 %d 0 0 cm\nBI /W %d /H %d /CS /RGB /BPC 8 /F /AHx ID\n", w, h, w, h);
  std::string content = line + HexImage(image) + ">\nEI Q\n";
  object("<< /Length " + std::to_string(content.size()) + " >>\nstream\n" + content + "endstream");
  if (withXmp)
    object("<< /Type /Metadata /Subtype /XML /Length " + std::to_string(packet.size()) +
           " >>\nstream\n" + packet + "\nendstream");
  size_t xref = pdf.size();
  std::snprintf(line, sizeof line, "xref\n0 %zu\n0000000000 65535 f \n", offsets.size() + 1);
  pdf += line;
  for (size_t offset : offsets) {
    std::snprintf(line, sizeof line, "%010zu 00000 n \n", offset);
    pdf += line;
  }
  std::snprintf(line, sizeof line,
                "trailer\n<< /Size %zu /Root 1 0 R >>\nstartxref\n%zu\n%%%%EOF\n",
                offsets.size() + 1, xref);
  pdf += line;
  return pdf;
}

}  // namespace ql7
