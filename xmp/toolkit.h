// The XMP toolkit as the plug-in uses it: the data model, path composition,
// base64, serialization and the file-handler layer, over the C toolkit that
// the distribution packages.
//
// Failed calls throw XMPError carrying the toolkit's own (positive) error
// number, e.g. 101 unregistered schema, 102 bad path, 106 bad parse; calls
// documented as returning bool report "not there" by false instead. The
// toolkit must be initialised (Initialize) before any other call.
#pragma once

#include <cstdint>
#include <exception>
#include <memory>
#include <string>

namespace xmptk {

class XMPError : public std::exception {
 public:
  XMPError(int32_t id, std::string what);
  int32_t GetID() const;
  const char* what() const noexcept override;

 private:
  int32_t id_;
  std::string what_;
};

// Counted: the toolkit starts on the first Initialize and stops on the
// Terminate that matches it, so a request's own pair never stops what the
// process started once. False when the toolkit could not start.
bool Initialize();
void Terminate();

// The URI the toolkit has registered for a prefix ("xmp", "xmpTPg", "xmpG",
// "xmpGImg"). The pointer stays valid for the life of the process.
const char* NamespaceURI(const char* prefix);

// Releases the toolkit's data-model and file objects.
struct MetaHandleFree {
  void operator()(void* handle) const;
};
struct FileHandleFree {
  void operator()(void* handle) const;
};

class XMPMeta {
 public:
  XMPMeta();
  XMPMeta(const char* buffer, uint32_t size);  // size 0: empty
  XMPMeta(XMPMeta&&) noexcept = default;
  XMPMeta& operator=(XMPMeta&&) noexcept = default;

  // itemValue may be null for a struct item whose fields are set later.
  void AppendArrayItem(const char* schemaNS, const char* arrayName, uint32_t arrayOptions,
                       const char* itemValue, uint32_t itemOptions);
  void SetProperty(const char* schemaNS, const char* propName, const char* value,
                   uint32_t options = 0);
  void SetProperty_Int(const char* schemaNS, const char* propName, int32_t value,
                       uint32_t options = 0);
  // Written as printf "%f" writes it: six decimals, no exponent.
  void SetProperty_Float(const char* schemaNS, const char* propName, double value,
                         uint32_t options = 0);
  // value and options may be null.
  bool GetProperty(const char* schemaNS, const char* propName, std::string* value,
                   uint32_t* options) const;
  bool GetStructField(const char* schemaNS, const char* structName, const char* fieldNS,
                      const char* fieldName, std::string* value, uint32_t* options) const;
  void SerializeToBuffer(std::string* packet, uint32_t options, uint32_t padding,
                         const char* newline = "", const char* indent = "",
                         int32_t baseIndent = 0) const;

 private:
  friend class XMPFiles;
  std::unique_ptr<void, MetaHandleFree> xmp_;
};

namespace XMPUtils {
// "prefix:arrayName[index]" (index >= 1, or -1 for "[last()]"); an arrayName
// that is already a path or already qualified is kept as given.
void ComposeArrayItemPath(const char* schemaNS, const char* arrayName, int32_t itemIndex,
                          std::string* fullPath);
// "structName/fieldPrefix:fieldName".
void ComposeStructFieldPath(const char* schemaNS, const char* structName, const char* fieldNS,
                            const char* fieldName, std::string* fullPath);
// arrayName[fieldPrefix:fieldName="value"], a quote in value doubled.
void ComposeFieldSelector(const char* schemaNS, const char* arrayName, const char* fieldNS,
                          const char* fieldName, const char* fieldValue, std::string* fullPath);
// The base64 pair is plain computation, done here without the toolkit, so
// any thread may call it. Standard alphabet, '=' padding, a line feed before each 4-character group
// once a line holds 76 characters, never a trailing line feed.
void EncodeToBase64(const char* rawStr, uint32_t rawLen, std::string* encodedStr);
// The reverse; line breaks and blanks are skipped, any other character that
// is not of the alphabet, or data after the '=' padding, is a bad parameter.
void DecodeFromBase64(const char* encodedStr, uint32_t encodedLen, std::string* rawStr);
}  // namespace XMPUtils

class XMPFiles {
 public:
  XMPFiles();
  XMPFiles(const XMPFiles&) = delete;
  XMPFiles& operator=(const XMPFiles&) = delete;

  // The file layer recognises the format itself: only kXMP_UnknownFile is
  // accepted as format. False when the file cannot be opened.
  bool OpenFile(const char* path, uint32_t format, uint32_t openFlags);
  // False when no file is open. Any out-parameter may be null.
  bool GetFileInfo(std::string* filePath, uint32_t* openFlags, uint32_t* format,
                   uint32_t* handlerFlags) const;
  // False when the open file carries no XMP.
  bool GetXMP(XMPMeta* meta) const;

 private:
  std::unique_ptr<void, FileHandleFree> file_;
  bool open_ = false;
};

inline constexpr uint32_t kXMP_PropArrayIsOrdered = 0x00000400;
inline constexpr uint32_t kXMP_PropValueIsStruct = 0x00000100;
inline constexpr uint32_t kXMP_UnknownFile = 0x20202020;  // four blanks

}  // namespace xmptk
