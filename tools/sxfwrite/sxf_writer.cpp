#include "tools/sxfwrite/sxf_writer.h"

#include <bit>
#include <cstdint>

namespace sxfwrite {

const char kDescriptionHelp[] = R"(A description is one JSON object:
  "signature"  4 characters, default "SXFF"
  "major"      major version, default 1;  "minor": minor version, default 0
  "blockCount" block count written in the header, default the number of blocks
  "truncate"   number of bytes cut off the end of the finished file, default 0
  "blocks"     array of blocks, written in order, each one of:
    {"group": "Name"}                                group start
    {"groupEnd": true}                               group end
    {"swatch": "Name", "model": "RGB ", "values": [1, 0, 0], "type": 0, "tint": 0.5}
        colour entry; "model" is 4 characters ("Gray", "RGB ", "CMYK", "LAB " or
        any other), "values" are written as single floats (as many as given;
        LAB L as 0-1), "type" is the 16-bit colour type word (default 0);
        with "tint" the entry gets the tint block type
    {"blockType": 4660, "raw": "c0ffee"}             any block type, body in hex
  Every block may also have:
    "length"     body length written instead of the real one
    "extra"      hex bytes appended to the body
    "nameCount"  string unit count written instead of the real one
Names are UTF-8 in the JSON and written as big-endian UTF-16 with a
terminating zero unit counted in; an empty name is written as count 0.
)";

namespace {

void Put16(std::string* s, uint32_t v) {
  s->push_back(char(v >> 8 & 0xFF));
  s->push_back(char(v & 0xFF));
}

void Put32(std::string* s, uint32_t v) {
  Put16(s, v >> 16);
  Put16(s, v & 0xFFFF);
}

// Valid UTF-8 (as the JSON parser guarantees) to UTF-16 units.
std::u16string ToUTF16(const std::string& utf8) {
  std::u16string units;
  for (size_t i = 0; i < utf8.size();) {
    unsigned char lead = static_cast<unsigned char>(utf8[i]);
    int extra = lead < 0x80 ? 0 : lead < 0xE0 ? 1 : lead < 0xF0 ? 2 : 3;
    uint32_t cp = extra == 0 ? lead : lead & (0x3F >> extra);
    for (int k = 1; k <= extra && i + size_t(k) < utf8.size(); ++k)
      cp = cp << 6 | (static_cast<unsigned char>(utf8[i + size_t(k)]) & 0x3F);
    i += size_t(extra) + 1;
    if (cp >= 0x10000) {
      units.push_back(char16_t(0xD800 + ((cp - 0x10000) >> 10)));
      units.push_back(char16_t(0xDC00 + ((cp - 0x10000) & 0x3FF)));
    } else {
      units.push_back(char16_t(cp));
    }
  }
  return units;
}

bool Hex(const std::string& text, std::string* out, std::string* error) {
  auto nibble = [](char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
  };
  std::string digits;
  for (char c : text)
    if (c != ' ') digits.push_back(c);
  if (digits.size() % 2 != 0) return *error = "odd number of hex digits: " + text, false;
  for (size_t i = 0; i < digits.size(); i += 2) {
    int hi = nibble(digits[i]);
    int lo = nibble(digits[i + 1]);
    if (hi < 0 || lo < 0) return *error = "not hex: " + text, false;
    out->push_back(char(hi << 4 | lo));
  }
  return true;
}

bool FourChars(const nlohmann::json& v, uint32_t* code, std::string* error) {
  if (!v.is_string() || v.get<std::string>().size() != 4)
    return *error = "expected 4 characters, got " + v.dump(), false;
  std::string s = v.get<std::string>();
  *code = uint32_t(uint8_t(s[0])) << 24 | uint32_t(uint8_t(s[1])) << 16 |
          uint32_t(uint8_t(s[2])) << 8 | uint32_t(uint8_t(s[3]));
  return true;
}

bool Number(const nlohmann::json& object, const char* key, int64_t fallback, int64_t* out,
            std::string* error) {
  auto it = object.find(key);
  if (it == object.end()) return *out = fallback, true;
  if (!it->is_number_integer()) return *error = std::string(key) + " must be an integer", false;
  *out = it->get<int64_t>();
  return true;
}

bool Name(const nlohmann::json& block, const char* key, std::string* body, std::string* error) {
  const nlohmann::json& name = block[key];
  if (!name.is_string()) return *error = std::string(key) + " must be a string", false;
  std::u16string units = ToUTF16(name.get<std::string>());
  int64_t count = 0;
  if (!Number(block, "nameCount", units.empty() ? 0 : int64_t(units.size()) + 1, &count, error))
    return false;
  Put16(body, uint32_t(count));
  for (char16_t u : units) Put16(body, u);
  if (!units.empty()) Put16(body, 0);
  return true;
}

bool Block(const nlohmann::json& block, std::string* out, std::string* error) {
  if (!block.is_object()) return *error = "a block must be an object", false;
  std::string body;
  int64_t type = 0;
  if (block.contains("group")) {
    type = 0xC001;
    if (!Name(block, "group", &body, error)) return false;
  } else if (block.contains("groupEnd")) {
    type = 0xC002;
  } else if (block.contains("swatch")) {
    type = 0x0001;
    if (block.contains("tint")) {
      if (!block["tint"].is_number()) return *error = "tint must be a number", false;
      type = 0x0002;
      Put32(&body, std::bit_cast<uint32_t>(block["tint"].get<float>()));
    }
    if (!Name(block, "swatch", &body, error)) return false;
    uint32_t model = 0;
    if (!FourChars(block.value("model", nlohmann::json()), &model, error)) return false;
    Put32(&body, model);
    const nlohmann::json& values = block.value("values", nlohmann::json::array());
    if (!values.is_array()) return *error = "values must be an array", false;
    for (const nlohmann::json& v : values) {
      if (!v.is_number()) return *error = "values must be numbers", false;
      Put32(&body, std::bit_cast<uint32_t>(v.get<float>()));
    }
    int64_t word = 0;
    if (!Number(block, "type", 0, &word, error)) return false;
    Put16(&body, uint32_t(word));
  } else if (block.contains("raw")) {
    if (!Number(block, "blockType", 0, &type, error)) return false;
    if (!block["raw"].is_string() || !Hex(block["raw"].get<std::string>(), &body, error))
      return *error = error->empty() ? "raw must be a hex string" : *error, false;
  } else {
    return *error = "unknown block: " + block.dump(), false;
  }
  if (block.contains("extra")) {
    if (!block["extra"].is_string() || !Hex(block["extra"].get<std::string>(), &body, error))
      return *error = error->empty() ? "extra must be a hex string" : *error, false;
  }
  int64_t length = 0;
  if (!Number(block, "length", int64_t(body.size()), &length, error)) return false;
  Put16(out, uint32_t(type));
  Put32(out, uint32_t(length));
  *out += body;
  return true;
}

}  // namespace

bool BuildSxf(const nlohmann::json& description, std::string* out, std::string* error) {
  error->clear();
  out->clear();
  if (!description.is_object()) return *error = "the description must be an object", false;
  uint32_t signature = 0;
  if (!FourChars(description.value("signature", nlohmann::json("SXFF")), &signature, error))
    return false;
  const nlohmann::json& blocks = description.value("blocks", nlohmann::json::array());
  if (!blocks.is_array()) return *error = "blocks must be an array", false;
  int64_t major = 0, minor = 0, count = 0, truncate = 0;
  if (!Number(description, "major", 1, &major, error) ||
      !Number(description, "minor", 0, &minor, error) ||
      !Number(description, "blockCount", int64_t(blocks.size()), &count, error) ||
      !Number(description, "truncate", 0, &truncate, error))
    return false;
  Put32(out, signature);
  Put16(out, uint32_t(major));
  Put16(out, uint32_t(minor));
  Put32(out, uint32_t(count));
  for (const nlohmann::json& block : blocks)
    if (!Block(block, out, error)) return false;
  if (truncate < 0 || uint64_t(truncate) > out->size())
    return *error = "truncate is larger than the file", false;
  out->resize(out->size() - size_t(truncate));
  return true;
}

}  // namespace sxfwrite
