#include "demo_picture.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <cstddef>
#include <stdexcept>

namespace qpx {
namespace {

struct Glyph {
  char c;
  std::array<uint8_t, 7> rows;  // bit 4 is the leftmost column
};

// clang-format off
constexpr Glyph kFont[] = {
  {'A', {0b01110, 0b10001, 0b10001, 0b11111, 0b10001, 0b10001, 0b10001}},
  {'B', {0b11110, 0b10001, 0b10001, 0b11110, 0b10001, 0b10001, 0b11110}},
  {'C', {0b01110, 0b10001, 0b10000, 0b10000, 0b10000, 0b10001, 0b01110}},
  {'D', {0b11100, 0b10010, 0b10001, 0b10001, 0b10001, 0b10010, 0b11100}},
  {'E', {0b11111, 0b10000, 0b10000, 0b11110, 0b10000, 0b10000, 0b11111}},
  {'F', {0b11111, 0b10000, 0b10000, 0b11110, 0b10000, 0b10000, 0b10000}},
  {'G', {0b01110, 0b10001, 0b10000, 0b10111, 0b10001, 0b10001, 0b01111}},
  {'H', {0b10001, 0b10001, 0b10001, 0b11111, 0b10001, 0b10001, 0b10001}},
  {'I', {0b01110, 0b00100, 0b00100, 0b00100, 0b00100, 0b00100, 0b01110}},
  {'J', {0b00111, 0b00010, 0b00010, 0b00010, 0b00010, 0b10010, 0b01100}},
  {'K', {0b10001, 0b10010, 0b10100, 0b11000, 0b10100, 0b10010, 0b10001}},
  {'L', {0b10000, 0b10000, 0b10000, 0b10000, 0b10000, 0b10000, 0b11111}},
  {'M', {0b10001, 0b11011, 0b10101, 0b10101, 0b10001, 0b10001, 0b10001}},
  {'N', {0b10001, 0b10001, 0b11001, 0b10101, 0b10011, 0b10001, 0b10001}},
  {'O', {0b01110, 0b10001, 0b10001, 0b10001, 0b10001, 0b10001, 0b01110}},
  {'P', {0b11110, 0b10001, 0b10001, 0b11110, 0b10000, 0b10000, 0b10000}},
  {'Q', {0b01110, 0b10001, 0b10001, 0b10001, 0b10101, 0b10010, 0b01101}},
  {'R', {0b11110, 0b10001, 0b10001, 0b11110, 0b10100, 0b10010, 0b10001}},
  {'S', {0b01111, 0b10000, 0b10000, 0b01110, 0b00001, 0b00001, 0b11110}},
  {'T', {0b11111, 0b00100, 0b00100, 0b00100, 0b00100, 0b00100, 0b00100}},
  {'U', {0b10001, 0b10001, 0b10001, 0b10001, 0b10001, 0b10001, 0b01110}},
  {'V', {0b10001, 0b10001, 0b10001, 0b10001, 0b10001, 0b01010, 0b00100}},
  {'W', {0b10001, 0b10001, 0b10001, 0b10101, 0b10101, 0b10101, 0b01010}},
  {'X', {0b10001, 0b10001, 0b01010, 0b00100, 0b01010, 0b10001, 0b10001}},
  {'Y', {0b10001, 0b10001, 0b10001, 0b01010, 0b00100, 0b00100, 0b00100}},
  {'Z', {0b11111, 0b00001, 0b00010, 0b00100, 0b01000, 0b10000, 0b11111}},
  {'0', {0b01110, 0b10001, 0b10011, 0b10101, 0b11001, 0b10001, 0b01110}},
  {'1', {0b00100, 0b01100, 0b00100, 0b00100, 0b00100, 0b00100, 0b01110}},
  {'2', {0b01110, 0b10001, 0b00001, 0b00010, 0b00100, 0b01000, 0b11111}},
  {'3', {0b11111, 0b00010, 0b00100, 0b00010, 0b00001, 0b10001, 0b01110}},
  {'4', {0b00010, 0b00110, 0b01010, 0b10010, 0b11111, 0b00010, 0b00010}},
  {'5', {0b11111, 0b10000, 0b11110, 0b00001, 0b00001, 0b10001, 0b01110}},
  {'6', {0b00110, 0b01000, 0b10000, 0b11110, 0b10001, 0b10001, 0b01110}},
  {'7', {0b11111, 0b00001, 0b00010, 0b00100, 0b01000, 0b01000, 0b01000}},
  {'8', {0b01110, 0b10001, 0b10001, 0b01110, 0b10001, 0b10001, 0b01110}},
  {'9', {0b01110, 0b10001, 0b10001, 0b01111, 0b00001, 0b00010, 0b01100}},
  {'.', {0b00000, 0b00000, 0b00000, 0b00000, 0b00000, 0b01100, 0b01100}},
  {',', {0b00000, 0b00000, 0b00000, 0b00000, 0b01100, 0b00100, 0b01000}},
  {'-', {0b00000, 0b00000, 0b00000, 0b11111, 0b00000, 0b00000, 0b00000}},
  {':', {0b00000, 0b01100, 0b01100, 0b00000, 0b01100, 0b01100, 0b00000}},
  {'(', {0b00010, 0b00100, 0b01000, 0b01000, 0b01000, 0b00100, 0b00010}},
  {')', {0b01000, 0b00100, 0b00010, 0b00010, 0b00010, 0b00100, 0b01000}},
  {'\'', {0b00100, 0b00100, 0b01000, 0b00000, 0b00000, 0b00000, 0b00000}},
  {'/', {0b00000, 0b00001, 0b00010, 0b00100, 0b01000, 0b10000, 0b00000}},
};
// clang-format on

const Glyph* FindGlyph(char c) {
  const char upper = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  for (const Glyph& glyph : kFont) {
    if (glyph.c == upper) return &glyph;
  }
  return nullptr;
}

struct Colour {
  double r, g, b;
};

Colour Mix(Colour a, Colour b, double t) {
  return {a.r + (b.r - a.r) * t, a.g + (b.g - a.g) * t, a.b + (b.b - a.b) * t};
}

Colour Scale(Colour c, double f) {
  return {c.r * f, c.g * f, c.b * f};
}

double Smoothstep(double edge0, double edge1, double x) {
  const double t = std::clamp((x - edge0) / (edge1 - edge0), 0.0, 1.0);
  return t * t * (3 - 2 * t);
}

// A well-mixed hash of a lattice point, in [0, 1).
double Hash(int32_t x, int32_t y, uint32_t seed) {
  uint32_t h = static_cast<uint32_t>(x) * 0x8da6b343u ^ static_cast<uint32_t>(y) * 0xd8163841u ^
               seed * 0xcb1ab31fu;
  h ^= h >> 16;
  h *= 0x7feb352du;
  h ^= h >> 15;
  h *= 0x846ca68bu;
  h ^= h >> 16;
  return (h >> 8) * (1.0 / 16777216.0);
}

// Smoothly interpolated lattice noise, in [0, 1).
double ValueNoise(double x, double y, uint32_t seed) {
  const double fx = std::floor(x), fy = std::floor(y);
  const auto ix = static_cast<int32_t>(fx), iy = static_cast<int32_t>(fy);
  const double tx = Smoothstep(0, 1, x - fx), ty = Smoothstep(0, 1, y - fy);
  const double top = Hash(ix, iy, seed) + (Hash(ix + 1, iy, seed) - Hash(ix, iy, seed)) * tx;
  const double bottom =
      Hash(ix, iy + 1, seed) + (Hash(ix + 1, iy + 1, seed) - Hash(ix, iy + 1, seed)) * tx;
  return top + (bottom - top) * ty;
}

// Several octaves of noise, in [0, 1).
double Fractal(double x, double y, uint32_t seed, int octaves) {
  double sum = 0, weight = 0, amplitude = 1;
  for (int i = 0; i < octaves; ++i) {
    sum += ValueNoise(x, y, seed + static_cast<uint32_t>(i)) * amplitude;
    weight += amplitude;
    amplitude *= 0.5;
    x *= 2;
    y *= 2;
  }
  return sum / weight;
}

uint8_t ToByte(double v) {
  return static_cast<uint8_t>(std::lround(std::clamp(v, 0.0, 255.0)));
}

void Put(Image& image, int32_t x, int32_t y, Colour c, double alpha = 255) {
  if (x < 0 || y < 0 || x >= image.width || y >= image.height) return;
  uint8_t* p = &image.rgba[(size_t(y) * size_t(image.width) + size_t(x)) * 4];
  p[0] = ToByte(c.r);
  p[1] = ToByte(c.g);
  p[2] = ToByte(c.b);
  p[3] = ToByte(alpha);
}

// An opaque image of `width` x `height`, to be painted.
Image NewImage(int32_t width, int32_t height) {
  Image image;
  image.width = width;
  image.height = height;
  image.rgba.assign(size_t(width) * size_t(height) * 4, 255);
  return image;
}

void FillRect(Image& image, int32_t x0, int32_t y0, int32_t x1, int32_t y1, Colour c) {
  for (int32_t y = y0; y < y1; ++y) {
    for (int32_t x = x0; x < x1; ++x) Put(image, x, y, c);
  }
}

// The scene's background, before shapes and lettering: everything in units of the height, so
// any size gives the same picture.
Colour Landscape(double x, double y, double w, double h) {
  const double u = h / 480.0;  // one pixel of the 640 x 480 original
  const double horizon = 0.62 * h;

  // Sky: deep blue above, warm near the horizon, with a sun, its glow and thin clouds.
  const Colour zenith{28, 62, 138}, low{244, 168, 112};
  Colour c = Mix(zenith, low, Smoothstep(0, horizon, y) * Smoothstep(0, horizon, y));
  const double sunX = 0.73 * w, sunY = 0.30 * h, sunR = 42 * u;
  const double d = std::hypot(x - sunX, y - sunY);
  c = Mix(c, {255, 226, 170}, 0.75 * std::exp(-(d * d) / (2 * (sunR * 2.2) * (sunR * 2.2))));
  const double cloud = Fractal(x / (90 * u), y / (22 * u), 7, 5);
  c = Mix(c, {250, 244, 236},
          0.85 * Smoothstep(0.52, 0.72, cloud) * Smoothstep(0, horizon, y + 40 * u) *
              (1 - Smoothstep(horizon - 60 * u, horizon, y)));
  if (d < sunR + 0.5) c = Mix(c, {255, 246, 214}, std::clamp(sunR + 0.5 - d, 0.0, 1.0));

  // Far mountains: bluish, hazier towards their foot.
  const double far =
      horizon - (55 + 38 * std::sin(x / (70 * u) + 1.1) + 18 * std::sin(x / (23 * u) + 0.4) +
                 14 * Fractal(x / (30 * u), 0.5, 11, 4)) *
                    u;
  if (y >= far) {
    c = Mix({92, 104, 140}, {150, 150, 170}, Smoothstep(far, horizon + 30 * u, y));
    c = Scale(c, 0.9 + 0.2 * Fractal(x / (12 * u), y / (12 * u), 13, 3));
  }

  // Near hills and meadow: grass texture, darker in the distance.
  const double nearLine =
      horizon + (18 - 26 * std::sin(x / (120 * u) + 2.0) - 9 * std::sin(x / (37 * u))) * u;
  if (y >= nearLine) {
    const double depth = Smoothstep(nearLine, h, y);
    Colour grass = Mix({54, 92, 40}, {96, 142, 52}, depth);
    const double patches = Fractal(x / (60 * u), y / (25 * u), 17, 4);
    const double blades = Fractal(x / (2.5 * u), y / (9 * u), 23, 2);
    grass = Scale(grass, 0.65 + 0.5 * patches + 0.35 * (blades - 0.5));
    c = grass;
  }
  // Film grain everywhere.
  const double grain = (Hash(static_cast<int32_t>(x), static_cast<int32_t>(y), 99) - 0.5) * 10;
  return {c.r + grain, c.g + grain, c.b + grain};
}

}  // namespace

void DrawText(Image& image, int32_t x, int32_t y, const std::string& text, int32_t scale, uint8_t r,
              uint8_t g, uint8_t b) {
  const Colour colour{double(r), double(g), double(b)};
  for (size_t i = 0; i < text.size(); ++i) {
    const Glyph* glyph = FindGlyph(text[i]);
    if (glyph == nullptr) continue;
    const int32_t left = x + static_cast<int32_t>(i) * 6 * scale;
    for (int32_t row = 0; row < 7; ++row) {
      for (int32_t column = 0; column < 5; ++column) {
        if ((glyph->rows[size_t(row)] >> (4 - column) & 1) == 0) continue;
        FillRect(image, left + column * scale, y + row * scale, left + (column + 1) * scale,
                 y + (row + 1) * scale, colour);
      }
    }
  }
}

Image CropImage(const Image& image, Region region) {
  if (region.x < 0 || region.y < 0 || region.width < 1 || region.height < 1 ||
      region.width > image.width - region.x || region.height > image.height - region.y) {
    throw std::out_of_range("the region lies outside the picture");
  }
  Image crop;
  crop.width = region.width;
  crop.height = region.height;
  crop.hasAlpha = image.hasAlpha;
  const size_t rowBytes = size_t(region.width) * 4;
  for (int32_t y = region.y; y < region.y + region.height; ++y) {
    const auto row =
        image.rgba.begin() +
        static_cast<ptrdiff_t>((size_t(y) * size_t(image.width) + size_t(region.x)) * 4);
    crop.rgba.insert(crop.rgba.end(), row, row + static_cast<ptrdiff_t>(rowBytes));
  }
  return crop;
}

Image MakeDemoTile() {
  constexpr int32_t kSide = 16, kSquare = 4;
  Image image = NewImage(kSide, kSide);
  for (int32_t y = 0; y < kSide; ++y) {
    for (int32_t x = 0; x < kSide; ++x) {
      const bool light = (x / kSquare + y / kSquare) % 2 == 0;
      Put(image, x, y, light ? Colour{255, 214, 64} : Colour{170, 30, 50});
    }
  }
  return image;
}

Image MakeDemoBall() {
  constexpr int32_t kSide = 20;
  constexpr double kCentre = kSide / 2.0, kSolid = 4, kRim = 9.5;
  Image image = NewImage(kSide, kSide);
  image.hasAlpha = true;
  for (int32_t y = 0; y < kSide; ++y) {
    for (int32_t x = 0; x < kSide; ++x) {
      const double px = x + 0.5, py = y + 0.5;
      // Lit from the top left: bright near the highlight, darker towards the far side.
      const double light = std::hypot(px - 0.35 * kSide, py - 0.35 * kSide) / kSide;
      const Colour c = Mix({235, 245, 255}, {20, 90, 190}, Smoothstep(0, 0.6, light));
      const double d = std::hypot(px - kCentre, py - kCentre);
      Put(image, x, y, c, 255 * (1 - Smoothstep(kSolid, kRim, d)));
    }
  }
  return image;
}

Image MakeDemoBadge() {
  constexpr int32_t kWidth = 40, kHeight = 30;
  constexpr double kHalfWidth = 19, kHalfHeight = 14, kCorner = 9, kRim = 4;
  Image image = NewImage(kWidth, kHeight);
  image.hasAlpha = true;
  for (int32_t y = 0; y < kHeight; ++y) {
    for (int32_t x = 0; x < kWidth; ++x) {
      const double px = x + 0.5 - kWidth / 2.0, py = y + 0.5 - kHeight / 2.0;
      // Signed distance to the rounded rectangle's edge, negative inside.
      const double qx = std::abs(px) - (kHalfWidth - kCorner);
      const double qy = std::abs(py) - (kHalfHeight - kCorner);
      const double edge = std::hypot(std::max(qx, 0.0), std::max(qy, 0.0)) +
                          std::min(std::max(qx, qy), 0.0) - kCorner;
      const bool stripe = (x + y) / 4 % 2 == 0;
      const Colour c = stripe ? Colour{250, 196, 60} : Colour{214, 72, 44};
      Put(image, x, y, c, 255 * (1 - Smoothstep(0.5 - kRim, 0.5, edge)));
    }
  }
  // Lettering keeps the alpha below it.
  Image letters = NewImage(kWidth, kHeight);
  letters.rgba.assign(letters.rgba.size(), 0);
  DrawText(letters, 12, 11, "QPX", 1, 40, 30, 90);
  for (size_t i = 0; i < image.rgba.size(); i += 4) {
    if (letters.rgba[i + 3] != 0) std::copy_n(&letters.rgba[i], 3, &image.rgba[i]);
  }
  return image;
}

Image MakeDemoPicture(int32_t width, int32_t height) {
  Image image = NewImage(width, height);
  const double w = width, h = height;
  for (int32_t y = 0; y < height; ++y) {
    for (int32_t x = 0; x < width; ++x) Put(image, x, y, Landscape(x + 0.5, y + 0.5, w, h));
  }

  const auto at = [&](double fraction, double size) {
    return static_cast<int32_t>(std::lround(fraction * size));
  };
  const int32_t s = std::max(1, at(1.0 / 480.0, h));  // scale of the lettering

  // Title in the sky, with a hard shadow.
  DrawText(image, at(0.05, w) + 2 * s, at(0.06, h) + 2 * s, "Picture QPX", 4 * s, 20, 30, 60);
  DrawText(image, at(0.05, w), at(0.06, h), "Picture QPX", 4 * s, 250, 250, 245);
  DrawText(image, at(0.05, w), at(0.06, h) + 36 * s, "a plug-in for the host's Picture class",
           2 * s, 230, 236, 250);

  // A sign board: hard edges, dark strokes on a light face.
  const int32_t bx0 = at(0.05, w), by0 = at(0.70, h), bx1 = at(0.47, w), by1 = at(0.95, h);
  FillRect(image, bx0 + 6 * s, by0 + 6 * s, bx1 + 6 * s, by1 + 6 * s, {30, 42, 24});
  FillRect(image, bx0, by0, bx1, by1, {66, 44, 30});
  FillRect(image, bx0 + 4 * s, by0 + 4 * s, bx1 - 4 * s, by1 - 4 * s, {238, 234, 222});
  DrawText(image, bx0 + 12 * s, by0 + 12 * s, "Scale and blur", 2 * s, 150, 20, 24);
  DrawText(image, bx0 + 12 * s, by0 + 36 * s, "The quick brown fox jumps", 1 * s, 20, 20, 20);
  DrawText(image, bx0 + 12 * s, by0 + 48 * s, "over 13 lazy dogs. 0123456789", 1 * s, 20, 20, 20);
  DrawText(image, bx0 + 12 * s, by0 + 60 * s, "(console/desktop hosts)", 1 * s, 40, 60, 130);
  DrawText(image, bx0 + 12 * s, by0 + 76 * s, std::to_string(width) + "x" + std::to_string(height),
           2 * s, 20, 20, 20);

  // A resolution chart: stripes 1 to 4 pixels wide, a fine checkerboard and a colour bar.
  const int32_t cx0 = at(0.66, w), cy0 = at(0.72, h), cx1 = at(0.95, w), cy1 = at(0.95, h);
  FillRect(image, cx0 - 3 * s, cy0 - 3 * s, cx1 + 3 * s, cy1 + 3 * s, {10, 10, 10});
  const int32_t stripesEnd = cx0 + (cx1 - cx0) * 3 / 5, barsTop = cy0 + (cy1 - cy0) * 3 / 4;
  for (int32_t y = cy0; y < barsTop; ++y) {
    for (int32_t x = cx0; x < cx1; ++x) {
      bool white;
      if (x < stripesEnd) {
        const int32_t band = (x - cx0) * 4 / (stripesEnd - cx0);  // stripe width band + 1
        white = ((x - cx0) / (band + 1)) % 2 == 0;
      } else {
        white = ((x / 2) + (y / 2)) % 2 == 0;
      }
      Put(image, x, y, white ? Colour{245, 245, 245} : Colour{12, 12, 12});
    }
  }
  const Colour bars[] = {{230, 30, 30},  {240, 200, 20}, {30, 170, 60},
                         {20, 160, 220}, {40, 50, 200},  {200, 40, 180}};
  for (int32_t x = cx0; x < cx1; ++x) {
    const Colour c = bars[(x - cx0) * 6 / (cx1 - cx0)];
    for (int32_t y = barsTop; y < cy1; ++y) Put(image, x, y, c);
  }
  return image;
}

}  // namespace qpx
