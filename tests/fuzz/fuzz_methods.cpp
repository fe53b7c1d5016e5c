// libFuzzer target: the five picture methods through the emulated host. The input picks the
// method, the host (kind, version, layouts, row padding), the receiver and the other pictures
// (sizes, layouts, depth, lockability, contents, masks) and the arguments, extremes included.
// Every call is checked against the plain references of tests/: the result or the drawn
// destination byte for byte, references, locks, guard bytes around every row, yields,
// exceptions, and a host holding nothing once the caller's references are released.
//
// One target serves all five methods: they share the input's description of hosts and
// pictures, libFuzzer's coverage feedback spreads the effort across their code, and one bounded
// run covers them all.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "blur_reference.h"
#include "draw_reference.h"
#include "fuzz_checks.h"
#include "fuzz_hosts.h"
#include "fuzz_input.h"
#include "fuzz_pictures.h"
#include "random_pictures.h"
#include "scale_mask_reference.h"
#include "scale_reference.h"
#include "scaling_reference.h"

namespace {

using qpxfuzz::CallWatch;
using qpxfuzz::CaseLog;
using qpxfuzz::FuzzInput;
using qpxfuzz::PictureRules;
using qpxhost::Host;
using qpxhost::HostObject;
using qpxhost::HostPicture;
using qpxtest::ExpectedPicture;
using qpxtest::ExpectedResult;

// New pictures are kept to 2^16 pixels, so that a case costs milliseconds with the references'
// work included: a side of up to 32767 still comes, with the other one cut to fit. Sizes the
// host's writer refuses at once (beyond 32767 without alpha channel) are left as they are;
// with an alpha channel every size is cut, as the reference takes the host to make any size,
// and no side exceeds 2^16 (next to a side of 0 either), which keeps the host's 32-bit row byte
// counts in range.
constexpr int64_t kMaxResultPixels = int64_t{1} << 16;

void LimitResultArea(int32_t& width, int32_t& height, bool hasAlpha) {
  if (hasAlpha) {
    width = static_cast<int32_t>(std::min<int64_t>(width, kMaxResultPixels));
    height = static_cast<int32_t>(std::min<int64_t>(height, kMaxResultPixels));
  }
  if (width < 1 || height < 1 || int64_t{width} * height <= kMaxResultPixels) return;
  if (!hasAlpha && (width > 32767 || height > 32767)) return;
  int32_t& larger = width >= height ? width : height;
  int32_t& smaller = width >= height ? height : width;
  smaller = static_cast<int32_t>(std::min<int64_t>(smaller, kMaxResultPixels));
  larger = static_cast<int32_t>(std::max<int64_t>(1, kMaxResultPixels / smaller));
}

// Exactly, so that a case can be read back from its log.
std::string Exact(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.17g", value);
  return text;
}

std::string Sizes(int32_t width, int32_t height) {
  return std::to_string(width) + ", " + std::to_string(height);
}

std::string ScaleCallText(const char* method, const qpxtest::ScaleCall& call) {
  return std::string(method) + "(" + Sizes(call.width, call.height) + ", " +
         (call.antiAlias ? "True" : "False") + ", " + std::to_string(call.yieldTicks) + ")\n";
}

bool HasAlpha(const HostPicture* picture) {
  return picture != nullptr && picture->hasAlpha;
}

HostPicture* ReadReceiver(FuzzInput& input, Host& host, const PictureRules& rules) {
  HostPicture* receiver = qpxfuzz::ReadPicture(input, host, rules, "receiver", CaseLog());
  if (receiver != nullptr) qpxfuzz::ReadMask(input, host, *receiver, rules, CaseLog());
  return receiver;
}

// A call that returns a picture, checked against `expected`; its yields too when `yieldsKnown`.
// A host whose new pictures cannot be opened as asked turns every new picture into nil, after
// yields that depend on where the method gave up.
void RunPictureCall(Host& host, HostPicture* receiver, const std::string& method,
                    std::vector<qpxhost::Value> arguments, ExpectedResult expected,
                    int32_t yieldArgument, bool yieldsKnown = true) {
  if (qpxfuzz::NewPicturesFail(host.config()) &&
      expected.picture.kind == ExpectedPicture::Kind::NewPicture) {
    expected.picture = ExpectedPicture::Nil();
    yieldsKnown = false;
  }
  CallWatch watch(host, {receiver});
  qpxfuzz::ShowCase();
  HostObject* returned = host.Call(method, receiver, std::move(arguments)).picture;
  watch.CheckPictures(nullptr, returned);
  qpxfuzz::CheckReturned(host, returned, receiver, expected.picture);
  if (yieldsKnown) qpxfuzz::CheckYields(watch.Yields(), expected.yields, yieldArgument);
  qpxfuzz::CheckRaised(host, std::nullopt);
  qpxfuzz::ReleaseAll(host, {returned, receiver});
}

void FuzzScale(FuzzInput& input, Host& host) {
  HostPicture* receiver = ReadReceiver(input, host, {});
  qpxtest::ScaleCall call{input.Size(), input.Size(), input.Flag(), input.Yield()};
  LimitResultArea(call.width, call.height, HasAlpha(receiver));
  CaseLog() += ScaleCallText("ScaleQPX", call);
  const auto pixels = qpxfuzz::PixelsAsRead(receiver, host.config(), true);
  ExpectedResult expected;
  if (receiver != nullptr && !pixels) {
    // Only the sizes are read; the box resizer's final yield comes after its reader failed.
    const bool same = receiver->width == call.width && receiver->height == call.height;
    expected = same ? ExpectedResult{ExpectedPicture::Receiver(), 0}
                    : ExpectedResult{ExpectedPicture::Nil(), call.yieldTicks != 0 ? 1 : 0};
  } else {
    const qpxtest::ExpectedScaleResult scaled = qpxtest::ExpectedScale(
        pixels ? &*pixels : nullptr, HasAlpha(receiver), host.config(), call);
    expected = {scaled.picture, scaled.yields};
  }
  RunPictureCall(host, receiver, "ScaleQPX",
                 {call.width, call.height, call.antiAlias, call.yieldTicks}, expected,
                 call.yieldTicks);
}

// The reference reads receivers and masks as 32-bit pictures; a receiver that does not lock is
// read as the module reads it, through the host's opaque copy on a desktop host.
void FuzzScaleImageAndMask(FuzzInput& input, Host& host) {
  PictureRules rules;
  rules.otherDepthAllowed = false;
  rules.emptyRowsAllowed = false;
  rules.faultyLockAllowed = false;
  HostPicture* receiver = ReadReceiver(input, host, rules);
  qpxtest::ScaleCall call{input.Size(), input.Size(), input.Flag(), input.Yield()};
  LimitResultArea(call.width, call.height, HasAlpha(receiver));
  CaseLog() += ScaleCallText("ScaleImageAndMaskQPX", call);
  std::optional<qpxtest::MaskedSource> source;
  if (receiver != nullptr) source = qpxtest::ReadMaskedSource(*receiver, host.config());
  const ExpectedResult expected =
      qpxtest::ExpectedScaleImageAndMask(source ? &*source : nullptr, host.config(), call);
  RunPictureCall(host, receiver, "ScaleImageAndMaskQPX",
                 {call.width, call.height, call.antiAlias, call.yieldTicks}, expected,
                 call.yieldTicks);
}

void FuzzScaling(FuzzInput& input, Host& host) {
  HostPicture* receiver = ReadReceiver(input, host, {});
  qpxtest::ScalingCall call{input.Mode(), input.Size(), input.Size(), input.Yield()};
  LimitResultArea(call.width, call.height, HasAlpha(receiver));
  CaseLog() += "ScalingQPX(" + std::to_string(call.mode) + ", " + Sizes(call.width, call.height) +
               ", " + std::to_string(call.yield) + ")\n";
  const auto pixels = qpxfuzz::PixelsAsRead(receiver, host.config(), true);
  const ExpectedResult expected = qpxtest::ExpectedScaling(pixels ? &*pixels : nullptr,
                                                           HasAlpha(receiver), host.config(), call);
  // The module counts buffer bytes in 64 bits where the original's 32-bit counts wrap: an
  // intermediate past 32 bits, or a contributor array (12 bytes an entry) past the size test,
  // gives nil, as no writer takes such a size, but sooner than the reference's count of yields
  // has it (which follows the wrapped count, and leaves a failed contributor array out).
  const bool yieldsKnown = !pixels || call.width < 1 || call.height < 1 ||
                           (uint64_t(call.width) * uint64_t(pixels->height) * 4 <= UINT32_MAX &&
                            12 * uint64_t(std::max(call.width, call.height)) <= 0x7FFFFFFF);
  RunPictureCall(host, receiver, "ScalingQPX", {call.mode, call.width, call.height, call.yield},
                 expected, call.yield, yieldsKnown);
}

void FuzzBlur(FuzzInput& input, Host& host) {
  HostPicture* receiver = ReadReceiver(input, host, {});
  const double radius = input.Radius();
  const int32_t yield = input.Yield();
  // Whole radii from 1001 to 1048574 are left out: the reference's window sums of 2r + 1 reads
  // a pixel cost seconds a call. Larger ones fail the table's size test.
  const int32_t r = qpxtest::ReferenceWholeRadius(radius);
  if (r > 1000 && r < 1048575) return qpxfuzz::ReleaseAll(host, {receiver});
  CaseLog() += "BlurQPX(" + Exact(radius) + ", " + std::to_string(yield) + ")\n";
  const auto pixels = qpxfuzz::PixelsAsRead(receiver, host.config(), true);
  ExpectedResult expected;
  if (receiver != nullptr) {
    expected.picture = qpxtest::ExpectedBlur(pixels ? *pixels : qpxtest::RawPicture(),
                                             qpxtest::NewPictureFormat(host.config()), radius);
  }
  // Blurring yields once before, once a row in each pass and once after; a division table too
  // large leaves only the last one.
  if (expected.picture.kind == ExpectedPicture::Kind::NewPicture) {
    const bool tableFits = (2 * uint64_t(r) + 2) * 1024 <= 2147483647;
    expected.yields = tableFits ? 2 * receiver->height + 2 : 1;
  }
  RunPictureCall(host, receiver, "BlurQPX", {radius, yield}, expected, yield);
}

// The drawn picture: a picture of its own (with or without mask), nil, the destination itself,
// or a picture whose mask is the destination.
HostPicture* ReadDrawnPicture(FuzzInput& input, Host& host, HostPicture* destination) {
  PictureRules rules;
  rules.mayBeNil = false;
  switch (input.Byte() % 4) {
    case 1:
      CaseLog() += "pic: nil\n";
      return nullptr;
    case 2:
      CaseLog() += "pic: the destination\n";
      if (destination != nullptr) host.Lock(destination);
      return destination;
    case 3: {
      HostPicture* picture = qpxfuzz::ReadPicture(input, host, rules, "pic", CaseLog());
      if (destination != nullptr) host.Lock(destination);
      picture->mask = destination;
      CaseLog() += "  its mask: the destination\n";
      return picture;
    }
    default: {
      HostPicture* picture = qpxfuzz::ReadPicture(input, host, rules, "pic", CaseLog());
      qpxfuzz::ReadMask(input, host, *picture, rules, CaseLog());
      return picture;
    }
  }
}

void FuzzDraw(FuzzInput& input, Host& host) {
  HostPicture* destination = ReadReceiver(input, host, {});
  HostPicture* picture = ReadDrawnPicture(input, host, destination);
  const qpxtest::DrawCall call{input.Coordinate(), input.Coordinate(), input.Opacity(),
                               input.Yield()};
  CaseLog() += "DrawPictureFQPX(pic, " + Exact(call.x) + ", " + Exact(call.y) + ", " +
               Exact(call.alpha) + ", " + std::to_string(call.yield) + ")\n";

  // The editors open in the order mask, destination, picture; only the picture's may read
  // through a copy.
  const qpxhost::HostConfig& config = host.config();
  HostPicture* mask = picture != nullptr ? picture->mask : nullptr;
  const auto picturePixels = qpxfuzz::PixelsAsRead(picture, config, true);
  // A picture read through a copy cannot be read when the host's new pictures fail.
  const bool pictureOpens =
      picturePixels && (!qpxfuzz::NewPicturesFail(config) ||
                        qpxfuzz::PixelsAsRead(picture, config, false).has_value());
  const bool editorsOpen = (mask == nullptr || qpxfuzz::PixelsAsRead(mask, config, false)) &&
                           qpxfuzz::PixelsAsRead(destination, config, false) && pictureOpens;
  qpxtest::DrawScene scene;
  if (destination != nullptr) scene.destination = qpxfuzz::BytesOf(*destination);
  if (picture != nullptr) scene.picture = picturePixels.value_or(qpxfuzz::BytesOf(*picture));
  // A mask is read only when every editor opens; one that does not (no rows, say) is not handed
  // to the reference, which would read its first row.
  if (mask != nullptr && editorsOpen) scene.mask = qpxfuzz::BytesOf(*mask);
  if (picture != nullptr && picture == destination) {
    scene.shared = qpxtest::SharedWithDestination::Picture;
  } else if (mask != nullptr && mask == destination) {
    scene.shared = qpxtest::SharedWithDestination::Mask;
  }
  qpxtest::ExpectedDraw expected = qpxtest::ExpectedDrawPictureF(scene, call);
  if (expected.result && !editorsOpen) expected = {false, std::nullopt, scene.destination, 0};

  CallWatch watch(host, {destination, picture});
  qpxfuzz::ShowCase();
  const bool answer =
      host.Call("DrawPictureFQPX", destination,
                {static_cast<HostObject*>(picture), call.x, call.y, call.alpha, call.yield})
          .boolean;
  qpxfuzz::Require(answer == expected.result, expected.result ? "answered False, expected True"
                                                              : "answered True, expected False");
  watch.CheckPictures(destination, nullptr);
  if (destination != nullptr) {
    qpxfuzz::RequireSamePixels(*expected.destination, qpxfuzz::BytesOf(*destination),
                               "the destination");
  }
  qpxfuzz::CheckYields(watch.Yields(), expected.yields, call.yield);
  qpxfuzz::CheckRaised(host, expected.exceptionMessage);
  qpxfuzz::ReleaseAll(host, {destination, picture});
}

constexpr void (*kMethods[])(FuzzInput&, Host&) = {FuzzScale, FuzzScaleImageAndMask, FuzzScaling,
                                                   FuzzBlur, FuzzDraw};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  qpxfuzz::LoadModules();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzInput input(data, size);
  const int64_t method = input.Int(0, std::size(kMethods) - 1);
  const qpxhost::HostConfig config = qpxfuzz::ReadHostConfig(input);
  CaseLog() = qpxfuzz::Describe(config) + "\n";
  const std::unique_ptr<Host> host = qpxfuzz::BootHost(config);
  kMethods[method](input, *host);
  return 0;
}
