#include "pixel_loops.h"

namespace {

bool HasAvx2() {
#if defined(__x86_64__) || defined(__i386__)
  return __builtin_cpu_supports("avx2");
#else
  return false;
#endif
}

}  // namespace

const char* PixelLoopsName(PixelLoops loops) {
  switch (loops) {
    case PixelLoops::Plain:
      return "plain";
    case PixelLoops::Vector128:
      return "vector128";
    case PixelLoops::Avx2:
      return "avx2";
  }
  return "?";
}

std::vector<PixelLoops> AvailablePixelLoops() {
  std::vector<PixelLoops> loops = {PixelLoops::Plain, PixelLoops::Vector128};
  if (HasAvx2()) loops.push_back(PixelLoops::Avx2);
  return loops;
}

PixelLoops ChoosePixelLoops() {
#ifdef QPX_PLAIN_LOOPS
  return PixelLoops::Plain;
#else
  return HasAvx2() ? PixelLoops::Avx2 : PixelLoops::Vector128;
#endif
}
