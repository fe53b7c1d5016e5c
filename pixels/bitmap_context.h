// Reading a desktop picture's bitmap context. The platform file behind it reaches the six
// bitmap-context functions; where they cannot be reached, reading fails.
#pragma once

#include <cstddef>
#include <cstdint>

struct BitmapContextInfo {
  void* data = nullptr;
  size_t bitsPerPixel = 0;
  size_t width = 0;
  size_t height = 0;
  size_t bytesPerRow = 0;
  uint32_t alphaInfo = 0;
};

// False when the platform's bitmap-context functions are not available.
bool ReadBitmapContext(void* context, BitmapContextInfo* info);

// Releases a platform pixel map ("UnlockPixels"); does nothing where that function is missing.
void UnlockPixelMap(void* pixelMap);
