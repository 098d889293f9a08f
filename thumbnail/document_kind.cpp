#include "thumbnail/document_kind.h"

#include <unistd.h>

#include "thumbnail/ql_thumbnail.h"

int32_t ClassifyDocument(int fd) {
  return QLThumbnail(fd).GetRenderingMethod();
}

bool HasPreviewMarker(int fd) {
  bool found = QLThumbnail(fd).ScanForString("%QL7_Thumbnail:") != 0;
  ::lseek(fd, 0, SEEK_SET);
  return found;
}
