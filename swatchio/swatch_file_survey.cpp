#include "swatchio/swatch_file_survey.h"

#include <unistd.h>

#include "swatchbook/vantor_swatch_book.h"
#include "swatchio/data_filter_stream.h"
#include "swatchio/sxf_reader.h"

SwatchFileSurvey SurveySwatchFile(int fd) {
  VantorSwatchBook book;
  DataFilterStream stream(fd);
  SXFReader reader;
  SwatchFileSurvey survey;
  survey.result = reader.Parse(book, stream, 0);
  survey.failedBlock = reader.FailedBlock();
  for (const SXFReader::SteppedOver& e : reader.SteppedOverEntries())
    survey.steppedOver.push_back({e.name.ToUTF8(), e.model});
  ::lseek(fd, 0, SEEK_SET);
  return survey;
}
