// The XMP toolkit wrapper.
//
// The C toolkit reports failure as a false result plus a negated error
// number from xmp_get_error(); a getter that finds nothing returns false with
// the error number 0. Both are turned back into what the toolkit's C++ face
// does: an XMPError with the positive number, or a false result.
//
// The C toolkit has no path composition and no base64, so both are done here
// in the toolkit's forms; every composed path is then checked by the toolkit
// itself (against an empty data model), so a bad name or an unregistered
// namespace fails where it is composed, as it would in the toolkit.
#include "xmp/toolkit.h"

#include <exempi/xmp.h>

#include <charconv>
#include <iostream>
#include <map>
#include <sstream>
#include <utility>

namespace xmptk {

namespace {

// The toolkit's error numbers (its C face reports them negated).
constexpr int32_t kErrBadObject = 3;
constexpr int32_t kErrBadParam = 4;
constexpr int32_t kErrUnimplemented = 8;
constexpr int32_t kErrBadSchema = 101;
constexpr int32_t kErrBadXPath = 102;

// The toolkit's C face prints every failure on std::cerr as well ("Host_IO::
// Open, file permission error", its internal checks with a source file name,
// "U+FFFE and U+FFFF are not allowed in XML"): a plug-in must not write on
// its host's terminal. Every call into the toolkit runs with std::cerr sent
// to a buffer, and the words become the thrown error's detail, for callers
// to show where a person can act on them. Calls nest (a path check inside a
// getter); the innermost buffer hears them.
class Hushed {
 public:
  Hushed() : previous_(std::cerr.rdbuf(words_.rdbuf())), outer_(active_) { active_ = this; }
  ~Hushed() {
    std::cerr.rdbuf(previous_);
    active_ = outer_;
  }
  Hushed(const Hushed&) = delete;
  Hushed& operator=(const Hushed&) = delete;

  // The last line the toolkit printed during the innermost call, if any.
  static std::string Words() {
    if (active_ == nullptr) return {};
    std::string words = active_->words_.str();
    while (!words.empty() && (words.back() == '\n' || words.back() == '\r')) words.pop_back();
    size_t line = words.rfind('\n');
    return line == std::string::npos ? words : words.substr(line + 1);
  }

 private:
  std::ostringstream words_;
  std::streambuf* previous_;
  Hushed* outer_;
  static inline Hushed* active_ = nullptr;  // one host thread: no lock
};

[[noreturn]] void Fail(const char* call, int32_t id) {
  std::string words = Hushed::Words();
  throw XMPError(id, std::string(call) + " failed (XMP toolkit error " + std::to_string(id) + ")" +
                         (words.empty() ? "" : ": " + words));
}

// For calls whose false result always means failure.
void Check(bool ok, const char* call) {
  if (!ok) Fail(call, -int32_t(xmp_get_error()));
}

// For calls whose false result may just mean "not there".
bool Found(bool ok, const char* call) {
  if (!ok) {
    int32_t error = -int32_t(xmp_get_error());
    if (error != 0) Fail(call, error);
  }
  return ok;
}

class ToolkitString {
 public:
  ToolkitString() : s_(xmp_string_new()) {}
  ~ToolkitString() { xmp_string_free(s_); }
  ToolkitString(const ToolkitString&) = delete;
  ToolkitString& operator=(const ToolkitString&) = delete;
  XmpStringPtr get() const { return s_; }
  std::string str() const { return std::string(xmp_string_cstr(s_), xmp_string_len(s_)); }

 private:
  XmpStringPtr s_;
};

XmpPtr Meta(const std::unique_ptr<void, MetaHandleFree>& handle) {
  if (handle == nullptr) Fail("XMPMeta (moved from)", kErrBadObject);
  return static_cast<XmpPtr>(handle.get());
}

// The registered prefix of a namespace, with its colon ("xmpG:").
std::string PrefixOf(const char* ns) {
  const Hushed hushed;
  ToolkitString prefix;
  if (ns == nullptr || !Found(xmp_namespace_prefix(ns, prefix.get()), "namespace prefix"))
    Fail("unregistered schema namespace", kErrBadSchema);
  return prefix.str();
}

// Lets the toolkit parse the path: a malformed path, a prefix that does not
// belong to schemaNS or an unregistered namespace throws.
void CheckPath(const char* schemaNS, const std::string& path, const char* call) {
  const Hushed hushed;
  std::unique_ptr<void, MetaHandleFree> scratch(xmp_new_empty());
  Found(xmp_has_property(Meta(scratch), schemaNS, path.c_str()), call);
}

// A field name must be a single name, not a path of its own.
void CheckSimpleName(const char* name, const char* call) {
  if (name == nullptr || *name == 0 ||
      std::string_view(name).find_first_of("/[:") != std::string_view::npos)
    Fail(call, kErrBadXPath);
}

int32_t gInitCount = 0;  // one host thread: no lock

}  // namespace

XMPError::XMPError(int32_t id, std::string what) : id_(id), what_(std::move(what)) {}
int32_t XMPError::GetID() const {
  return id_;
}
const char* XMPError::what() const noexcept {
  return what_.c_str();
}

bool Initialize() {
  const Hushed hushed;
  if (gInitCount == 0 && !xmp_init()) return false;
  ++gInitCount;
  return true;
}

void Terminate() {
  if (gInitCount == 0) return;
  if (--gInitCount == 0) xmp_terminate();
}

const char* NamespaceURI(const char* prefix) {
  const Hushed hushed;
  // Node-based, so the returned pointers survive later insertions.
  static std::map<std::string, std::string> known;
  if (prefix == nullptr) Fail("NamespaceURI", kErrBadParam);
  auto it = known.find(prefix);
  if (it == known.end()) {
    ToolkitString uri;
    if (!Found(xmp_prefix_namespace_uri(prefix, uri.get()), "NamespaceURI"))
      Fail("NamespaceURI (unknown prefix)", kErrBadSchema);
    it = known.emplace(prefix, uri.str()).first;
  }
  return it->second.c_str();
}

void MetaHandleFree::operator()(void* handle) const {
  xmp_free(static_cast<XmpPtr>(handle));
}
void FileHandleFree::operator()(void* handle) const {
  xmp_files_free(static_cast<XmpFilePtr>(handle));
}

XMPMeta::XMPMeta() {
  const Hushed hushed;
  xmp_.reset(xmp_new_empty());
  Check(xmp_ != nullptr, "XMPMeta");
}

XMPMeta::XMPMeta(const char* buffer, uint32_t size) {
  if (buffer == nullptr && size != 0) Fail("XMPMeta parse", kErrBadParam);
  const Hushed hushed;
  xmp_.reset(size == 0 ? xmp_new_empty() : xmp_new(buffer, size));
  Check(xmp_ != nullptr, "XMPMeta parse");
}

void XMPMeta::AppendArrayItem(const char* schemaNS, const char* arrayName, uint32_t arrayOptions,
                              const char* itemValue, uint32_t itemOptions) {
  const Hushed hushed;
  Check(
      xmp_append_array_item(Meta(xmp_), schemaNS, arrayName, arrayOptions, itemValue, itemOptions),
      "AppendArrayItem");
}

void XMPMeta::SetProperty(const char* schemaNS, const char* propName, const char* value,
                          uint32_t options) {
  const Hushed hushed;
  Check(xmp_set_property(Meta(xmp_), schemaNS, propName, value, options), "SetProperty");
}

void XMPMeta::SetProperty_Int(const char* schemaNS, const char* propName, int32_t value,
                              uint32_t options) {
  char text[16];  // "-2147483648" is 11 characters
  *std::to_chars(text, text + sizeof(text) - 1, value).ptr = 0;
  SetProperty(schemaNS, propName, text, options);
}

void XMPMeta::SetProperty_Float(const char* schemaNS, const char* propName, double value,
                                uint32_t options) {
  // Fixed notation with 6 decimals is printf's "%f", without its locale.
  // DBL_MAX takes 309 integer digits.
  char text[400];
  *std::to_chars(text, text + sizeof(text) - 1, value, std::chars_format::fixed, 6).ptr = 0;
  SetProperty(schemaNS, propName, text, options);
}

bool XMPMeta::GetProperty(const char* schemaNS, const char* propName, std::string* value,
                          uint32_t* options) const {
  const Hushed hushed;
  ToolkitString text;
  uint32_t bits = 0;
  if (!Found(xmp_get_property(Meta(xmp_), schemaNS, propName, text.get(), &bits), "GetProperty"))
    return false;
  if (value != nullptr) *value = text.str();
  if (options != nullptr) *options = bits;
  return true;
}

bool XMPMeta::GetStructField(const char* schemaNS, const char* structName, const char* fieldNS,
                             const char* fieldName, std::string* value, uint32_t* options) const {
  std::string path;
  XMPUtils::ComposeStructFieldPath(schemaNS, structName, fieldNS, fieldName, &path);
  return GetProperty(schemaNS, path.c_str(), value, options);
}

void XMPMeta::SerializeToBuffer(std::string* packet, uint32_t options, uint32_t padding,
                                const char* newline, const char* indent, int32_t baseIndent) const {
  const Hushed hushed;
  if (packet == nullptr) Fail("SerializeToBuffer", kErrBadParam);
  ToolkitString text;
  Check(xmp_serialize_and_format(Meta(xmp_), text.get(), options, padding, newline, indent,
                                 baseIndent),
        "SerializeToBuffer");
  *packet = text.str();
}

namespace XMPUtils {

void ComposeArrayItemPath(const char* schemaNS, const char* arrayName, int32_t itemIndex,
                          std::string* fullPath) {
  constexpr int32_t kLastItem = -1;
  if (arrayName == nullptr || *arrayName == 0 || fullPath == nullptr)
    Fail("ComposeArrayItemPath", kErrBadParam);
  if (itemIndex < 1 && itemIndex != kLastItem) Fail("ComposeArrayItemPath (index)", kErrBadParam);
  std::string_view name(arrayName);
  std::string_view root = name.substr(0, name.find_first_of("/["));
  std::string path;
  if (root.find(':') == std::string_view::npos) path = PrefixOf(schemaNS);
  path += name;
  path += itemIndex == kLastItem ? "[last()]" : "[" + std::to_string(itemIndex) + "]";
  CheckPath(schemaNS, path, "ComposeArrayItemPath");
  *fullPath = std::move(path);
}

void ComposeStructFieldPath(const char* schemaNS, const char* structName, const char* fieldNS,
                            const char* fieldName, std::string* fullPath) {
  if (structName == nullptr || *structName == 0 || fullPath == nullptr)
    Fail("ComposeStructFieldPath", kErrBadParam);
  CheckSimpleName(fieldName, "ComposeStructFieldPath (field name)");
  std::string path = std::string(structName) + "/" + PrefixOf(fieldNS) + fieldName;
  CheckPath(schemaNS, path, "ComposeStructFieldPath");
  *fullPath = std::move(path);
}

void ComposeFieldSelector(const char* schemaNS, const char* arrayName, const char* fieldNS,
                          const char* fieldName, const char* fieldValue, std::string* fullPath) {
  if (arrayName == nullptr || *arrayName == 0 || fieldValue == nullptr || fullPath == nullptr)
    Fail("ComposeFieldSelector", kErrBadParam);
  CheckSimpleName(fieldName, "ComposeFieldSelector (field name)");
  std::string path = std::string(arrayName) + "[" + PrefixOf(fieldNS) + fieldName + "=\"";
  for (const char* c = fieldValue; *c != 0; ++c) {
    if (*c == '"') path += '"';  // the path syntax escapes a quote by doubling it
    path += *c;
  }
  path += "\"]";
  CheckPath(schemaNS, path, "ComposeFieldSelector");
  *fullPath = std::move(path);
}

void EncodeToBase64(const char* rawStr, uint32_t rawLen, std::string* encodedStr) {
  static constexpr char kAlphabet[] =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  constexpr size_t kLineLength = 76;  // 19 groups of 4 characters, 57 input bytes
  if (encodedStr == nullptr || (rawStr == nullptr && rawLen != 0))
    Fail("EncodeToBase64", kErrBadParam);
  const auto* in = reinterpret_cast<const unsigned char*>(rawStr);
  size_t groups = (size_t(rawLen) + 2) / 3;
  std::string out;
  out.reserve(groups * 4 + groups / 19);
  size_t onLine = 0;
  for (uint32_t i = 0; i < rawLen; i += 3) {
    uint32_t left = rawLen - i;
    uint32_t bits = uint32_t(in[i]) << 16;
    if (left > 1) bits |= uint32_t(in[i + 1]) << 8;
    if (left > 2) bits |= in[i + 2];
    if (onLine == kLineLength) {
      out += '\n';
      onLine = 0;
    }
    out += kAlphabet[(bits >> 18) & 63];
    out += kAlphabet[(bits >> 12) & 63];
    out += left > 1 ? kAlphabet[(bits >> 6) & 63] : '=';
    out += left > 2 ? kAlphabet[bits & 63] : '=';
    onLine += 4;
  }
  *encodedStr = std::move(out);
}

void DecodeFromBase64(const char* encodedStr, uint32_t encodedLen, std::string* rawStr) {
  if (rawStr == nullptr || (encodedStr == nullptr && encodedLen != 0))
    Fail("DecodeFromBase64", kErrBadParam);
  std::string out;
  out.reserve(size_t(encodedLen) / 4 * 3);
  uint32_t bits = 0;
  int count = 0;
  bool padding = false;
  for (uint32_t i = 0; i < encodedLen; ++i) {
    char c = encodedStr[i];
    int v = c >= 'A' && c <= 'Z'   ? c - 'A'
            : c >= 'a' && c <= 'z' ? c - 'a' + 26
            : c >= '0' && c <= '9' ? c - '0' + 52
            : c == '+'             ? 62
            : c == '/'             ? 63
                                   : -1;
    if (c == '=') {
      padding = true;
    } else if (c == '\n' || c == '\r' || c == ' ' || c == '\t') {
      // line breaks and blanks between groups
    } else if (v < 0 || padding) {
      Fail("DecodeFromBase64", kErrBadParam);  // not base64, or data after the padding
    } else {
      bits = (bits << 6) | uint32_t(v);
      if ((count += 6) >= 8) {
        count -= 8;
        out += char((bits >> count) & 0xFF);
      }
    }
  }
  *rawStr = std::move(out);
}

}  // namespace XMPUtils

XMPFiles::XMPFiles() {
  const Hushed hushed;
  file_.reset(xmp_files_new());
  Check(file_ != nullptr, "XMPFiles");
}

bool XMPFiles::OpenFile(const char* path, uint32_t format, uint32_t openFlags) {
  const Hushed hushed;
  if (path == nullptr) Fail("OpenFile", kErrBadParam);
  if (format != kXMP_UnknownFile) Fail("OpenFile (only format detection)", kErrUnimplemented);
  if (open_) Fail("OpenFile (a file is already open)", kErrBadObject);
  open_ = Found(
      xmp_files_open(static_cast<XmpFilePtr>(file_.get()), path, XmpOpenFileOptions(openFlags)),
      "OpenFile");
  return open_;
}

bool XMPFiles::GetFileInfo(std::string* filePath, uint32_t* openFlags, uint32_t* format,
                           uint32_t* handlerFlags) const {
  const Hushed hushed;
  if (!open_) return false;
  ToolkitString path;
  // The toolkit stores bit sets in these enum-typed out-parameters (handler
  // flags such as 0x227F name no single enumerator), so they are read back as
  // plain 32-bit words, never as enum values.
  static_assert(sizeof(XmpOpenFileOptions) == sizeof(uint32_t) &&
                sizeof(XmpFileType) == sizeof(uint32_t) &&
                sizeof(XmpFileFormatOptions) == sizeof(uint32_t));
  uint32_t flags = 0, type = 0, handler = 0;
  if (!Found(xmp_files_get_file_info(static_cast<XmpFilePtr>(file_.get()), path.get(),
                                     reinterpret_cast<XmpOpenFileOptions*>(&flags),
                                     reinterpret_cast<XmpFileType*>(&type),
                                     reinterpret_cast<XmpFileFormatOptions*>(&handler)),
             "GetFileInfo"))
    return false;
  if (filePath != nullptr) *filePath = path.str();
  if (openFlags != nullptr) *openFlags = flags;
  if (format != nullptr) *format = type;
  if (handlerFlags != nullptr) *handlerFlags = handler;
  return true;
}

bool XMPFiles::GetXMP(XMPMeta* meta) const {
  const Hushed hushed;
  // The toolkit's C face crashes when asked without an open file.
  if (!open_) Fail("GetXMP (no open file)", kErrBadObject);
  if (meta == nullptr) Fail("GetXMP", kErrBadParam);
  return Found(xmp_files_get_xmp(static_cast<XmpFilePtr>(file_.get()), Meta(meta->xmp_)), "GetXMP");
}

}  // namespace xmptk
