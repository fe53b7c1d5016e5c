// A plain DrawPictureFQPX to check the module against, written for obviousness rather than
// speed: every destination pixel computed in turn, row by row and left to right, from its four
// neighbours in the drawn picture, with the truncations and wrapping 32-bit sums of the method.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "picture_bytes.h"

namespace qpxtest {

// The arguments of one DrawPictureFQPX call besides the drawn picture.
struct DrawCall {
  double x = 0;
  double y = 0;
  double alpha = 1.0;
  int32_t yield = 0;
};

// Which picture of a call, if any, is the destination itself: then it is read from the
// destination as drawn so far, a pixel written earlier in the call giving its new value.
enum class SharedWithDestination { None, Picture, Mask };

// The pixels of one call's pictures.
struct DrawScene {
  std::optional<RawPicture> destination;  // nullopt: a nil receiver
  std::optional<RawPicture> picture;      // nullopt: a nil pic
  std::optional<RawPicture> mask;         // the picture's mask, when it has one
  // When the picture or its mask is the destination, the destination's pixels stand for it.
  SharedWithDestination shared = SharedWithDestination::None;
};

// Whether the method draws at (x, y): neither is NaN and both floors lie within the 32-bit range.
bool ReferenceAcceptsPosition(double x, double y);

// The destination after drawing `picture` (its mask null when it has none) at an accepted
// position (x, y) with opacity `alpha`. Each picture is read in its own layout; a mask value is
// its red byte, rows at or past the mask's height reading row 0 and columns at or past its width
// giving 0.
RawPicture ReferenceDrawPicture(const RawPicture& destination, const RawPicture& picture,
                                const RawPicture* mask, SharedWithDestination shared, double x,
                                double y, double alpha);

// What a call must give when the pictures it is given open: its answer, the exception it raises
// (its message), the destination's pixels afterwards and how many times it yields when every
// yield check hands control to the host (a yield argument of 0 never yields).
struct ExpectedDraw {
  bool result = false;
  std::optional<std::string> exceptionMessage;
  std::optional<RawPicture> destination;  // nullopt for a nil receiver
  int yields = 0;
};

ExpectedDraw ExpectedDrawPictureF(const DrawScene& scene, const DrawCall& call);

}  // namespace qpxtest
