// DrawPictureFQPX gives the same bytes with every version of its pixel loops that this processor
// runs: random destinations, pictures and masks in every layout of every kind of host, random
// positions and opacities, the extreme ones included, each vector version compared with the
// plain loops byte for byte.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "differential.h"
#include "draw_picture_f.h"
#include "module_host.h"
#include "picture_bytes.h"
#include "pixel_loops.h"
#include "random_pictures.h"

namespace {

using qpxhost::AppKind;
using qpxhost::HostPicture;
using qpxhost::PictureOptions;
using qpxtest::ModuleHost;
using qpxtest::RawPicture;
using qpxtest::Ref;

const double kNaN = std::numeric_limits<double>::quiet_NaN();
const double kInfinity = std::numeric_limits<double>::infinity();

class DrawPaths {
 public:
  DrawPaths(ModuleHost& env, uint32_t seed) : env_(env), rng_(seed) {}

  // A small call: the picture drawn anywhere, onto itself or onto its own mask now and then.
  void CompareSmall() {
    HostPicture* destination = NewPicture(Side(1, 90), Side(1, 40));
    const uint32_t sharing = rng_() % 10;
    HostPicture* picture = sharing == 0 ? destination : NewPicture(Side(1, 70), Side(1, 40));
    if (sharing == 1) {
      env_.host.Lock(destination);
      picture->mask = destination;
    } else if (rng_() % 2 == 0) {
      picture->mask = NewMask(*picture);
    }
    double x = Coordinate(destination->width, picture->width);
    double y = Coordinate(destination->height, picture->height);
    double alpha = Opacity();
    // Weights of 0.5 next to weights beyond the 32-bit range once multiplied by a channel.
    if (rng_() % 12 == 0) {
      x = std::ldexp(rng_() % 2 ? 1.0 : -1.0, -900);
      alpha = std::ldexp(1.0, 900);
    }
    Compare(destination, picture, x, y, alpha);
  }

  // A masked picture of over 65536 pixels drawn inside a destination a little larger.
  void CompareLarge() {
    HostPicture* destination = NewPicture(266, 261);
    HostPicture* picture = NewPicture(260, 257);
    picture->mask = NewMask(*picture);
    const double x = Side(0, 6) + Fraction(), y = Side(0, 4) + Fraction();
    Compare(destination, picture, x, y, Opacity());
  }

 private:
  // The call made with each version of the loops on the same starting pixels; then releases
  // both pictures.
  void Compare(HostPicture* destination, HostPicture* picture, double x, double y, double alpha) {
    std::ostringstream trace;
    trace.precision(17);
    trace << "destination " << Describe(*destination) << ", picture "
          << (picture == destination ? "itself" : Describe(*picture));
    if (picture->mask != nullptr) {
      trace << ", mask "
            << (picture->mask == destination ? "the destination" : Describe(*picture->mask));
    }
    trace << ", at (" << x << ", " << y << "), alpha " << alpha;
    SCOPED_TRACE(trace.str());

    const RawPicture start = qpxtest::ReadRaw(*destination);
    RawPicture plain;
    bool plainResult = false;
    for (PixelLoops loops : AvailablePixelLoops()) {
      qpxtest::WriteRaw(*destination, start);
      const bool result = DrawPictureFWith(Ref(destination), Ref(picture), x, y, alpha, 0, loops);
      const RawPicture drawn = qpxtest::ReadRaw(*destination);
      if (loops == PixelLoops::Plain) {
        plain = drawn;
        plainResult = result;
      } else {
        EXPECT_EQ(result, plainResult) << PixelLoopsName(loops);
        EXPECT_TRUE(qpxtest::SamePixels(plain, drawn))
            << PixelLoopsName(loops) << " differs from the plain loops";
      }
    }
    env_.host.Unlock(destination);
    if (picture != destination) env_.host.Unlock(picture);
  }

  int32_t Side(int32_t lo, int32_t hi) {
    return std::uniform_int_distribution<int32_t>(lo, hi)(rng_);
  }

  // Random bytes, all four of each pixel; in a desktop host in any layout the picture opens in.
  HostPicture* NewPicture(int32_t width, int32_t height) {
    PictureOptions options;
    options.hasAlpha = rng_() % 4 == 0;
    if (env_.host.config().app == AppKind::Desktop && rng_() % 2 == 0) {
      options.layout = options.hasAlpha ? Side(1, 2) : Side(1, 6);
    }
    HostPicture* picture = env_.Picture(width, height, options);
    for (int32_t y = 0; y < height; ++y) {
      for (int32_t i = 0; i < 4 * width; ++i) picture->Row(y)[i] = uint8_t(rng_());
    }
    return picture;
  }

  // Mostly the picture's size, now and then smaller or larger; red bytes of 0, 255 or between.
  HostPicture* NewMask(const HostPicture& picture) {
    int32_t width = picture.width, height = picture.height;
    if (rng_() % 4 == 0) width = Side(1, 2 * width + 2), height = Side(1, 2 * height + 2);
    HostPicture* mask = NewPicture(width, height);
    const uint32_t kind = rng_() % 3;
    for (int32_t y = 0; y < height; ++y) {
      for (int32_t x = 0; x < width; ++x) {
        const uint32_t choice = kind < 2 ? kind : rng_() % 3;
        uint8_t* pixel = mask->Row(y) + 4 * x;
        qpxtest::Channels c = qpxtest::ReadChannels(pixel, mask->layout);
        c.red = choice == 0 ? 0 : choice == 1 ? 255 : int(rng_() % 256);
        qpxtest::WriteOpaque(pixel, mask->layout, c);
      }
    }
    return mask;
  }

  // Inside, across an edge or outside; fractions of 0, 0.25, 0.5, tenths or any; now and then a
  // coordinate that is not drawn at.
  double Coordinate(int32_t room, int32_t size) {
    if (rng_() % 25 == 0) {
      const double rejected[] = {kNaN, kInfinity, -kInfinity, 2147483648.0, -2147483648.5};
      return rejected[rng_() % 5];
    }
    return Side(-size - 2, room + 2) + Fraction();
  }

  double Fraction() {
    const double fractions[] = {0.0, 0.25, 0.5, 0.1, 0.7};
    const uint32_t f = rng_() % 6;
    return f < 5 ? fractions[f] : std::uniform_real_distribution<double>(0, 1)(rng_);
  }

  double Opacity() {
    const double named[] = {1.0, 0.5,  0.0,   2.0,    -0.5,      0.1,   0.7,        1.0 / 3,
                            1.9, kNaN, 1e300, -1e300, kInfinity, 255.0, -kInfinity, 1.5};
    if (rng_() % 3 == 0) return std::uniform_real_distribution<double>(-1.0, 2.5)(rng_);
    return named[rng_() % 16];
  }

  static std::string Describe(const HostPicture& picture) {
    return std::to_string(picture.width) + "x" + std::to_string(picture.height) + " layout " +
           std::to_string(picture.layout) + (picture.hasAlpha ? " with alpha" : "");
  }

  ModuleHost& env_;
  std::mt19937 rng_;
};

class DrawLoops : public ::testing::TestWithParam<qpxtest::HostVariant> {};

TEST_P(DrawLoops, EveryVersionMatchesThePlainLoops) {
  EXPECT_IN_FRESH_PROCESS({
    ModuleHost env(GetParam().config);
    DrawPaths paths(env, qpxtest::SeedOf("DrawPictureFWith " + GetParam().name));
    for (int trial = 0; trial < 150 && !::testing::Test::HasFailure(); ++trial) {
      SCOPED_TRACE("trial " + std::to_string(trial));
      paths.CompareSmall();
    }
    for (int trial = 0; trial < 3 && !::testing::Test::HasFailure(); ++trial) {
      SCOPED_TRACE("large trial " + std::to_string(trial));
      paths.CompareLarge();
    }
  });
}

INSTANTIATE_TEST_SUITE_P(EveryHost, DrawLoops, ::testing::ValuesIn(qpxtest::AllHostVariants()),
                         qpxtest::HostVariantName());

}  // namespace
