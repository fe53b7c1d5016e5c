// Source pictures for differential tests: sizes, contents and layouts drawn from fixed seeds,
// and the host configurations worth running them in.
#pragma once

#include <cstdint>
#include <optional>
#include <ostream>
#include <random>
#include <string>
#include <vector>

#include "host.h"
#include "host_picture.h"

namespace qpxtest {

enum class Pattern {
  Noise,               // every byte random
  HorizontalGradient,  // channels ramp from left to right
  VerticalGradient,    // channels ramp from top to bottom
  DiagonalGradient,
  Checkerboard,  // two colours in square cells of 1 to 4 pixels
  SinglePixel,   // one random pixel on black
  Uniform,       // one colour
  Stripes,       // alternating one-pixel lines of two colours
  Extremes,      // every channel 0 or 255
};
constexpr int kPatternCount = 9;
const char* PatternName(Pattern pattern);

// A source picture. All four bytes of each pixel are set raw from the pattern, the fourth
// one (alpha, or the unused byte) included, so methods that must not read it show when they do.
struct PictureRecipe {
  int32_t width = 1;
  int32_t height = 1;
  bool hasAlpha = false;
  std::optional<int32_t> layout;  // default: the host's layout for the picture's kind
  Pattern pattern = Pattern::Noise;
  uint32_t seed = 0;
  std::string Describe() const;
};

// The picture in the booted host, carrying one reference (the caller's).
qpxhost::HostPicture* MakePicture(qpxhost::Host& host, const PictureRecipe& recipe);

// `count` recipes from `seed`: 1 x 1, 1 x N and N x 1 first, then mostly small pictures, some
// medium and a few up to `maxSide` a side, every pattern in turn; half of them with an alpha
// channel when `alpha` is set.
std::vector<PictureRecipe> RandomPictureRecipes(uint32_t seed, int count, int32_t maxSide,
                                                bool alpha);

// In a desktop host, gives about a third of the recipes a layout drawn at random (1 to 6, or 1
// or 2 with an alpha channel), often not the one new pictures of their kind get.
void MixDesktopLayouts(std::vector<PictureRecipe>& recipes, const qpxhost::HostConfig& config,
                       std::mt19937& rng);

// A host configuration with a name usable in test names.
struct HostVariant {
  std::string name;
  qpxhost::HostConfig config;
};
std::ostream& operator<<(std::ostream& out, const HostVariant& variant);

// Desktop hosts with every layout 1 to 6 for pictures without alpha channel, each with the
// alpha layout (1 or 2) in its byte order, rows packed and padded; a console and a web host.
std::vector<HostVariant> AllHostVariants();
// The layout of a new 32-bit picture without alpha channel in that host.
int32_t NewPictureFormat(const qpxhost::HostConfig& config);
// The layout of a new picture with alpha channel (made through the "Picture" constructor).
int32_t NewAlphaPictureFormat(const qpxhost::HostConfig& config);
// Whether a method's new picture of that size can be made: without alpha channel 1 to 32767
// pixels a side; with one at least 1 a side, on a host of 2011.04 or later.
bool WriterAccepts(const qpxhost::HostConfig& config, bool hasAlpha, int32_t width, int32_t height);

// Hosts for named tests: an application of `app`, or a desktop one with this layout (and the
// alpha layout in its byte order) and row padding; and a name for traces.
qpxhost::HostConfig AppHost(qpxhost::AppKind app);
qpxhost::HostConfig DesktopHost(int32_t layout, int32_t padding = 0);
std::string HostName(const qpxhost::HostConfig& config);
// One host of each kind: desktop ones in layouts 5 and 2 (alpha layouts 1 and 2), rows padded;
// a console and a web one.
std::vector<qpxhost::HostConfig> EveryKindOfHost();
// A seed made from a test's name (FNV-1a), so each variant draws its own cases.
uint32_t SeedOf(const std::string& name);
// A picture of random bytes.
PictureRecipe NoiseRecipe(int32_t width, int32_t height, uint32_t seed = 0);

}  // namespace qpxtest
