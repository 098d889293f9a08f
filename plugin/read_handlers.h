// Read start and read continue for vector files: the embedded thumbnail,
// delivered as an 8-bit RGB image of three interleaved channels.
#pragma once

void DoReadStart();
void DoReadContinue();
