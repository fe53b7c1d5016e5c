#include "digest_pictures.h"

#include "picture_services.h"

namespace qpxtest {

std::string SeededRecipe::Name() const {
  std::string name = std::to_string(width) + "x" + std::to_string(height) + static_cast<char>(fill);
  if (hasAlpha) name += "a";
  if (layout) name += ":l" + std::to_string(*layout);
  if (!lockable) name += ":nolock";
  return name;
}

void FillPicture(qpxhost::HostPicture& picture, Fill fill, uint64_t seed) {
  SplitMix64 random(seed);
  uint8_t first[4], slopeX[4], slopeY[4];
  for (int c = 0; c < 4; ++c) {
    first[c] = random.Byte();
    slopeX[c] = random.Byte() % 16;
    slopeY[c] = random.Byte() % 16;
  }
  for (int32_t y = 0; y < picture.height; ++y) {
    uint8_t* row = picture.Row(y);
    for (int32_t x = 0; x < picture.width; ++x) {
      for (int c = 0; c < 4; ++c) {
        uint8_t& byte = row[4 * x + c];
        switch (fill) {
          case Fill::Noise:
            byte = random.Byte();
            break;
          case Fill::Ramp:
            byte = static_cast<uint8_t>(first[c] + slopeX[c] * x + slopeY[c] * y);
            break;
          case Fill::Extremes:
            byte = random.Next() >> 63 ? 255 : 0;
            break;
          case Fill::Uniform:
            byte = first[c];
            break;
        }
      }
    }
  }
}

qpxhost::HostPicture* SeededPicture(qpxhost::Host& host, const SeededRecipe& recipe,
                                    uint64_t seed) {
  qpxhost::PictureOptions options;
  options.hasAlpha = recipe.hasAlpha;
  if (host.config().app == qpxhost::AppKind::Desktop) options.layout = recipe.layout;
  options.lockable = recipe.lockable;
  qpxhost::HostPicture* picture =
      qpxhost::NewHostPicture(host, recipe.width, recipe.height, options);
  FillPicture(*picture, recipe.fill, seed);
  return picture;
}

}  // namespace qpxtest
