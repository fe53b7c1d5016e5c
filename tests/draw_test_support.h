// Shared by the DrawPictureFQPX tests: the call, the scene the reference sees, the checks every
// drawing gets, and pictures of given colours.
#pragma once
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "differential.h"
#include "draw_reference.h"
#include "host_fixture.h"
#include "picture_bytes.h"
#include "picture_services.h"
#include "random_pictures.h"

namespace drawtest {

using namespace qpxtest::method_test_names;
using qpxtest::Channels;
using qpxtest::DrawCall;
using qpxtest::DrawScene;
using qpxtest::ExpectedDraw;
using qpxtest::ExpectedDrawPictureF;
using qpxtest::SharedWithDestination;

inline const double kNaN = std::numeric_limits<double>::quiet_NaN();
inline const double kInfinity = std::numeric_limits<double>::infinity();

inline qpxhost::Value PictureValue(HostPicture* picture) {
  return static_cast<HostObject*>(picture);
}

inline std::vector<qpxhost::Value> Arguments(HostPicture* picture, const DrawCall& call) {
  return {PictureValue(picture), call.x, call.y, call.alpha, call.yield};
}

// The pixels of a call's pictures as the reference takes them.
inline DrawScene SceneOf(HostPicture* destination, HostPicture* picture) {
  DrawScene scene;
  if (destination != nullptr) scene.destination = ReadRaw(*destination);
  if (picture != nullptr) scene.picture = ReadRaw(*picture);
  HostPicture* mask = picture != nullptr ? picture->mask : nullptr;
  if (mask != nullptr) scene.mask = ReadRaw(*mask);
  if (picture != nullptr && picture == destination) {
    scene.shared = SharedWithDestination::Picture;
  } else if (mask != nullptr && mask == destination) {
    scene.shared = SharedWithDestination::Mask;
  }
  return scene;
}

// How many times a call makes the host drop its cached rendering of the destination, and of the
// picture's mask when that is another picture.
struct CacheClears {
  int destination = 0;
  int mask = 0;
};

// Those of a call that draws: the destination's and the mask's editors are opened to drop it
// when released, once each (twice for the destination when it is the mask).
inline CacheClears ClearsOfADrawing(HostPicture* destination, HostPicture* picture) {
  if (picture->mask == nullptr) return {1, 0};
  return picture->mask == destination ? CacheClears{2, 0} : CacheClears{1, 1};
}

// Calls DrawPictureFQPX on `destination` with `picture` (either may be nil; the picture, or its
// mask, may be the destination) and checks the answer, the destination's bytes, the exception,
// the yields and the cache clears; that the picture and its mask were only read; that every
// reference, lock and object is as before. Then releases the caller's references to both and
// expects the host to hold nothing.
inline void CheckDrawCall(Host& host, HostPicture* destination, HostPicture* picture,
                          const DrawCall& call, const ExpectedDraw& expected,
                          const CacheClears& clears) {
  HostPicture* mask = picture != nullptr ? picture->mask : nullptr;
  HostPicture* maskApart = mask != destination ? mask : nullptr;
  std::vector<HostPicture*> involved;
  for (HostPicture* p : {destination, picture, mask}) {
    if (p != nullptr && std::find(involved.begin(), involved.end(), p) == involved.end()) {
      involved.push_back(p);
    }
  }
  std::vector<RawPicture> pixelsBefore;
  std::vector<int> refsBefore;
  for (HostPicture* p : involved) {
    pixelsBefore.push_back(ReadRaw(*p));
    refsBefore.push_back(host.RefCount(p));
  }
  const int clearsBefore = destination != nullptr ? destination->clearCacheCount : 0;
  const int maskClearsBefore = maskApart != nullptr ? maskApart->clearCacheCount : 0;
  const int yieldsBefore = host.yieldCount;
  const size_t exceptionsBefore = host.raisedExceptions.size();

  const bool result = host.Call("DrawPictureFQPX", destination, Arguments(picture, call)).boolean;

  EXPECT_EQ(result, expected.result);
  EXPECT_EQ(host.yieldCount - yieldsBefore, expected.yields) << "yields";
  if (destination != nullptr) {
    EXPECT_TRUE(SamePixels(*expected.destination, ReadRaw(*destination))) << "destination";
    EXPECT_EQ(destination->clearCacheCount - clearsBefore, clears.destination) << "cache clears";
  }
  if (maskApart != nullptr) {
    EXPECT_EQ(maskApart->clearCacheCount - maskClearsBefore, clears.mask) << "mask cache clears";
  }
  for (size_t i = 0; i < involved.size(); ++i) {
    HostPicture* p = involved[i];
    if (p != destination) {
      EXPECT_TRUE(SamePixels(pixelsBefore[i], ReadRaw(*p)))
          << (p == picture ? "drawn picture changed" : "mask changed");
    }
    EXPECT_EQ(host.RefCount(p), refsBefore[i]) << "references changed";
    EXPECT_EQ(p->lockCount, 0) << "left locked";
    EXPECT_EQ(p->unmatchedUnlocks, 0) << "unlocked without a lock";
  }
  if (expected.exceptionMessage) {
    EXPECT_EQ(host.raisedExceptions.size(), exceptionsBefore + 1);
    if (host.raisedExceptions.size() == exceptionsBefore + 1) {
      const qpxhost::RaisedException& raised = host.raisedExceptions.back();
      EXPECT_EQ(raised.className,
                host.Lacks("NilObjectException") ? "RuntimeException" : "NilObjectException");
      EXPECT_EQ(raised.message, expected.exceptionMessage);
      EXPECT_EQ(raised.messageEncoding, 0x0600u);
    }
  } else {
    EXPECT_EQ(host.raisedExceptions.size(), exceptionsBefore) << "unexpected exception";
  }

  if (destination != nullptr) host.Unlock(destination);
  if (picture != nullptr && picture != destination) host.Unlock(picture);
  EXPECT_EQ(host.LiveObjectCount(), 0u) << "host objects left";
  EXPECT_THAT(host.problems(), ::testing::IsEmpty());
}

// The call checked against the reference.
inline void CheckDraw(Host& host, HostPicture* destination, HostPicture* picture,
                      const DrawCall& call) {
  const ExpectedDraw expected = ExpectedDrawPictureF(SceneOf(destination, picture), call);
  CheckDrawCall(host, destination, picture, call, expected,
                expected.result ? ClearsOfADrawing(destination, picture) : CacheClears{});
}

// A call that draws and must leave the destination as `expected`, worked out by hand; the
// reference is asked too. Yields after every row and twice more.
inline void CheckDrawn(Host& host, HostPicture* destination, HostPicture* picture, DrawCall call,
                       const RawPicture& expected) {
  call.yield = kYieldEveryCall;
  const DrawScene scene = SceneOf(destination, picture);
  EXPECT_TRUE(SamePixels(expected, *ExpectedDrawPictureF(scene, call).destination))
      << "the reference disagrees with the values worked out by hand";
  CheckDrawCall(host, destination, picture, call,
                {true, std::nullopt, expected, expected.height + 2},
                ClearsOfADrawing(destination, picture));
}

// A call with a nil receiver or picture, which raises an exception and does nothing else.
inline void CheckNilArgument(Host& host, HostPicture* destination, HostPicture* picture,
                             const DrawCall& call) {
  CheckDrawCall(host, destination, picture, call,
                ExpectedDrawPictureF(SceneOf(destination, picture), call), {});
}

// A call that answers false and leaves the destination as it was, without yielding.
inline void CheckNotDrawn(Host& host, HostPicture* destination, HostPicture* picture, DrawCall call,
                          const CacheClears& clears = {}) {
  call.yield = kYieldEveryCall;
  ExpectedDraw expected;
  if (destination != nullptr) expected.destination = ReadRaw(*destination);
  CheckDrawCall(host, destination, picture, call, expected, clears);
}

// --- Pictures with given colours ------------------------------------------------------------

// A picture whose pixels have these colours, row by row (alpha 255).
inline HostPicture* Painted(Host& host, int32_t width, int32_t height,
                            const std::vector<Channels>& pixels,
                            const PictureOptions& options = {}) {
  HostPicture* picture = qpxhost::NewHostPicture(host, width, height, options);
  for (int32_t y = 0; y < height; ++y) {
    for (int32_t x = 0; x < width; ++x) {
      const Channels& c = pixels[size_t(y) * width + x];
      picture->Set(x, y, {uint8_t(c.red), uint8_t(c.green), uint8_t(c.blue), 255});
    }
  }
  return picture;
}

// A picture of random bytes, all four of each pixel, made with these options.
inline HostPicture* NoisePicture(Host& host, int32_t width, int32_t height,
                                 const PictureOptions& options, uint32_t seed) {
  HostPicture* picture = qpxhost::NewHostPicture(host, width, height, options);
  std::mt19937 rng(seed);
  for (int32_t y = 0; y < height; ++y) {
    for (int32_t x = 0; x < 4 * width; ++x) picture->Row(y)[x] = uint8_t(rng());
  }
  return picture;
}

inline HostPicture* Solid(Host& host, int32_t width, int32_t height, Channels colour) {
  return Painted(host, width, height, std::vector<Channels>(size_t(width) * height, colour));
}

// Grey pixels of these values, row by row.
inline std::vector<Channels> Greys(const std::vector<int>& values) {
  std::vector<Channels> pixels;
  for (int v : values) pixels.push_back({v, v, v});
  return pixels;
}

// A mask of these values (0 opaque, 255 transparent), grey, given to `picture`, which takes the
// mask's one reference.
inline HostPicture* GiveMask(Host& host, HostPicture* picture, int32_t width, int32_t height,
                             const std::vector<int>& values) {
  picture->mask = Painted(host, width, height, Greys(values));
  return picture->mask;
}

inline Channels ColourAt(const RawPicture& raw, int32_t x, int32_t y) {
  return qpxtest::ReadChannels(raw.Pixel(x, y), raw.format);
}

inline void SetColour(RawPicture& raw, int32_t x, int32_t y, Channels colour) {
  qpxtest::WriteOpaque(raw.Pixel(x, y), raw.format, colour);
}

// `raw` with every pixel stored opaque in colour(x, y).
template <typename Colour>
inline RawPicture Repainted(RawPicture raw, Colour colour) {
  for (int32_t y = 0; y < raw.height; ++y) {
    for (int32_t x = 0; x < raw.width; ++x) SetColour(raw, x, y, colour(x, y));
  }
  return raw;
}

// Every pixel stored afresh with its own colour, as a call that reaches none of them leaves it.
inline RawPicture Opaque(const RawPicture& raw) {
  return Repainted(raw, [&](int32_t x, int32_t y) { return ColourAt(raw, x, y); });
}

// Every pixel stored opaque in these colours, row by row.
inline RawPicture Recoloured(const RawPicture& raw, const std::vector<Channels>& colours) {
  return Repainted(raw, [&](int32_t x, int32_t y) { return colours[size_t(y) * raw.width + x]; });
}

// `destination` (as Opaque) with the pixels of the width x height rectangle at (left, top),
// clipped to it, coloured `colour(x, y)`, (x, y) counted from the rectangle's corner.
template <typename Colour>
inline RawPicture WithRectangle(const RawPicture& destination, int32_t left, int32_t top,
                                int32_t width, int32_t height, Colour colour) {
  RawPicture out = Opaque(destination);
  for (int32_t y = std::max(0, -top); y < height && top + y < out.height; ++y) {
    for (int32_t x = std::max(0, -left); x < width && left + x < out.width; ++x) {
      SetColour(out, left + x, top + y, colour(x, y));
    }
  }
  return out;
}

// The same with one colour throughout the rectangle.
inline RawPicture WithRectangle(const RawPicture& destination, int32_t left, int32_t top,
                                int32_t width, int32_t height, Channels colour) {
  return WithRectangle(destination, left, top, width, height,
                       [colour](int32_t, int32_t) { return colour; });
}

}  // namespace drawtest
