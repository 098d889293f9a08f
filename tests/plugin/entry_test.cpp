// The entry point and the vector-file read handlers, driven through the host
// simulator with the plug-in's code linked in, so the tests can also reach the
// suite holders the plug-in keeps.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstddef>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "host/host_simulator.h"
#include "plugin/suites.h"
#include "sdk/selectors.h"
#include "tests/support/fixture_file.h"
#include "tools/ql7embed/ql7_writer.h"
#include "tools/sxfwrite/sxf_writer.h"

extern "C" void PluginMain(int16_t, pixmere::FormatRecord*, intptr_t*, int16_t*);

namespace {

using pixmere::FourCC;
using pxhost::HostSession;
using pxhost::SessionOptions;

pxhost::RgbImage Gradient(int w, int h) {
  pxhost::RgbImage img{w, h, {}};
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x)
      img.pixels.insert(img.pixels.end(), {uint8_t(x * 9), uint8_t(y * 7), uint8_t(x ^ y)});
  return img;
}

std::string VectorFile(int w, int h, int bits = 24) {
  ql7::Options o;
  o.bitsPerPixel = bits;
  return ql7::VectorFile(Gradient(w, h), o);
}

std::map<std::string, int64_t> Written(const HostSession& s) {
  std::map<std::string, int64_t> m;
  for (const auto& [field, value] : s.WrittenFields()) m[field->name] = value;
  return m;
}

std::string SwatchFile() {
  nlohmann::json description = nlohmann::json::parse(R"({"blocks": [
      {"group": "Brand"},
      {"swatch": "Red", "model": "RGB ", "values": [1, 0, 0], "type": 0},
      {"groupEnd": true}]})");
  std::string bytes, error;
  EXPECT_TRUE(sxfwrite::BuildSxf(description, &bytes, &error)) << error;
  return bytes;
}

size_t EventCount() {
  return pxhost::SuiteRegistry::Get().Events().size();
}

std::vector<pxhost::SuiteEvent> EventsSince(size_t mark) {
  const auto& all = pxhost::SuiteRegistry::Get().Events();
  return {all.begin() + ptrdiff_t(mark), all.end()};
}

// A suite of the host's that the tests acquire into a holder the way plug-in
// code would, so the release rules of the selector table show in the host's
// log. Its name is its own: the plug-in's set-up acquires and releases the
// registry's suite, which must not be mistaken for it.
constexpr char kProbeSuite[] = "QL Probe Suite";

void AcquireInto(SuiteHolder& holder) {
  static const int kProcs = 0;
  auto& registry = pxhost::SuiteRegistry::Get();
  if (registry.Find(kProbeSuite, 1) == nullptr) registry.Add(kProbeSuite, 1, &kProcs);
  const void* procs = nullptr;
  registry.Acquire(kProbeSuite, 1, &procs);
  holder.suite = procs;
  holder.name = kProbeSuite;
  holder.version = 1;
}

class EntryTest : public ::testing::Test {
 protected:
  void SetUp() override { AcquireInto(sPXHandle); }
  void TearDown() override {
    PIUSuitesRelease();
    sPXHandle = SuiteHolder{nullptr, 2, "Pixmere Handle Suite for Plug-ins", 0};
  }
  // True when the call gave the acquired suite back to the host.
  bool Released(size_t mark) {
    for (const auto& e : EventsSince(mark))
      if (e.kind == pxhost::SuiteEvent::kRelease && e.name == kProbeSuite) return true;
    return false;
  }
};

TEST_F(EntryTest, VectorFileSelectorTable) {
  qltest::MemFile file(VectorFile(4, 3));
  struct Row {
    int16_t selector;
    int16_t result;
    bool released;
  };
  // 2 and 3 succeed and keep the suites; the rest answer 0.
  for (Row row : {Row{0, 0, true}, Row{2, 0, false}, Row{3, 0, false}, Row{4, 0, true},
                  Row{8, 0, true}, Row{12, 0, true}, Row{16, 0, true}, Row{17, 0, true},
                  Row{21, 0, false}, Row{1, 0, false}, Row{99, 0, false}, Row{-1, 0, false}}) {
    AcquireInto(sPXHandle);
    SessionOptions o;
    o.fileType = FourCC("EPSF");
    HostSession s(&PluginMain, file.fd(), o);
    size_t mark = EventCount();
    EXPECT_EQ(s.Call(row.selector), row.result) << "selector " << row.selector;
    EXPECT_EQ(Released(mark), row.released) << "selector " << row.selector;
    if (row.selector != 2 && row.selector != 3) {
      EXPECT_TRUE(s.WrittenFields().empty()) << "selector " << row.selector;
    }
    EXPECT_EQ(s.AdvanceCalls().size(), row.selector == 3 ? 1u : 0u);
  }
}

TEST_F(EntryTest, SwatchFileTypesDecideTheSwatchColumn) {
  // The contents are a vector file; the host's type code alone makes it a
  // swatch file, and then the read selectors do nothing.
  qltest::MemFile file(VectorFile(4, 3));
  for (const char* type : {"sxf ", "SXF ", "sxff", "SXFF"}) {
    for (int16_t selector : {0, 2, 3, 4, 8, 12, 16, 99}) {
      AcquireInto(sPXHandle);
      SessionOptions o;
      o.fileType = FourCC(*reinterpret_cast<const char(*)[5]>(type));
      HostSession s(&PluginMain, file.fd(), o);
      size_t mark = EventCount();
      EXPECT_EQ(s.Call(selector), 0) << type << " selector " << selector;
      EXPECT_TRUE(s.WrittenFields().empty()) << type << " selector " << selector;
      EXPECT_TRUE(s.AdvanceCalls().empty());
      bool releases =
          selector == 0 || selector == 4 || selector == 8 || selector == 12 || selector == 16;
      EXPECT_EQ(Released(mark), releases) << type << " selector " << selector;
    }
  }
}

TEST_F(EntryTest, UnknownTypeIsSniffedOnEveryCall) {
  qltest::MemFile file(SwatchFile());
  for (int16_t selector : {2, 3, 17, 2}) {
    // Each call rewinds and checks the file again, wherever the last one
    // left the file position.
    lseek(file.fd(), 7, SEEK_SET);
    HostSession s(&PluginMain, file.fd(), SessionOptions{0, true, {}, false});
    EXPECT_EQ(s.Call(selector), 0) << "selector " << selector;
    EXPECT_TRUE(s.WrittenFields().empty()) << "selector " << selector;
    EXPECT_TRUE(s.AdvanceCalls().empty());
  }
  // A vector file of unknown type is sniffed, found not to be a swatch file,
  // and read as a vector file.
  qltest::MemFile vector(VectorFile(2, 2));
  HostSession s(&PluginMain, vector.fd(), SessionOptions{0, true, {}, false});
  EXPECT_EQ(s.Call(pixmere::kSelectorFilterFile), 0);
  EXPECT_EQ(s.Call(pixmere::kSelectorReadContinue), 0);
  EXPECT_EQ(s.AdvanceCalls().size(), 1u);
}

TEST_F(EntryTest, FilterFileChecksTheContentsOfSwatchTypedFiles) {
  qltest::MemFile swatches(SwatchFile());
  qltest::MemFile vector(VectorFile(2, 2));
  HostSession good(&PluginMain, swatches.fd(), SessionOptions{FourCC("SXF "), true, {}, false});
  EXPECT_EQ(good.Call(pixmere::kSelectorFilterFile), 0);
  HostSession bad(&PluginMain, vector.fd(), SessionOptions{FourCC("SXF "), true, {}, false});
  AcquireInto(sPXHandle);
  size_t mark = EventCount();
  EXPECT_EQ(bad.Call(pixmere::kSelectorFilterFile), pixmere::kResultCannotRead);
  EXPECT_TRUE(Released(mark));
}

TEST_F(EntryTest, ASwatchFileOfAnotherTypeIsTreatedAsAVectorFile) {
  qltest::MemFile file(SwatchFile());
  HostSession s(&PluginMain, file.fd(), SessionOptions{FourCC("EPSF"), true, {}, false});
  EXPECT_EQ(s.Call(pixmere::kSelectorFilterFile), 0);  // accepted, never looked at
  EXPECT_EQ(s.Call(pixmere::kSelectorReadStart), pixmere::kResultCannotRead);
  EXPECT_EQ(s.Call(pixmere::kSelectorXMP), 0);  // no packet for a vector file
  EXPECT_TRUE(s.WrittenFields().empty());
  EXPECT_TRUE(s.HandleSizes().empty());
}

TEST_F(EntryTest, MissingHostProceduresAnswerHostInsufficientEvenForSelectorZero) {
  qltest::MemFile file(VectorFile(4, 3));
  for (auto proc : {pxhost::HostProc::Required1, pxhost::HostProc::Required2,
                    pxhost::HostProc::Required4, pxhost::HostProc::AdvanceState}) {
    for (int16_t selector : {0, 2, 3, 17}) {
      AcquireInto(sPXHandle);
      SessionOptions o;
      o.withheld = {proc};
      HostSession s(&PluginMain, file.fd(), o);
      size_t mark = EventCount();
      EXPECT_EQ(s.Call(selector), pixmere::kResultHostInsufficient);
      EXPECT_FALSE(Released(mark));  // an immediate return keeps the suites
      EXPECT_TRUE(s.WrittenFields().empty());
    }
  }
  SessionOptions third;
  third.withheld = {pxhost::HostProc::Required3};  // not needed
  HostSession s(&PluginMain, file.fd(), third);
  EXPECT_EQ(s.Call(pixmere::kSelectorReadStart), 0);

  // No record at all: the same answer, and no crash.
  int16_t result = 0;
  intptr_t data = 0;
  PluginMain(pixmere::kSelectorReadStart, nullptr, &data, &result);
  EXPECT_EQ(result, pixmere::kResultHostInsufficient);
}

TEST_F(EntryTest, ReadStartDescribesTheImage) {
  qltest::MemFile file(VectorFile(5, 3));
  HostSession s(&PluginMain, file.fd(), SessionOptions{FourCC("EPSF"), true, {}, false});
  ASSERT_EQ(s.Call(pixmere::kSelectorReadStart), 0);
  std::map<std::string, int64_t> want{{"imageMode", 3},   {"imageWidth", 5},  {"imageHeight", 3},
                                      {"imageDepth", 8},  {"planeCount", 3},  {"firstPlane", 0},
                                      {"lastPlane", 2},   {"planeStride", 1}, {"clearedPairA", 0},
                                      {"clearedPairB", 0}};
  EXPECT_EQ(Written(s), want);
}

TEST_F(EntryTest, ReadStartRefusesWhenNotOpenedForPreview) {
  qltest::MemFile file(VectorFile(5, 3));
  HostSession s(&PluginMain, file.fd(), SessionOptions{FourCC("EPSF"), false, {}, false});
  size_t mark = EventCount();
  EXPECT_EQ(s.Call(pixmere::kSelectorReadStart), pixmere::kResultCannotRead);
  EXPECT_TRUE(s.WrittenFields().empty());
  EXPECT_TRUE(Released(mark));  // a failing read gives the suites back
}

TEST_F(EntryTest, ReadContinueHandsOverThePixelsOnce) {
  pxhost::RgbImage img = Gradient(7, 5);
  ql7::Options o;
  o.bitsPerPixel = 8;
  o.runLength = true;
  qltest::MemFile file(ql7::VectorFile(img, o));
  HostSession s(&PluginMain, file.fd(), SessionOptions{FourCC("EPSF"), true, {}, false});
  ASSERT_EQ(s.Call(pixmere::kSelectorReadContinue), 0);
  ASSERT_EQ(s.AdvanceCalls().size(), 1u);
  const pxhost::AdvanceCall& call = s.AdvanceCalls()[0];
  EXPECT_EQ(call.top, 0);
  EXPECT_EQ(call.left, 0);
  EXPECT_EQ(call.bottom, 5);
  EXPECT_EQ(call.right, 7);
  EXPECT_EQ(call.rowStride, 21);
  EXPECT_EQ(call.columnStride, 3);
  EXPECT_EQ(call.planeStride, 1);
  EXPECT_EQ(call.pixels, img.pixels);  // few enough colours for an exact table
  auto written = Written(s);
  EXPECT_EQ(written.at("pixelData"), 0);  // null again after the hand-over
  EXPECT_EQ(written.at("rowStride"), 21);
}

TEST_F(EntryTest, OnePixelThumbnail) {
  qltest::MemFile file(VectorFile(1, 1, 24));
  HostSession s(&PluginMain, file.fd(), SessionOptions{FourCC("EPSF"), true, {}, false});
  ASSERT_EQ(s.Call(pixmere::kSelectorReadStart), 0);
  ASSERT_EQ(s.Call(pixmere::kSelectorReadContinue), 0);
  ASSERT_EQ(s.AdvanceCalls().size(), 1u);
  EXPECT_EQ(s.AdvanceCalls()[0].rowStride, 3);
  EXPECT_EQ(s.AdvanceCalls()[0].pixels.size(), 3u);
}

TEST_F(EntryTest, UnusableThumbnailsAreRefusedAtBothReadSelectors) {
  const std::string trailer = "\n" + std::string(400, '%') + "\n";
  for (const std::string& contents :
       {std::string("%!PS-Adobe-3.0\nno preview here\n") + trailer,
        "%QL7_Thumbnail: 129 128 24\n%%BeginData: 1 Hex Bytes\n%00" + trailer,
        "%QL7_Thumbnail: 0 12 24\n%%BeginData: 1 Hex Bytes\n%00" + trailer,
        "%QL7_Thumbnail: 12 -5 24\n%%BeginData: 1 Hex Bytes\n%00" + trailer}) {
    qltest::MemFile file(contents);
    HostSession s(&PluginMain, file.fd(), SessionOptions{FourCC("EPSF"), true, {}, false});
    EXPECT_EQ(s.Call(pixmere::kSelectorReadStart), pixmere::kResultCannotRead) << contents;
    EXPECT_EQ(s.Call(pixmere::kSelectorReadContinue), pixmere::kResultCannotRead) << contents;
    EXPECT_TRUE(s.AdvanceCalls().empty());
  }
}

TEST(RecordLayout, FieldsInOrderWithMisalignedWords) {
  // The plug-in-visible fields lie in the host's order, and the record keeps
  // 2-byte packing: these words start at addresses that are 2 modulo 4.
  const auto& fields = pxhost::RecordFields();
  for (size_t k = 1; k < fields.size(); ++k)
    EXPECT_GT(fields[k].offset, fields[k - 1].offset) << fields[k].name;
  qltest::MemFile file(VectorFile(3, 2));
  HostSession s(&PluginMain, file.fd(), SessionOptions{FourCC("EPSF"), true, {}, false});
  auto address = [&](size_t offset) {
    return (reinterpret_cast<uintptr_t>(&s.Record()) + offset) % 4;
  };
  for (size_t offset :
       {offsetof(pixmere::FormatRecord, dataForkRef), offsetof(pixmere::FormatRecord, rowStride),
        offsetof(pixmere::FormatRecord, planeStride), offsetof(pixmere::FormatRecord, fileType),
        offsetof(pixmere::FormatRecord, clearedPairA), offsetof(pixmere::FormatRecord, xmpHandle)})
    EXPECT_EQ(address(offset), 2u) << offset;
  // Written and read back through those addresses by a whole read.
  ASSERT_EQ(s.Call(pixmere::kSelectorReadContinue), 0);
  auto written = Written(s);
  EXPECT_EQ(written.at("rowStride"), 9);
  EXPECT_EQ(written.at("planeStride"), 1);
  EXPECT_EQ(written.at("clearedPairA"), 0);
  EXPECT_EQ(written.at("clearedPairB"), 0);
}

TEST(ResultHelpers, FirstErrorWins) {
  int16_t result = 0;
  EXPECT_TRUE(TestAndStoreResult(&result, 0));
  EXPECT_EQ(result, 0);
  EXPECT_FALSE(TestAndStoreResult(&result, -39));
  EXPECT_EQ(result, -39);
  EXPECT_FALSE(TestAndStoreResult(&result, -51));
  EXPECT_EQ(result, -39);
  EXPECT_FALSE(TestAndStoreCancel(&result, true));
  EXPECT_EQ(result, -39);

  int16_t fresh = 0;
  EXPECT_TRUE(TestAndStoreCancel(&fresh, false));
  EXPECT_FALSE(TestAndStoreCancel(&fresh, true));
  EXPECT_EQ(fresh, pixmere::kResultUserCancelled);

  int16_t truncated = 0;
  EXPECT_FALSE(TestAndStoreResult(&truncated, 0x12345));  // kept to 16 bits
  EXPECT_EQ(truncated, 0x2345);
}

TEST(SuiteRelease, NothingAcquiredMeansNoHostCall) {
  size_t mark = EventCount();
  PIUSuitesRelease();
  PIUSuitesRelease();
  EXPECT_TRUE(EventsSince(mark).empty());
}

TEST(SuiteRelease, AcquiredHoldersAreReleasedInTheFixedOrder) {
  // Any call of the plug-in sets the basic suite it releases through.
  qltest::MemFile file("%!PS\n");
  HostSession(&PluginMain, file.fd(), SessionOptions{FourCC("EPSF"), true, {}, false}).Call(99);

  // Register stand-in suites under the holders' names so releases resolve.
  std::vector<SuiteHolder*> holders{&sPXResource, &sPXUIHooks, &sPXHandle, &sPXActionDescriptor};
  static const int kTable = 0;
  for (SuiteHolder* h : holders) {
    pxhost::SuiteRegistry::Get().Add(h->name, h->version, &kTable);
    h->suite = &kTable;
  }
  size_t mark = EventCount();
  PIUSuitesRelease();
  std::vector<std::string> order;
  for (const auto& e : EventsSince(mark)) order.push_back(e.name);
  EXPECT_EQ(order, (std::vector<std::string>{sPXActionDescriptor.name, sPXHandle.name,
                                             sPXUIHooks.name, sPXResource.name}));
  for (SuiteHolder* h : holders) EXPECT_EQ(h->suite, nullptr);
}

}  // namespace
