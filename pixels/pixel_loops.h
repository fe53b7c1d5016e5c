// Which version of the pixel loops a method runs. Every version gives the same bytes: a vector
// lane does the plain loop's operations in the plain loop's order. The version is chosen once
// per call from the processor's features, never assumed at build time.
#pragma once

#include <vector>

enum class PixelLoops {
  Plain,      // one value at a time
  Vector128,  // 128-bit vectors: SSE2 on x86, NEON on ARM64, in every processor's baseline
  Avx2,       // 256-bit vectors on x86 processors that have AVX2
};

const char* PixelLoopsName(PixelLoops loops);
// The versions this processor can run, Plain first.
std::vector<PixelLoops> AvailablePixelLoops();
// The widest version this processor can run; always Plain in a build with QPX_PLAIN_LOOPS.
PixelLoops ChoosePixelLoops();
