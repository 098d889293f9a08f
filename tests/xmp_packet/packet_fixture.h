// Swatch files made from JSON blocks, the XMP request run on them through the
// host simulator with the plug-in linked in, and the packet read back.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "host/host_simulator.h"
#include "tests/support/jpeg_util.h"
#include "xmp/toolkit.h"

namespace xmppacket {

// A swatch exchange file holding the blocks (sxfwrite's JSON shape); extra
// top-level keys such as "truncate" may be given in `extra`.
std::string SwatchFile(const nlohmann::json& blocks, const nlohmann::json& extra = {});

// One RGB swatch block.
nlohmann::json Rgb(const std::string& name, double r, double g, double b);

struct Request {
  int16_t result = 0;
  bool handedOver = false;  // the record's XMP handle slot was written
  int32_t handleSize = -1;  // the size asked of the host, -1 if none
  std::string packet;       // the handle's bytes
};

// A session for a file the host typed "SXF ".
pxhost::SessionOptions DefaultOptions();
Request RunXmpRequest(const std::string& fileBytes,
                      const pxhost::SessionOptions& options = DefaultOptions());

// The packet parsed by the toolkit, read by full paths such as
// "xmpTPg:SwatchGroups[1]/xmpG:groupName".
class Packet {
 public:
  explicit Packet(const std::string& packet);
  bool Has(const std::string& path) const;
  std::string Text(const std::string& path) const;  // "" when absent
  double Number(const std::string& path) const;
  int32_t Count(const std::string& arrayPath) const;  // items 1..n present

  struct Page {
    int32_t number = 0, width = 0, height = 0;
    std::string format, jpeg, decodeError;
    jpegtest::Rgb pixels;  // decoded with warnings as failures
  };
  std::vector<Page> Pages() const;

 private:
  xmptk::XMPMeta meta_;
};

// The packet of a swatch file made from the blocks; fails the test when the
// request does not hand one over.
std::string PacketOf(const nlohmann::json& blocks);

}  // namespace xmppacket
