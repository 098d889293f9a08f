#include "pxhost/input_files.h"

#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <system_error>

#include "pxhost/atomic_output.h"

namespace pxhost {
namespace fs = std::filesystem;
namespace {

std::string Lower(std::string s) {
  std::transform(s.begin(), s.end(), s.begin(),
                 [](unsigned char c) { return char(std::tolower(c)); });
  return s;
}

// Extensions compare without case and without a leading dot ("PS", ".ps").
bool ExtensionWanted(const fs::path& path, const std::vector<std::string>& extensions) {
  if (extensions.empty()) return true;
  std::string ext = Lower(path.extension().string());
  for (const std::string& wanted : extensions)
    if (!ext.empty() && !wanted.empty() && Lower(wanted[0] == '.' ? wanted : "." + wanted) == ext)
      return true;
  return false;
}

void Walk(const std::string& folder, const InputOptions& options, Report& report,
          std::vector<std::string>* out) {
  std::error_code ec;
  auto how = fs::directory_options::skip_permission_denied;
  if (options.followLinks) how |= fs::directory_options::follow_directory_symlink;
  std::vector<std::string> found;
  fs::recursive_directory_iterator it(folder, how, ec), end;
  for (; !ec && it != end; it.increment(ec)) {
    std::error_code kindError;
    bool regular = options.followLinks
                       ? it->is_regular_file(kindError)
                       : it->symlink_status(kindError).type() == fs::file_type::regular;
    if (regular && ExtensionWanted(it->path(), options.extensions))
      found.push_back(it->path().string());
  }
  if (ec) report.Refused(folder, SystemReason(ec.value()));
  std::sort(found.begin(), found.end());
  out->insert(out->end(), found.begin(), found.end());
}

}  // namespace

std::vector<std::string> ExpandInputs(const InputOptions& options, Report& report) {
  std::vector<std::string> files;
  for (const std::string& file : options.files) {
    std::error_code ec;
    if (options.recursive && file != "-" && fs::is_directory(file, ec))
      Walk(file, options, report, &files);
    else
      files.push_back(file);
  }
  return files;
}

int Jobs(const InputOptions& options) {
  if (options.jobs > 0) return options.jobs;
  cpu_set_t set;
  if (sched_getaffinity(0, sizeof set, &set) == 0 && CPU_COUNT(&set) > 0) return CPU_COUNT(&set);
  long n = sysconf(_SC_NPROCESSORS_ONLN);
  return n > 0 ? int(n) : 1;
}

}  // namespace pxhost
