// The plug-in's side of the host library binding. The lookup comes from the
// host executable's dynamic symbols, so the module links nothing of the
// engine; every procedure is resolved by name once per request.
#include "xmp/host_binding.h"

#include <dlfcn.h>

namespace {

struct Procs {
  WeftTinctProfileFromCodeProc profileFromCode;
  WeftTinctUnReferenceProfileProc unReferenceProfile;
  WeftColorProfileCreateProc colorProfileCreate;
  WeftColorProfileReleaseProc colorProfileRelease;
  WeftColorSpaceFromProfileProc colorSpaceFromProfile;
  WeftColorSpaceFromFamilyProc colorSpaceFromFamily;
  WeftColorSpaceReleaseProc colorSpaceRelease;
  WeftColorConvertOptionsCreateProc convertOptionsCreate;
  WeftColorConvertOptionsReleaseProc convertOptionsRelease;
  WeftColorSpaceConvertOneColorProc convertOneColor;
};

// Set only when every procedure resolved; one host thread, so no lock.
Procs gProcs;
bool gBound = false;

template <typename Proc>
bool Resolve(WeftProcLookup lookup, const char* name, Proc* proc) {
  *proc = reinterpret_cast<Proc>(lookup(name));
  return *proc != nullptr;
}

}  // namespace

WeftProcLookup FindWeftProcLookup() {
  auto get =
      reinterpret_cast<WeftGetGetProcAddressProc>(dlsym(RTLD_DEFAULT, kWeftGetGetProcAddress));
  return get == nullptr ? nullptr : get();
}

int32_t WeftClientInit(WeftProcLookup lookup) {
  gBound = false;
  if (lookup == nullptr) return -1;
  Procs p{};
  bool ok = Resolve(lookup, kWeftTinctProfileFromCode, &p.profileFromCode) &&
            Resolve(lookup, kWeftTinctUnReferenceProfile, &p.unReferenceProfile) &&
            Resolve(lookup, kWeftColorProfileCreate, &p.colorProfileCreate) &&
            Resolve(lookup, kWeftColorProfileRelease, &p.colorProfileRelease) &&
            Resolve(lookup, kWeftColorSpaceFromProfile, &p.colorSpaceFromProfile) &&
            Resolve(lookup, kWeftColorSpaceFromFamily, &p.colorSpaceFromFamily) &&
            Resolve(lookup, kWeftColorSpaceRelease, &p.colorSpaceRelease) &&
            Resolve(lookup, kWeftColorConvertOptionsCreate, &p.convertOptionsCreate) &&
            Resolve(lookup, kWeftColorConvertOptionsRelease, &p.convertOptionsRelease) &&
            Resolve(lookup, kWeftColorSpaceConvertOneColor, &p.convertOneColor);
  if (!ok) return -1;
  gProcs = p;
  gBound = true;
  return 0;
}

void WeftClientTerminate() {
  gBound = false;
}

void* CTinct::ProfileFromCode(uint32_t code) {
  return gBound ? gProcs.profileFromCode(code) : nullptr;
}

void CTinct::UnReferenceProfile(void* profile) {
  if (gBound && profile != nullptr) gProcs.unReferenceProfile(profile);
}

CGravenColorProfile::CGravenColorProfile(void* profile, int32_t renderIntent, int32_t bpcState,
                                         bool flag)
    : ref_(gBound && profile != nullptr
               ? gProcs.colorProfileCreate(profile, renderIntent, bpcState, flag)
               : nullptr) {}

CGravenColorProfile::~CGravenColorProfile() {
  if (gBound && ref_ != nullptr) gProcs.colorProfileRelease(ref_);
}

CGravenColorConvertOptions::CGravenColorConvertOptions()
    : ref_(gBound ? gProcs.convertOptionsCreate() : nullptr) {}

CGravenColorConvertOptions::~CGravenColorConvertOptions() {
  if (gBound && ref_ != nullptr) gProcs.convertOptionsRelease(ref_);
}

CGravenColorSpace::CGravenColorSpace(void* profile, bool flag1, bool flag2, bool flag3, bool flag4,
                                     bool flag5)
    : ref_(gBound && profile != nullptr
               ? gProcs.colorSpaceFromProfile(profile, flag1, flag2, flag3, flag4, flag5)
               : nullptr) {}

CGravenColorSpace::CGravenColorSpace(int32_t family, bool flag1, bool flag2, bool flag3, bool flag4,
                                     bool flag5)
    : ref_(gBound ? gProcs.colorSpaceFromFamily(family, flag1, flag2, flag3, flag4, flag5)
                  : nullptr) {}

CGravenColorSpace::~CGravenColorSpace() {
  if (gBound && ref_ != nullptr) gProcs.colorSpaceRelease(ref_);
}

bool CGravenColorSpace::ConvertOneColor(const CGravenColorSpace& destination, const float* in,
                                        float* out, const CGravenColorConvertOptions& options,
                                        int32_t reserved1, int32_t reserved2,
                                        int32_t reserved3) const {
  if (!gBound || ref_ == nullptr || destination.ref_ == nullptr || options.ref_ == nullptr)
    return false;
  return gProcs.convertOneColor(ref_, destination.ref_, in, out, options.ref_, reserved1, reserved2,
                                reserved3) != 0;
}
