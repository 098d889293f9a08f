// pxhost's contract, driven through the real binary: the same exit codes and
// error lines for every command, JSON Lines, standard input, folder walks,
// and the faults users ran into; then each command as a user runs it.
#include <png.h>
#include <pty.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "pxhost/image_io.h"
#include "tests/support/fixture_file.h"
#include "tools/ql7embed/ql7_writer.h"

namespace {

namespace fs = std::filesystem;
using qltest::Listing;
using qltest::Outcome;

const std::string kSwatches = std::string(QL_SOURCE_DIR) + "/samples/swatches/basic.sxf";
const std::string kTruncated = std::string(QL_SOURCE_DIR) + "/samples/swatches/truncated.sxf";

Outcome Pxhost(const std::string& args) {
  return qltest::Shell(std::string(QL_PXHOST) + " " + args);
}
// Standard output alone.
Outcome PxhostOut(const std::string& args) {
  return qltest::Shell("{ " + std::string(QL_PXHOST) + " " + args + " 2>/dev/null; }");
}

std::vector<nlohmann::json> JsonLines(const std::string& text) {
  std::vector<nlohmann::json> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(nlohmann::json::parse(line));
  return lines;
}

std::string Vector(int w, int h) {
  pxhost::RgbImage img{w, h, std::vector<uint8_t>(size_t(w * h * 3), 90)};
  ql7::Options o;
  o.bitsPerPixel = 24;
  return ql7::VectorFile(img, o);
}

bool Has(const Outcome& r, const std::string& text) {
  return r.out.find(text) != std::string::npos;
}

// Every command: 0 when its files were done, 1 with one line per missing or
// unreadable file (the others still done), 2 for a usage error.
TEST(PxhostContract, ExitCodesAreTheSameForEveryCommand) {
  qltest::DiskFile page("page.ps", Vector(4, 3));
  fs::path dir = fs::path(page.path()).parent_path();
  std::string out = (dir / "out.png").string();
  std::string xmpOut = (dir / "out.xmp").string();
  struct Case {
    std::string good, withMissing, withFolder;
  };
  const std::string missing = (dir / "missing.ps").string();
  const std::string folder = dir.string();
  std::vector<Case> cases{
      {"preview " + page.path() + " -o " + out, "preview " + missing + " -o " + out,
       "preview " + folder + " -o " + out},
      {"method " + page.path(), "method " + page.path() + " " + missing,
       "method " + page.path() + " " + folder},
      {"identify " + kSwatches, "identify " + kSwatches + " " + missing,
       "identify " + kSwatches + " " + folder},
      {"xmp " + kSwatches + " -o " + xmpOut, "xmp " + missing, "xmp " + folder},
      {"call 17 " + kSwatches, "call 17 " + missing, "call 17 " + folder},
      {"thumbnail " + page.path() + " " + out, "thumbnail " + missing + " " + out,
       "thumbnail " + folder + " " + out},
  };
  for (const Case& c : cases) {
    Outcome good = Pxhost(c.good);
    EXPECT_EQ(good.status, 0) << c.good << "\n" << good.out;
    Outcome m = Pxhost(c.withMissing);
    EXPECT_EQ(m.status, 1) << c.withMissing << "\n" << m.out;
    EXPECT_TRUE(Has(m, "pxhost: " + missing + ": no such file")) << m.out;
    Outcome f = Pxhost(c.withFolder);
    EXPECT_EQ(f.status, 1) << c.withFolder << "\n" << f.out;
    EXPECT_TRUE(Has(f, "pxhost: " + folder + ": is a directory")) << f.out;
    std::string command = c.good.substr(0, c.good.find(' '));
    EXPECT_EQ(Pxhost(c.good + " --no-such-option").status, 2) << command;
    EXPECT_EQ(Pxhost(command + " --help").status, 0) << command;
    Outcome help = Pxhost("help " + command);
    EXPECT_EQ(help.status, 0) << command;
    EXPECT_TRUE(Has(help, "--help")) << help.out;
  }
  EXPECT_EQ(Pxhost("help frobnicate").status, 2);
  Outcome version = Pxhost("--version");
  EXPECT_EQ(version.status, 0);
  EXPECT_TRUE(Has(version, "pxhost ")) << version.out;
}

// Standard output that cannot be written (a full disk) fails every command
// and help with one line and exit code 2, never a silent 0.
Outcome ToFullDisk(const std::string& args) {
  return qltest::Shell("{ " + std::string(QL_PXHOST) + " " + args + " >/dev/full; }");
}
TEST(PxhostContract, AFailedStandardOutputIsTold) {
  qltest::DiskFile page("page.ps", Vector(2, 2));
  for (const std::string& args : std::vector<std::string>{
           "identify " + kSwatches, "method " + page.path(), "call 17 " + kSwatches, "--help",
           "--version", "help", "help method", "method --help",
           "identify -j 2 " + kSwatches + " " + kSwatches, "palette " + kSwatches}) {
    Outcome r = ToFullDisk(args);
    EXPECT_EQ(r.status, 2) << args;
    EXPECT_EQ(std::count(r.out.begin(), r.out.end(), '\n'), 1) << args << "\n" << r.out;
    EXPECT_EQ(r.out.rfind("pxhost: ", 0), 0u) << args << "\n" << r.out;
  }
  EXPECT_EQ(ToFullDisk("identify " + kSwatches).out,
            "pxhost: standard output: no space left on device\n");
}

// A value pxhost cannot take, or options that would share standard output,
// are usage errors (exit code 2) whose message names what was wrong.
TEST(PxhostContract, BadValuesAreUsageErrorsThatSayWhich) {
  qltest::DiskFile page("page.ps", Vector(2, 2));
  const std::string out = page.path() + ".png";
  struct Case {
    std::string args, says;
  };
  for (const Case& c : std::vector<Case>{
           {"call 2 " + kSwatches + " --file-type SXFFF",
            "--file-type takes a four-character code"},
           {"call 2 " + kSwatches + " --withhold required5", "required5"},
           {"preview --json " + page.path() + " -o -",
            "--json and -o - would share standard output"},
           {"palette --json " + kSwatches, "--json needs -o OUT"},
           {"identify -j 0 " + kSwatches, "--jobs"},
           {"palette " + kSwatches + " -f svg", "svg"},
           {"thumbnail -s 4097 " + page.path() + " " + out, "4097"},
           {"preview " + page.path() + " -o " + page.path() + ".gif",
            "unknown image format (use .png or .ppm)"},
       }) {
    Outcome r = Pxhost(c.args);
    EXPECT_EQ(r.status, 2) << c.args << "\n" << r.out;
    EXPECT_EQ(r.out.rfind("pxhost: ", 0), 0u) << c.args << "\n" << r.out;
    EXPECT_TRUE(Has(r, c.says)) << c.args << "\n" << r.out;
  }
  EXPECT_FALSE(fs::exists(out));
}

// Outputs the file system or the contract refuses: exit code 2, one line
// naming the output and the reason, and nothing left beside it (no
// temporary file, the input untouched).
TEST(PxhostContract, OutputsThatCannotBeWritten) {
  qltest::DiskFile page("page.ps", Vector(2, 2));
  fs::path dir = fs::path(page.path()).parent_path();
  fs::copy_file(kSwatches, dir / "book.sxf");
  const std::string book = (dir / "book.sxf").string();
  fs::create_directory_symlink("loop", dir / "loop");
  fs::create_hard_link(page.path(), dir / "page.png");
  fs::create_directory(dir / "folder");
  // A socket left by some server: it exists, and opening it for writing fails.
  int server = socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const std::string socketPath = (dir / "socket").string();
  ASSERT_LT(socketPath.size(), sizeof address.sun_path);
  std::memcpy(address.sun_path, socketPath.c_str(), socketPath.size());
  ASSERT_EQ(bind(server, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  const std::string pageBytes = Vector(2, 2);
  const std::string isInput = "is also an input; refusing to write over it";
  struct Case {
    std::string command, target, reason;
  };
  std::vector<Case> cases{
      {"preview " + page.path() + " -o ", (dir / "loop/x.png").string(),
       "too many levels of symbolic links"},
      {"preview " + page.path() + " -o ", socketPath, "no such device or address"},
      {"preview " + page.path() + " -o ", (dir / "page.png").string(), isInput},  // a hard link
      {"xmp " + book + " -o ", dir.string() + "/./book.sxf", isInput},
      {"palette " + book + " -o ", dir.string() + "//book.sxf", isInput},
      {"xmp " + book + " -o ", (dir / "folder").string(), "is a directory"},
      {"thumbnail " + page.path() + " ", (dir / "folder").string(), "is a directory"},
  };
  const std::vector<std::string> before = Listing(dir);
  auto check = [&](const Case& c, const fs::path& folder, const std::vector<std::string>& was) {
    Outcome r = Pxhost(c.command + c.target);
    EXPECT_EQ(r.status, 2) << c.command << c.target;
    EXPECT_EQ(r.out, "pxhost: " + c.target + ": " + c.reason + "\n") << c.command;
    EXPECT_EQ(Listing(folder), was) << c.command << c.target;
  };
  for (const Case& c : cases) check(c, dir, before);
  close(server);
  EXPECT_EQ(qltest::Shell("cat " + page.path()).out, pageBytes);
  EXPECT_EQ(qltest::Shell("cmp " + book + " " + kSwatches).status, 0);

  // A read-only file system (a tmpfs mounted read-only, where the machine
  // lets the test mount one).
  fs::path frozen = dir / "frozen";
  fs::create_directories(frozen);
  if (qltest::Shell("mount -t tmpfs -o ro,size=16k qlformat-test " + frozen.string() + " 2>&1")
          .status == 0) {
    check({"preview " + page.path() + " -o ", (frozen / "x.png").string(), "read-only file system"},
          frozen, {});
    qltest::Shell("umount " + frozen.string());
  }
}

// `pxhost help` lists the commands; help on a command names it as typed.
TEST(PxhostContract, HelpNamesCommandsAsTyped) {
  Outcome r = PxhostOut("help");
  EXPECT_EQ(r.status, 0);
  for (const char* command :
       {"preview", "method", "identify", "xmp", "call", "thumbnail", "palette"})
    EXPECT_TRUE(Has(r, "  " + std::string(command) + " ")) << r.out;
  EXPECT_FALSE(Has(r, "Usage: pxhost help")) << r.out;  // not the help command's own usage
  EXPECT_TRUE(Has(PxhostOut("help preview"), "Usage: pxhost preview [OPTIONS]"));
  EXPECT_TRUE(Has(PxhostOut("preview --help"), "Usage: pxhost preview [OPTIONS]"));
}

// A folder is refused as every command refuses it, before the suite is
// asked, and a relative path whose first component is one character long is
// examined like any other.
TEST(PxhostContract, MethodOnFoldersAndShortRelativePaths) {
  qltest::DiskFile anchor("anchor", "");
  fs::path dir = fs::path(anchor.path()).parent_path();
  fs::create_directories(dir / "a");
  { std::ofstream(dir / "a/b.ps") << Vector(2, 2); }
  Outcome r = qltest::Shell("cd " + dir.string() + " && " + QL_PXHOST + " method a/b.ps a");
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.out, "a/b.ps: embedded-thumbnail\npxhost: a: is a directory\n");
}

// Reasons a person can act on, from the same readers the plug-in uses.
TEST(PxhostContract, RefusalsSayWhy) {
  qltest::DiskFile notSwatch("fake.sxf", "SXFX not a swatch file at all");
  Outcome r = Pxhost("xmp " + notSwatch.path());
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.out,
            "pxhost: " + notSwatch.path() + ": not a swatch exchange file (bad signature)\n");
  r = Pxhost("xmp " + kTruncated);
  EXPECT_EQ(r.status, 1);
  EXPECT_TRUE(Has(r, ": damaged swatch file: block ")) << r.out;
  EXPECT_TRUE(Has(r, " runs past the end\n")) << r.out;
  // The same file gets the same reason from every command that refuses it.
  for (std::string command : {"palette " + kTruncated, "thumbnail " + kTruncated + " /dev/null"}) {
    Outcome other = Pxhost(command);
    EXPECT_EQ(other.status, 1) << command;
    EXPECT_EQ(other.out, r.out) << command;
  }
  // A refusal whose result code is 0 (no error) gives no code: "result 0"
  // reads like success.
  r = Pxhost("preview " + kSwatches + " -o /dev/null");
  EXPECT_EQ(r.status, 1);
  EXPECT_FALSE(Has(r, "result")) << r.out;

  // Over the reader's 256 MiB limit (a sparse file: no disk space is used).
  qltest::DiskFile big("big.sxf", "SXFF");
  fs::resize_file(big.path(), (uint64_t(256) << 20) + 1);
  r = Pxhost("xmp " + big.path());
  EXPECT_EQ(r.status, 1);
  EXPECT_TRUE(Has(r, ": swatch file over the 256 MiB limit\n")) << r.out;

  // The hexadecimal text cut short, well after the preview's header (the
  // reader does not look for the marker in a last, partial filling).
  std::string page = Vector(40, 40);
  page.resize(page.find("%%BeginData") + 400);
  qltest::DiskFile damaged("damaged.ps", page);
  r = Pxhost("preview " + damaged.path() + " -o " + damaged.path() + ".png");
  EXPECT_EQ(r.status, 1);
  EXPECT_TRUE(Has(r, ": embedded preview damaged (result -30501)")) << r.out;

  // A header whose image the plug-in's buffer cannot hold is refused at read
  // start, with the same code as a file without a preview: the reason says
  // what the plug-in's one pass can tell, no more.
  page = Vector(40, 40);
  page.replace(page.find("%QL7_Thumbnail: 40 40"), 21, "%QL7_Thumbnail: 400 400");
  qltest::DiskFile oversized("oversized.ps", page);
  r = Pxhost("preview " + oversized.path() + " -o " + oversized.path() + ".png");
  EXPECT_EQ(r.status, 1);
  EXPECT_TRUE(Has(r, ": no embedded preview could be read (result -30501)")) << r.out;

  // A swatch book answers the read selectors without describing an image:
  // it has no preview, nothing of it is damaged.
  r = Pxhost("preview " + kSwatches + " -o " + damaged.path() + ".png");
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.out, "pxhost: " + kSwatches + ": no embedded preview\n");
}

// --json: one object per input, good, refused and missing alike; a name that
// is not UTF-8 has its bad bytes replaced by U+FFFD.
TEST(PxhostContract, JsonLinesTellEveryFile) {
  qltest::DiskFile page("page.ps", Vector(3, 3));
  qltest::DiskFile plain("plain.ps", "%!PS-Adobe-3.0\nshowpage\n");
  fs::path dir = fs::path(page.path()).parent_path();
  std::string missing = (dir / "missing.ps").string();
  std::string files = page.path() + " " + plain.path() + " " + missing;

  auto lines =
      JsonLines(PxhostOut("preview --json " + files + " -o " + dir.string() + "/out/").out);
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_EQ(lines[0]["ok"], true);
  EXPECT_EQ(lines[0]["result"]["width"], 3);
  EXPECT_EQ(lines[1]["ok"], false);
  EXPECT_EQ(lines[1]["error"], "no embedded preview could be read (result -30501)");
  EXPECT_EQ(lines[2]["file"], missing);
  EXPECT_EQ(lines[2]["error"], "no such file");

  lines = JsonLines(PxhostOut("method --json " + files).out);
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_EQ(lines[0]["result"]["method"], "embedded-thumbnail");
  EXPECT_EQ(lines[2]["ok"], false);

  lines = JsonLines(PxhostOut("identify --json " + kSwatches + " " + files).out);
  ASSERT_EQ(lines.size(), 4u);
  EXPECT_EQ(lines[0]["result"]["swatchExchangeFile"], true);
  EXPECT_EQ(lines[1]["result"]["swatchExchangeFile"], false);
  EXPECT_EQ(lines[3]["ok"], false);

  lines = JsonLines(PxhostOut("call --json 2 " + plain.path() + " --no-preview-open").out);
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0]["error"], "refused by the plug-in (result -30501)");

  std::string packet = (dir / "p.xmp").string();
  lines = JsonLines(PxhostOut("xmp --json " + kSwatches + " -o " + packet).out);
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0]["result"]["output"], packet);
  EXPECT_EQ(Pxhost("xmp --json " + kSwatches).status, 2);  // would share standard output

  std::string odd = (dir / "caf\xe9.sxf").string();
  fs::copy_file(kSwatches, odd);
  Outcome r = PxhostOut("identify --json '" + odd + "'");
  EXPECT_EQ(r.status, 0);
  lines = JsonLines(r.out);
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0]["file"], (dir / "caf\xef\xbf\xbd.sxf").string());
}

// "-" reads standard input, piped or redirected; -o - writes standard output.
TEST(PxhostContract, StandardInputAndOutput) {
  Outcome direct = PxhostOut("xmp " + kSwatches);
  ASSERT_EQ(direct.status, 0);
  EXPECT_EQ(PxhostOut("xmp - < " + kSwatches).out, direct.out);
  EXPECT_EQ(qltest::Shell("cat " + kSwatches + " | " + QL_PXHOST + " xmp - 2>/dev/null").out,
            direct.out);
  EXPECT_EQ(qltest::Shell("cat " + kSwatches + " | " + QL_PXHOST + " identify -").out,
            "-: swatch exchange file\n");
  qltest::DiskFile page("page.ps", Vector(5, 2));
  Outcome png = qltest::Shell("cat " + page.path() + " | " + QL_PXHOST + " preview - -o -");
  ASSERT_EQ(png.status, 0);
  EXPECT_EQ(png.out.substr(0, 4), "\x89PNG");
  // -- ends the options: a file named like an option is a file.
  fs::path dir = fs::path(page.path()).parent_path();
  fs::copy_file(kSwatches, dir / "--json");
  Outcome r = qltest::Shell("cd " + dir.string() + " && " + QL_PXHOST + " identify -- --json");
  EXPECT_EQ(r.out, "--json: swatch exchange file\n");
}

// -r walks folders in name order, --ext filters, symbolic links only with -L.
TEST(PxhostContract, FolderWalks) {
  qltest::DiskFile anchor("anchor.txt", "");
  fs::path dir = fs::path(anchor.path()).parent_path();
  fs::create_directories(dir / "b");
  fs::create_directories(dir / "elsewhere");
  fs::copy_file(kSwatches, dir / "b/one.SXF");
  fs::copy_file(kSwatches, dir / "elsewhere/linked.sxf");
  { std::ofstream(dir / "a.ps") << Vector(2, 2); }
  fs::create_directory_symlink(dir / "elsewhere", dir / "b/link");
  Outcome r =
      PxhostOut("identify -r --ext sxf,ps " + (dir / "a.ps").string() + " " + (dir / "b").string());
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, (dir / "a.ps").string() + ": not a swatch exchange file (bad signature)\n" +
                       (dir / "b/one.SXF").string() + ": swatch exchange file\n");
  r = PxhostOut("identify -r -L --ext .sxf " + (dir / "b").string());
  EXPECT_EQ(r.out, (dir / "b/link/linked.sxf").string() + ": swatch exchange file\n" +
                       (dir / "b/one.SXF").string() + ": swatch exchange file\n");
  // A link back up the tree: each folder is entered once.
  fs::create_directory_symlink("..", dir / "elsewhere/up");
  r = PxhostOut("identify -r -L --ext sxf " + (dir / "elsewhere").string());
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, (dir / "elsewhere/linked.sxf").string() + ": swatch exchange file\n" +
                       (dir / "elsewhere/up/b/one.SXF").string() + ": swatch exchange file\n");
}

// "-" is standard input for every command, read once.
TEST(PxhostContract, StandardInputIsReadOnce) {
  Outcome r = qltest::Shell(std::string(QL_PXHOST) + " identify - - < " + kSwatches);
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.out,
            "pxhost: -: standard input is named more than once; it is read once\n"
            "-: swatch exchange file\n");
  qltest::DiskFile page("page.ps", Vector(2, 2));
  r = qltest::Shell("cat " + page.path() + " | " + QL_PXHOST + " method -");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, "-: embedded-thumbnail\n");
  r = qltest::Shell("cat " + page.path() + " | " + QL_PXHOST + " thumbnail - - | head -c 4");
  EXPECT_EQ(r.out, "\x89PNG");
  for (const char* command : {"method", "thumbnail", "identify"})
    EXPECT_TRUE(Has(PxhostOut(std::string(command) + " --help"), "- is standard input")) << command;
}

TEST(PxhostContract, HostilePathsAreReported) {
  qltest::DiskFile page("page.ps", Vector(2, 2));
  std::string longName(300, 'n');
  Outcome r = Pxhost("preview " + page.path() + " -o /tmp/" + longName + ".png");
  EXPECT_EQ(r.status, 2);
  EXPECT_TRUE(Has(r, ": file name too long")) << r.out;
  r = Pxhost("preview " + page.path() + " -o /tmp/" + longName + "/");
  EXPECT_EQ(r.status, 2);
  EXPECT_TRUE(Has(r, "file name too long")) << r.out;
  r = Pxhost("identify /tmp/" + longName);
  EXPECT_EQ(r.status, 1);
  EXPECT_TRUE(Has(r, "file name too long")) << r.out;

  // The longest names a folder takes: the temporary file beside them fits too.
  fs::path dir = fs::path(page.path()).parent_path();
  for (size_t length : {249, 255}) {
    fs::path out = dir / (std::string(length - 4, 'n') + ".png");
    r = Pxhost("preview " + page.path() + " -o " + out.string());
    EXPECT_EQ(r.status, 0) << length << r.out;
    EXPECT_TRUE(fs::exists(out)) << length;
  }
  // A bare name is written in the working folder, its temporary file too.
  r = qltest::Shell("cd " + dir.string() + " && " + QL_PXHOST + " preview page.ps -o bare.png");
  EXPECT_EQ(r.status, 0) << r.out;
  EXPECT_TRUE(fs::is_regular_file(dir / "bare.png"));
  // A name with a line break still gives one line, the name quoted.
  r = Pxhost("identify \"$(printf '" + dir.string() + "/a\\nb')\"");
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.out, "pxhost: \"" + dir.string() + "/a\\nb\": no such file\n");
  // A missing output folder is the output's fault, not a missing input.
  r = Pxhost("palette " + kSwatches + " -o " + (dir / "nodir/x.gpl").string());
  EXPECT_EQ(r.status, 2);
  EXPECT_EQ(r.out, "pxhost: " + (dir / "nodir/x.gpl").string() + ": the output folder " +
                       (dir / "nodir").string() + " does not exist\n");
}

// Root reads and writes everywhere and is not held to process limits: as
// root, what is refused a user is tried as nobody. The command prefix that
// does so ("" when not root, "!" when nobody cannot run pxhost); scratch is
// a folder nobody may write.
std::string AsAUser(const fs::path& scratch) {
  if (geteuid() != 0) return "";
  // An instrumented build adds its counts on exit beside the build's objects,
  // where nobody may not write (and would say so on standard error): nobody's
  // counts go to a folder nobody may write, the one the coverage run merges
  // from when it names one.
  const char* merged = std::getenv("QL_FOREIGN_COUNTS");
  fs::path counts = merged != nullptr ? fs::path(merged) : scratch / "counts";
  fs::create_directories(counts);
  fs::permissions(counts, fs::perms::all | fs::perms::sticky_bit);
  std::string as =
      "setpriv --reuid=65534 --regid=65534 --clear-groups env GCOV_PREFIX=" + counts.string() + " ";
  return qltest::Shell(as + QL_PXHOST + " --version").status == 0 ? as : "!";
}

// What the file system refuses a user.
TEST(PxhostContract, PermissionDenied) {
  qltest::DiskFile page("page.ps", Vector(2, 2));
  fs::path dir = fs::path(page.path()).parent_path();
  fs::permissions(dir, fs::perms::all);  // nobody may reach the files
  std::string as = AsAUser(dir);
  if (as == "!") GTEST_SKIP() << "cannot run pxhost as nobody";
  fs::permissions(page.path(), fs::perms::owner_read | fs::perms::others_read);
  fs::path locked = dir / "locked";
  fs::create_directories(locked);
  fs::permissions(locked, fs::perms::none);
  qltest::DiskFile secret("secret.sxf", "SXFF");
  fs::permissions(secret.path(), fs::perms::none);
  Outcome r =
      qltest::Shell(as + QL_PXHOST + " preview " + page.path() + " -o " + (locked / "x/").string());
  EXPECT_EQ(r.status, 2);
  EXPECT_TRUE(Has(r, (locked / "x/").string() + ": cannot make the folder: permission denied"))
      << r.out;
  fs::permissions(fs::path(secret.path()).parent_path(), fs::perms::all);
  r = qltest::Shell(as + QL_PXHOST + " identify " + secret.path() + " " + page.path());
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.out, "pxhost: " + secret.path() + ": permission denied\n" + page.path() +
                       ": not a swatch exchange file (bad signature)\n");
  // The rendering-method suite opens the file through the XMP toolkit, whose
  // own words stay off the terminal.
  r = qltest::Shell(as + QL_PXHOST + " method " + secret.path());
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.out, "pxhost: " + secret.path() + ": permission denied\n");
  // A file handed over on standard input by someone who may read it: the
  // suite, which takes a path, is given one this user may open.
  if (!as.empty()) {
    qltest::DiskFile handed("handed.ps", Vector(2, 2));
    fs::permissions(handed.path(), fs::perms::owner_read);
    r = qltest::Shell(as + QL_PXHOST + " method - < " + handed.path());
    EXPECT_EQ(r.status, 0) << r.out;
    EXPECT_EQ(r.out, "-: embedded-thumbnail\n");
  }
  // -r names a folder it may not read and goes on with the rest.
  r = qltest::Shell(as + QL_PXHOST + " identify -r --ext ps " + dir.string());
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.out, "pxhost: " + locked.string() + ": permission denied\n" + page.path() +
                       ": not a swatch exchange file (bad signature)\n");
  fs::permissions(locked, fs::perms::owner_all);

  // A shared folder (sticky, like /tmp) lets nobody make a temporary file
  // but not replace another user's file with it. The packet and its pages
  // take their places together or not at all: when the first page cannot,
  // the packet is put back as it was, replaced (nobody's own) or absent.
  if (!as.empty()) {
    fs::path shared = dir / "shared";
    fs::create_directories(shared / "pages");
    for (const fs::path& folder : {shared, shared / "pages"})
      fs::permissions(folder, fs::perms::all | fs::perms::sticky_bit);
    auto put = [](const fs::path& file, const char* text, uid_t owner) {
      std::ofstream(file) << text;
      fs::permissions(file, fs::perms::all);
      ASSERT_EQ(::chown(file.c_str(), owner, owner), 0);
    };
    put(shared / "kept.xmp", "old", 0);
    put(shared / "mine.xmp", "nobody's", 65534);
    put(shared / "pages" / "page-1.jpg", "old page", 0);
    const std::pair<const char*, fs::path> runs[] = {{"kept.xmp", shared / "kept.xmp"},
                                                     {"new.xmp", shared / "pages" / "page-1.jpg"},
                                                     {"mine.xmp", shared / "pages" / "page-1.jpg"}};
    for (const auto& [target, refused] : runs) {
      r = qltest::Shell(as + QL_PXHOST + " xmp " + kSwatches + " -o " + (shared / target).string() +
                        " --pages " + (shared / "pages").string());
      EXPECT_EQ(r.status, 2) << target;
      EXPECT_EQ(r.out, "pxhost: " + refused.string() + ": permission denied\n");
      EXPECT_EQ(Listing(shared), (std::vector<std::string>{"kept.xmp", "mine.xmp", "pages"}));
      EXPECT_EQ(Listing(shared / "pages"), std::vector<std::string>{"page-1.jpg"});
      EXPECT_EQ(qltest::Shell("cat " + (shared / "kept.xmp").string() + " " +
                              (shared / "mine.xmp").string() + " " +
                              (shared / "pages" / "page-1.jpg").string())
                    .out,
                "oldnobody'sold page");
    }
  }
}

// -j: the same lines, exit code and files as a serial run, in input order.
TEST(PxhostContract, ParallelRunsMatchSerialRuns) {
  qltest::DiskFile anchor("anchor", "");
  fs::path dir = fs::path(anchor.path()).parent_path() / "in";
  fs::create_directories(dir / "a");
  fs::create_directories(dir / "b");
  for (int k = 0; k < 6; ++k)
    std::ofstream(dir / ("a/p" + std::to_string(k) + ".ps")) << Vector(3 + k, 2);
  std::ofstream(dir / "b/p1.ps") << Vector(7, 7);  // a name met again: p1-2.png
  std::ofstream(dir / "b/plain.ps") << "%!PS-Adobe-3.0\nshowpage\n";
  fs::copy_file(kSwatches, dir / "b/book.sxf");
  fs::copy_file(kTruncated, dir / "b/cut.sxf");
  std::string inputs = "-r " + dir.string() + " " + (dir / "missing.ps").string();
  for (std::string command : {"identify --json", "method", "preview -o OUT/"}) {
    std::vector<Outcome> runs;
    std::vector<std::vector<std::string>> written;
    for (const char* jobs : {"-j 1", "-j 3"}) {
      fs::path out = dir.parent_path() / (std::string("out") + jobs[3]);
      std::string c = command;
      if (auto at = c.find("OUT"); at != std::string::npos) c.replace(at, 3, out.string());
      runs.push_back(Pxhost(c + " " + jobs + " " + inputs + " 2>&1"));
      written.emplace_back();
      if (fs::exists(out))
        for (const auto& e : fs::directory_iterator(out))
          written.back().push_back(e.path().filename().string() + ":" +
                                   std::to_string(fs::file_size(e.path())));
      std::sort(written.back().begin(), written.back().end());
    }
    EXPECT_EQ(runs[0].status, 1) << command;
    EXPECT_EQ(runs[1].status, runs[0].status) << command;
    std::string serial = runs[0].out;
    if (command[0] == 'p') {
      // The folder's name differs between the runs.
      for (Outcome& r : runs)
        for (size_t at; (at = r.out.find("/out")) != std::string::npos;) r.out.erase(at, 5);
    }
    EXPECT_EQ(runs[1].out, runs[0].out) << command;
    EXPECT_EQ(written[1], written[0]) << command;
    EXPECT_TRUE(Has(runs[0], "missing.ps")) << command;
  }
}

// -j when no worker process can be made (the user may have no more
// processes): the run does the files itself, with the lines and exit code of
// a serial run.
TEST(PxhostContract, ARunWithoutWorkersIsASerialRun) {
  qltest::DiskFile page("page.ps", Vector(3, 2));
  fs::path dir = fs::path(page.path()).parent_path();
  fs::permissions(dir, fs::perms::all);
  std::string as = AsAUser(dir);
  if (as == "!") GTEST_SKIP() << "cannot run pxhost as nobody";
  std::string files = kSwatches + " " + page.path() + " " + (dir / "missing.ps").string() + " " +
                      kTruncated + " 2>&1";
  Outcome serial = Pxhost("identify -j 1 " + files);
  // One process for the user: pxhost itself (the leak checker's helper
  // would be another).
  Outcome limited =
      qltest::Shell(as + "env ASAN_OPTIONS=\"$ASAN_OPTIONS:detect_leaks=0\" prlimit --nproc=1 " +
                    QL_PXHOST + " identify -j 3 " + files);
  EXPECT_EQ(serial.status, 1);
  EXPECT_EQ(limited.status, serial.status) << limited.out;
  EXPECT_EQ(limited.out, serial.out);
}

// Standard error, when a terminal: what pxhost prints there.
std::string OnATerminal(const std::string& command) {
  int terminal = -1;
  pid_t pid = forkpty(&terminal, nullptr, nullptr, nullptr);
  if (pid == 0) {
    execl("/bin/sh", "sh", "-c", command.c_str(), static_cast<char*>(nullptr));
    _exit(127);
  }
  std::string seen;
  char buffer[4096];
  for (ssize_t n; (n = read(terminal, buffer, sizeof buffer)) > 0;) seen.append(buffer, size_t(n));
  close(terminal);
  waitpid(pid, nullptr, 0);
  return seen;
}

// A progress line on a terminal once a run takes over a second, erased at
// the end; none on a short run, and none when standard error is a pipe.
TEST(PxhostContract, ProgressOnlyOnALongRunOnATerminal) {
  std::string names = std::string(QL_SOURCE_DIR) + "/samples/swatches/names.sxf";
  // The middle file is standard input, which arrives after a second and a half.
  std::string slow = "(sleep 1.5; cat " + kSwatches + ") | " + QL_PXHOST + " identify " +
                     kSwatches + " - " + names;
  for (const char* jobs : {" -j 1", " -j 2"}) {
    std::string seen = OnATerminal(slow + jobs + " >/dev/null");
    size_t line = seen.rfind(" of 3 files");
    EXPECT_NE(line, std::string::npos) << jobs << seen;
    EXPECT_NE(seen.find("\r\033[K", line), std::string::npos) << jobs;  // erased
    Outcome piped = qltest::Shell(slow + jobs + " 2>&1 >/dev/null | cat");
    EXPECT_EQ(piped.out, "") << jobs;
  }
  EXPECT_EQ(
      OnATerminal(std::string(QL_PXHOST) + " identify " + kSwatches + " " + names + " >/dev/null"),
      "");
}

}  // namespace

namespace {

// ql7embed writes only what the host can show: a preview of at most
// 128 x 128 pixels, into a PostScript or PDF file named as one.
TEST(Ql7embed, RefusesWhatThePluginWouldNot) {
  qltest::DiskFile anchor("anchor", "");
  fs::path dir = fs::path(anchor.path()).parent_path();
  for (auto [w, h] : {std::pair{129, 1}, std::pair{128, 128}}) {
    std::string png = (dir / ("in" + std::to_string(w) + ".png")).string();
    std::string bytes;
    ASSERT_EQ(pxhost::EncodePng({w, h, std::vector<uint8_t>(size_t(w * h * 3), 7)}, &bytes), "");
    std::ofstream(png, std::ios::binary) << bytes;
    std::string ps = (dir / ("out" + std::to_string(w) + ".ps")).string();
    Outcome r = qltest::Shell(std::string(QL_QL7EMBED) + " " + png + " " + ps);
    EXPECT_EQ(r.status, w > 128 ? 2 : 0) << r.out;
    EXPECT_EQ(fs::exists(ps), w <= 128);
    if (w > 128) {
      EXPECT_TRUE(Has(r, "at most 128 x 128")) << r.out;
    }
  }
  Outcome r = qltest::Shell(std::string(QL_QL7EMBED) + " " + (dir / "in128.png").string() + " " +
                            (dir / "page.svg").string());
  EXPECT_EQ(r.status, 2);
  EXPECT_FALSE(fs::exists(dir / "page.svg"));
}

}  // namespace

namespace {

// Previews of several inputs into one folder: each takes its stem's name,
// and a name already given, or taken by another input's stem, gets the
// lowest free -2, -3, ... ; every picture goes to the name its line tells.
TEST(PxhostContract, PreviewNamesInAFolderAreNumberedInInputOrder) {
  qltest::DiskFile anchor("anchor", "");
  fs::path dir = fs::path(anchor.path()).parent_path();
  fs::path out = dir / "out";
  std::vector<std::string> inputs;
  const char* names[] = {"a/p.ps", "b/p-2.ps", "c/p.ps", "d/p.ps", "e/q.ps"};
  for (int k = 0; k < 5; ++k) {
    fs::path in = dir / names[k];
    fs::create_directories(in.parent_path());
    std::ofstream(in) << Vector(k + 1, 1);  // the width tells the inputs apart
    inputs.push_back(in.string());
  }
  std::string all;
  for (const std::string& in : inputs) all += in + " ";
  for (const char* jobs : {"-j 1", "-j 2"}) {
    fs::remove_all(out);
    Outcome r = PxhostOut(std::string("preview ") + jobs + " " + all + "-o " + out.string() + "/");
    EXPECT_EQ(r.status, 0) << r.out;
    const char* expected[] = {"p.png", "p-2.png", "p-3.png", "p-4.png", "q.png"};
    std::string lines;
    for (int k = 0; k < 5; ++k) {
      lines += inputs[size_t(k)] + ": " + std::to_string(k + 1) + "x1 -> " +
               (out / expected[k]).string() + "\n";
      pxhost::RgbImage image;
      EXPECT_EQ(pxhost::ReadImage((out / expected[k]).string(), &image), "") << expected[k];
      EXPECT_EQ(image.width, k + 1) << expected[k];
    }
    EXPECT_EQ(r.out, lines) << jobs;
    EXPECT_EQ(std::distance(fs::directory_iterator(out), fs::directory_iterator()), 5);
  }
}

}  // namespace

namespace {

pxhost::RgbImage Image(int w, int h) {
  pxhost::RgbImage img{w, h, std::vector<uint8_t>(size_t(w * h * 3))};
  for (size_t k = 0; k < img.pixels.size(); ++k) img.pixels[k] = uint8_t(k * 37);
  return img;
}

TEST(Pxhost, HelpAndUsageErrors) {
  Outcome help = Pxhost("--help");
  EXPECT_EQ(help.status, 0);
  EXPECT_NE(help.out.find("preview"), std::string::npos);
  qltest::DiskFile empty("empty", "");
  EXPECT_EQ(Pxhost("call -1 " + empty.path()).status, 0);  // a selector, not an option
  for (const char* args : {"", "frobnicate x", "call 2", "--plugin /nonexistent.so call 0 x",
                           "preview /dev/null /dev/zero -o /tmp/one.png",  // needs DIR/
                           "call 70000 x", "identify --bogus x", "xmp a b", "thumbnail -s 8 a b"})
    EXPECT_EQ(Pxhost(args).status, 2) << args;
}

TEST(Pxhost, PreviewWritesTheThumbnails) {
  ql7::Options o;
  o.bitsPerPixel = 24;
  qltest::DiskFile file("page.ps", ql7::VectorFile(Image(9, 4), o));
  std::string png = file.path() + ".png";
  Outcome r = Pxhost("preview " + file.path() + " -o " + png);
  ASSERT_EQ(r.status, 0) << r.out;
  pxhost::RgbImage back;
  ASSERT_EQ(pxhost::ReadImage(png, &back), "");
  EXPECT_EQ(std::tuple(back.width, back.height), std::tuple(9, 4));
  EXPECT_EQ(back.pixels, Image(9, 4).pixels);

  // Several files go to a directory; a file without a thumbnail is refused
  // and the others are still written.
  qltest::DiskFile bad("plain.ps", "%!PS-Adobe-3.0\nshowpage\n");
  std::string dir = fs::path(file.path()).parent_path().string() + "/out/";
  r = Pxhost("preview " + file.path() + " " + bad.path() + " -o " + dir);
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(
      r.out.find("pxhost: " + bad.path() + ": no embedded preview could be read (result -30501)"),
      std::string::npos)
      << r.out;
  EXPECT_TRUE(fs::exists(dir + "page.png"));

  // A .ppm output is a binary PPM of the same pixels, whatever the case of
  // its extension.
  std::string ppm = file.path() + ".PPM";
  ASSERT_EQ(Pxhost("preview " + file.path() + " -o " + ppm).status, 0);
  pxhost::RgbImage fromPpm;
  ASSERT_EQ(pxhost::ReadImage(ppm, &fromPpm), "");
  EXPECT_EQ(std::tuple(fromPpm.width, fromPpm.height), std::tuple(9, 4));
  EXPECT_EQ(fromPpm.pixels, Image(9, 4).pixels);
}

// A PNG file as other programs write one: interlaced (Adam7) or not, or
// only its signature and header when rows is false.
std::string PngFile(const pxhost::RgbImage& image, int interlace, bool rows = true) {
  std::string bytes;
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png_create_info_struct(png);
  png_set_write_fn(
      png, &bytes,
      [](png_structp p, png_bytep data, png_size_t size) {
        static_cast<std::string*>(png_get_io_ptr(p))->append(reinterpret_cast<char*>(data), size);
      },
      nullptr);
  png_set_IHDR(png, info, png_uint_32(image.width), png_uint_32(image.height), 8,
               PNG_COLOR_TYPE_RGB, interlace, PNG_COMPRESSION_TYPE_DEFAULT,
               PNG_FILTER_TYPE_DEFAULT);
  png_write_info(png, info);
  png_write_flush(png);
  int passes = png_set_interlace_handling(png);
  for (int pass = 0; rows && pass < passes; ++pass)
    for (int32_t y = 0; y < image.height; ++y)
      png_write_row(png, image.pixels.data() + size_t(y) * size_t(image.width) * 3);
  if (rows) png_write_end(png, nullptr);
  png_destroy_write_struct(&png, &info);
  return bytes;
}

// The pictures the tools read (PNG and binary PPM, by the name's extension in
// any case): what is not one, or is cut short, is refused with a reason, and
// a PPM header's size is checked before anything is allocated from it.
TEST(Pxhost, ReadImageRefusesWhatItCannotRead) {
  std::string png;
  ASSERT_EQ(pxhost::EncodePng(Image(3, 2), &png), "");
  const std::string pixels = "\x01\x02\x03\x04\x05\x06";
  struct Case {
    const char* name;
    std::string bytes, error;
  };
  const Case cases[] = {
      {"c.ppm", "P6\n# made by hand\n2 1\n255\n" + pixels, ""},
      {"u.PNG", png, ""},
      {"t.ppm", "P6 2 1 255\n" + pixels.substr(0, 5), "truncated PPM file"},
      {"a.ppm", "P3\n2 1\n255\n1 2 3 4 5 6\n", "not a binary PPM (P6) file"},
      {"n.ppm", "P6\n2\n", "not a binary PPM (P6) file"},
      {"d.ppm", "P6\n2 1\n65535\n" + pixels + pixels, "only 8-bit PPM files are supported"},
      {"z.ppm", "P6\n0 1\n255\n", "unsupported PPM size"},
      {"h.ppm", "P6\n40000 40000\n255\n" + pixels, "unsupported PPM size"},
      {"i.png", PngFile(Image(3, 2), PNG_INTERLACE_ADAM7), ""},
      {"h.png", PngFile({40000, 40000, {}}, PNG_INTERLACE_NONE, false), "not a readable PNG file"},
      {"x.png", "P6\n2 1\n255\n" + pixels, "not a readable PNG file"},
      {"cut.png", png.substr(0, png.size() - 20), "not a readable PNG file"},
      {"x.gif", png, "unknown image format (use .png or .ppm)"},
  };
  for (const Case& c : cases) {
    qltest::DiskFile file(c.name, c.bytes);
    pxhost::RgbImage image;
    std::string error = pxhost::ReadImage(file.path(), &image);
    EXPECT_EQ(error, c.error.empty() ? "" : file.path() + ": " + c.error) << c.name;
    if (c.error.empty()) {
      bool ppm = c.name[0] == 'c';
      EXPECT_EQ(image.pixels,
                ppm ? std::vector<uint8_t>(pixels.begin(), pixels.end()) : Image(3, 2).pixels)
          << c.name;
      EXPECT_EQ(image.width, ppm ? 2 : 3) << c.name;
    }
  }
  pxhost::RgbImage none;
  EXPECT_EQ(pxhost::ReadImage("/nonexistent.png", &none),
            "/nonexistent.png: No such file or directory");
}

TEST(Pxhost, CallReportsTheWrittenFields) {
  qltest::DiskFile file("page.ps", ql7::VectorFile(Image(6, 2), {}));
  Outcome r = Pxhost("call 3 " + file.path() + " --file-type EPSF --json");
  ASSERT_EQ(r.status, 0) << r.out;
  auto j = nlohmann::json::parse(r.out)["result"];
  EXPECT_EQ(j["code"], 0);
  EXPECT_EQ(j["advanceStateCalls"], 1);
  EXPECT_EQ(j["fields"]["rowStride"], 18);
  EXPECT_EQ(j["fields"]["pixelData"], nullptr);

  for (auto [args, result] : {std::pair{"call 2 --file-type EPSF --no-preview-open", "-30501"},
                              std::pair{"call 0 --withhold advance-state", "-30900"}}) {
    Outcome refused = Pxhost(std::string(args) + " " + file.path());
    EXPECT_EQ(refused.status, 1) << args;
    EXPECT_NE(refused.out.find(std::string("result: ") + result), std::string::npos) << args;
  }
}

TEST(Pxhost, IdentifyAsksThePlugin) {
  qltest::DiskFile vector("page.ps", ql7::VectorFile(Image(2, 2), {}));
  const std::string& swatches = kSwatches;
  Outcome r = Pxhost("identify " + vector.path() + " " + swatches);
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, vector.path() + ": not a swatch exchange file (bad signature)\n" + swatches +
                       ": swatch exchange file\n");
}

TEST(Pxhost, MethodNamesEachFile) {
  ql7::Options pdf;
  pdf.pdf = true;
  pdf.xmpFormat = "application/pdf";
  qltest::DiskFile a("a.pdf", ql7::VectorFile(Image(2, 2), pdf));
  Outcome r = Pxhost("method " + a.path());
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, a.path() + ": pdf\n");
  // A JPEG thumbnail in the XMP, without a PDF format there.
  ql7::Options thumb;
  thumb.pdf = true;
  thumb.xmpJpegThumbnail = true;
  qltest::DiskFile t("t.pdf", ql7::VectorFile(Image(2, 2), thumb));
  EXPECT_EQ(Pxhost("method " + t.path()).out, t.path() + ": xmp-thumbnail\n");
}

std::string Slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// Outputs appear whole or not at all, never over an input, and a device
// stays a device.
TEST(Pxhost, OutputsAreAtomic) {
  qltest::DiskFile file("page.ps", ql7::VectorFile(Image(5, 3), {}));
  fs::path dir = fs::path(file.path()).parent_path();
  std::string original = Slurp(file.path());

  Outcome r = Pxhost("preview " + file.path() + " -o " + file.path());
  EXPECT_EQ(r.status, 2) << r.out;
  EXPECT_EQ(Slurp(file.path()), original);
  r = Pxhost("preview " + file.path() + " -o " + (dir / "page.txt").string());
  EXPECT_EQ(r.status, 2) << r.out;
  qltest::DiskFile plain("plain.ps", "%!PS-Adobe-3.0\nshowpage\n");
  r = Pxhost("preview " + plain.path() + " -o " + (dir / "plain.png").string());
  EXPECT_EQ(r.status, 1) << r.out;
  EXPECT_EQ(Listing(dir), std::vector<std::string>{"page.ps"});

  fs::create_symlink("/dev/full", dir / "full.png");
  r = Pxhost("preview " + file.path() + " -o " + (dir / "full.png").string());
  EXPECT_EQ(r.status, 2) << r.out;
  EXPECT_NE(r.out.find("full.png: no space left on device"), std::string::npos) << r.out;
  EXPECT_TRUE(fs::is_symlink(dir / "full.png"));
  EXPECT_TRUE(fs::is_character_file("/dev/full"));
  EXPECT_EQ(Pxhost("preview " + file.path() + " -o /dev/null").status, 0);
  EXPECT_TRUE(fs::is_character_file("/dev/null"));

  r = Pxhost("preview " + file.path() + " -o - 2>/dev/null");
  ASSERT_EQ(r.status, 0);
  EXPECT_EQ(r.out.substr(0, 4), "\x89PNG");

  // The pages folder cannot be made: the packet is not left behind either.
  const std::string& swatches = kSwatches;
  std::string packet = (dir / "packet.xmp").string();
  r = Pxhost("xmp " + swatches + " -o " + packet + " --pages " + file.path() + "/pages");
  EXPECT_EQ(r.status, 2) << r.out;
  EXPECT_FALSE(fs::exists(packet));
  r = Pxhost("xmp " + swatches + " -o " + packet + " --pages " + (dir / "pages").string());
  EXPECT_EQ(r.status, 0) << r.out;
  EXPECT_TRUE(fs::exists(packet));
  EXPECT_TRUE(fs::exists(dir / "pages/page-1.jpg"));
}

// A device that fills up mid-write (a small tmpfs, mounted where the machine
// lets the test mount one) fails the run and keeps nothing: neither the
// packet nor the pages nor a temporary file, whether the packet (about
// 90 KB) or one of the two pages (about 18 KB each) meets the end of the
// space.
TEST(Pxhost, AFullDeviceKeepsNothing) {
  qltest::DiskFile anchor("anchor", "");
  fs::path small = fs::path(anchor.path()).parent_path() / "small";
  fs::create_directories(small);
  std::string swatches = std::string(QL_SOURCE_DIR) + "/samples/swatches/palette.sxf";
  // A preview of noise: about 48 KB as PNG.
  pxhost::RgbImage noise{128, 128, std::vector<uint8_t>(128 * 128 * 3)};
  uint32_t seed = 1;
  for (uint8_t& v : noise.pixels) v = uint8_t((seed = seed * 1103515245u + 12345u) >> 24);
  qltest::DiskFile noisy("noisy.ps", ql7::VectorFile(noise, {}));
  for (const char* size : {"16k", "112k", "128k"}) {
    if (qltest::Shell("mount -t tmpfs -o size=" + std::string(size) + " qlformat-test " +
                      small.string() + " 2>&1")
            .status != 0)
      GTEST_SKIP() << "mounting a tmpfs needs root";
    Outcome r = Pxhost("xmp " + swatches + " -o " + (small / "packet.xmp").string() + " --pages " +
                       (small / "pages").string());
    std::vector<std::string> left = Listing(small);
    bool pagesEmpty = !fs::exists(small / "pages") || fs::is_empty(small / "pages");
    // An empty file made for the output (as a thumbnailer service makes it)
    // is filled in place; when that fails it is left empty again.
    Outcome inPlace{0, ""};
    if (std::string(size) == "16k") {
      fs::remove_all(small / "pages");
      std::ofstream(small / "made.png").flush();
      inPlace = Pxhost("preview " + noisy.path() + " -o " + (small / "made.png").string());
      EXPECT_EQ(fs::file_size(small / "made.png"), 0u);
      fs::remove(small / "made.png");
    }
    qltest::Shell("umount " + small.string());
    EXPECT_EQ(inPlace.status, std::string(size) == "16k" ? 2 : 0) << inPlace.out;
    EXPECT_EQ(r.status, 2) << size << r.out;
    EXPECT_NE(r.out.find(": no space left on device"), std::string::npos) << size << r.out;
    EXPECT_TRUE(left.empty() || left == std::vector<std::string>{"pages"}) << size << left[0];
    EXPECT_TRUE(pagesEmpty) << size;
  }
}

// An installed copy finds the module relative to itself, in the prefix's
// module folder, and a moved prefix still works; the environment and --plugin
// override it.
TEST(Pxhost, FindsTheModuleRelativeToItself) {
  qltest::DiskFile anchor("anchor", "");
  fs::path prefix = fs::path(anchor.path()).parent_path() / "prefix";
  fs::create_directories(prefix / "bin");
  fs::create_directories(prefix / "lib/qlformat");
  fs::copy_file(QL_PXHOST, prefix / "bin/pxhost");
  const std::string& swatches = kSwatches;
  std::string unset = "env -u PXHOST_PLUGIN ";
  Outcome none = qltest::Shell(unset + (prefix / "bin/pxhost").string() + " identify " + swatches);
  EXPECT_EQ(none.status, 2);
  EXPECT_NE(none.out.find("no plug-in module found"), std::string::npos) << none.out;

  fs::copy_file(QL_MODULE, prefix / "lib/qlformat/qlformat.so");
  fs::path moved = prefix.parent_path() / "moved";
  fs::rename(prefix, moved);
  Outcome r = qltest::Shell(unset + (moved / "bin/pxhost").string() + " identify " + swatches);
  EXPECT_EQ(r.status, 0) << r.out;

  fs::path broken = moved / "broken.so";
  { std::ofstream(broken) << "not a module"; }
  for (std::string how :
       {"PXHOST_PLUGIN=" + broken.string() + " " + (moved / "bin/pxhost").string(),
        (moved / "bin/pxhost").string() + " --plugin " + broken.string()}) {
    Outcome o = qltest::Shell(how + " identify " + swatches);
    EXPECT_EQ(o.status, 2) << how;
    EXPECT_NE(o.out.find("broken.so"), std::string::npos) << o.out;
  }
}

}  // namespace
