// A swatch book as a person sees it, for palette export and the swatch
// thumbnail: every swatch with its own name and its display colour.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "swatchio/swatch_file_survey.h"

namespace pxhost {

struct DisplaySwatch {
  int32_t groupIndex = -1;  // the book's group, or -1 for its ungrouped list
  std::string group;        // the group's name, which may be empty; empty when ungrouped
  std::string name;         // as the book holds it, empty included, but see nameMended
  // Characters no text may hold (controls but tab and line ends, U+FFFE,
  // U+FFFF, a surrogate without its pair) were replaced by U+FFFD.
  bool nameMended = false;
  std::string model;            // the packet's name of the model ("RGB", "CMYK", "LAB", "GRAY"),
                                // or the four-character code of one the reader does not know
  std::string type;             // "SPOT" or "PROCESS"
  double tint = 100;            // percent of full strength, as the packet gives it
  std::vector<double> values;   // in the packet's units (RGB 0..255, CMYK percent), untruncated
  bool drawable = false;        // false when the colour cannot be shown: r, g, b unset
  uint8_t r = 0, g = 0, b = 0;  // display colour: RGB rounded to the nearest byte; gray, CMYK
                                // and Lab from the host colour engine, as the chips get them
};

// The swatches of a book the plug-in's reader loaded (survey.result is
// kSXFParsed), in book order, then the entries it stepped over (not
// drawable). False with *error when the host's colour engine cannot convert
// a swatch.
bool DisplaySwatchesOfBook(const SwatchFileSurvey& survey, std::vector<DisplaySwatch>* out,
                           std::string* error);

// Text as a person is shown it: up to its first zero (where the packet ends
// a name too), every character no XML text may hold (controls but tab and
// line ends, U+FFFE, U+FFFF, a surrogate without its pair, bytes that are no
// UTF-8) replaced by U+FFFD. True when one was.
bool MendText(const std::string& text, std::string* out);

// The name a palette line shows: the swatch's own, or for a swatch without
// one its colour ("#rrggbb"), never another swatch's name.
std::string ShownName(const DisplaySwatch& swatch);
// "#rrggbb" of the display colour.
std::string HexColour(const DisplaySwatch& swatch);

// What a person is told about a swatch shown otherwise than the book holds
// it, or not at all; empty when there is nothing to tell.
std::string MendedNameWarning(const DisplaySwatch& swatch);
std::string SkippedWarning(const DisplaySwatch& swatch);

}  // namespace pxhost
