#include "pxhost/report.h"

#include <cstdio>

namespace pxhost {

std::string JsonLine(const nlohmann::json& value) {
  return value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}

std::string FourCCText(uint32_t code) {
  std::string text;
  for (int shift = 24; shift >= 0; shift -= 8) {
    unsigned char c = (code >> shift) & 0xFF;
    text += c >= 0x20 && c < 0x7F ? char(c) : '?';
  }
  return text;
}

void ErrorLine(const std::string& what, const std::string& reason) {
  std::fprintf(stderr, "pxhost: %s: %s\n", what.c_str(), reason.c_str());
}

void Report::Done(const std::string& file, const nlohmann::json& result, const std::string& text) {
  if (json_)
    std::fputs(JsonLine({{"file", file}, {"ok", true}, {"result", result}}).c_str(), stdout);
  else if (!text.empty())
    std::fputs((text + "\n").c_str(), stdout);
  std::fflush(stdout);
}

void Report::Failed(const std::string& file, const std::string& reason, int exitCode) {
  // Standard output first, so a reader of both streams sees them in order.
  if (json_) {
    std::fputs(JsonLine({{"file", file}, {"ok", false}, {"error", reason}}).c_str(), stdout);
    std::fflush(stdout);
  }
  ErrorLine(file, reason);
  Include(exitCode);
}

void Report::Refused(const std::string& file, const std::string& reason) {
  Failed(file, reason, kExitRefused);
}

void Report::OutputFailed(const std::string& file, const std::string& reason) {
  Failed(file, reason, kExitUsage);
}

void Report::Unexpected(const std::string& file, const std::string& reason) {
  Failed(file, reason, kExitUsage);
}

}  // namespace pxhost
