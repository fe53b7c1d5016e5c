// Pictures for fuzzing the picture methods, made in the booted host as the input describes
// them, and the pixels the module's readers see in them.
#pragma once

#include <optional>
#include <string>

#include "fuzz_input.h"
#include "host.h"
#include "host_picture.h"
#include "picture_bytes.h"

namespace qpxfuzz {

// What the input may ask of a picture.
struct PictureRules {
  bool mayBeNil = true;
  bool alphaAllowed = true;
  bool otherDepthAllowed = true;  // 16 bits a pixel: such pictures do not open
  bool unlockableAllowed = true;  // pixels that do not lock, as the host's vector pictures
  bool faultyLockAllowed = true;  // a lock that hands out the other type or no data
  // Pictures 0 pixels wide with rows: qpxtest::ReadRaw copies their empty rows through a null
  // pointer, so readers that use it cannot take them.
  bool emptyRowsAllowed = true;
};

// A picture of 0 to 40 pixels a side, or nil: with or without alpha channel, in the host's
// layout or another one, of another depth or not lockable when the rules allow, its bytes (all
// four of each pixel) random, uniform, taken from the input, or each 0 or 255. Carries one
// reference (the caller's). Appends a line describing it to `log`.
qpxhost::HostPicture* ReadPicture(FuzzInput& input, qpxhost::Host& host, const PictureRules& rules,
                                  const std::string& name, std::string& log);

// Gives `picture` a mask as the input says: none, one of its size or one of another size, of
// another depth or not lockable when the rules allow.
void ReadMask(FuzzInput& input, qpxhost::Host& host, qpxhost::HostPicture& picture,
              const PictureRules& rules, std::string& log);

// The picture's bytes, as qpxtest::ReadRaw reads them but without copying empty rows.
qpxtest::RawPicture BytesOf(qpxhost::HostPicture& picture);

// The pixels a reader of the module sees when it opens `picture`: its own bytes when they lock;
// on a desktop host, a copy in the host's layout when a picture without alpha channel does not
// lock and the reader may copy; nothing when it does not open (nil, an empty picture, another
// depth, pixels that do not lock otherwise).
std::optional<qpxtest::RawPicture> PixelsAsRead(qpxhost::HostPicture* picture,
                                                const qpxhost::HostConfig& host, bool mayCopy);

}  // namespace qpxfuzz
