// The built module as the host loads it: what it exports, its once-only
// set-up, and the rendering-method suite it publishes.
#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <string>

#include "host/host_simulator.h"
#include "sdk/suites.h"
#include "tests/support/fixture_file.h"
#include "tools/ql7embed/ql7_writer.h"
#include "xmp/toolkit.h"

namespace {

using pixmere::FourCC;

PluginMainProc Module() {
  std::string error;
  PluginMainProc entry = pxhost::LoadPlugin(pxhost::DefaultPluginPath(), &error);
  EXPECT_NE(entry, nullptr) << error;
  return entry;
}

// One harmless call, so the module has done its once-only set-up.
void Touch(PluginMainProc entry) {
  qltest::MemFile file("%!PS\n");
  pxhost::SessionOptions o;
  o.fileType = FourCC("EPSF");
  pxhost::HostSession(entry, file.fd(), o).Call(0);
}

const pixmere::QLRenderingMethodSuite* AcquireMethodSuite() {
  Touch(Module());
  const void* procs = nullptr;
  pxhost::SuiteRegistry::Get().Acquire(pixmere::kQLRenderingMethodSuite,
                                       pixmere::kQLRenderingMethodSuiteVersion, &procs);
  return static_cast<const pixmere::QLRenderingMethodSuite*>(procs);
}

TEST(Module, ExportsOnlyItsEntryPoint) {
  std::string command = "nm -D --defined-only '" + pxhost::DefaultPluginPath() + "'";
  std::unique_ptr<FILE, int (*)(FILE*)> nm(popen(command.c_str(), "r"), &pclose);
  ASSERT_TRUE(nm);
  std::string exported;
  char line[512];
  while (std::fgets(line, sizeof line, nm.get())) {
    char type = 0;
    char name[400] = {};
    if (std::sscanf(line, "%*s %c %399s", &type, name) == 2 && type != 'A')
      exported += std::string(name) + " ";
  }
  EXPECT_EQ(exported, "PluginMain ");
}

TEST(Module, PublishesItsSuiteOnceOverManyCalls) {
  PluginMainProc entry = Module();
  for (int k = 0; k < 50; ++k) Touch(entry);
  int adds = 0;
  for (const auto& e : pxhost::SuiteRegistry::Get().Events())
    if (e.kind == pxhost::SuiteEvent::kAdd && e.name == pixmere::kQLRenderingMethodSuite) ++adds;
  EXPECT_EQ(adds, 1);
  EXPECT_NE(pxhost::SuiteRegistry::Get().Find(pixmere::kQLRenderingMethodSuite,
                                              pixmere::kQLRenderingMethodSuiteVersion),
            nullptr);
}

class RenderingMethod : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { xmptk::Initialize(); }
  static void TearDownTestSuite() { xmptk::Terminate(); }

  int32_t Method(const ql7::Options& o, const char* name, int32_t* err) {
    pxhost::RgbImage img{2, 2, std::vector<uint8_t>(12, 200)};
    qltest::DiskFile file(name, ql7::VectorFile(img, o));
    return MethodOf(file.path(), err);
  }
  int32_t MethodOf(const std::string& path, int32_t* err) {
    const pixmere::QLRenderingMethodSuite* suite = AcquireMethodSuite();
    EXPECT_NE(suite, nullptr);
    int32_t method = -7;
    *err = suite->GetQLRenderingMethodForFile(path.c_str(), &method);
    return method;
  }
};

TEST_F(RenderingMethod, PdfWhoseXmpSaysPdf) {
  ql7::Options o;
  o.pdf = true;
  o.xmpFormat = "application/pdf";
  int32_t err = -1;
  EXPECT_EQ(Method(o, "page.pdf", &err), pixmere::kQLRenderingMethodPDF);
  EXPECT_EQ(err, 0);
  o.xmpFormat = "application/PDF";  // the comparison is case-sensitive
  EXPECT_EQ(Method(o, "page.pdf", &err), pixmere::kQLRenderingMethodEmbeddedThumbnail);
}

TEST_F(RenderingMethod, JpegThumbnailInXmp) {
  ql7::Options o;
  o.pdf = true;
  o.xmpJpegThumbnail = true;  // the XMP lacks the format
  int32_t err = -1;
  EXPECT_EQ(Method(o, "page.pdf", &err), pixmere::kQLRenderingMethodXMPThumbnail);
  EXPECT_EQ(err, 0);
  o.xmpFormat = "application/pdf";  // the PDF test comes first
  EXPECT_EQ(Method(o, "page.pdf", &err), pixmere::kQLRenderingMethodPDF);
  o.xmpFormat = "image/x-ql7";
  EXPECT_EQ(Method(o, "page.pdf", &err), pixmere::kQLRenderingMethodXMPThumbnail);
}

TEST_F(RenderingMethod, EverythingElseUsesTheEmbeddedThumbnail) {
  int32_t err = -1;
  EXPECT_EQ(Method(ql7::Options{}, "page.ps", &err), pixmere::kQLRenderingMethodEmbeddedThumbnail);
  ql7::Options pdf;
  pdf.pdf = true;
  EXPECT_EQ(Method(pdf, "page.pdf", &err), pixmere::kQLRenderingMethodEmbeddedThumbnail);
  qltest::DiskFile tiny("tiny.pdf", "%PDF");  // shorter than the header test
  EXPECT_EQ(MethodOf(tiny.path(), &err), pixmere::kQLRenderingMethodEmbeddedThumbnail);
  EXPECT_EQ(err, 0);
}

TEST_F(RenderingMethod, ErrorsAreFourCharacterCodes) {
  int32_t err = 0;
  EXPECT_EQ(MethodOf("/nonexistent/file.pdf", &err), 0);  // *method stays 0
  EXPECT_EQ(err, pixmere::kQLErrKXEC);

  const pixmere::QLRenderingMethodSuite* suite = AcquireMethodSuite();
  int32_t method = 0;
  EXPECT_EQ(suite->GetQLRenderingMethodForFile(nullptr, &method), pixmere::kQLErrParm);
  EXPECT_EQ(suite->GetQLRenderingMethodForFile("x", nullptr), pixmere::kQLErrParm);
}

}  // namespace
