// The host's suite registry as a plug-in meets it: through the basic suite and
// the "PK Suites Suite" it hands out.
#include <gtest/gtest.h>

#include "host/host_simulator.h"
#include "sdk/suites.h"

namespace {

using pxhost::SuiteRegistry;

const pixmere::PKSuitesSuite* SuitesSuite() {
  const void* procs = nullptr;
  EXPECT_EQ(SuiteRegistry::Get().Basic()->AcquireSuite(pixmere::kPKSuitesSuite,
                                                       pixmere::kPKSuitesSuiteVersion, &procs),
            0);
  return static_cast<const pixmere::PKSuitesSuite*>(procs);
}

const void* Acquired(const char* name, int32_t version, int32_t* err) {
  const void* procs = &procs;  // overwritten either way
  *err = SuiteRegistry::Get().Basic()->AcquireSuite(name, version, &procs);
  return procs;
}

// A name and version already registered is refused and the first table
// stays what every acquire hands out; another version is another suite.
TEST(SuiteRegistry, TheSameSuiteIsRegisteredOnce) {
  const pixmere::PKSuitesSuite* suites = SuitesSuite();
  ASSERT_NE(suites, nullptr);
  static const int first = 1, second = 2, third = 3;
  pixmere::PKSuiteRef ref = nullptr;
  EXPECT_EQ(suites->AddSuite(0, 0, "QL Test Suite", 3, 0, &first, &ref), 0);
  EXPECT_EQ(ref, &first);
  EXPECT_EQ(suites->AddSuite(0, 0, "QL Test Suite", 3, 0, &second, &ref),
            pixmere::kPKErrSuiteExists);
  EXPECT_EQ(ref, nullptr);
  EXPECT_EQ(suites->AddSuite(0, 0, "QL Test Suite", 4, 0, &third, &ref), 0);
  // The host's own suites suite cannot be replaced either.
  EXPECT_EQ(suites->AddSuite(0, 0, pixmere::kPKSuitesSuite, pixmere::kPKSuitesSuiteVersion, 0,
                             &second, &ref),
            pixmere::kPKErrSuiteExists);

  int32_t err = -1;
  EXPECT_EQ(Acquired("QL Test Suite", 3, &err), &first);
  EXPECT_EQ(err, 0);
  EXPECT_EQ(Acquired("QL Test Suite", 4, &err), &third);
  EXPECT_EQ(Acquired(pixmere::kPKSuitesSuite, pixmere::kPKSuitesSuiteVersion, &err), suites);
  ASSERT_EQ(suites->FindSuite("QL Test Suite", 3, &ref), 0);
  EXPECT_EQ(ref, &first);
  EXPECT_EQ(suites->FindSuite("QL Test Suite", 5, &ref), pixmere::kPKErrSuiteNotFound);

  // What plug-ins added goes when they are let go; the host's own stays, and
  // the name may then be registered afresh.
  SuiteRegistry::Get().DropAddedSuites();
  EXPECT_EQ(Acquired("QL Test Suite", 3, &err), nullptr);
  EXPECT_EQ(err, pixmere::kPKErrSuiteNotFound);
  EXPECT_EQ(SuitesSuite(), suites);
  EXPECT_EQ(suites->AddSuite(0, 0, "QL Test Suite", 3, 0, &second, &ref), 0);
  EXPECT_EQ(Acquired("QL Test Suite", 3, &err), &second);
  SuiteRegistry::Get().DropAddedSuites();
}

// Every acquire, release and add is logged with its outcome, refusals too.
TEST(SuiteRegistry, EveryRequestIsLoggedWithItsResult) {
  SuiteRegistry& registry = SuiteRegistry::Get();
  registry.ClearEvents();
  static const int table = 0;
  EXPECT_EQ(registry.Add("QL Logged Suite", 1, &table), 0);
  EXPECT_EQ(registry.Add("QL Logged Suite", 1, &table), pixmere::kPKErrSuiteExists);
  EXPECT_EQ(registry.Basic()->ReleaseSuite("QL Absent Suite", 1), pixmere::kPKErrSuiteNotFound);
  EXPECT_EQ(registry.Basic()->ReleaseSuite("QL Logged Suite", 1), 0);
  const auto& events = registry.Events();
  ASSERT_EQ(events.size(), 4u);
  EXPECT_EQ(events[1].kind, pxhost::SuiteEvent::kAdd);
  EXPECT_EQ(events[1].result, pixmere::kPKErrSuiteExists);
  EXPECT_EQ(events[2].kind, pxhost::SuiteEvent::kRelease);
  EXPECT_EQ(events[2].name, "QL Absent Suite");
  EXPECT_EQ(events[2].result, pixmere::kPKErrSuiteNotFound);
  EXPECT_EQ(events[3].result, 0);
  registry.ClearEvents();
  EXPECT_TRUE(registry.Events().empty());
}

}  // namespace
