#include "plugin/rendering_method.h"

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>

#include "xmp/toolkit.h"

using pixmere::kQLErrKXEC;
using pixmere::kQLErrParm;

pixmere::QLRenderingMethodSuite* CQLRenderingMethodSuiteReg::sQLRenderingMethod = nullptr;

namespace {

// The table lives while the module is loaded: unloading the module frees it.
struct ReleaseAtUnload {
  ~ReleaseAtUnload() { CQLRenderingMethodSuiteReg::ReleaseRenderingMethodSuite(); }
} sReleaseAtUnload;

}  // namespace

int32_t CQLRenderingMethodSuiteReg::PublishRenderingMethodSuite(
    const pixmere::PKBasicSuite* basic) {
  // A host without a basic suite offers no registry to publish in.
  if (basic == nullptr || basic->AcquireSuite == nullptr || basic->ReleaseSuite == nullptr)
    return pixmere::kPKErrSuiteNotFound;
  sQLRenderingMethod = new pixmere::QLRenderingMethodSuite{nullptr};

  const void* procs = nullptr;
  basic->AcquireSuite(pixmere::kPKSuitesSuite, pixmere::kPKSuitesSuiteVersion, &procs);
  auto* suites = static_cast<const pixmere::PKSuitesSuite*>(procs);
  pixmere::PKSuiteRef ref = nullptr;  // the host's reference; not needed afterwards
  int32_t err = suites != nullptr ? suites->AddSuite(0, 0, pixmere::kQLRenderingMethodSuite,
                                                     pixmere::kQLRenderingMethodSuiteVersion, 1,
                                                     sQLRenderingMethod, &ref)
                                  : pixmere::kPKErrSuiteNotFound;
  basic->ReleaseSuite(pixmere::kPKSuitesSuite, pixmere::kPKSuitesSuiteVersion);
  if (err != 0) {
    delete sQLRenderingMethod;
    sQLRenderingMethod = nullptr;
  }
  return err;
}

int32_t CQLRenderingMethodSuiteReg::InitializeRenderingMethodSuite() {
  if (sQLRenderingMethod != nullptr)
    sQLRenderingMethod->GetQLRenderingMethodForFile =
        &CQLRenderingMethodSuite::GetQLRenderingMethodForFile;
  return 0;
}

int32_t CQLRenderingMethodSuiteReg::ReleaseRenderingMethodSuite() {
  if (sQLRenderingMethod != nullptr) sQLRenderingMethod->GetQLRenderingMethodForFile = nullptr;
  delete sQLRenderingMethod;
  sQLRenderingMethod = nullptr;
  return 0;
}

int32_t CQLRenderingMethodSuite::GetQLRenderingMethodForFile(const char* path, int32_t* method) {
  if (path == nullptr || method == nullptr) return kQLErrParm;
  *method = 0;
  try {
    xmptk::XMPFiles file;
    xmptk::XMPMeta meta;
    // A file without XMP, or one the toolkit cannot open, leaves the model
    // empty; only the plain read below decides "KXEC".
    // The file layer is handed an absolute path: given a relative one whose
    // first component is a single character it fails inside and prints its
    // own error text.
    std::error_code ec;
    std::string absolute = std::filesystem::absolute(path, ec).string();
    if (ec) absolute = path;
    if (file.OpenFile(absolute.c_str(), xmptk::kXMP_UnknownFile, 0)) {
      std::string filePath;
      uint32_t openFlags = 0, format = 0, handlerFlags = 0;
      file.GetFileInfo(&filePath, &openFlags, &format, &handlerFlags);
      file.GetXMP(&meta);
    }

    std::unique_ptr<FILE, int (*)(FILE*)> in(std::fopen(path, "rb"), &std::fclose);
    if (!in) return kQLErrKXEC;
    char header[1000];
    size_t got = std::fread(header, 1, sizeof header, in.get());
    // Opening a directory for reading succeeds on Linux and its first read
    // fails: it could not be opened as a byte stream either.
    if (std::ferror(in.get())) return kQLErrKXEC;
    // The header test runs over the bytes actually read, so a short file never
    // matches on bytes it does not have.
    *method = GetRenderingMethod(header, int32_t(got), meta);
    return 0;
  } catch (...) {
    return kQLErrParm;
  }
}

int32_t CQLRenderingMethodSuite::GetRenderingMethod(const char* header, int32_t length,
                                                    const xmptk::XMPMeta& meta) {
  if (hasPDFHeader(header, length) && isFormatPDF(meta)) return pixmere::kQLRenderingMethodPDF;
  if (hasThumbnailInXMP(meta)) return pixmere::kQLRenderingMethodXMPThumbnail;
  return pixmere::kQLRenderingMethodEmbeddedThumbnail;
}

bool CQLRenderingMethodSuite::hasPDFHeader(const char* header, int32_t length) {
  return length >= 5 && std::memcmp(header, "%PDF-", 5) == 0;
}

bool CQLRenderingMethodSuite::isFormatPDF(const xmptk::XMPMeta& meta) {
  try {
    std::string format;
    uint32_t options = 0;
    // The XMP basic namespace's "Format", compared case-sensitively.
    return meta.GetProperty(xmptk::NamespaceURI("xmp"), "Format", &format, &options) &&
           format == "application/pdf";
  } catch (...) {
    return false;
  }
}

bool CQLRenderingMethodSuite::hasThumbnailInXMP(const xmptk::XMPMeta& meta) {
  try {
    const char* xmpNS = xmptk::NamespaceURI("xmp");
    const char* imgNS = xmptk::NamespaceURI("xmpGImg");
    std::string jpegItem;
    xmptk::XMPUtils::ComposeFieldSelector(xmpNS, "Thumbnails", imgNS, "format", "JPEG", &jpegItem);
    std::string image;
    uint32_t options = 0;
    return meta.GetStructField(xmpNS, jpegItem.c_str(), imgNS, "image", &image, &options);
  } catch (...) {
    return false;
  }
}
