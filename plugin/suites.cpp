#include "plugin/suites.h"

#include <initializer_list>

#include "plugin/globals.h"

namespace {

void Release(SuiteHolder& holder) {
  if (holder.suite == nullptr) return;
  if (holder.name == nullptr || sPKBasic == nullptr) return;
  sPKBasic->ReleaseSuite(holder.name, holder.version);  // release errors are ignored
  holder.suite = nullptr;
}

}  // namespace

SuiteHolder::~SuiteHolder() {
  Release(*this);
}

// Declared in this order so that static destruction at unload runs in the
// reverse order.
SuiteHolder sPXActionDescriptor{nullptr, 2, "df135115-c769-11d0-8079-00c04fd7ec47", 0};
SuiteHolder sPXActionControl{nullptr, 2, "bc1e4d70-f953-11d0-8d9f-00c04fd5f7ee", 0};
SuiteHolder sPXActionReference{nullptr, 3, "df135117-c769-11d0-8079-00c04fd7ec47", 0};
SuiteHolder sPXActionList{nullptr, 1, "df135116-c769-11d0-8079-00c04fd7ec47", 0};
SuiteHolder sPXRegistry{nullptr, 1, "61e608b0-40fd-11d1-8da3-00c04fd5f7ee", 0};
SuiteHolder sPXUIHooks{nullptr, 1, "Pixmere UIHooks Suite for Plug-ins", 0};
SuiteHolder sPXHandle{nullptr, 2, "Pixmere Handle Suite for Plug-ins", 0};
SuiteHolder sKXZString{nullptr, 1, "KX ZString Suite", 0};
SuiteHolder sPKAccess{nullptr, 3, "PK Access Suite", 0};
SuiteHolder sPXFileList{nullptr, 4, "Pixmere GetFileList Suite for Plug-ins", 0};
SuiteHolder sPXBuffer{nullptr, 1, "Pixmere Buffer Suite for Plug-ins", 0};
SuiteHolder sPXChannelProcs{nullptr, 3, "Pixmere ChannelPorts Suite for Plug-ins", 0};
SuiteHolder sPKRuntime{nullptr, 5, "PK Runtime Suite", 0};
SuiteHolder sPXProperty{nullptr, 1, "Pixmere Property Suite for Plug-ins", 0};
SuiteHolder sPXAlias{nullptr, 1, "Pixmere Alias Utility Suite", 0};
SuiteHolder sPXResource{nullptr, 3, "Pixmere Resource Suite for Plug-ins", 0};

void PIUSuitesRelease() {
  // The release order differs from the declaration order: the handle suite
  // goes before the UI hooks.
  for (SuiteHolder* holder :
       {&sPXActionDescriptor, &sPXActionControl, &sPXActionReference, &sPXActionList, &sPXRegistry,
        &sPXHandle, &sPXUIHooks, &sKXZString, &sPKAccess, &sPXFileList, &sPXBuffer,
        &sPXChannelProcs, &sPKRuntime, &sPXProperty, &sPXAlias, &sPXResource}) {
    Release(*holder);
  }
}

bool TestAndStoreResult(int16_t* result, int32_t error) {
  if (error == 0) return true;
  if (*result == 0) *result = int16_t(error);
  return false;
}

bool TestAndStoreCancel(int16_t* result, bool cancelled) {
  if (!cancelled) return true;
  if (*result == 0) *result = pixmere::kResultUserCancelled;
  return false;
}
