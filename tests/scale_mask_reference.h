// A plain reference of ScaleImageAndMaskQPX, built on the resizers of scale_reference.h and on
// what the emulated host does when it makes, draws and copies pictures and masks.
#pragma once

#include <optional>
#include <vector>

#include "differential.h"
#include "host_config.h"
#include "host_picture.h"
#include "picture_bytes.h"
#include "scale_reference.h"

namespace qpxtest {

// A receiver as the reference takes it. It and its mask open for reading when they are at least
// 1 x 1 and 32 bits deep (a mask must also be lockable).
struct MaskedSource {
  RawPicture pixels;                 // its bytes, in its own layout
  std::vector<qpxhost::RGBA> shown;  // every pixel as the host shows it, row by row
  bool hasAlpha = false;             // whether it has an alpha channel
  std::optional<RawPicture> mask;    // its own mask, of any size
  // The bytes a resizer reads when it opens the receiver and its mask: their own, or for a
  // desktop picture without alpha channel that does not lock, those of the copy the host draws
  // of it (opaque, in the host's new-picture layout); 0 x 0 when it does not open.
  RawPicture read;
  std::optional<RawPicture> maskRead;
};

// The receiver's bytes, colours, alpha channel and mask, in a host configured as `host`.
MaskedSource ReadMaskedSource(qpxhost::HostPicture& receiver, const qpxhost::HostConfig& host);

// What ScaleImageAndMaskQPX gives in a host configured as `host` (the services and method
// declarations it lacks included) for `source` (nil for a nil receiver), and how many times it
// yields when every yield check hands control to the host:
// - the same size: the receiver itself, no yield;
// - without alpha channel (or when the host cannot tell), the image and then the mask resized
//   by one resizer: the enlargement when anti-aliasing is asked for and the receiver grows both
//   ways, which yields 3 + 4 x height a picture; otherwise, or when the image cannot be enlarged,
//   the box resizer, which yields height + 1 a picture (1 when it cannot resize). A mask that
//   cannot be resized leaves the result without one, and the box resizer does not stand in for
//   a failed enlargement of the mask. The resized mask is drawn into a new mask of the result;
// - with an alpha channel, the same for a new picture of the requested size (nil, without a
//   yield, when the host cannot make it) into which the host drew the receiver at its own
//   scale, holding a copy of the receiver's mask or one made from its alpha (255 - alpha); the
//   resizer is still chosen on the receiver's size.
ExpectedResult ExpectedScaleImageAndMask(const MaskedSource* source,
                                         const qpxhost::HostConfig& host, const ScaleCall& call);

}  // namespace qpxtest
