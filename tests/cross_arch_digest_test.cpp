// The same bytes on every processor: a fixed set of calls of the five methods through the
// emulated host and the loadable module, from pictures built from fixed seeds, each call's
// outcome hashed into one digest and compared with the digest recorded in
// cross_arch_digests.txt. The rules fix every rounding, so a digest that differs on another
// processor (or compiler) shows a defect there, named by its call.
//
// QPX_WRITE_DIGESTS=path runs the calls and writes their digests to `path` instead of
// comparing; the recorded file was written so on x86-64.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iterator>
#include <limits>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "call_digest.h"
#include "differential.h"
#include "digest_pictures.h"
#include "random_pictures.h"

namespace {

using namespace qpxtest::method_test_names;
using qpxtest::Fill;
using qpxtest::SeededRecipe;

const double kNaN = std::numeric_limits<double>::quiet_NaN();
const double kInfinity = std::numeric_limits<double>::infinity();
constexpr int32_t kMinInt = std::numeric_limits<int32_t>::min();

// --- Names ------------------------------------------------------------------------------------

// The shortest text that reads back as the same double: alike on every processor.
std::string Number(double value) {
  char text[64];
  const auto end = std::to_chars(text, text + sizeof text, value).ptr;
  return std::string(text, end);
}

std::string HostTag(const HostConfig& config) {
  switch (config.app) {
    case AppKind::Desktop:
      return "desktop-l" + std::to_string(config.desktopLayout) + "-p" +
             std::to_string(config.rowPadding);
    case AppKind::Console:
      return "console";
    case AppKind::Web:
      return "web";
  }
  return "?";
}

// The hosts: desktop ones in layouts 1 to 6, rows packed and padded, a console and a web one.
std::vector<HostConfig> Hosts() {
  std::vector<HostConfig> hosts;
  for (const qpxtest::HostVariant& variant : qpxtest::AllHostVariants()) {
    hosts.push_back(variant.config);
  }
  return hosts;
}

std::string YieldTag(int32_t yield) {
  return yield != 0 ? ",yield" : "";
}

// --- Calls ------------------------------------------------------------------------------------

// One call, run in some of the hosts. Its name there is method/arguments/host/pictures/seed.
struct DigestCall {
  std::string method;
  std::string arguments;
  std::string pictures;
  uint64_t seed = 0;
  std::vector<size_t> hosts;  // indices into Hosts()
  std::function<uint64_t(Host&)> run;

  std::string NameIn(const HostConfig& host) const {
    return method + "/" + arguments + "/" + HostTag(host) + "/" + pictures + "/seed" +
           std::to_string(seed);
  }
};

class CallList {
 public:
  explicit CallList(size_t hostCount) : hostCount_(hostCount) {}
  // Adds a call that runs in `runs` of the hosts, spread so that the calls added one after
  // another meet every host (a step of 5 visits all 14 before it comes back); it gets the next
  // seed, which `make` receives.
  void Add(const std::string& method, const std::string& arguments, const std::string& pictures,
           size_t runs, std::function<uint64_t(Host&, uint64_t seed)> make) {
    DigestCall call{method, arguments, pictures, next_, {}, {}};
    for (size_t j = 0; j < runs; ++j) call.hosts.push_back((next_ + 5 * j) % hostCount_);
    call.run = [make, seed = next_](Host& host) { return make(host, seed); };
    ++next_;
    calls_.push_back(std::move(call));
  }
  const std::vector<DigestCall>& calls() const { return calls_; }

 private:
  size_t hostCount_;
  std::vector<DigestCall> calls_;
  uint64_t next_ = 0;
};

SeededRecipe Recipe(int32_t width, int32_t height, Fill fill, bool hasAlpha = false,
                    std::optional<int32_t> layout = {}) {
  SeededRecipe recipe;
  recipe.width = width;
  recipe.height = height;
  recipe.fill = fill;
  recipe.hasAlpha = hasAlpha;
  recipe.layout = layout;
  return recipe;
}

// The receiver, filled from the call's seed.
qpxhost::HostPicture* Receiver(Host& host, const SeededRecipe& recipe, uint64_t seed) {
  return qpxtest::SeededPicture(host, recipe, 4 * seed);
}

// --- Resizing: ScaleQPX, ScalingQPX, ScaleImageAndMaskQPX --------------------------------------

struct Resize {
  int32_t sourceWidth, sourceHeight, width, height;
};

// Same size (the receiver comes back), shrinks, enlargements, one direction each way, whole and
// uneven ratios, extreme ratios, a box wider than 4104 pixels, sizes the methods refuse.
const Resize kNamedResizes[] = {
    {1, 1, 1, 1},    {1, 1, 5, 3},     {3, 2, 3, 2},       {2, 2, 4, 4},     {4, 4, 2, 2},
    {10, 4, 4, 2},   {7, 5, 3, 2},     {7, 5, 14, 10},     {13, 1, 40, 3},   {1, 13, 3, 40},
    {5, 5, 6, 4},    {37, 5, 90, 11},  {69, 33, 17, 9},    {65, 65, 7, 3},   {64, 3, 1, 1},
    {2, 2, 67, 5},   {31, 17, 31, 40}, {300, 2, 2, 300},   {2, 300, 300, 2}, {70, 70, 140, 139},
    {4200, 1, 1, 1}, {17, 16, 16, 17}, {33, 1, 1, 33},     {3, 3, 70, 69},   {50, 1, 3, 1},
    {9, 9, 0, 3},    {9, 9, -1, 5},    {9, 9, 5, kMinInt}, {41, 23, 40, 23}, {63, 62, 21, 31},
};
// The named resizes, then sizes drawn from a fixed seed: sources up to 70 a side, targets up to
// twice that, shrinking or growing each way.
std::vector<Resize> Resizes() {
  std::vector<Resize> resizes(std::begin(kNamedResizes), std::end(kNamedResizes));
  qpxtest::SplitMix64 random(2013);
  auto side = [&](int32_t most) { return int32_t(1 + random.Next() % uint64_t(most)); };
  for (int n = 0; n < 30; ++n) {
    const int32_t w = side(70), h = side(70);
    resizes.push_back({w, h, side(2 * w), side(2 * h)});
  }
  return resizes;
}

// The receiver of resize k: every fill in turn, an alpha channel now and then, and in desktop
// hosts now and then a layout other than the host's.
SeededRecipe ResizeSource(const Resize& r, size_t k) {
  const bool alpha = k % 5 == 2;
  std::optional<int32_t> layout;
  if (k % 4 == 3) layout = int32_t(1 + (k / 4) % (alpha ? 2 : 6));
  return Recipe(
      r.sourceWidth, r.sourceHeight,
      std::array{Fill::Noise, Fill::Ramp, Fill::Extremes, Fill::Noise, Fill::Uniform}[k % 5], alpha,
      layout);
}

std::string ResizePictures(const SeededRecipe& source, const Resize& r) {
  return source.Name() + "->" + std::to_string(r.width) + "x" + std::to_string(r.height);
}

void AddScaleCalls(CallList& calls, const std::vector<Resize>& resizes) {
  for (size_t k = 0; k < resizes.size(); ++k) {
    for (bool antiAlias : {false, true}) {
      const int32_t yield = (k + antiAlias) % 2 ? kYieldEveryCall : 0;
      const Resize r = resizes[k];
      const SeededRecipe source = ResizeSource(r, k);
      calls.Add("ScaleQPX", (antiAlias ? "aa" : "box") + YieldTag(yield), ResizePictures(source, r),
                3, [=](Host& host, uint64_t seed) {
                  return qpxtest::DigestPictureCall(host, Receiver(host, source, seed), "ScaleQPX",
                                                    {r.width, r.height, antiAlias, yield});
                });
    }
  }
}

void AddScalingCalls(CallList& calls, const std::vector<Resize>& resizes) {
  for (size_t k = 0; k < resizes.size(); ++k) {
    std::vector<int32_t> modes = {1, 2, 3, 4, 5, 6, 7};
    // Modes outside 1 to 7 give nil.
    if (k % 6 == 0) modes.push_back(std::array{0, 8, -1, kMinInt, 9}[k / 6 % 5]);
    for (int32_t mode : modes) {
      const int32_t yield = (k + size_t(mode)) % 2 ? kYieldEveryCall : 0;
      const Resize r = resizes[k];
      const SeededRecipe source = ResizeSource(r, k);
      calls.Add("ScalingQPX", "mode" + std::to_string(mode) + YieldTag(yield),
                ResizePictures(source, r), 2, [=](Host& host, uint64_t seed) {
                  return qpxtest::DigestPictureCall(host, Receiver(host, source, seed),
                                                    "ScalingQPX", {mode, r.width, r.height, yield});
                });
    }
  }
}

// What the receiver of ScaleImageAndMaskQPX carries besides its pixels.
enum class MaskKind { None, SameSize, OtherSize, Unlockable, AlphaChannel };

std::string MaskTag(MaskKind kind) {
  return std::array{"nomask", "mask", "mask-other-size", "mask-nolock",
                    "alpha"}[static_cast<int>(kind)];
}

// Gives `picture` a mask of `kind` filled from `seed` (the picture takes its reference).
void GiveMask(Host& host, qpxhost::HostPicture& picture, MaskKind kind, uint64_t seed) {
  if (kind == MaskKind::None || kind == MaskKind::AlphaChannel) return;
  PictureOptions options;
  options.lockable = kind != MaskKind::Unlockable;
  const int32_t width = kind == MaskKind::OtherSize ? picture.width + 3 : picture.width;
  const int32_t height = kind == MaskKind::OtherSize ? picture.height / 2 + 1 : picture.height;
  picture.mask = qpxhost::NewHostPicture(host, width, height, options);
  qpxtest::FillPicture(*picture.mask, Fill::Noise, seed);
}

void AddScaleImageAndMaskCalls(CallList& calls, const std::vector<Resize>& resizes) {
  for (size_t k = 0; k < resizes.size(); ++k) {
    const MaskKind other = std::array{MaskKind::SameSize, MaskKind::OtherSize,
                                      MaskKind::AlphaChannel, MaskKind::Unlockable}[k % 4];
    for (MaskKind kind : {MaskKind::None, other}) {
      for (bool antiAlias : {false, true}) {
        const int32_t yield = (k + antiAlias) % 2 ? 0 : kYieldEveryCall;
        const Resize r = resizes[k];
        SeededRecipe source = ResizeSource(r, k);
        if (kind == MaskKind::AlphaChannel) source.hasAlpha = true;
        if (source.hasAlpha && source.layout) source.layout = 1 + *source.layout % 2;
        calls.Add("ScaleImageAndMaskQPX",
                  (antiAlias ? "aa," : "box,") + MaskTag(kind) + YieldTag(yield),
                  ResizePictures(source, r), 2, [=](Host& host, uint64_t seed) {
                    qpxhost::HostPicture* receiver = Receiver(host, source, seed);
                    GiveMask(host, *receiver, kind, 4 * seed + 1);
                    return qpxtest::DigestPictureCall(host, receiver, "ScaleImageAndMaskQPX",
                                                      {r.width, r.height, antiAlias, yield});
                  });
      }
    }
  }
}

// --- BlurQPX ----------------------------------------------------------------------------------

void AddBlurCalls(CallList& calls) {
  // Below 1 (the receiver back), NaN and beyond the 32-bit range (the most negative integer,
  // so the receiver back too), small and large radii, radii past the picture, and radii whose
  // division table cannot be had (the new picture comes back unblurred).
  const double radii[] = {0.99,  0.0, -5.0, kNaN,   kInfinity,    -kInfinity,
                          1e300, 3e9, -3e9, 1.0,    1.99,         2.0,
                          3.5,   7.0, 40.0, 1000.0, 2147483647.5, 1073741823.5};
  const SeededRecipe sizes[] = {
      Recipe(1, 1, Fill::Noise),    Recipe(1, 9, Fill::Ramp),
      Recipe(9, 1, Fill::Extremes), Recipe(3, 3, Fill::Noise, true),
      Recipe(17, 5, Fill::Uniform), Recipe(33, 31, Fill::Ramp),
      Recipe(64, 64, Fill::Noise),  Recipe(69, 2, Fill::Extremes, false, 4)};
  size_t i = 0;
  for (double radius : radii) {
    for (const SeededRecipe& recipe : sizes) {
      const int32_t yield = i++ % 2 ? kYieldEveryCall : 0;
      calls.Add("BlurQPX", "r=" + Number(radius) + YieldTag(yield), recipe.Name(), 2,
                [=](Host& host, uint64_t seed) {
                  return qpxtest::DigestPictureCall(host, Receiver(host, recipe, seed), "BlurQPX",
                                                    {radius, yield});
                });
    }
  }
}

// --- DrawPictureFQPX --------------------------------------------------------------------------

struct Placement {
  double x, y;
};

// The drawn picture's mask: none, random greys, all opaque (0) or all transparent (255).
enum class DrawMask { None, Random, Opaque, Transparent };

std::string DrawMaskTag(DrawMask mask) {
  return std::array{"nomask", "mask", "mask0", "mask255"}[static_cast<int>(mask)];
}

void GiveDrawMask(Host& host, qpxhost::HostPicture& picture, DrawMask kind, uint64_t seed) {
  if (kind == DrawMask::None) return;
  picture.mask = qpxhost::NewHostMask(host, picture);
  if (kind == DrawMask::Random) {
    qpxtest::FillPicture(*picture.mask, Fill::Noise, seed);
  } else if (kind == DrawMask::Transparent) {
    for (int32_t y = 0; y < picture.height; ++y) {
      for (int32_t x = 0; x < picture.width; ++x) picture.mask->Set(x, y, {255, 255, 255, 255});
    }
  }
}

std::string DrawArguments(Placement at, double alpha, const std::string& rest, int32_t yield) {
  return "x=" + Number(at.x) + ",y=" + Number(at.y) + ",alpha=" + Number(alpha) + "," + rest +
         YieldTag(yield);
}

void AddDrawCalls(CallList& calls) {
  // Whole, half and uneven fractions, negative positions, pictures partly or wholly outside,
  // positions whose floor is outside the 32-bit range (refused) or at its very ends.
  const Placement placements[] = {{0, 0},
                                  {2, 1},
                                  {0.5, 0.5},
                                  {-0.5, 1.25},
                                  {-3.75, -2.5},
                                  {10.25, 4},
                                  {-0.0001, 0.9999},
                                  {5.5, -3.5},
                                  {1e10, 0},
                                  {kNaN, 1},
                                  {-2147483648.0, 0},
                                  {2147483647.0, 2147483647.75},
                                  {-2147483648.5, 0}};
  const double alphas[] = {1.0, 0.0, 0.5, 0.25, 2.0, -0.5, 0.999, kNaN, kInfinity, 1e-300};
  struct Sizes {
    SeededRecipe destination, picture;
  };
  const Sizes sizes[] = {
      {Recipe(1, 1, Fill::Noise), Recipe(1, 1, Fill::Noise)},
      {Recipe(7, 5, Fill::Ramp), Recipe(3, 2, Fill::Noise)},
      {Recipe(20, 10, Fill::Noise), Recipe(7, 4, Fill::Ramp, false, 3)},
      {Recipe(33, 17, Fill::Extremes), Recipe(40, 20, Fill::Noise, true)},
      {Recipe(64, 3, Fill::Noise), Recipe(5, 9, Fill::Extremes)},
      {Recipe(3, 64, Fill::Uniform, false, 2), Recipe(9, 5, Fill::Noise)},
      {Recipe(69, 8, Fill::Noise), Recipe(69, 8, Fill::Ramp)},
  };
  size_t i = 0;
  for (double alpha : alphas) {
    for (Placement at : placements) {
      const Sizes s = sizes[i % std::size(sizes)];
      const DrawMask mask = static_cast<DrawMask>(i % 4);
      const int32_t yield = i++ % 2 ? kYieldEveryCall : 0;
      calls.Add(
          "DrawPictureFQPX", DrawArguments(at, alpha, DrawMaskTag(mask), yield),
          s.destination.Name() + "<-" + s.picture.Name(), 2, [=](Host& host, uint64_t seed) {
            qpxhost::HostPicture* destination = Receiver(host, s.destination, seed);
            qpxhost::HostPicture* picture = qpxtest::SeededPicture(host, s.picture, 4 * seed + 2);
            GiveDrawMask(host, *picture, mask, 4 * seed + 3);
            return qpxtest::DigestDrawCall(host, destination, picture, at.x, at.y, alpha, yield);
          });
    }
  }
  // Large overlaps, where the drawing may take integer weights, with and without a mask.
  for (DrawMask mask : {DrawMask::None, DrawMask::Random}) {
    for (double alpha : {1.0, 0.75}) {
      const SeededRecipe destination = Recipe(300, 256, Fill::Noise),
                         picture = Recipe(290, 250, Fill::Ramp);
      const Placement at{3.25, 2.5};
      calls.Add("DrawPictureFQPX", DrawArguments(at, alpha, DrawMaskTag(mask), 0),
                destination.Name() + "<-" + picture.Name(), 2, [=](Host& host, uint64_t seed) {
                  qpxhost::HostPicture* d = Receiver(host, destination, seed);
                  qpxhost::HostPicture* p = qpxtest::SeededPicture(host, picture, 4 * seed + 2);
                  GiveDrawMask(host, *p, mask, 4 * seed + 3);
                  return qpxtest::DigestDrawCall(host, d, p, at.x, at.y, alpha, 0);
                });
    }
  }
  // A picture drawn into itself, a picture whose mask is the destination, nil arguments.
  const SeededRecipe recipe = Recipe(13, 7, Fill::Noise);
  for (Placement at : {Placement{1.5, -0.25}, Placement{-2, 3}}) {
    calls.Add("DrawPictureFQPX", DrawArguments(at, 0.75, "self", kYieldEveryCall),
              recipe.Name() + "<-itself", 4, [=](Host& host, uint64_t seed) {
                qpxhost::HostPicture* picture = Receiver(host, recipe, seed);
                return qpxtest::DigestDrawCall(host, picture, picture, at.x, at.y, 0.75,
                                               kYieldEveryCall);
              });
    calls.Add("DrawPictureFQPX", DrawArguments(at, 1.0, "mask-is-destination", 0),
              recipe.Name() + "<-" + recipe.Name(), 4, [=](Host& host, uint64_t seed) {
                qpxhost::HostPicture* destination = Receiver(host, recipe, seed);
                qpxhost::HostPicture* picture = qpxtest::SeededPicture(host, recipe, 4 * seed + 2);
                picture->mask = destination;
                host.Lock(destination);  // the picture's reference
                return qpxtest::DigestDrawCall(host, destination, picture, at.x, at.y, 1.0, 0);
              });
  }
  calls.Add("DrawPictureFQPX", DrawArguments({1, 1}, 1.0, "nil-picture", 0),
            recipe.Name() + "<-nil", 2, [=](Host& host, uint64_t seed) {
              return qpxtest::DigestDrawCall(host, Receiver(host, recipe, seed), nullptr, 1, 1, 1.0,
                                             0);
            });
  calls.Add("DrawPictureFQPX", DrawArguments({1, 1}, 1.0, "nil-destination", 0),
            "nil<-" + recipe.Name(), 2, [=](Host& host, uint64_t seed) {
              return qpxtest::DigestDrawCall(host, nullptr, Receiver(host, recipe, seed), 1, 1, 1.0,
                                             0);
            });
}

// --- Nil receivers ----------------------------------------------------------------------------

void AddNilReceiverCalls(CallList& calls) {
  using Arguments = std::vector<qpxhost::Value>;
  const std::pair<const char*, Arguments> nilCalls[] = {
      {"ScaleQPX", {5, 5, true, kYieldEveryCall}},
      {"ScaleQPX", {0, 0, false, kYieldEveryCall}},
      {"ScaleImageAndMaskQPX", {5, 5, true, kYieldEveryCall}},
      {"ScalingQPX", {3, 5, 5, kYieldEveryCall}},
      {"BlurQPX", {2.0, kYieldEveryCall}},
      {"BlurQPX", {0.5, kYieldEveryCall}},
  };
  int n = 0;
  for (const auto& call : nilCalls) {
    calls.Add(call.first, "nil-receiver-" + std::to_string(n++), "nil", 2,
              [method = call.first, arguments = call.second](Host& host, uint64_t) {
                return qpxtest::DigestPictureCall(host, nullptr, method, arguments);
              });
  }
}

std::vector<DigestCall> AllCalls(size_t hostCount) {
  CallList calls(hostCount);
  const std::vector<Resize> resizes = Resizes();
  AddScaleCalls(calls, resizes);
  AddScalingCalls(calls, resizes);
  AddScaleImageAndMaskCalls(calls, resizes);
  AddBlurCalls(calls);
  AddDrawCalls(calls);
  AddNilReceiverCalls(calls);
  return calls.calls();
}

// --- The digest file --------------------------------------------------------------------------

std::string Hex(uint64_t value) {
  char text[17];
  std::snprintf(text, sizeof text, "%016" PRIx64, value);
  return text;
}

using Digests = std::vector<std::pair<std::string, std::string>>;  // name, hex digest, in order

const char* const kFileHeader =
    "# Digests of tests/cross_arch_digest_test.cpp, written on x86-64: one call a line,\n"
    "# \"method/arguments/host/pictures/seed digest\". Pictures are WxH and a fill (n noise,\n"
    "# g ramps, e extremes, u uniform), a for an alpha channel, :lN a desktop layout;\n"
    "# A->WxH a resize, D<-P a drawing. Written with QPX_WRITE_DIGESTS=<this file>.\n";

void WriteDigests(const std::string& path, const Digests& digests) {
  std::ofstream out(path);
  out << kFileHeader;
  for (const auto& [name, hex] : digests) out << name << " " << hex << "\n";
  ASSERT_TRUE(out.good()) << "cannot write " << path;
}

// The recorded digests by name; a name recorded twice fails.
std::map<std::string, std::string> ReadDigests(const std::string& path) {
  std::map<std::string, std::string> recorded;
  std::ifstream in(path);
  EXPECT_TRUE(in.good()) << "cannot read " << path;
  std::string line;
  while (std::getline(in, line)) {
    if (line.empty() || line[0] == '#') continue;
    const size_t space = line.rfind(' ');
    if (space == std::string::npos) {
      ADD_FAILURE() << "malformed line: " << line;
      continue;
    }
    const bool added = recorded.emplace(line.substr(0, space), line.substr(space + 1)).second;
    EXPECT_TRUE(added) << "recorded twice: " << line.substr(0, space);
  }
  return recorded;
}

class CrossArchDigestTest : public qpxtest::MultiHostTest {};

TEST_F(CrossArchDigestTest, EveryCallGivesItsRecordedDigest) {
  const std::vector<HostConfig> hosts = Hosts();
  const std::vector<DigestCall> calls = AllCalls(hosts.size());
  Digests digests;
  std::set<std::string> names;
  for (size_t h = 0; h < hosts.size(); ++h) {
    Host& host = Reboot(hosts[h]);
    for (const DigestCall& call : calls) {
      if (std::find(call.hosts.begin(), call.hosts.end(), h) == call.hosts.end()) continue;
      const std::string name = call.NameIn(hosts[h]);
      SCOPED_TRACE(name);
      EXPECT_TRUE(names.insert(name).second) << "two calls named alike";
      digests.emplace_back(name, Hex(call.run(host)));
    }
  }
  RecordProperty("calls", static_cast<int>(digests.size()));

  if (const char* path = std::getenv("QPX_WRITE_DIGESTS")) {
    WriteDigests(path, digests);
    return;
  }
  std::map<std::string, std::string> recorded = ReadDigests(QPX_CROSS_ARCH_DIGESTS);
  for (const auto& [name, hex] : digests) {
    const auto found = recorded.find(name);
    if (found == recorded.end()) {
      ADD_FAILURE() << name << ": not recorded";
      continue;
    }
    EXPECT_EQ(hex, found->second) << name;
    recorded.erase(found);
  }
  for (const auto& [name, hex] : recorded) ADD_FAILURE() << name << ": recorded but not made";
}

}  // namespace
