// Swatch files made from JSON blocks (sxfwrite's shape), the XMP request run
// on them through the host simulator with the plug-in linked in, and the
// packet read back with the toolkit.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/jpeg_util.h"
#include "xmp/toolkit.h"

namespace xmppacket {

// `extra` holds further top-level keys such as "truncate".
std::string SwatchFile(const nlohmann::json& blocks, const nlohmann::json& extra = {});
nlohmann::json Rgb(const std::string& name, double r, double g, double b);
nlohmann::json Swatch(const std::string& name, const char* model, const std::vector<double>& values,
                      int typeWord = 0, std::optional<double> tint = {});
// Appends a group holding the swatches to the blocks.
nlohmann::json& AddGroup(nlohmann::json& blocks, const std::string& name,
                         const nlohmann::json& swatches);

struct Request {
  int16_t result = 0;
  bool handedOver = false;  // the record's XMP handle slot was written
  int32_t handleSize = -1;  // the size asked of the host, -1 if none
  std::string packet;       // the handle's bytes
};
// Runs selector 21 on a file the host typed "SXF ".
Request RunXmpRequest(const std::string& fileBytes, bool newHandleFails = false);
// Fails the test when the request hands no packet over.
std::string PacketOf(const nlohmann::json& blocks, const nlohmann::json& extra = {});

// Read by full paths such as "xmpTPg:SwatchGroups[1]/xmpG:groupName".
class Packet {
 public:
  explicit Packet(const std::string& packet);
  bool Has(const std::string& path) const;
  std::string Text(const std::string& path) const;  // "" when absent
  int32_t Count(const std::string& arrayPath) const;

  struct Page {
    int32_t width = 0, height = 0;
    std::string jpeg;
    jpegtest::Rgb pixels;
  };
  // Fails the test unless every page is numbered in order, says "JPEG" and
  // decodes without warnings at its stated size.
  std::vector<Page> Pages() const;

 private:
  xmptk::XMPMeta meta_;
};

}  // namespace xmppacket
