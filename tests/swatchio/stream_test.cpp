#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "swatchio/classic_file.h"
#include "swatchio/data_filter_stream.h"
#include "tests/support/fixture_file.h"

namespace {

std::string Pattern(size_t size, int seed) {
  std::string s(size, '\0');
  for (size_t i = 0; i < size; ++i) s[i] = char((i * 7 + size_t(seed)) % 253);
  return s;
}

std::string ReadN(DataFilterStream& stream, int32_t n) {
  std::string out(size_t(n), '\0');
  out.resize(size_t(stream.Read(out.data(), n)));
  return out;
}

TEST(DataFilterStreamTest, ConstructionRewindsAndRejectsBadReferences) {
  qltest::MemFile file("0123456789");
  lseek(file.fd(), 6, SEEK_SET);
  DataFilterStream stream(file.fd());
  EXPECT_EQ(stream.IsValid(), 1);
  EXPECT_EQ(ReadN(stream, 4), "0123");

  char buffer[4] = {'x', 'x', 'x', 'x'};
  for (int32_t bad : {-1, 0x7FF0}) {  // negative, and no open file by that number
    DataFilterStream rejected(bad);
    EXPECT_EQ(rejected.IsValid(), 0);
    EXPECT_EQ(rejected.Read(buffer, 4), 0);
    EXPECT_EQ(buffer[0], 'x');
  }
  DataFilterStream unset;
  EXPECT_EQ(unset.IsValid(), 0);
  EXPECT_EQ(unset.Write("ab", 2), 0);
}

TEST(DataFilterStreamTest, EndOfFileAndRefusedSeeks) {
  qltest::MemFile file("abcdef");
  DataFilterStream stream(file.fd());
  EXPECT_EQ(ReadN(stream, 4), "abcd");
  EXPECT_EQ(ReadN(stream, 10), "ef");  // the partial count
  EXPECT_EQ(stream.IsValid(), 1);
  EXPECT_EQ(ReadN(stream, 10), "");

  stream.Seek(classic::fsFromMark, -7);  // before the start: refused
  EXPECT_EQ(stream.IsValid(), 0);
  stream.Seek(classic::fsFromStart, 0);  // a later good seek does not make it valid again
  EXPECT_EQ(ReadN(stream, 2), "");
}

TEST(DataFilterStreamTest, ReadAheadMatchesPlainReads) {
  const std::string a = Pattern(200000, 1);
  const std::string b = Pattern(150000, 2);
  qltest::MemFile fileA(a);
  qltest::MemFile fileB(b);
  DataFilterStream first(fileA.fd());
  DataFilterStream second(fileB.fd());
  size_t atA = 0, atB = 0;
  // Small reads on two descriptors in turn, each window handing over to the other.
  for (int i = 0; i < 300; ++i) {
    int32_t n = 1 + (i * 37) % 700;
    ASSERT_EQ(ReadN(first, n), a.substr(atA, size_t(n))) << i;
    atA += size_t(n);
    ASSERT_EQ(ReadN(second, n), b.substr(atB, size_t(n))) << i;
    atB += size_t(n);
  }
  // Seeks between reads, and a request larger than the window.
  first.Seek(classic::fsFromStart, 70000);
  EXPECT_EQ(ReadN(first, 10), a.substr(70000, 10));
  first.Seek(classic::fsFromMark, -20);
  EXPECT_EQ(ReadN(first, 100000), a.substr(69990, 100000));
  EXPECT_EQ(ReadN(first, 5), a.substr(169990, 5));
  first.Seek(classic::fsFromLEOF, -3);
  EXPECT_EQ(ReadN(first, 9), a.substr(199997));
  EXPECT_EQ(ReadN(second, 3), b.substr(atB, 3));
  // The descriptor's own offset follows the stream's mark when another
  // stream takes the window.
  DataFilterStream again(fileA.fd());
  EXPECT_EQ(ReadN(again, 3), a.substr(0, 3));
}

TEST(DataFilterStreamTest, WriteNeedsAWritableFile) {
  qltest::DiskFile disk("swatches.sxf", "SXFF");
  int readOnly = open(disk.path().c_str(), O_RDONLY);
  ASSERT_GE(readOnly, 0);
  DataFilterStream reading(readOnly);
  EXPECT_EQ(reading.Write("xy", 2), 0);
  EXPECT_EQ(ReadN(reading, 4), "SXFF");
  close(readOnly);

  qltest::MemFile file("");
  DataFilterStream writing(file.fd());
  EXPECT_EQ(writing.Write("hello", 5), 5);
  writing.Seek(classic::fsFromStart, 0);
  EXPECT_EQ(ReadN(writing, 5), "hello");
}

// The classic calls' result codes on descriptors that cannot do what is
// asked: the readers tell a damaged file from an unreadable one by them.
TEST(ClassicFileTest, FailuresGiveTheirResultCodes) {
  using namespace classic;
  qltest::MemFile file("abcdef");
  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  int folder = open("/", O_RDONLY | O_DIRECTORY);
  int full = open("/dev/full", O_WRONLY);
  qltest::DiskFile disk("swatches.sxf", std::string(100000, 's'));
  int writeOnly = open(disk.path().c_str(), O_WRONLY);
  int16_t f = int16_t(file.fd());
  char buffer[70000] = {};
  // Seeks: a mode there is none of, a descriptor that cannot seek, and past
  // the end, which stops there.
  EXPECT_EQ(SetFPos(f, 7, 0), paramErr);
  EXPECT_EQ(SetFPos(int16_t(fds[0]), fsFromStart, 0), rfNumErr);
  EXPECT_EQ(SetFPos(f, fsFromStart, 99), eofErr);
  int32_t count = 1;
  FSRead(f, &count, buffer);
  EXPECT_EQ(count, 0);
  const struct Case {
    const char* what;
    bool write;
    int fd;
    int32_t asked;
    OSErr result;
    int32_t count;  // what the count becomes
  } cases[] = {
      {"read with no file number", false, -1, 1, rfNumErr, 0},
      {"write with no file number", true, -1, 1, rfNumErr, 0},
      {"negative read", false, f, -1, paramErr, 0},
      {"read from a pipe", false, fds[0], 1, rfNumErr, 0},
      {"small read from a folder", false, folder, 10, ioErr, 0},
      {"large read from a folder", false, folder, 70000, ioErr, 0},
      {"small read from a write-only file", false, writeOnly, 10, rfNumErr, 0},
      {"large read from a write-only file", false, writeOnly, 70000, rfNumErr, 0},
      {"negative write", true, f, -1, paramErr, 0},
      {"write to a pipe", true, fds[1], 1, rfNumErr, 0},
      {"write to a full device", true, full, 3, ioErr, 0},
      {"large read, end of file", false, f, 70000, eofErr, 6},
  };
  for (const Case& c : cases) {
    SetFPos(f, fsFromStart, 0);
    count = c.asked;
    OSErr result =
        c.write ? FSWrite(int16_t(c.fd), &count, buffer) : FSRead(int16_t(c.fd), &count, buffer);
    EXPECT_EQ(result, c.result) << c.what;
    EXPECT_EQ(count, c.count) << c.what;
  }
  // A descriptor closed after the calls last used it: the window they keep
  // for it is no proof it is still open.
  int16_t stale = int16_t(dup(file.fd()));
  ASSERT_EQ(SetFPos(stale, fsFromStart, 0), noErr);
  count = 2;
  ASSERT_EQ(FSRead(stale, &count, buffer), noErr);
  close(stale);
  count = 2;
  EXPECT_EQ(FSWrite(stale, &count, "xy"), rfNumErr);
  count = 2;
  EXPECT_EQ(FSRead(stale, &count, buffer), rfNumErr);
  for (int fd : {fds[0], fds[1], folder, full, writeOnly}) close(fd);
}

}  // namespace
