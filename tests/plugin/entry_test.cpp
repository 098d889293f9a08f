// The entry point and the vector-file read handlers, driven through the host
// simulator with the plug-in's code linked in, so the tests can also reach the
// suite holders the plug-in keeps.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstddef>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <tuple>
#include <vector>

#include "host/host_simulator.h"
#include "plugin/rendering_method.h"
#include "plugin/suites.h"
#include "sdk/plugin_main.h"
#include "sdk/selectors.h"
#include "tests/support/fixture_file.h"
#include "tools/ql7embed/ql7_writer.h"
#include "tools/sxfwrite/sxf_writer.h"

namespace {

using namespace pixmere;
using pxhost::HostSession;
using pxhost::SessionOptions;

pxhost::RgbImage Gradient(int w, int h) {
  pxhost::RgbImage img{w, h, std::vector<uint8_t>(size_t(w * h * 3))};
  for (size_t k = 0; k < img.pixels.size(); ++k) img.pixels[k] = uint8_t(k * 37);
  return img;
}

std::string VectorFile(int w, int h, int bits = 24, bool runLength = false) {
  ql7::Options o;
  o.bitsPerPixel = bits;
  o.runLength = runLength;
  return ql7::VectorFile(Gradient(w, h), o);
}

std::string SwatchFile() {
  std::string bytes, error;
  auto description = nlohmann::json::parse(
      R"({"blocks": [{"swatch": "Red", "model": "RGB ", "values": [1, 0, 0]}]})");
  EXPECT_TRUE(sxfwrite::BuildSxf(description, &bytes, &error)) << error;
  return bytes;
}

SessionOptions Typed(const char* type, bool previewOpen = true) {
  return {FourCC(*reinterpret_cast<const char(*)[5]>(type)), previewOpen, {}, false};
}

std::map<std::string, int64_t> Written(const HostSession& s) {
  std::map<std::string, int64_t> m;
  for (const auto& [field, value] : s.WrittenFields()) m[field->name] = value;
  return m;
}

std::vector<pxhost::SuiteEvent> EventsSince(size_t mark) {
  const auto& all = pxhost::SuiteRegistry::Get().Events();
  return {all.begin() + ptrdiff_t(mark), all.end()};
}

class EntryTest : public ::testing::Test {
 protected:
  void TearDown() override { PIUSuitesRelease(); }
  // Acquires a stand-in for the handle suite into its holder, as plug-in code
  // would, so the release rules show in the host's log; returns where to look.
  static size_t Arm() {
    static const int kProcs = 0;
    auto& registry = pxhost::SuiteRegistry::Get();
    if (registry.Find(sPXHandle.name, sPXHandle.version) == nullptr)
      registry.Add(sPXHandle.name, sPXHandle.version, &kProcs);
    registry.Acquire(sPXHandle.name, sPXHandle.version, &sPXHandle.suite);
    return registry.Events().size();
  }
  static bool Released(size_t mark) {
    for (const auto& e : EventsSince(mark))
      if (e.kind == pxhost::SuiteEvent::kRelease && e.name == sPXHandle.name) return true;
    return false;
  }
};

TEST_F(EntryTest, SelectorTable) {
  // The contents are a vector file throughout: a swatch type code alone makes
  // it a swatch file, whose read selectors then do nothing and whose filter
  // check reads the contents and refuses them.
  qltest::MemFile file(VectorFile(4, 3));
  for (const char* type : {"EPSF", "sxf ", "SXF ", "sxff", "SXFF"}) {
    bool swatch = type[0] != 'E';
    for (int16_t selector : {0, 1, 2, 3, 4, 8, 12, 16, 17, 21, 99, -1}) {
      if (swatch && selector == kSelectorXMP) continue;  // the packet request has its own tests
      SCOPED_TRACE(::testing::Message() << type << " selector " << selector);
      size_t mark = Arm();
      HostSession s(&PluginMain, file.fd(), Typed(type));
      bool read = !swatch && (selector == 2 || selector == 3);
      bool releases = selector == 0 || selector == 4 || selector == 8 || selector == 12 ||
                      selector == 16 || selector == 17;
      EXPECT_EQ(s.Call(selector), swatch && selector == 17 ? kResultCannotRead : 0);
      EXPECT_EQ(Released(mark), releases);  // 2 and 3 keep the suites when they succeed
      EXPECT_EQ(s.WrittenFields().empty(), !read);
      EXPECT_EQ(s.AdvanceCalls().size(), read && selector == 3 ? 1u : 0u);
    }
  }
}

TEST_F(EntryTest, SwatchContentsAndTheTypeCode) {
  qltest::MemFile file(SwatchFile());
  for (int16_t selector : {2, 3, 17, 2}) {
    // Type 0 is sniffed on every call, wherever the last one left the file
    // position.
    lseek(file.fd(), 7, SEEK_SET);
    HostSession s(&PluginMain, file.fd(), SessionOptions{});
    EXPECT_EQ(s.Call(selector), 0) << "selector " << selector;
    EXPECT_TRUE(s.WrittenFields().empty()) << "selector " << selector;
    EXPECT_TRUE(s.AdvanceCalls().empty());
  }
  EXPECT_EQ(HostSession(&PluginMain, file.fd(), Typed("SXF ")).Call(kSelectorFilterFile), 0);

  // Under another type code it is a vector file: accepted unread, and without
  // a thumbnail or a packet.
  HostSession s(&PluginMain, file.fd(), Typed("EPSF"));
  EXPECT_EQ(s.Call(kSelectorFilterFile), 0);
  EXPECT_EQ(s.Call(kSelectorReadStart), kResultCannotRead);
  EXPECT_EQ(s.Call(kSelectorXMP), 0);
  EXPECT_TRUE(s.WrittenFields().empty());
  EXPECT_TRUE(s.HandleSizes().empty());

  // A vector file of type 0 is sniffed, found not to be a swatch file, and read.
  qltest::MemFile vector(VectorFile(2, 2));
  HostSession sniffed(&PluginMain, vector.fd(), SessionOptions{});
  EXPECT_EQ(sniffed.Call(kSelectorFilterFile), 0);
  EXPECT_EQ(sniffed.Call(kSelectorReadContinue), 0);
  EXPECT_EQ(sniffed.AdvanceCalls().size(), 1u);
}

TEST_F(EntryTest, MissingHostProceduresAnswerHostInsufficientEvenForSelectorZero) {
  qltest::MemFile file(VectorFile(4, 3));
  for (auto proc : {pxhost::HostProc::Required1, pxhost::HostProc::Required2,
                    pxhost::HostProc::Required4, pxhost::HostProc::AdvanceState}) {
    for (int16_t selector : {0, 2, 3, 17}) {
      size_t mark = Arm();
      SessionOptions o;
      o.withheld = {proc};
      HostSession s(&PluginMain, file.fd(), o);
      EXPECT_EQ(s.Call(selector), kResultHostInsufficient);
      EXPECT_FALSE(Released(mark));  // an immediate return keeps the suites
      EXPECT_TRUE(s.WrittenFields().empty());
    }
  }
  SessionOptions third;
  third.withheld = {pxhost::HostProc::Required3};  // not needed
  EXPECT_EQ(HostSession(&PluginMain, file.fd(), third).Call(kSelectorReadStart), 0);

  // No record at all: the same answer, and no crash.
  int16_t result = 0;
  intptr_t data = 0;
  PluginMain(kSelectorReadStart, nullptr, &data, &result);
  EXPECT_EQ(result, kResultHostInsufficient);
}

TEST_F(EntryTest, ReadStartDescribesTheImageWhenOpenedForPreview) {
  qltest::MemFile file(VectorFile(5, 3));
  HostSession s(&PluginMain, file.fd(), Typed("EPSF"));
  ASSERT_EQ(s.Call(kSelectorReadStart), 0);
  std::map<std::string, int64_t> want{{"imageMode", 3},   {"imageWidth", 5},  {"imageHeight", 3},
                                      {"imageDepth", 8},  {"planeCount", 3},  {"firstPlane", 0},
                                      {"lastPlane", 2},   {"planeStride", 1}, {"clearedPairA", 0},
                                      {"clearedPairB", 0}};
  EXPECT_EQ(Written(s), want);

  size_t mark = Arm();
  HostSession closed(&PluginMain, file.fd(), Typed("EPSF", false));
  EXPECT_EQ(closed.Call(kSelectorReadStart), kResultCannotRead);
  EXPECT_TRUE(closed.WrittenFields().empty());
  EXPECT_TRUE(Released(mark));  // a failing read gives the suites back
}

TEST_F(EntryTest, ReadContinueHandsOverThePixelsOnce) {
  // Run-length coded colour-table codes (few enough colours for an exact
  // table), and a single 24-bit pixel.
  for (auto [w, h, bits, runLength] : {std::tuple(7, 5, 8, true), std::tuple(1, 1, 24, false)}) {
    qltest::MemFile file(VectorFile(w, h, bits, runLength));
    HostSession s(&PluginMain, file.fd(), Typed("EPSF"));
    ASSERT_EQ(s.Call(kSelectorReadContinue), 0);
    ASSERT_EQ(s.AdvanceCalls().size(), 1u);
    const pxhost::AdvanceCall& call = s.AdvanceCalls()[0];
    EXPECT_EQ(std::tuple(call.top, call.left, call.bottom, call.right), std::tuple(0, 0, h, w));
    EXPECT_EQ(std::tuple(call.rowStride, call.columnStride, call.planeStride),
              std::tuple(3 * w, 3, 1));
    EXPECT_EQ(call.pixels, Gradient(w, h).pixels);
    auto written = Written(s);
    EXPECT_EQ(written.at("pixelData"), 0);  // null again after the hand-over
    EXPECT_EQ(written.at("rowStride"), 3 * w);
  }
}

TEST_F(EntryTest, UnusableThumbnailsAreRefusedAtBothReadSelectors) {
  const std::string trailer = "\n" + std::string(400, '%') + "\n";
  for (const std::string& contents :
       {std::string("%!PS-Adobe-3.0\nno preview here\n") + trailer,
        "%QL7_Thumbnail: 129 128 24\n%%BeginData: 1 Hex Bytes\n%00" + trailer,
        "%QL7_Thumbnail: 0 12 24\n%%BeginData: 1 Hex Bytes\n%00" + trailer,
        "%QL7_Thumbnail: 12 -5 24\n%%BeginData: 1 Hex Bytes\n%00" + trailer}) {
    qltest::MemFile file(contents);
    HostSession s(&PluginMain, file.fd(), Typed("EPSF"));
    EXPECT_EQ(s.Call(kSelectorReadStart), kResultCannotRead) << contents;
    EXPECT_EQ(s.Call(kSelectorReadContinue), kResultCannotRead) << contents;
    EXPECT_TRUE(s.AdvanceCalls().empty());
  }
}

TEST(RecordLayout, FieldsInOrderWithMisalignedWords) {
  // The plug-in-visible fields lie in the host's order, and the record keeps
  // 2-byte packing: these words start at addresses that are 2 modulo 4. The
  // read tests above check the values written through them.
  const auto& fields = pxhost::RecordFields();
  for (size_t k = 1; k < fields.size(); ++k)
    EXPECT_GT(fields[k].offset, fields[k - 1].offset) << fields[k].name;
  qltest::MemFile file(VectorFile(3, 2));
  HostSession s(&PluginMain, file.fd(), Typed("EPSF"));
  for (size_t offset : {offsetof(FormatRecord, dataForkRef), offsetof(FormatRecord, rowStride),
                        offsetof(FormatRecord, planeStride), offsetof(FormatRecord, fileType),
                        offsetof(FormatRecord, clearedPairA), offsetof(FormatRecord, xmpHandle)})
    EXPECT_EQ((reinterpret_cast<uintptr_t>(&s.Record()) + offset) % 4, 2u) << offset;
}

TEST(ResultHelpers, FirstErrorWins) {
  int16_t result = 0;
  EXPECT_TRUE(TestAndStoreResult(&result, 0));
  EXPECT_FALSE(TestAndStoreResult(&result, -39));
  EXPECT_FALSE(TestAndStoreResult(&result, -51));
  EXPECT_FALSE(TestAndStoreCancel(&result, true));
  EXPECT_EQ(result, -39);

  int16_t fresh = 0;
  EXPECT_TRUE(TestAndStoreCancel(&fresh, false));
  EXPECT_FALSE(TestAndStoreCancel(&fresh, true));
  EXPECT_EQ(fresh, kResultUserCancelled);

  int16_t truncated = 0;
  EXPECT_FALSE(TestAndStoreResult(&truncated, 0x12345));  // kept to 16 bits
  EXPECT_EQ(truncated, 0x2345);
}

TEST(SuiteRelease, NothingAcquiredMeansNoHostCall) {
  size_t mark = pxhost::SuiteRegistry::Get().Events().size();
  PIUSuitesRelease();
  PIUSuitesRelease();
  EXPECT_TRUE(EventsSince(mark).empty());
}

TEST(SuiteRelease, AcquiredHoldersAreReleasedInTheFixedOrder) {
  // Any call of the plug-in sets the basic suite it releases through.
  qltest::MemFile file("%!PS\n");
  HostSession(&PluginMain, file.fd(), Typed("EPSF")).Call(99);

  // Register stand-in suites under the holders' names so releases resolve.
  std::vector<SuiteHolder*> holders{&sPXResource, &sPXUIHooks, &sPXHandle, &sPXActionDescriptor};
  static const int kTable = 0;
  for (SuiteHolder* h : holders) {
    pxhost::SuiteRegistry::Get().Add(h->name, h->version, &kTable);
    h->suite = &kTable;
  }
  size_t mark = pxhost::SuiteRegistry::Get().Events().size();
  PIUSuitesRelease();
  std::vector<std::string> order;
  for (const auto& e : EventsSince(mark)) order.push_back(e.name);
  EXPECT_EQ(order, (std::vector<std::string>{sPXActionDescriptor.name, sPXHandle.name,
                                             sPXUIHooks.name, sPXResource.name}));
  for (SuiteHolder* h : holders) EXPECT_EQ(h->suite, nullptr);
}

TEST(RenderingMethodSuite, PdfHeaderNeedsAllFiveBytesInTheLength) {
  const char header[] = "%PDF-1.7";
  EXPECT_TRUE(CQLRenderingMethodSuite::hasPDFHeader(header, 5));
  EXPECT_TRUE(CQLRenderingMethodSuite::hasPDFHeader(header, 1000));
  EXPECT_FALSE(CQLRenderingMethodSuite::hasPDFHeader(header, 4));
  EXPECT_FALSE(CQLRenderingMethodSuite::hasPDFHeader("%PDF+1.7", 8));
  EXPECT_FALSE(CQLRenderingMethodSuite::hasPDFHeader("%pdf-1.7", 8));
}

TEST(RenderingMethodSuite, ReleaseFreesThePublishedTableAndAllowsAFreshOne) {
  CQLRenderingMethodSuiteReg::ReleaseRenderingMethodSuite();  // whatever an earlier test left
  EXPECT_EQ(CQLRenderingMethodSuiteReg::ReleaseRenderingMethodSuite(), 0);  // nothing to free
  pxhost::SuiteRegistry::Get().DropAddedSuites();
  ASSERT_EQ(
      CQLRenderingMethodSuiteReg::PublishRenderingMethodSuite(pxhost::SuiteRegistry::Get().Basic()),
      0);
  CQLRenderingMethodSuiteReg::InitializeRenderingMethodSuite();
  const void* registered =
      pxhost::SuiteRegistry::Get().Find(kQLRenderingMethodSuite, kQLRenderingMethodSuiteVersion);
  ASSERT_EQ(registered, CQLRenderingMethodSuiteReg::sQLRenderingMethod);
  EXPECT_EQ(CQLRenderingMethodSuiteReg::sQLRenderingMethod->GetQLRenderingMethodForFile,
            &CQLRenderingMethodSuite::GetQLRenderingMethodForFile);
  EXPECT_EQ(CQLRenderingMethodSuiteReg::ReleaseRenderingMethodSuite(), 0);
  EXPECT_EQ(CQLRenderingMethodSuiteReg::sQLRenderingMethod, nullptr);
  pxhost::SuiteRegistry::Get().DropAddedSuites();
  // Released, the slot fills nothing; the next publication starts afresh.
  EXPECT_EQ(CQLRenderingMethodSuiteReg::InitializeRenderingMethodSuite(), 0);
  ASSERT_EQ(
      CQLRenderingMethodSuiteReg::PublishRenderingMethodSuite(pxhost::SuiteRegistry::Get().Basic()),
      0);
  EXPECT_NE(CQLRenderingMethodSuiteReg::sQLRenderingMethod, nullptr);
}

}  // namespace
