#include "random_pictures.h"

#include <algorithm>
#include <array>
#include <sstream>

#include "picture_services.h"

namespace qpxtest {
namespace {

using Colour = std::array<uint8_t, 4>;

Colour RandomColour(std::mt19937& rng) {
  std::uniform_int_distribution<int> byte(0, 255);
  return {uint8_t(byte(rng)), uint8_t(byte(rng)), uint8_t(byte(rng)), uint8_t(byte(rng))};
}

uint8_t Ramp(int32_t position, int32_t length, int offset) {
  const int32_t span = std::max(length - 1, 1);
  return static_cast<uint8_t>((position * 255 / span + offset) % 256);
}

void Fill(qpxhost::HostPicture& picture, Pattern pattern, std::mt19937& rng) {
  const int32_t w = picture.width, h = picture.height;
  const Colour a = RandomColour(rng), b = RandomColour(rng);
  std::uniform_int_distribution<int32_t> cellSize(1, 4);
  const int32_t cell = cellSize(rng);
  const int32_t spotX = std::uniform_int_distribution<int32_t>(0, w - 1)(rng);
  const int32_t spotY = std::uniform_int_distribution<int32_t>(0, h - 1)(rng);
  const bool across = rng() % 2 == 0;
  std::uniform_int_distribution<int> byte(0, 255);
  for (int32_t y = 0; y < h; ++y) {
    uint8_t* row = picture.Row(y);
    for (int32_t x = 0; x < w; ++x) {
      Colour c{};
      switch (pattern) {
        case Pattern::Noise:
          c = RandomColour(rng);
          break;
        case Pattern::HorizontalGradient:
          c = {Ramp(x, w, a[0]), Ramp(x, w, a[1]), Ramp(w - 1 - x, w, 0), a[3]};
          break;
        case Pattern::VerticalGradient:
          c = {Ramp(y, h, 0), Ramp(h - 1 - y, h, a[1]), Ramp(y, h, a[2]), a[3]};
          break;
        case Pattern::DiagonalGradient:
          c = {Ramp(x + y, w + h - 1, 0), Ramp(x, w, 0), Ramp(y, h, 0), Ramp(x, w, 17)};
          break;
        case Pattern::Checkerboard:
          c = ((x / cell + y / cell) % 2 == 0) ? a : b;
          break;
        case Pattern::SinglePixel:
          c = (x == spotX && y == spotY) ? a : Colour{0, 0, 0, a[3]};
          break;
        case Pattern::Uniform:
          c = a;
          break;
        case Pattern::Stripes:
          c = ((across ? x : y) % 2 == 0) ? a : b;
          break;
        case Pattern::Extremes:
          for (uint8_t& v : c) v = rng() % 2 ? 255 : 0;
          break;
      }
      std::copy(c.begin(), c.end(), row + 4 * x);
    }
  }
}

}  // namespace

const char* PatternName(Pattern pattern) {
  switch (pattern) {
    case Pattern::Noise:
      return "noise";
    case Pattern::HorizontalGradient:
      return "horizontal gradient";
    case Pattern::VerticalGradient:
      return "vertical gradient";
    case Pattern::DiagonalGradient:
      return "diagonal gradient";
    case Pattern::Checkerboard:
      return "checkerboard";
    case Pattern::SinglePixel:
      return "single pixel";
    case Pattern::Uniform:
      return "uniform";
    case Pattern::Stripes:
      return "stripes";
    case Pattern::Extremes:
      return "extremes";
  }
  return "?";
}

std::string PictureRecipe::Describe() const {
  std::ostringstream out;
  out << width << "x" << height << " " << PatternName(pattern) << " seed " << seed
      << (hasAlpha ? " with alpha" : "");
  if (layout) out << " layout " << *layout;
  return out.str();
}

qpxhost::HostPicture* MakePicture(qpxhost::Host& host, const PictureRecipe& recipe) {
  qpxhost::PictureOptions options;
  options.hasAlpha = recipe.hasAlpha;
  options.layout = recipe.layout;
  qpxhost::HostPicture* picture = NewHostPicture(host, recipe.width, recipe.height, options);
  std::mt19937 rng(recipe.seed);
  Fill(*picture, recipe.pattern, rng);
  return picture;
}

std::vector<PictureRecipe> RandomPictureRecipes(uint32_t seed, int count, int32_t maxSide,
                                                bool alpha) {
  std::mt19937 rng(seed);
  auto side = [&](int32_t lo, int32_t hi) {
    return std::uniform_int_distribution<int32_t>(lo, std::max(lo, hi))(rng);
  };
  std::vector<PictureRecipe> recipes;
  for (int i = 0; i < count; ++i) {
    PictureRecipe recipe;
    switch (i) {
      case 0:
        break;  // 1 x 1
      case 1:
        recipe.height = side(2, std::min(maxSide, 64));
        break;
      case 2:
        recipe.width = side(2, std::min(maxSide, 64));
        break;
      default: {
        const int kind = side(0, 9);
        const int32_t hi = kind < 6 ? 16 : kind < 9 ? 64 : maxSide;
        const int32_t lo = kind < 6 ? 1 : kind < 9 ? 17 : 65;
        recipe.width = side(lo, hi);
        recipe.height = side(lo, hi);
      }
    }
    recipe.pattern = static_cast<Pattern>(i % kPatternCount);
    recipe.hasAlpha = alpha && i % 2 == 1;
    recipe.seed = static_cast<uint32_t>(rng());
    recipes.push_back(recipe);
  }
  return recipes;
}

void MixDesktopLayouts(std::vector<PictureRecipe>& recipes, const qpxhost::HostConfig& config,
                       std::mt19937& rng) {
  if (config.app != qpxhost::AppKind::Desktop) return;
  for (PictureRecipe& recipe : recipes) {
    if (rng() % 3 == 0) recipe.layout = 1 + int32_t(rng() % (recipe.hasAlpha ? 2 : 6));
  }
}

std::ostream& operator<<(std::ostream& out, const HostVariant& variant) {
  return out << variant.name;
}

std::vector<HostVariant> AllHostVariants() {
  std::vector<HostVariant> variants;
  for (int32_t layout = 1; layout <= 6; ++layout) {
    for (int32_t padding : {0, layout % 2 == 0 ? 12 : 3}) {
      HostVariant variant;
      variant.config = DesktopHost(layout, padding);
      variant.name = "Desktop" + std::to_string(layout) + "Alpha" +
                     std::to_string(variant.config.desktopAlphaLayout) +
                     (padding ? "Padded" + std::to_string(padding) : "Packed");
      variants.push_back(variant);
    }
  }
  for (qpxhost::AppKind app : {qpxhost::AppKind::Console, qpxhost::AppKind::Web}) {
    HostVariant variant;
    variant.config.app = app;
    variant.name = app == qpxhost::AppKind::Console ? "Console" : "Web";
    variants.push_back(variant);
  }
  return variants;
}

int32_t NewPictureFormat(const qpxhost::HostConfig& config) {
  return config.app == qpxhost::AppKind::Desktop ? config.desktopLayout : 8;
}

int32_t NewAlphaPictureFormat(const qpxhost::HostConfig& config) {
  return config.app == qpxhost::AppKind::Desktop ? config.desktopAlphaLayout : 8;
}

bool WriterAccepts(const qpxhost::HostConfig& config, bool hasAlpha, int32_t width,
                   int32_t height) {
  if (width < 1 || height < 1) return false;
  if (hasAlpha) return config.version.value_or(0.0) >= 2011.04;
  return width <= 32767 && height <= 32767;
}

qpxhost::HostConfig AppHost(qpxhost::AppKind app) {
  qpxhost::HostConfig config;
  config.app = app;
  return config;
}

qpxhost::HostConfig DesktopHost(int32_t layout, int32_t padding) {
  qpxhost::HostConfig config = AppHost(qpxhost::AppKind::Desktop);
  config.desktopLayout = layout;
  config.desktopAlphaLayout = qpxhost::AlphaLayoutPairedWith(layout);
  config.rowPadding = padding;
  return config;
}

std::string HostName(const qpxhost::HostConfig& config) {
  std::ostringstream out;
  out << qpxhost::AppKindName(config.app);
  if (config.app == qpxhost::AppKind::Desktop) {
    out << " layout " << config.desktopLayout << " alpha layout " << config.desktopAlphaLayout;
  }
  return out.str();
}

std::vector<qpxhost::HostConfig> EveryKindOfHost() {
  return {DesktopHost(5, 8), DesktopHost(2, 4), AppHost(qpxhost::AppKind::Console),
          AppHost(qpxhost::AppKind::Web)};
}

uint32_t SeedOf(const std::string& name) {
  uint32_t seed = 2166136261u;
  for (char c : name) seed = (seed ^ static_cast<uint8_t>(c)) * 16777619u;
  return seed;
}

PictureRecipe NoiseRecipe(int32_t width, int32_t height, uint32_t seed) {
  PictureRecipe recipe;
  recipe.width = width;
  recipe.height = height;
  recipe.seed = seed;
  return recipe;
}

}  // namespace qpxtest
