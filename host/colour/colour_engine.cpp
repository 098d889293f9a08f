// The host colour engine over LittleCMS 2.
//
// Method: every conversion is an ICC transform from the source space's
// profile to the destination's, in float, with render intent 1 (relative
// colorimetric) and no black-point compensation unless the options say
// otherwise. Transforms are the expensive part (LittleCMS builds and
// optimises a pipeline), so they are cached for the life of the process,
// keyed by both profiles, intent, compensation and the two pixel formats:
// converting one colour looks a transform up and runs it on one pixel.
//
// Profiles: "sGra" is a gray profile with the sRGB tone curve on the D50
// white that ICC v4 requires for gray; "LD50" is CIE Lab on D50; "mRGB" is
// sRGB. The CMYK family's default profile is read from a file. Profiles are
// built once and kept; clients hold counted references.
//
// Float conventions: LittleCMS takes CMYK as 0..100 per channel, the binding
// as 0..1, so CMYK is scaled by 100 in and out. Float outputs of a
// matrix-shaper destination are not clipped, and are passed on as they are.
#include "host/colour/colour_engine.h"

#include <lcms2.h>

#include <cstdio>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <tuple>

#include "sdk/host_types.h"

namespace {

constexpr int32_t kFamilyCMYK = 2;
constexpr int32_t kIntentRelativeColorimetric = 1;  // INTENT_RELATIVE_COLORIMETRIC
constexpr float kLcmsCMYKScale = 100.0f;

struct Profile {
  cmsHPROFILE handle;
  uint32_t id;  // stable for the process: profiles are never rebuilt
  int64_t refs = 0;
};

// A colour profile and a colour space each keep their profile referenced;
// how a colour is converted is the convert options' business.
struct ColorProfile {
  Profile* profile;
};

struct ColorSpace {
  Profile* profile;
};

struct ConvertOptions {
  int32_t renderIntent = kIntentRelativeColorimetric;
  bool blackPointCompensation = false;
};

using TransformKey =
    std::tuple<uint32_t, uint32_t, int32_t, bool, cmsUInt32Number, cmsUInt32Number>;

struct Engine {
  std::mutex lock;
  bool offered = true;
  std::string cmykPath = QL_DEFAULT_CMYK_PROFILE;
  std::string lastError;
  hostcolour::Counters counters;
  std::map<std::string, std::unique_ptr<Profile>> profiles;  // by code or file
  uint32_t nextProfileId = 1;
  std::map<TransformKey, cmsHTRANSFORM> transforms;
  // Live client objects, so a stale or foreign pointer from the plug-in is
  // refused instead of followed.
  std::set<const void*> colorProfiles, spaces, options;
};

Engine& TheEngine() {
  static Engine* engine = [] {
    cmsSetLogErrorHandler([](cmsContext, cmsUInt32Number, const char* text) {
      TheEngine().lastError = std::string("colour engine: ") + text;
    });
    return new Engine;  // lives as long as the process: modules may call in at exit
  }();
  return *engine;
}

Profile* Register(Engine& e, const std::string& key, cmsHPROFILE handle) {
  if (handle == nullptr) return nullptr;
  auto& slot = e.profiles[key];
  slot.reset(new Profile{handle, e.nextProfileId++});
  return slot.get();
}

// The sRGB tone curve as an ICC parametric curve of type 4:
// Y = (aX + b)^g for X >= d, else cX, with g 2.4, a 1/1.055, b 0.055/1.055,
// c 1/12.92, d 0.04045.
cmsHPROFILE CreateSRGBGray() {
  const cmsFloat64Number params[5] = {2.4, 1.0 / 1.055, 0.055 / 1.055, 1.0 / 12.92, 0.04045};
  cmsToneCurve* curve = cmsBuildParametricToneCurve(nullptr, 4, params);
  if (curve == nullptr) return nullptr;
  cmsHPROFILE profile = cmsCreateGrayProfile(cmsD50_xyY(), curve);
  cmsFreeToneCurve(curve);
  return profile;
}

Profile* BuiltIn(Engine& e, uint32_t code) {
  std::string key = "code:" + std::to_string(code);
  auto it = e.profiles.find(key);
  if (it != e.profiles.end()) return it->second.get();
  cmsHPROFILE handle = nullptr;
  if (code == pixmere::FourCC("sGra")) handle = CreateSRGBGray();
  if (code == pixmere::FourCC("LD50")) handle = cmsCreateLab4Profile(nullptr);  // null: D50
  if (code == pixmere::FourCC("mRGB")) handle = cmsCreate_sRGBProfile();
  return Register(e, key, handle);
}

Profile* DefaultCMYK(Engine& e) {
  std::string key = "file:" + e.cmykPath;
  auto it = e.profiles.find(key);
  if (it != e.profiles.end()) return it->second.get();
  std::FILE* probe = e.cmykPath.empty() ? nullptr : std::fopen(e.cmykPath.c_str(), "rb");
  if (probe == nullptr) {
    e.lastError = "colour engine: the default CMYK profile \"" + e.cmykPath +
                  "\" is missing (it comes with the libgs-common package)";
    return nullptr;
  }
  std::fclose(probe);
  cmsHPROFILE handle = cmsOpenProfileFromFile(e.cmykPath.c_str(), "r");
  if (handle != nullptr && cmsGetColorSpace(handle) != cmsSigCmykData) {
    cmsCloseProfile(handle);
    handle = nullptr;
  }
  if (handle == nullptr) {
    e.lastError = "colour engine: \"" + e.cmykPath + "\" is not a usable CMYK profile";
    return nullptr;
  }
  return Register(e, key, handle);
}

bool Known(const Engine& e, const void* profile) {
  for (const auto& [key, p] : e.profiles)
    if (p.get() == profile) return true;
  return false;
}

// The float pixel format of a profile's colour space, with the channel scale
// between the binding's ranges and LittleCMS's.
bool FloatFormat(const Profile& p, cmsUInt32Number* format, float* scale) {
  *scale = 1.0f;
  switch (cmsGetColorSpace(p.handle)) {
    case cmsSigGrayData:
      *format = TYPE_GRAY_FLT;
      return true;
    case cmsSigRgbData:
      *format = TYPE_RGB_FLT;
      return true;
    case cmsSigLabData:
      *format = TYPE_Lab_FLT;
      return true;
    case cmsSigCmykData:
      *format = TYPE_CMYK_FLT;
      *scale = kLcmsCMYKScale;
      return true;
    default:
      return false;
  }
}

// --- The procedures the binding hands out. ---

void* ProfileFromCode(uint32_t code) {
  Engine& e = TheEngine();
  std::lock_guard guard(e.lock);
  Profile* p = BuiltIn(e, code);
  if (p == nullptr) return nullptr;
  ++p->refs;
  ++e.counters.liveObjects;
  return p;
}

void UnReferenceProfile(void* profile) {
  Engine& e = TheEngine();
  std::lock_guard guard(e.lock);
  auto* p = static_cast<Profile*>(profile);
  if (!Known(e, p) || p->refs == 0) return;
  --p->refs;
  --e.counters.liveObjects;
}

void* ColorProfileCreate(void* profile, int32_t renderIntent, int32_t bpcState, int32_t flag) {
  Engine& e = TheEngine();
  std::lock_guard guard(e.lock);
  auto* p = static_cast<Profile*>(profile);
  // Intents 0..3 are the four ICC ones; the state and flag are yes/no.
  if (!Known(e, p) || renderIntent < 0 || renderIntent > 3 || (bpcState & ~1) != 0 ||
      (flag & ~1) != 0)
    return nullptr;
  ++p->refs;
  auto* cp = new ColorProfile{p};
  e.colorProfiles.insert(cp);
  ++e.counters.liveObjects;
  return cp;
}

void ColorProfileRelease(void* colorProfile) {
  Engine& e = TheEngine();
  std::lock_guard guard(e.lock);
  if (e.colorProfiles.erase(colorProfile) == 0) return;
  auto* cp = static_cast<ColorProfile*>(colorProfile);
  --cp->profile->refs;
  delete cp;
  --e.counters.liveObjects;
}

void* NewSpace(Engine& e, Profile* p) {
  ++p->refs;
  auto* space = new ColorSpace{p};
  e.spaces.insert(space);
  ++e.counters.liveObjects;
  return space;
}

// The five flags select options of the host's own spaces that this engine
// does not have; any values are accepted.
void* ColorSpaceFromProfile(void* profile, int32_t, int32_t, int32_t, int32_t, int32_t) {
  Engine& e = TheEngine();
  std::lock_guard guard(e.lock);
  auto* p = static_cast<Profile*>(profile);
  if (!Known(e, p)) return nullptr;
  return NewSpace(e, p);
}

void* ColorSpaceFromFamily(int32_t family, int32_t, int32_t, int32_t, int32_t, int32_t) {
  Engine& e = TheEngine();
  std::lock_guard guard(e.lock);
  if (family != kFamilyCMYK) {
    e.lastError =
        "colour engine: no default profile for colour-space family " + std::to_string(family);
    return nullptr;
  }
  Profile* p = DefaultCMYK(e);
  if (p == nullptr) return nullptr;
  return NewSpace(e, p);
}

void ColorSpaceRelease(void* colorSpace) {
  Engine& e = TheEngine();
  std::lock_guard guard(e.lock);
  if (e.spaces.erase(colorSpace) == 0) return;
  auto* space = static_cast<ColorSpace*>(colorSpace);
  --space->profile->refs;
  delete space;
  --e.counters.liveObjects;
}

void* ColorConvertOptionsCreate() {
  Engine& e = TheEngine();
  std::lock_guard guard(e.lock);
  auto* o = new ConvertOptions;
  e.options.insert(o);
  ++e.counters.liveObjects;
  return o;
}

void ColorConvertOptionsRelease(void* options) {
  Engine& e = TheEngine();
  std::lock_guard guard(e.lock);
  if (e.options.erase(options) == 0) return;
  delete static_cast<ConvertOptions*>(options);
  --e.counters.liveObjects;
}

int32_t ColorSpaceConvertOneColor(const void* source, const void* destination, const float* in,
                                  float* out, const void* options, int32_t reserved1,
                                  int32_t reserved2, int32_t reserved3) {
  Engine& e = TheEngine();
  std::lock_guard guard(e.lock);
  if (e.spaces.count(source) == 0 || e.spaces.count(destination) == 0 ||
      e.options.count(options) == 0 || in == nullptr || out == nullptr || reserved1 != 0 ||
      reserved2 != 0 || reserved3 != 0)
    return 0;
  const Profile& src = *static_cast<const ColorSpace*>(source)->profile;
  const Profile& dst = *static_cast<const ColorSpace*>(destination)->profile;
  const auto& opts = *static_cast<const ConvertOptions*>(options);
  cmsUInt32Number inFormat = 0, outFormat = 0;
  float inScale = 1.0f, outScale = 1.0f;
  if (!FloatFormat(src, &inFormat, &inScale) || !FloatFormat(dst, &outFormat, &outScale)) return 0;

  TransformKey key{src.id,   dst.id,   opts.renderIntent, opts.blackPointCompensation,
                   inFormat, outFormat};
  auto it = e.transforms.find(key);
  if (it == e.transforms.end()) {
    cmsHTRANSFORM t = cmsCreateTransform(
        src.handle, inFormat, dst.handle, outFormat, cmsUInt32Number(opts.renderIntent),
        opts.blackPointCompensation ? cmsFLAGS_BLACKPOINTCOMPENSATION : 0);
    if (t == nullptr) return 0;
    ++e.counters.transformsCreated;
    it = e.transforms.emplace(key, t).first;
  }
  float pixelIn[cmsMAXCHANNELS] = {};
  float pixelOut[cmsMAXCHANNELS] = {};
  int inChannels = int(T_CHANNELS(inFormat)), outChannels = int(T_CHANNELS(outFormat));
  for (int c = 0; c < inChannels; ++c) pixelIn[c] = in[c] * inScale;
  cmsDoTransform(it->second, pixelIn, pixelOut, 1);
  for (int c = 0; c < outChannels; ++c) out[c] = pixelOut[c] / outScale;
  ++e.counters.conversions;
  return 1;
}

void* Lookup(const char* name) {
  static const std::map<std::string, void*> procs = {
      {kWeftTinctProfileFromCode, reinterpret_cast<void*>(&ProfileFromCode)},
      {kWeftTinctUnReferenceProfile, reinterpret_cast<void*>(&UnReferenceProfile)},
      {kWeftColorProfileCreate, reinterpret_cast<void*>(&ColorProfileCreate)},
      {kWeftColorProfileRelease, reinterpret_cast<void*>(&ColorProfileRelease)},
      {kWeftColorSpaceFromProfile, reinterpret_cast<void*>(&ColorSpaceFromProfile)},
      {kWeftColorSpaceFromFamily, reinterpret_cast<void*>(&ColorSpaceFromFamily)},
      {kWeftColorSpaceRelease, reinterpret_cast<void*>(&ColorSpaceRelease)},
      {kWeftColorConvertOptionsCreate, reinterpret_cast<void*>(&ColorConvertOptionsCreate)},
      {kWeftColorConvertOptionsRelease, reinterpret_cast<void*>(&ColorConvertOptionsRelease)},
      {kWeftColorSpaceConvertOneColor, reinterpret_cast<void*>(&ColorSpaceConvertOneColor)},
  };
  if (name == nullptr) return nullptr;
  auto it = procs.find(name);
  return it == procs.end() ? nullptr : it->second;
}

}  // namespace

extern "C" WeftProcLookup WeftGetGetProcAddress() {
  Engine& e = TheEngine();
  std::lock_guard guard(e.lock);
  return e.offered ? &Lookup : nullptr;
}

namespace hostcolour {

void SetBindingOffered(bool offered) {
  Engine& e = TheEngine();
  std::lock_guard guard(e.lock);
  e.offered = offered;
}

void SetDefaultCMYKProfilePath(const std::string& path) {
  Engine& e = TheEngine();
  std::lock_guard guard(e.lock);
  e.cmykPath = path;
}

std::string DefaultCMYKProfilePath() {
  Engine& e = TheEngine();
  std::lock_guard guard(e.lock);
  return e.cmykPath;
}

const std::string& LastError() {
  return TheEngine().lastError;
}

Counters GetCounters() {
  Engine& e = TheEngine();
  std::lock_guard guard(e.lock);
  return e.counters;
}

}  // namespace hostcolour
