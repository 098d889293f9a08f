// The built module as the host loads it: what it exports, its once-only
// set-up, and the rendering-method suite it publishes.
#include <gtest/gtest.h>

#include <string>

#include "host/host_simulator.h"
#include "sdk/suites.h"
#include "tests/support/fixture_file.h"
#include "tools/ql7embed/ql7_writer.h"

namespace {

using namespace pixmere;

// One harmless call through the loaded module, so it has done its once-only
// set-up.
void Touch() {
  std::string error;
  PluginMainProc entry = pxhost::LoadPlugin(QL_MODULE, &error);
  ASSERT_NE(entry, nullptr) << error;
  qltest::MemFile file("%!PS\n");
  pxhost::SessionOptions o;
  o.fileType = FourCC("EPSF");
  pxhost::HostSession(entry, file.fd(), o).Call(0);
}

TEST(Module, ExportsOnlyItsEntryPoint) {
  qltest::Outcome nm = qltest::Shell(std::string("nm -D --defined-only '") + QL_MODULE +
                                     "' | awk '$2 != \"A\" { print $3 }'");
  EXPECT_EQ(nm.out, "PluginMain\n");
}

TEST(Module, PublishesItsSuiteOnceOverManyCalls) {
  for (int k = 0; k < 50; ++k) Touch();
  int adds = 0;
  for (const auto& e : pxhost::SuiteRegistry::Get().Events())
    if (e.kind == pxhost::SuiteEvent::kAdd && e.name == kQLRenderingMethodSuite) ++adds;
  EXPECT_EQ(adds, 1);
}

class RenderingMethod : public ::testing::Test {
 protected:
  void SetUp() override {
    Touch();
    const void* procs = nullptr;
    pxhost::SuiteRegistry::Get().Acquire(kQLRenderingMethodSuite, kQLRenderingMethodSuiteVersion,
                                         &procs);
    suite_ = static_cast<const QLRenderingMethodSuite*>(procs);
    ASSERT_NE(suite_, nullptr);
  }
  const QLRenderingMethodSuite* suite_ = nullptr;
};

std::string Page(bool pdf, const char* xmpFormat = "", bool xmpJpegThumbnail = false) {
  ql7::Options o;
  o.pdf = pdf;
  o.xmpFormat = xmpFormat;
  o.xmpJpegThumbnail = xmpJpegThumbnail;
  return ql7::VectorFile(pxhost::RgbImage{2, 2, std::vector<uint8_t>(12, 200)}, o);
}

TEST_F(RenderingMethod, FromTheHeaderAndTheXmp) {
  struct Case {
    const char* name;
    std::string bytes;
    int32_t method;
  } cases[] = {
      {"page.pdf", Page(true, "application/pdf"), kQLRenderingMethodPDF},
      {"page.pdf", Page(true, "application/PDF"), kQLRenderingMethodEmbeddedThumbnail},
      {"page.pdf", Page(true, "", true), kQLRenderingMethodXMPThumbnail},
      {"page.pdf", Page(true, "application/pdf", true), kQLRenderingMethodPDF},  // PDF test first
      {"page.pdf", Page(true, "image/x-ql7", true), kQLRenderingMethodXMPThumbnail},
      {"page.pdf", Page(true), kQLRenderingMethodEmbeddedThumbnail},
      {"page.ps", Page(false), kQLRenderingMethodEmbeddedThumbnail},
      {"tiny.pdf", "%PDF", kQLRenderingMethodEmbeddedThumbnail},  // shorter than the header test
  };
  for (size_t k = 0; k < std::size(cases); ++k) {
    qltest::DiskFile file(cases[k].name, cases[k].bytes);
    int32_t method = -7;
    EXPECT_EQ(suite_->GetQLRenderingMethodForFile(file.path().c_str(), &method), 0) << k;
    EXPECT_EQ(method, cases[k].method) << k;
  }
}

TEST_F(RenderingMethod, ErrorsAreFourCharacterCodes) {
  int32_t method = -7;
  EXPECT_EQ(suite_->GetQLRenderingMethodForFile("/nonexistent/file.pdf", &method), kQLErrKXEC);
  EXPECT_EQ(method, 0);
  EXPECT_EQ(suite_->GetQLRenderingMethodForFile(nullptr, &method), kQLErrParm);
  EXPECT_EQ(suite_->GetQLRenderingMethodForFile("x", nullptr), kQLErrParm);
}

TEST(ModuleReload, TheReloadedModuleRepublishesAWorkingSuite) {
  // The suite's answer on one file, through whatever table the registry holds.
  auto askSuite = [](const std::string& path) {
    const void* procs =
        pxhost::SuiteRegistry::Get().Find(kQLRenderingMethodSuite, kQLRenderingMethodSuiteVersion);
    if (procs == nullptr) return int32_t(-1);
    int32_t method = -7;
    auto* suite = static_cast<const QLRenderingMethodSuite*>(procs);
    return suite->GetQLRenderingMethodForFile(path.c_str(), &method) == 0 ? method : -2;
  };
  qltest::DiskFile page("page.pdf", Page(true, "application/pdf"));
  for (int round = 0; round < 3; ++round) {
    Touch();
    EXPECT_EQ(askSuite(page.path()), kQLRenderingMethodPDF) << round;
    ASSERT_TRUE(pxhost::UnloadPlugin(QL_MODULE));
    // Nothing of the unloaded module stays registered.
    EXPECT_EQ(askSuite(page.path()), -1) << round;
  }
  EXPECT_FALSE(pxhost::UnloadPlugin(QL_MODULE));
}

}  // namespace
