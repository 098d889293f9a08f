#include "swatchio/swatch_file_survey.h"

#include <unistd.h>

#include "swatchbook/vantor_swatch_book.h"
#include "swatchio/data_filter_stream.h"
#include "swatchio/sxf_reader.h"

namespace {

// Walks the book as the swatch packet does: each group, the ungrouped list
// among them, in the book's order.
void ListSwatches(KeltoSwatchbook& book, std::vector<SwatchFileSurvey::Swatch>* out) {
  int32_t unused = 0;
  int32_t groups = book.CountSwatchGroups(unused);
  for (int32_t g = 0; g < groups; ++g) {
    book.SetActiveSwatchGroup(g);
    const bool ungrouped = book.IsUngrouped(g);
    std::string group = ungrouped ? std::string() : book.GetSwatchGroupName(1).ToUTF8();
    int32_t n = book.CountSwatchesInActiveGroup();
    for (int32_t s = 0; s < n; ++s) {
      SwatchFileSurvey::Swatch swatch{};
      swatch.groupIndex = ungrouped ? -1 : g;
      swatch.group = group;
      swatch.name = book.GetSwatchName(s, 1).ToUTF8();
      swatch.type = book.GetSwatchType(s);
      uint32_t flag = 0;
      swatch.tint = book.GetSwatchTint(s, flag);
      int32_t format = book.GetBestFormat(s, book.GetSwatchColorSpace(s));
      swatch.space = book.GetFormatColorSpace(format);
      book.GetColorValues(s, format, swatch.values);
      out->push_back(std::move(swatch));
    }
  }
}

}  // namespace

SwatchFileSurvey SurveySwatchFile(int fd) {
  VantorSwatchBook book;
  DataFilterStream stream(fd);
  SXFReader reader;
  SwatchFileSurvey survey;
  survey.result = reader.Parse(book, stream, 0);
  survey.failedBlock = reader.FailedBlock();
  for (const SXFReader::SteppedOver& e : reader.SteppedOverEntries())
    survey.steppedOver.push_back({e.name.ToUTF8(), e.model});
  if (survey.result == kSXFParsed) ListSwatches(book, &survey.swatches);
  ::lseek(fd, 0, SEEK_SET);
  return survey;
}
