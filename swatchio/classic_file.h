// The classic file calls the readers were written against, over a POSIX file
// descriptor: the host's data-fork reference is the descriptor of the file it
// opened for the plug-in. Results are the classic result codes.
#pragma once

#include <cstdint>

namespace classic {

using OSErr = int16_t;

inline constexpr OSErr noErr = 0;
inline constexpr OSErr ioErr = -36;      // I/O error
inline constexpr OSErr eofErr = -39;     // end of file reached
inline constexpr OSErr posErr = -40;     // position before the start of the file
inline constexpr OSErr paramErr = -50;   // negative byte count
inline constexpr OSErr rfNumErr = -51;   // not an open file
inline constexpr OSErr wrPermErr = -61;  // file not open for writing

inline constexpr int16_t fsFromStart = 1;
inline constexpr int16_t fsFromLEOF = 2;
inline constexpr int16_t fsFromMark = 3;

// Moves the file mark. Past the end: the mark stops at the end and eofErr is
// returned; before the start: posErr and the mark is unchanged.
OSErr SetFPos(int16_t refNum, int16_t posMode, int32_t posOff);
// Reads up to *count bytes at the mark; *count becomes the number read, and a
// short read returns eofErr.
OSErr FSRead(int16_t refNum, int32_t* count, void* buffer);
OSErr FSWrite(int16_t refNum, int32_t* count, const void* buffer);

}  // namespace classic
