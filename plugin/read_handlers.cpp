#include "plugin/read_handlers.h"

#include "plugin/globals.h"
#include "thumbnail/ql_thumbnail.h"

using pixmere::kResultCannotRead;

namespace {

// The description both selectors write: RGB, 8 bits, channels 0..2
// interleaved, and nothing supplied for the cleared pair.
void DescribeImage(pixmere::FormatRecord& record, int32_t width, int32_t height) {
  record.imageMode = pixmere::kImageModeRGB;
  record.imageWidth = int16_t(width);
  record.imageHeight = int16_t(height);
  record.imageDepth = 8;
  record.planeCount = 3;
  record.firstPlane = 0;
  record.lastPlane = 2;
  record.planeStride = 1;
  record.clearedPairA = 0;
  record.clearedPairB = 0;
}

}  // namespace

void DoReadStart() {
  *gResult = 0;
  if (!gFormatRecord->previewOpen) {
    *gResult = kResultCannotRead;
    return;
  }
  int32_t width = 128;
  int32_t height = 128;
  QLThumbnail reader(gFormatRecord->dataForkRef);
  // A thumbnail the read buffer cannot hold is refused here already, so the
  // host never prepares for an image that read continue would not deliver.
  if (!reader.GetThumbnailInfo(&width, &height, nullptr, 0) || !ThumbnailFits(width, height)) {
    *gResult = kResultCannotRead;
    return;
  }
  DescribeImage(*gFormatRecord, width, height);
}

void DoReadContinue() {
  *gResult = 0;
  // A fixed local buffer: no heap allocation for the image, and it lives only
  // for this call, so the host takes the pixels inside the advance-state call.
  char buffer[kThumbnailBufferBytes];
  int32_t width = 0;
  int32_t height = 0;
  QLThumbnail reader(gFormatRecord->dataForkRef);
  if (!reader.GetThumbnailInfo(&width, &height, buffer, kThumbnailBufferBytes) ||
      !ThumbnailFits(width, height)) {
    *gResult = kResultCannotRead;
    return;
  }
  pixmere::FormatRecord& record = *gFormatRecord;
  DescribeImage(record, width, height);
  record.rectLeft = 0;
  record.rectRight = int16_t(width);
  record.rectTop = 0;
  record.rectBottom = int16_t(height);
  record.rowStride = 3 * width;
  record.columnStride = 3;
  record.pixelData = buffer;
  record.advanceStateProc();  // its result is ignored
  record.pixelData = nullptr;
}
