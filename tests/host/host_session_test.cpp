// A host session as a plug-in meets it, driven by a stand-in plug-in: the
// handles it asks for, the pixels it hands over at advance state, the
// procedures the host offers or withholds, the fields it writes.
#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "host/host_simulator.h"

namespace {

using pixmere::FormatRecord;

// What the stand-in plug-in does on its next call.
std::function<void(FormatRecord*)> gCall;

void StandIn(int16_t, FormatRecord* record, intptr_t*, int16_t* result) {
  gCall(record);
  *result = 0;
}

class Session : public ::testing::Test {
 protected:
  void TearDown() override { close(fd_); }
  int fd_ = open("/dev/null", O_RDONLY | O_CLOEXEC);
};

// A handle lives until the plug-in disposes of it; its size and bytes read
// back whole, and one disposed of reads as nothing.
TEST_F(Session, HandlesLiveUntilDisposed) {
  pxhost::HostSession session(&StandIn, fd_, {});
  pixmere::Handle kept = nullptr, gone = nullptr;
  int32_t keptSize = -1, goneSize = -1, goneAfter = -1;
  gCall = [&](FormatRecord* r) {
    kept = r->handleProcs->newHandle(5);
    std::memcpy(*kept, "hello", 5);
    gone = r->handleProcs->newHandle(3);
    goneSize = r->handleProcs->getHandleSize(gone);
    r->handleProcs->disposeHandle(gone);
    r->handleProcs->disposeHandle(gone);  // a second time: nothing left to free
    goneAfter = r->handleProcs->getHandleSize(gone);
    keptSize = r->handleProcs->getHandleSize(kept);
    EXPECT_EQ(r->handleProcs->newHandle(-1), nullptr);
  };
  EXPECT_EQ(session.Call(1), 0);
  EXPECT_EQ(std::vector<int32_t>({keptSize, goneSize, goneAfter}), std::vector<int32_t>({5, 3, 0}));
  EXPECT_EQ(session.HandleSizes(), std::vector<int32_t>({5, 3, -1}));
  EXPECT_EQ(session.HandleBytes(kept), "hello");
  EXPECT_EQ(session.HandleBytes(gone), "");

  pxhost::SessionOptions failing;
  failing.newHandleFails = true;
  pxhost::HostSession refused(&StandIn, fd_, failing);
  gCall = [&](FormatRecord* r) { EXPECT_EQ(r->handleProcs->newHandle(4), nullptr); };
  refused.Call(1);
  EXPECT_EQ(refused.HandleSizes(), std::vector<int32_t>({4}));  // asked for all the same
}

// Advance state copies exactly the rectangle and planes the record
// describes, whatever the strides; no pixels without data or planes.
TEST_F(Session, AdvanceStateCopiesTheDescribedPixels) {
  pxhost::HostSession session(&StandIn, fd_, {});
  // A 4 x 3 picture of 3 planes, interleaved: byte = 100 y + 10 x + plane.
  std::vector<uint8_t> picture;
  for (int y = 0; y < 3; ++y)
    for (int x = 0; x < 4; ++x)
      for (int p = 0; p < 3; ++p) picture.push_back(uint8_t(100 * y + 10 * x + p));
  gCall = [&](FormatRecord* r) {
    r->rectTop = 1;
    r->rectBottom = 3;
    r->rectLeft = 2;
    r->rectRight = 4;
    r->firstPlane = 0;
    r->lastPlane = 1;
    r->columnStride = 3;
    r->rowStride = 12;
    r->planeStride = 1;
    // The rectangle is relative to the data the record points at.
    r->pixelData = picture.data() + 1 * 12 + 2 * 3;
    EXPECT_EQ(r->advanceStateProc(), 0);
    r->pixelData = nullptr;
    EXPECT_EQ(r->advanceStateProc(), 0);
    r->pixelData = picture.data();
    r->lastPlane = -1;
    EXPECT_EQ(r->advanceStateProc(), 0);
  };
  session.Call(2);
  ASSERT_EQ(session.AdvanceCalls().size(), 3u);
  const pxhost::AdvanceCall& call = session.AdvanceCalls()[0];
  EXPECT_EQ(std::vector<int>({call.top, call.left, call.bottom, call.right}),
            std::vector<int>({1, 2, 3, 4}));
  EXPECT_EQ(call.pixels, std::vector<uint8_t>({120, 121, 130, 131, 220, 221, 230, 231}));
  EXPECT_TRUE(session.AdvanceCalls()[1].pixels.empty());
  EXPECT_TRUE(session.AdvanceCalls()[2].pixels.empty());
}

// The host's procedures answer when offered and are absent when withheld;
// the fields the plug-in writes are told apart from those it leaves.
TEST_F(Session, OfferedProceduresAndWrittenFields) {
  pxhost::SessionOptions options;
  options.withheld = {pxhost::HostProc::Required2, pxhost::HostProc::AdvanceState};
  pxhost::HostSession session(&StandIn, fd_, options);
  std::vector<bool> offered;
  gCall = [&](FormatRecord* r) {
    for (auto proc : r->requiredProcs->proc) {
      offered.push_back(proc != nullptr);
      if (proc != nullptr) {
        EXPECT_EQ(proc(), 0);
      }
    }
    offered.push_back(r->advanceStateProc != nullptr);
    r->imageWidth = 321;
    r->rowStride = -7;
  };
  session.Call(3);
  EXPECT_EQ(offered, std::vector<bool>({true, false, true, true, false}));
  std::vector<std::pair<std::string, int64_t>> written;
  for (const auto& [field, value] : session.WrittenFields())
    written.emplace_back(field->name, value);
  EXPECT_EQ(written,
            (std::vector<std::pair<std::string, int64_t>>{{"imageWidth", 321}, {"rowStride", -7}}));
  gCall = [](FormatRecord*) {};
  session.Call(3);
  EXPECT_TRUE(session.WrittenFields().empty());  // each call starts afresh

  pxhost::HostProc proc{};
  EXPECT_TRUE(pxhost::ParseHostProc("advance-state", &proc));
  EXPECT_EQ(proc, pxhost::HostProc::AdvanceState);
  EXPECT_FALSE(pxhost::ParseHostProc("required5", &proc));
}

}  // namespace
