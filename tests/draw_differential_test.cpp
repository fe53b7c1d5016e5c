// DrawPictureFQPX against the plain reference on random pictures, masks, positions, opacities
// and hosts, byte for byte.
#include "draw_test_support.h"

namespace {

using namespace drawtest;

// --- Differential run over random pictures, masks, positions, opacities and hosts ------------

// One axis of a random position for a picture `size` pixels long in a destination `room`
// pixels long: inside it, across either edge, wholly before or past it, near the origin or
// anywhere in 32 bits (only inside when `inside`); with a fraction of 0, 0.25, 0.5, one of
// those that tenths make or any.
double RandomCoordinate(int32_t room, int32_t size, bool inside, std::mt19937& rng) {
  auto pick = [&](int64_t lo, int64_t hi) {
    return double(std::uniform_int_distribution<int64_t>(lo, std::max(lo, hi))(rng));
  };
  double whole = 0;
  switch (inside ? 0 : rng() % 11) {
    case 0:
    case 1:
    case 2:
      whole = size <= room ? pick(0, room - size) : pick(room - size, 0);
      break;
    case 3:
    case 4:
      whole = pick(-size, 0);
      break;
    case 5:
    case 6:
      whole = pick(room - size, room);
      break;
    case 7:
      whole = pick(-size - 30, -size - 1);
      break;
    case 8:
      whole = pick(room + 1, room + 30);
      break;
    case 9:
      whole = pick(INT32_MIN, INT32_MAX);
      break;
    default:
      whole = pick(-3, 3);
      break;
  }
  const double fractions[] = {0.0, 0.0, 0.25, 0.5, 0.1, 0.3, 0.7, 0.9};
  const uint32_t f = rng() % 10;
  return whole + (f < 8 ? fractions[f] : std::uniform_real_distribution<double>(0, 1)(rng));
}

// Mostly the opacities worth naming and some whose products with whole numbers fall just beside
// whole numbers, some at random, now and then one past any sense.
double RandomOpacity(std::mt19937& rng) {
  const double named[] = {1.0, 1.0, 0.5, 0.0, 2.0, -0.5, 0.1, 0.3, 0.7, 1.0 / 3, 2.0 / 3, 1.9};
  const double extreme[] = {kNaN, 1e300, -1e300, kInfinity};
  const uint32_t k = rng() % 20;
  if (k < 12) return named[rng() % 12];
  if (k < 16) return std::uniform_real_distribution<double>(-1.0, 2.5)(rng);
  if (k < 19) return std::uniform_real_distribution<double>(0.0, 1.0)(rng);
  return extreme[rng() % 4];
}

// A coordinate that is not drawn at.
double RejectedCoordinate(std::mt19937& rng) {
  const double rejected[] = {kNaN, kInfinity, -kInfinity, 2147483648.0, -2147483648.5, 1e300};
  return rejected[rng() % 6];
}

// A random mask for `picture`: mostly its own size, now and then smaller or larger; in a desktop
// host sometimes in a layout of its own; all opaque, all transparent, or values of 0, 255 and
// between mixed. Only its red byte counts, the others are random.
void GiveRandomMask(Host& host, HostPicture* picture, std::mt19937& rng) {
  auto pick = [&](int32_t lo, int32_t hi) {
    return std::uniform_int_distribution<int32_t>(lo, hi)(rng);
  };
  int32_t width = picture->width, height = picture->height;
  if (rng() % 5 == 0) width = pick(1, 2 * width + 2), height = pick(1, 2 * height + 2);
  PictureOptions options;
  if (host.config().app == AppKind::Desktop && rng() % 3 == 0) options.layout = pick(1, 6);
  HostPicture* mask = qpxhost::NewHostPicture(host, width, height, options);
  const uint32_t kind = rng() % 4;
  for (int32_t y = 0; y < height; ++y) {
    for (int32_t x = 0; x < width; ++x) {
      const uint32_t choice = kind < 2 ? kind : rng() % 3;
      const auto m = uint8_t(choice == 0 ? 0 : choice == 1 ? 255 : rng());
      mask->Set(x, y, {m, uint8_t(rng()), uint8_t(rng()), 255});
    }
  }
  picture->mask = mask;
}

std::string Describe(const HostPicture& picture) {
  std::ostringstream out;
  out << picture.width << "x" << picture.height << " layout " << picture.layout;
  return out.str();
}

// How a random case's picture relates to its destination.
enum class Sharing { None, PictureIsDestination, MaskIsDestination };

// One random call checked against the reference: the picture (or the destination itself) with
// a mask when `masked` (or the destination as its mask), at a random position and opacity.
void CheckRandomCall(Host& host, const qpxtest::PictureRecipe& destinationRecipe,
                     const qpxtest::PictureRecipe& pictureRecipe, Sharing sharing, bool masked,
                     bool inside, int32_t yield, std::mt19937& rng) {
  HostPicture* destination = qpxtest::MakePicture(host, destinationRecipe);
  HostPicture* picture = sharing == Sharing::PictureIsDestination
                             ? destination
                             : qpxtest::MakePicture(host, pictureRecipe);
  if (sharing == Sharing::MaskIsDestination) {
    host.Lock(destination);
    picture->mask = destination;
  } else if (masked) {
    GiveRandomMask(host, picture, rng);
  }
  DrawCall call;
  call.x = RandomCoordinate(destination->width, picture->width, inside, rng);
  call.y = RandomCoordinate(destination->height, picture->height, inside, rng);
  if (!inside && rng() % 30 == 0) (rng() % 2 ? call.x : call.y) = RejectedCoordinate(rng);
  call.alpha = RandomOpacity(rng);
  call.yield = yield;

  std::ostringstream trace;
  trace.precision(17);
  trace << "destination " << destinationRecipe.Describe() << " (" << Describe(*destination)
        << "), picture ";
  if (picture == destination) {
    trace << "the destination itself";
  } else {
    trace << pictureRecipe.Describe() << " (" << Describe(*picture) << ")";
  }
  if (picture->mask == destination) {
    trace << ", its mask the destination";
  } else if (picture->mask != nullptr) {
    trace << ", mask " << Describe(*picture->mask);
  }
  trace << ", at (" << call.x << ", " << call.y << "), alpha " << call.alpha << ", yield "
        << call.yield;
  SCOPED_TRACE(trace.str());
  CheckDraw(host, destination, picture, call);
}

class DrawDifferential : public qpxtest::HostVariantTest {
 protected:
  // Recipes from `seed`, a third of them in another desktop layout than new pictures get.
  std::vector<qpxtest::PictureRecipe> Recipes(uint32_t seed, int count, int32_t maxSide,
                                              std::mt19937& rng) {
    std::vector<qpxtest::PictureRecipe> recipes =
        qpxtest::RandomPictureRecipes(seed, count, maxSide, /*alpha=*/true);
    qpxtest::MixDesktopLayouts(recipes, GetParam().config, rng);
    return recipes;
  }
};

TEST_P(DrawDifferential, MatchesTheReferenceByteForByte) {
  constexpr int kCases = 100;
  Host& host = BootVariant();
  const uint32_t seed = qpxtest::SeedOf("DrawPictureFQPX " + GetParam().name);
  std::mt19937 rng(seed);
  const std::vector<qpxtest::PictureRecipe> destinations = Recipes(seed, kCases, 120, rng);
  std::vector<qpxtest::PictureRecipe> pictures = Recipes(seed + 1, kCases, 120, rng);
  std::reverse(pictures.begin(), pictures.end());
  for (int i = 0; i < kCases; ++i) {
    SCOPED_TRACE("seed " + std::to_string(seed) + ", case " + std::to_string(i));
    // Now and then the picture is drawn onto itself, or onto its own mask.
    const uint32_t k = rng() % 12;
    const Sharing sharing = k == 0   ? Sharing::PictureIsDestination
                            : k == 1 ? Sharing::MaskIsDestination
                                     : Sharing::None;
    CheckRandomCall(host, destinations[size_t(i)], pictures[size_t(i)], sharing, rng() % 5 < 2,
                    false, i % 3 == 0 ? kYieldEveryCall : 0, rng);
    if (HasFailure()) return;
  }
}

// Masked pictures of over 65536 pixels, every byte value in each channel and mask, drawn
// inside a destination a little larger.
TEST_P(DrawDifferential, LargeMaskedPicturesMatchTheReference) {
  Host& host = BootVariant();
  const uint32_t seed = qpxtest::SeedOf("DrawPictureFQPX large " + GetParam().name);
  std::mt19937 rng(seed);
  for (int i = 0; i < 2; ++i) {
    SCOPED_TRACE("seed " + std::to_string(seed) + ", case " + std::to_string(i));
    std::vector<qpxtest::PictureRecipe> recipes = {NoiseRecipe(266, 261, uint32_t(rng())),
                                                   NoiseRecipe(260, 257, uint32_t(rng()))};
    for (qpxtest::PictureRecipe& recipe : recipes) recipe.hasAlpha = rng() % 2 == 0;
    qpxtest::MixDesktopLayouts(recipes, GetParam().config, rng);
    CheckRandomCall(host, recipes[0], recipes[1], Sharing::None, true, true, 0, rng);
    if (HasFailure()) return;
  }
}

INSTANTIATE_TEST_SUITE_P(EveryHost, DrawDifferential,
                         ::testing::ValuesIn(qpxtest::AllHostVariants()),
                         qpxtest::HostVariantName());

}  // namespace
