#include "thumbnail/document_kind.h"

#include "thumbnail/ql_thumbnail.h"

int32_t ClassifyDocument(int fd) {
  return QLThumbnail(fd).GetRenderingMethod();
}
