// The book as the plug-in's reader loaded it, not as the swatch packet writes
// it: the packet repeats the previous name for an empty one, refuses the
// whole book over one character XML cannot hold, and truncates RGB and gray
// to whole bytes, all of which its readers expect. A palette and the swatch
// thumbnail are this program's own and show each swatch as it is.
//
// Model names and the scale of each model's values are the packet's
// (xmp/swatch_schema.h), so a palette's numbers read like the packet's. Gray,
// CMYK and Lab swatches get their display colour from the same engine call
// as the chips of the thumbnail pages (xmppages::DisplayColour); the tint is
// reported, not applied.
#include "pxhost/swatch_colours.h"

#include <cmath>
#include <cstdio>

#include "pxhost/report.h"
#include "xmp/display_colour.h"
#include "xmp/host_binding.h"
#include "xmp/swatch_schema.h"

namespace pxhost {
namespace {

uint8_t Byte(double unit) {
  return uint8_t(std::lround(std::fmin(std::fmax(unit, 0.0), 1.0) * 255.0));
}

constexpr char kReplacement[] = "\xEF\xBF\xBD";  // U+FFFD in UTF-8

// The code point of the UTF-8 sequence at text[*at], moving *at past it;
// -1 (past one byte) for a byte that starts no well-formed sequence. Lone
// surrogates, which the book's UTF-8 spells as three bytes, decode to
// themselves so that the caller can refuse them.
int32_t NextCodePoint(const std::string& text, size_t* at) {
  const auto* p = reinterpret_cast<const unsigned char*>(text.data()) + *at;
  const size_t left = text.size() - *at;
  int length = p[0] < 0x80   ? 1
               : p[0] < 0xC2 ? 0
               : p[0] < 0xE0 ? 2
               : p[0] < 0xF0 ? 3
               : p[0] < 0xF5 ? 4
                             : 0;
  if (length == 0 || size_t(length) > left) {
    ++*at;
    return -1;
  }
  int32_t cp = length == 1 ? p[0] : p[0] & (0x7F >> length);
  for (int k = 1; k < length; ++k) {
    if ((p[k] & 0xC0) != 0x80) {
      ++*at;
      return -1;
    }
    cp = (cp << 6) | (p[k] & 0x3F);
  }
  // Overlong forms and code points past U+10FFFF.
  static constexpr int32_t kLeast[] = {0, 0, 0x80, 0x800, 0x10000};
  if (cp < kLeast[length] || cp > 0x10FFFF) {
    ++*at;
    return -1;
  }
  *at += size_t(length);
  return cp;
}

// Whether XML 1.0 text may hold the character (its Char production).
bool XmlMayHold(int32_t cp) {
  if (cp < 0x20) return cp == '\t' || cp == '\n' || cp == '\r';
  if (cp >= 0xD800 && cp <= 0xDFFF) return false;
  return cp != 0xFFFE && cp != 0xFFFF && cp >= 0;
}

bool Convert(const SwatchFileSurvey::Swatch& book, DisplaySwatch* s, std::string* error) {
  const swatchschema::Model* model = swatchschema::ModelOf(book.space);
  if (model == nullptr) return true;  // no colour model: not drawable
  s->model = model->mode;
  for (size_t k = 0; k < model->count; ++k) s->values.push_back(book.values[k] * model->scale);
  if (model->space == KeltoSwatchbook::kColorSpaceRGB) {
    s->r = Byte(book.values[0]);
    s->g = Byte(book.values[1]);
    s->b = Byte(book.values[2]);
  } else {
    float rgb[3] = {0, 0, 0};
    if (!xmppages::DisplayColour(model->space, book.values, rgb)) {
      *error = "swatch \"" + s->name + "\": the colour engine cannot convert " + s->model;
      return false;
    }
    s->r = Byte(rgb[0]);
    s->g = Byte(rgb[1]);
    s->b = Byte(rgb[2]);
  }
  s->drawable = true;
  return true;
}

}  // namespace

bool MendText(const std::string& name, std::string* out) {
  out->clear();
  bool mended = false;
  for (size_t at = 0; at < name.size() && name[at] != '\0';) {
    size_t start = at;
    int32_t cp = NextCodePoint(name, &at);
    if (XmlMayHold(cp)) {
      out->append(name, start, at - start);
    } else {
      out->append(kReplacement);
      mended = true;
    }
  }
  return mended;
}

bool DisplaySwatchesOfBook(const SwatchFileSurvey& survey, std::vector<DisplaySwatch>* out,
                           std::string* error) {
  out->clear();
  // The conversions go through this program's own binding to the host colour
  // engine, set up once; without it every conversion fails.
  static const bool bound = WeftClientInit(FindWeftProcLookup()) == 0;
  for (const SwatchFileSurvey::Swatch& book : survey.swatches) {
    DisplaySwatch s;
    s.groupIndex = book.groupIndex;
    MendText(book.group, &s.group);
    s.nameMended = MendText(book.name, &s.name);
    s.type = book.type == KeltoSwatchbook::kSwatchTypeSpot ? swatchschema::kTypeSpot
                                                           : swatchschema::kTypeProcess;
    if (swatchschema::HasTint(book.type, book.tint)) s.tint = swatchschema::TintPercent(book.tint);
    if (!Convert(book, &s, error)) {
      if (!bound) *error += " (the host offers no colour engine)";
      out->clear();
      return false;
    }
    out->push_back(std::move(s));
  }
  for (const SwatchFileSurvey::SteppedOver& e : survey.steppedOver) {
    DisplaySwatch s;
    s.nameMended = MendText(e.name, &s.name);
    s.model = FourCCText(e.model);
    out->push_back(std::move(s));
  }
  return true;
}

std::string ShownName(const DisplaySwatch& s) {
  if (!s.name.empty()) return s.name;
  return s.drawable ? HexColour(s) : "(no name)";
}

std::string HexColour(const DisplaySwatch& s) {
  char hex[8];
  std::snprintf(hex, sizeof hex, "#%02x%02x%02x", s.r, s.g, s.b);
  return hex;
}

std::string MendedNameWarning(const DisplaySwatch& s) {
  if (!s.nameMended) return {};
  return "swatch \"" + s.name + "\": its name holds a character no text may hold; shown as U+FFFD";
}

std::string SkippedWarning(const DisplaySwatch& s) {
  if (s.drawable) return {};
  return "swatch \"" + ShownName(s) + "\" has " +
         (s.model.empty() ? std::string("no colour model")
                          : "an unknown colour model (\"" + s.model + "\")") +
         "; skipped";
}

}  // namespace pxhost
