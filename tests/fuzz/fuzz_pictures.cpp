#include "fuzz_pictures.h"

#include "picture_services.h"
#include "random_pictures.h"

namespace qpxfuzz {
namespace {

using qpxhost::HostPicture;

constexpr int32_t kMaxSide = 40;

// Flags of a picture's first byte.
constexpr uint8_t kAlpha = 0x01;
constexpr uint8_t kOddPixelsShift = 1;  // 2 bits: 2 another depth, 3 not lockable
constexpr uint8_t kOwnLayout = 0x08;
constexpr uint8_t kFillShift = 4;      // 2 bits: the Fill
constexpr uint8_t kFaultyLock = 0x40;  // its lock hands out the other type, or no data
constexpr uint8_t kNil = 0x80;

enum class Fill { Noise, Uniform, FromInput, Extremes };

uint64_t SplitMix(uint64_t& state) {
  uint64_t z = (state += 0x9E3779B97F4A7C15ull);
  z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
  z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
  return z ^ (z >> 31);
}

// Sets every byte of the picture's rows as `fill` says, reading what it needs from the input.
std::string FillPixels(FuzzInput& input, HostPicture& picture, Fill fill) {
  const uint32_t word = fill == Fill::FromInput ? 0 : input.Word();
  uint64_t state = word;
  for (int32_t y = 0; y < picture.height; ++y) {
    uint8_t* row = picture.Row(y);
    for (int32_t i = 0; i < 4 * picture.width; ++i) {
      switch (fill) {
        case Fill::Noise:
          row[i] = static_cast<uint8_t>(SplitMix(state));
          break;
        case Fill::Uniform:
          row[i] = static_cast<uint8_t>(word >> (8 * (i % 4)));
          break;
        case Fill::FromInput:
          row[i] = input.Byte();
          break;
        case Fill::Extremes:
          row[i] = (SplitMix(state) & 1) != 0 ? 255 : 0;
          break;
      }
    }
  }
  switch (fill) {
    case Fill::Noise:
      return "noise " + std::to_string(word);
    case Fill::Uniform:
      return "uniform " + std::to_string(word);
    case Fill::FromInput:
      break;
    case Fill::Extremes:
      return "extremes " + std::to_string(word);
  }
  return "bytes from the input";
}

// A picture of that size after its flags byte: layout, depth, lockability and contents.
HostPicture* MakePicture(FuzzInput& input, qpxhost::Host& host, uint8_t flags, int32_t width,
                         int32_t height, bool hasAlpha, const PictureRules& rules,
                         std::string& log) {
  qpxhost::PictureOptions options;
  options.hasAlpha = hasAlpha;
  const int oddPixels = (flags >> kOddPixelsShift) & 3;
  if (oddPixels == 2 && rules.otherDepthAllowed) options.depth = 16;
  if (oddPixels == 3 && rules.unlockableAllowed) options.lockable = false;
  if ((flags & kOwnLayout) != 0 && host.config().app == qpxhost::AppKind::Desktop) {
    options.layout = static_cast<int32_t>(hasAlpha ? input.Int(1, 2) : input.Int(1, 6));
  }
  if ((flags & kFaultyLock) != 0 && rules.faultyLockAllowed) {
    if ((flags & kOwnLayout) != 0) {
      options.faults.lockReportsOtherType = true;
    } else {
      options.faults.lockReportsNullData = true;
    }
  }
  HostPicture* picture = qpxhost::NewHostPicture(host, width, height, options);
  const std::string fault = options.faults.lockReportsOtherType  ? ", locks as the other type"
                            : options.faults.lockReportsNullData ? ", locks with no data"
                                                                 : "";
  log += std::to_string(width) + " x " + std::to_string(height) + (hasAlpha ? ", alpha" : "") +
         ", layout " + std::to_string(picture->layout) + ", " + std::to_string(options.depth) +
         " bits" + (options.lockable ? "" : ", does not lock") + fault + ", " +
         FillPixels(input, *picture, static_cast<Fill>((flags >> kFillShift) & 3)) + "\n";
  return picture;
}

void ReadSides(FuzzInput& input, const PictureRules& rules, int32_t& width, int32_t& height) {
  width = static_cast<int32_t>(input.Int(0, kMaxSide));
  height = static_cast<int32_t>(input.Int(0, kMaxSide));
  if (width == 0 && !rules.emptyRowsAllowed) height = 0;
}

}  // namespace

HostPicture* ReadPicture(FuzzInput& input, qpxhost::Host& host, const PictureRules& rules,
                         const std::string& name, std::string& log) {
  const uint8_t flags = input.Byte();
  log += name + ": ";
  if ((flags & kNil) != 0 && rules.mayBeNil) {
    log += "nil\n";
    return nullptr;
  }
  int32_t width = 0, height = 0;
  ReadSides(input, rules, width, height);
  return MakePicture(input, host, flags, width, height, (flags & kAlpha) != 0 && rules.alphaAllowed,
                     rules, log);
}

void ReadMask(FuzzInput& input, qpxhost::Host& host, HostPicture& picture,
              const PictureRules& rules, std::string& log) {
  const uint8_t choice = input.Byte() % 3;
  if (choice == 0) return;
  const uint8_t flags = input.Byte();
  int32_t width = picture.width, height = picture.height;
  if (choice == 2) ReadSides(input, rules, width, height);
  log += "  its mask: ";
  picture.mask = MakePicture(input, host, flags, width, height, false, rules, log);
}

qpxtest::RawPicture BytesOf(HostPicture& picture) {
  if (picture.width == 0) return qpxtest::RawPicture(0, picture.height, picture.layout);
  return qpxtest::ReadRaw(picture);
}

std::optional<qpxtest::RawPicture> PixelsAsRead(HostPicture* picture,
                                                const qpxhost::HostConfig& host, bool mayCopy) {
  if (picture == nullptr || picture->width < 1 || picture->height < 1) return std::nullopt;
  if (picture->lockable) {
    if (picture->depth != 32) return std::nullopt;
    // A lock that hands out the wrong thing is refused, and no copy is tried after it.
    if (picture->faults.lockReportsOtherType || picture->faults.lockReportsNullData) {
      return std::nullopt;
    }
    return BytesOf(*picture);
  }
  if (host.app == qpxhost::AppKind::Desktop && !picture->hasAlpha && mayCopy) {
    return qpxtest::OpaqueInLayout(BytesOf(*picture), qpxtest::NewPictureFormat(host));
  }
  return std::nullopt;
}

}  // namespace qpxfuzz
