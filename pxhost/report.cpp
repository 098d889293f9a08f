#include "pxhost/report.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "pxhost/atomic_output.h"

namespace pxhost {
namespace {

// The errno value of standard output's first failed write: the stream keeps
// only that one failed, not why.
int gStandardOutputError = 0;

}  // namespace

void FlushStandardOutput() {
  if (std::fflush(stdout) != 0 && gStandardOutputError == 0) gStandardOutputError = errno;
}

int FinishStandardOutput(int exitCode) {
  FlushStandardOutput();
  bool failed = std::ferror(stdout) != 0;
  // A file system may report a failed write only when the file is closed.
  // The descriptor is closed, not the stream: the C++ streams flush stdout
  // once more at exit.
  if (::close(STDOUT_FILENO) != 0 && errno != EBADF && !failed) {
    failed = true;
    gStandardOutputError = errno;
  }
  if (!failed) return exitCode;
  // A write made through the C++ stream fails out of sight: no reason kept.
  ErrorLine("standard output",
            gStandardOutputError != 0 ? SystemReason(gStandardOutputError) : "cannot be written");
  return kExitUsage;
}

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

namespace {

// Control characters as C escapes, so that a file or swatch name holding a
// line break still gives one line.
std::string Escaped(const std::string& text, bool* changed) {
  std::string out;
  for (unsigned char c : text) {
    if (c >= 0x20 && c != 0x7F) {
      out += char(c);
      continue;
    }
    *changed = true;
    char escape[8];
    std::snprintf(escape, sizeof escape,
                  c == '\n'   ? "\\n"
                  : c == '\t' ? "\\t"
                  : c == '\r' ? "\\r"
                              : "\\x%02x",
                  c);
    out += escape;
  }
  return out;
}

}  // namespace

void ErrorLine(const std::string& what, const std::string& reason) {
  // A name that had to be escaped is quoted, as git quotes unusual paths, so
  // that it cannot be taken for a name that holds a backslash.
  bool quote = false;
  std::string name = Escaped(what, &quote);
  if (quote) name = "\"" + name + "\"";
  bool unused = false;
  std::fprintf(stderr, "pxhost: %s: %s\n", name.c_str(), Escaped(reason, &unused).c_str());
}

void Report::Done(const std::string& file, const nlohmann::json& result, const std::string& text) {
  if (json_)
    std::fputs(JsonLine({{"file", file}, {"ok", true}, {"result", result}}).c_str(), stdout);
  else if (!text.empty())
    std::fputs((text + "\n").c_str(), stdout);
  FlushStandardOutput();
}

void Report::Failed(const std::string& file, const std::string& reason, int exitCode) {
  // Standard output first, so a reader of both streams sees them in order.
  if (json_) {
    std::fputs(JsonLine({{"file", file}, {"ok", false}, {"error", reason}}).c_str(), stdout);
    FlushStandardOutput();
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
