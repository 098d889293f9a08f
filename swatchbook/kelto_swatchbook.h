// The abstract swatch book: book properties, a table of colour formats, and
// swatches whose values are stored per format. KeltoSwatchbookFormat keeps
// the format table; VantorSwatchBook is the store the plug-in fills.
#pragma once

#include <cstdint>

#include "swatchbook/kelto_swatchbook_heap.h"
#include "swatchbook/xml_string.h"
#include "swatchbook/xml_string_heap.h"

class KeltoSwatchbookStream;

class KeltoSwatchbook {
 public:
  enum ColorSpace : int32_t {
    kColorSpaceNone = 1,
    kColorSpaceGray = 2,
    kColorSpaceLAB = 3,
    kColorSpaceRGB = 4,
    kColorSpaceCMYK = 5,
    kColorSpaceXYZ = 6,
  };
  enum Encoding : int32_t { kEncoding8Bit = 1, kEncoding16Bit = 2, kEncodingDouble = 3 };
  enum SwatchType : int32_t {
    kSwatchTypeSpot = 1,
    kSwatchTypeProcess = 2,
    kSwatchTypeProcessUntinted = 3,
  };

  virtual ~KeltoSwatchbook() = default;

  virtual int32_t GetVersion() = 0;
  virtual void SetVersion(int32_t version) = 0;
  virtual int32_t GetColorsPerPage() = 0;
  virtual void SetColorsPerPage(int32_t count) = 0;
  virtual int32_t GetKeyColor() = 0;
  virtual void SetKeyColor(int32_t key) = 0;
  virtual XMLString GetTitle() = 0;
  virtual void SetTitle(const XMLString& title) = 0;
  virtual int32_t GetBookID() = 0;
  virtual void SetBookID(int32_t id) = 0;
  virtual XMLString GetCopyright() = 0;
  virtual void SetCopyright(const XMLString& copyright) = 0;
  virtual XMLString GetPrefix() = 0;
  virtual void SetPrefix(const XMLString& prefix) = 0;
  virtual XMLString GetPostfix() = 0;
  virtual void SetPostfix(const XMLString& postfix) = 0;
  virtual int32_t GetNumSwatches() = 0;
  virtual void Clear() = 0;
  virtual void Compact() = 0;

  virtual int32_t GetNumFormats() = 0;
  virtual ColorSpace GetFormatColorSpace(int32_t format) = 0;
  virtual Encoding GetFormatEncoding(int32_t format) = 0;
  virtual XMLString GetFormatCondition(int32_t format) = 0;
  virtual int32_t GetFormatNumChannels(int32_t format) = 0;
  virtual XMLString GetFormatColorSpaceString(int32_t format, uint32_t useDefault) = 0;
  virtual XMLString GetFormatID(int32_t format, uint32_t useDefault) = 0;
  virtual int32_t AddFormat() = 0;
  virtual int32_t SetFormatColorSpace(int32_t format, ColorSpace space) = 0;
  virtual int32_t SetFormatEncoding(int32_t format, Encoding encoding) = 0;
  virtual int32_t SetFormatCondition(int32_t format, const XMLString& condition) = 0;
  virtual int32_t SetFormatColorSpaceString(int32_t format, const XMLString& text) = 0;
  virtual int32_t SetFormatNumChannels(int32_t format, int32_t channels) = 0;
  virtual int32_t SetFormatID(int32_t format, const XMLString& id) = 0;

  virtual int32_t FindFormatByID(const XMLString& id);

  virtual int32_t CreateSwatchGroup() = 0;
  virtual void CloseSwatchGroup() = 0;
  virtual int32_t CountSwatchGroups(int32_t& unused) = 0;
  virtual int32_t SetActiveSwatchGroup(int32_t group) = 0;
  virtual int32_t IsUngrouped(int32_t group) = 0;
  virtual int32_t CountSwatchesInActiveGroup() = 0;
  virtual int32_t SetSwatchGroupName(const XMLString& name) = 0;
  virtual XMLString GetSwatchGroupName(uint32_t flags) = 0;
  virtual XMLString GetSwatchName(int32_t swatch, uint32_t flags) = 0;
  virtual XMLString GetSwatchCode(int32_t swatch) = 0;
  virtual SwatchType GetSwatchType(int32_t swatch) = 0;
  virtual ColorSpace GetSwatchColorSpace(int32_t swatch) = 0;
  virtual double GetSwatchTint(int32_t swatch, uint32_t& flag) = 0;
  virtual int32_t GetColorValues(int32_t swatch, int32_t format, void* out) = 0;
  virtual int32_t GetSwatchFormats(int32_t swatch, int32_t* out) = 0;

  virtual int32_t FindSwatchByName(const XMLString& name, uint32_t strip, uint32_t mapSuffix);
  virtual XMLString RemovePrefixPostfix(const XMLString& name);

  virtual int32_t AddSwatch(int32_t where) = 0;
  virtual int32_t SetSwatchType(int32_t swatch, SwatchType type) = 0;
  virtual int32_t SetSwatchName(int32_t swatch, const XMLString& name) = 0;
  virtual int32_t SetSwatchCode(int32_t swatch, const XMLString& code) = 0;
  virtual int32_t SetSwatchTint(int32_t swatch, double tint) = 0;
  virtual int32_t AddColorValues(int32_t swatch, int32_t format, const void* values) = 0;

  virtual int32_t AddColorValues(int32_t swatch, int32_t format, Encoding encoding,
                                 const void* values);
  virtual int32_t AddColorValues(int32_t swatch, int32_t format, const double* values);
  virtual int32_t AddColorValues(int32_t swatch, int32_t format, const unsigned char* values);
  virtual int32_t AddColorValues(int32_t swatch, int32_t format, const uint16_t* values);

  static int32_t GetNumCompsForSpace(int32_t space);
  static bool IsValidColorSpace(int32_t space);
  static bool IsValidEncoding(int32_t encoding);
  bool IsValidFormat(int32_t format);
  static int32_t TranslateEncoding(int32_t space, int32_t fromEncoding, const void* source,
                                   int32_t toEncoding, void* destination);
  int32_t GetColorValues(int32_t swatch, int32_t format, Encoding encoding, void* out);
  int32_t GetColorValues(int32_t swatch, int32_t format, double* out);
  int32_t GetBestFormat(int32_t swatch, int32_t space);
  int32_t FindSwatchByName(const XMLString& name, uint32_t strip, uint32_t mapSuffix,
                           int32_t start);

  // Swatch exchange files; defined with the reader in swatchio/sxf_reader.cpp.
  static int32_t CheckSXF(KeltoSwatchbookStream& stream, int32_t& unknownBlocks);
  int32_t ParseSXF(KeltoSwatchbookStream& stream, int32_t flags);
};

class KeltoSwatchbookFormat : public KeltoSwatchbook {
 public:
  KeltoSwatchbookFormat();

  void Clear() override;
  void Compact() override;

  int32_t GetNumFormats() override;
  ColorSpace GetFormatColorSpace(int32_t format) override;
  Encoding GetFormatEncoding(int32_t format) override;
  XMLString GetFormatCondition(int32_t format) override;
  int32_t GetFormatNumChannels(int32_t format) override;
  XMLString GetFormatColorSpaceString(int32_t format, uint32_t useDefault) override;
  XMLString GetFormatID(int32_t format, uint32_t useDefault) override;
  int32_t AddFormat() override;
  int32_t SetFormatColorSpace(int32_t format, ColorSpace space) override;
  int32_t SetFormatEncoding(int32_t format, Encoding encoding) override;
  int32_t SetFormatCondition(int32_t format, const XMLString& condition) override;
  int32_t SetFormatColorSpaceString(int32_t format, const XMLString& text) override;
  int32_t SetFormatNumChannels(int32_t format, int32_t channels) override;
  int32_t SetFormatID(int32_t format, const XMLString& id) override;

 private:
  XMLStringHeap strings_;
  KeltoSwatchbookHeap rows_;
};
