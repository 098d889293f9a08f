#include "pxhost/input_files.h"

#include <sched.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <set>
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

// The folders a walk has entered, by device and inode: with -L a link back
// up the tree (sub/up -> ..) leads to a folder already seen, entered once.
using Seen = std::set<std::pair<dev_t, ino_t>>;

// Adds the wanted regular files under folder to out. A folder that cannot be
// read is named, and the walk goes on with the rest.
void Walk(const fs::path& folder, const InputOptions& options, Report& report, Seen* seen,
          std::vector<std::string>* out) {
  struct stat st {};
  if (::stat(folder.c_str(), &st) == 0 && !seen->insert({st.st_dev, st.st_ino}).second) return;
  std::error_code ec;
  fs::directory_iterator it(folder, ec), end;
  std::vector<fs::path> folders;
  for (; !ec && it != end; it.increment(ec)) {
    std::error_code kindError;
    fs::file_type type =
        options.followLinks ? it->status(kindError).type() : it->symlink_status(kindError).type();
    if (type == fs::file_type::directory)
      folders.push_back(it->path());
    else if (type == fs::file_type::regular && ExtensionWanted(it->path(), options.extensions))
      out->push_back(it->path().string());
  }
  if (ec) report.Refused(folder.string(), SystemReason(ec.value()));
  std::sort(folders.begin(), folders.end());
  for (const fs::path& sub : folders) Walk(sub, options, report, seen, out);
}

}  // namespace

std::vector<std::string> ExpandInputs(const InputOptions& options, Report& report) {
  std::vector<std::string> files;
  bool standardInputNamed = false;
  for (const std::string& file : options.files) {
    if (file == "-") {
      if (standardInputNamed)
        report.Refused(file, "standard input is named more than once; it is read once");
      else
        files.push_back(file);
      standardInputNamed = true;
      continue;
    }
    std::error_code ec;
    if (options.recursive && fs::is_directory(file, ec)) {
      std::vector<std::string> found;
      Seen seen;
      Walk(file, options, report, &seen, &found);
      std::sort(found.begin(), found.end());
      files.insert(files.end(), found.begin(), found.end());
    } else
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
