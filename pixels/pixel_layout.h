// The one place that knows the channel layouts of the editors' pixelFormat codes. Methods are
// written as templates over a read layout and a store layout and reach them through
// WithLayouts, so no pixel loop tests a format code.
//
// Codes (4 bytes a pixel, byte 0 at the lowest address): 1, 3, 5 = R, G, B, A (or a skipped
// byte); 2, 4, 6 = A, R, G, B; 8 = B, G, R and a byte without colour (console and web).
#pragma once

#include <cstdint>

#include "picture_editor.h"

constexpr int32_t kBytesPerPixel = 4;

// Reading a pixel gives red, green and blue from fixed byte positions; the fourth byte (alpha
// or filler) is never read. Codes without a layout read nothing: 0 for every channel.
template <int R, int G, int B>
struct ReadBytes {
  static constexpr bool kReads = true;
  static constexpr int kRed = R, kGreen = G, kBlue = B;
  static uint32_t Red(const uint8_t* p) { return p[R]; }
  static uint32_t Green(const uint8_t* p) { return p[G]; }
  static uint32_t Blue(const uint8_t* p) { return p[B]; }
};
using ReadRGBx = ReadBytes<0, 1, 2>;  // codes 1, 3, 5
using ReadxRGB = ReadBytes<1, 2, 3>;  // codes 2, 4, 6
using ReadBGRx = ReadBytes<2, 1, 0>;  // code 8
struct ReadNothing {
  static constexpr bool kReads = false;
  static uint32_t Red(const uint8_t*) { return 0; }
  static uint32_t Green(const uint8_t*) { return 0; }
  static uint32_t Blue(const uint8_t*) { return 0; }
};

// Storing a pixel writes all four bytes: results are opaque (alpha 255), and code 8 keeps its
// colourless fourth byte 0. Codes without a layout store nothing, and a sequential writer does
// not move past the pixel it did not store.
template <int R, int G, int B, int Fourth, uint8_t FourthValue>
struct StoreBytes {
  static constexpr bool kStores = true;
  static constexpr int kRed = R, kGreen = G, kBlue = B, kFourth = Fourth;
  static constexpr uint8_t kFourthValue = FourthValue;
  static void Store(uint8_t* p, uint8_t r, uint8_t g, uint8_t b) {
    p[R] = r;
    p[G] = g;
    p[B] = b;
    p[Fourth] = FourthValue;
  }
};
using StoreRGBA = StoreBytes<0, 1, 2, 3, 255>;  // codes 1, 3, 5
using StoreARGB = StoreBytes<1, 2, 3, 0, 255>;  // codes 2, 4, 6
using StoreBGR0 = StoreBytes<2, 1, 0, 3, 0>;    // code 8
struct StoreNothing {
  static constexpr bool kStores = false;
  static void Store(uint8_t*, uint8_t, uint8_t, uint8_t) {}
};

// The read layout of the code a store layout writes: a picture changed in place is read and
// stored in its own layout.
template <class Out>
struct ReadOfStore {
  using type = ReadBytes<Out::kRed, Out::kGreen, Out::kBlue>;
};
template <>
struct ReadOfStore<StoreNothing> {
  using type = ReadNothing;
};
template <class Out>
using ReadOf = typename ReadOfStore<Out>::type;

// The byte that holds red in a pixel of `pixelFormat`, or -1 for codes without a layout. A
// mask's value is its red byte.
constexpr int RedByte(int32_t pixelFormat) {
  switch (pixelFormat) {
    case 1:
    case 3:
    case 5:
      return ReadRGBx::kRed;
    case 2:
    case 4:
    case 6:
      return ReadxRGB::kRed;
    case kPixelFormatConsole:
      return ReadBGRx::kRed;
    default:
      return -1;
  }
}

// Whether a read layout and a store layout put red, green and blue at the same bytes, so that
// a loop may carry whole pixels over and only set the fourth byte afterwards.
template <class In, class Out>
constexpr bool SameChannelBytes() {
  if constexpr (In::kReads && Out::kStores) {
    return In::kRed == Out::kRed && In::kGreen == Out::kGreen && In::kBlue == Out::kBlue;
  } else {
    return false;
  }
}

namespace pixel_layout_detail {

template <class In, class F>
decltype(auto) WithStoreLayout(int32_t writerFormat, F&& f) {
  switch (writerFormat) {
    case 1:
    case 3:
    case 5:
      return f.template operator()<In, StoreRGBA>();
    case 2:
    case 4:
    case 6:
      return f.template operator()<In, StoreARGB>();
    case kPixelFormatConsole:
      return f.template operator()<In, StoreBGR0>();
    default:
      return f.template operator()<In, StoreNothing>();
  }
}

}  // namespace pixel_layout_detail

// Calls f.template operator()<In, Out>() with the read layout of `readerFormat` and the store
// layout of `writerFormat`: one instantiation per pair, chosen once per call.
template <class F>
decltype(auto) WithLayouts(int32_t readerFormat, int32_t writerFormat, F&& f) {
  using pixel_layout_detail::WithStoreLayout;
  switch (readerFormat) {
    case 1:
    case 3:
    case 5:
      return WithStoreLayout<ReadRGBx>(writerFormat, f);
    case 2:
    case 4:
    case 6:
      return WithStoreLayout<ReadxRGB>(writerFormat, f);
    case kPixelFormatConsole:
      return WithStoreLayout<ReadBGRx>(writerFormat, f);
    default:
      return WithStoreLayout<ReadNothing>(writerFormat, f);
  }
}
