// Opening a plug-in session on one input file, the way every pxhost command
// does: the file is checked first so a person is told why it cannot be read,
// "-" is standard input, and the session owns the descriptor it reads.
#pragma once

#include <memory>
#include <string>

#include "host/host_simulator.h"

namespace pxhost {

// Why path cannot be read as a file, in words a person can act on ("no such
// file", "is a directory", "permission denied", "not a regular file"), or
// empty when it can. Never throws.
std::string InputProblem(const std::string& path);

class FileSession {
 public:
  // Opens path ("-": standard input, copied to memory when it cannot seek)
  // and a session over it. On failure session() is null and Error() says why.
  FileSession(PluginMainProc entry, const std::string& path, const SessionOptions& options);
  ~FileSession();
  FileSession(const FileSession&) = delete;
  FileSession& operator=(const FileSession&) = delete;

  HostSession* session() { return session_.get(); }
  const std::string& Error() const { return error_; }
  // The open descriptor (for the host's own diagnosis of a refused file).
  int Descriptor() const { return fd_; }

 private:
  int fd_ = -1;
  std::string error_;
  std::unique_ptr<HostSession> session_;
};

// Asks the plug-in for the swatch packet of the file behind an open session:
// the filter call, then the XMP request. The packet's bytes, or false with
// the reason a person reads (the reader's own diagnosis of a refused file).
bool RequestSwatchPacket(FileSession& opened, std::string* packet, std::string* reason);

}  // namespace pxhost
