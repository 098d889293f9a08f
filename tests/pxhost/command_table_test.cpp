// The command table and the session helper, in process.
#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <CLI/CLI.hpp>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>

#include "host/host_simulator.h"
#include "pxhost/command_table.h"
#include "pxhost/plugin_requests.h"
#include "sdk/selectors.h"
#include "tests/support/fixture_file.h"

namespace {

std::string Slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// Every command sets up a parser of its own without clashes, and its help
// names its options.
TEST(CommandTable, EveryCommandSetsUpItsParser) {
  std::set<std::string> names;
  for (const pxhost::Command& c : pxhost::Commands()) {
    EXPECT_TRUE(names.insert(c.name).second) << c.name;
    CLI::App app;
    CLI::App* sub = app.add_subcommand(c.name, c.summary);
    pxhost::CommandRun run = c.setUp(*sub);
    EXPECT_TRUE(bool(run)) << c.name;
    EXPECT_NE(sub->help().find("--help"), std::string::npos) << c.name;
  }
  EXPECT_EQ(names.count("help"), 0u);  // pxhost's own
}

int RunArgs(std::vector<const char*> args) {
  args.insert(args.begin(), "pxhost");
  return pxhost::RunPxhost(int(args.size()), args.data());
}

// Usage errors are 2 before any file or module is touched; help is 0.
TEST(CommandTable, UsageErrorsAndHelp) {
  testing::internal::CaptureStderr();
  EXPECT_EQ(RunArgs({}), 2);
  EXPECT_EQ(RunArgs({"frobnicate"}), 2);
  EXPECT_EQ(RunArgs({"identify"}), 2);                        // no FILE
  EXPECT_EQ(RunArgs({"call", "99999", "f"}), 2);              // not a selector
  EXPECT_EQ(RunArgs({"thumbnail", "-s", "9", "a", "b"}), 2);  // below 16
  EXPECT_EQ(RunArgs({"--plugin", "/nonexistent.so", "identify", "x"}), 2);
  std::string errors = testing::internal::GetCapturedStderr();
  EXPECT_NE(errors.find("pxhost: "), std::string::npos);
  testing::internal::CaptureStdout();
  EXPECT_EQ(RunArgs({"help", "preview"}), 0);
  EXPECT_EQ(RunArgs({"--version"}), 0);
  std::string out = testing::internal::GetCapturedStdout();
  EXPECT_NE(out.find("--output"), std::string::npos) << out;
}

// An input says why a file cannot be read and gives the plug-in a
// descriptor it can move about in, standard input included.
TEST(PluginInput, OpensFilesAndSaysWhyNot) {
  std::string error;
  PluginMainProc entry = pxhost::LoadPlugin(QL_MODULE, &error);
  ASSERT_NE(entry, nullptr) << error;
  qltest::DiskFile swatches("s.sxf",
                            Slurp(std::string(QL_SOURCE_DIR) + "/samples/swatches/basic.sxf"));
  std::string dir = std::filesystem::path(swatches.path()).parent_path();
  auto problem = [](const std::string& path) {
    pxhost::PluginInput input(path);
    EXPECT_EQ(input.IsOpen(), input.Error().empty()) << path;
    return input.Error();
  };
  EXPECT_EQ(problem(swatches.path()), "");
  EXPECT_EQ(problem(dir), "is a directory");
  EXPECT_EQ(problem(dir + "/missing"), "no such file");
  EXPECT_EQ(problem("/dev/null"), "not a regular file");
  EXPECT_EQ(problem(swatches.path() + "/below"), "a component of the path is not a directory");

  // Standard input from a pipe: copied so the plug-in can seek in it.
  int pipeEnds[2];
  ASSERT_EQ(pipe(pipeEnds), 0);
  std::string bytes = Slurp(swatches.path());
  ASSERT_LT(bytes.size(), 65536u);  // fits the pipe's buffer: no writer thread needed
  ASSERT_EQ(write(pipeEnds[1], bytes.data(), bytes.size()), ssize_t(bytes.size()));
  close(pipeEnds[1]);
  int savedStdin = dup(STDIN_FILENO);
  dup2(pipeEnds[0], STDIN_FILENO);
  close(pipeEnds[0]);
  {
    pxhost::PluginInput piped("-");
    dup2(savedStdin, STDIN_FILENO);
    close(savedStdin);
    ASSERT_TRUE(piped.IsOpen()) << piped.Error();
    EXPECT_EQ(lseek(piped.Descriptor(), 0, SEEK_END), off_t(bytes.size()));
    lseek(piped.Descriptor(), 0, SEEK_SET);
    std::string why;
    EXPECT_EQ(pxhost::FilterSwatchFile(entry, piped, &why), 0) << why;
  }
}

}  // namespace
