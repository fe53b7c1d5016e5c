#include "picture_io.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>
#include <stdexcept>

#include "int_conversion.h"
#include "resampling_modes.h"

namespace qpx {
namespace {

std::string ValueText(const qpxhost::Value& value, const std::string& picture) {
  if (const auto* number = std::get_if<double>(&value)) {
    char text[40];
    std::snprintf(text, sizeof text, "%.10g", *number);
    std::string out = text;
    if (std::isfinite(*number) && out.find_first_of(".e") == std::string::npos) out += ".0";
    return out;
  }
  if (const auto* integer = std::get_if<int32_t>(&value)) return std::to_string(*integer);
  if (const auto* boolean = std::get_if<bool>(&value)) return *boolean ? "True" : "False";
  return std::get<qpxhost::HostObject*>(value) == nullptr ? "Nil" : picture;
}

// Argument `index` of the call when it holds a T, else `fallback`.
template <typename T>
T ArgumentOr(const MethodCall& call, size_t index, T fallback) {
  if (index >= call.arguments.size()) return fallback;
  const T* value = std::get_if<T>(&call.arguments[index]);
  return value != nullptr ? *value : fallback;
}

double NumberArgument(const MethodCall& call, size_t index) {
  return ArgumentOr<double>(call, index, ArgumentOr<int32_t>(call, index, 0));
}

bool IsPictureSize(int32_t width, int32_t height) {
  return width >= 1 && height >= 1 && width <= kMaxImageSide && height <= kMaxImageSide;
}

// What a yield count needs to know of the receiver.
struct Receiver {
  int32_t width, height;
  bool masked;  // it has a mask or an alpha channel
};

// Blur: a vertical and a horizontal pass over every row, with one yield before and one after.
int64_t BlurYields(const MethodCall& call, const Receiver& receiver) {
  // The radius's whole part as the module takes it.
  if (TruncateToInt32(NumberArgument(call, 0)) < 1) return 0;  // the receiver comes back as it is
  if (!IsPictureSize(receiver.width, receiver.height)) return 0;
  return 2 * int64_t{receiver.height} + 2;
}

// Scale: the receiver itself at the same size. The anti-aliased enlargement, taken only when
// the picture grows both ways, checks three times before its rows and then once per row and
// pixel byte (4), with no check after; the box resizer checks once per row and once after.
int64_t ScaleYields(const MethodCall& call, const Receiver& receiver) {
  const int32_t newWidth = ArgumentOr<int32_t>(call, 0, 0);
  const int32_t newHeight = ArgumentOr<int32_t>(call, 1, 0);
  if (!IsPictureSize(receiver.width, receiver.height) || !IsPictureSize(newWidth, newHeight)) {
    return 0;
  }
  if (newWidth == receiver.width && newHeight == receiver.height) return 0;
  if (ArgumentOr(call, 2, false) && newWidth > receiver.width && newHeight > receiver.height) {
    return 3 + 4 * int64_t{newHeight};
  }
  return int64_t{newHeight} + 1;
}

// Scale with the mask: the image as ScaleQPX resizes it, then the mask (for a picture with an
// alpha channel, the mask made from it) through the same resizer, which the receiver's size
// chooses in either case.
int64_t ScaleWithMaskYields(const MethodCall& call, const Receiver& receiver) {
  return ScaleYields(call, receiver) * (receiver.masked ? 2 : 1);
}

// Resampling: nil before any work for a mode outside 1 to 7, a size below 1 or an intermediate
// image (new width x source height words) above 2^31 - 1 bytes; nil after five checks when the
// new picture cannot be made. Otherwise four checks before the rows, one per row, three after.
int64_t ScalingYields(const MethodCall& call, const Receiver& receiver) {
  const int32_t mode = ArgumentOr<int32_t>(call, 0, 0);
  const int32_t newWidth = ArgumentOr<int32_t>(call, 1, 0);
  const int32_t newHeight = ArgumentOr<int32_t>(call, 2, 0);
  if (FindResamplingMode(mode) == nullptr) return 0;
  if (!IsPictureSize(receiver.width, receiver.height) || !IsPictureSize(newWidth, newHeight)) {
    return 0;
  }
  if (int64_t{newWidth} * receiver.height * 4 > INT32_MAX) return 0;
  return int64_t{newHeight} + 7;
}

// Drawing into the receiver (x and y follow the picture): false before any check when the floor
// of a coordinate is outside the 32-bit range, NaN included; otherwise a check before the rows,
// one per row of the receiver and one after.
int64_t DrawYields(const MethodCall& call, const Receiver& receiver) {
  for (size_t index : {1, 2}) {
    const double whole = std::floor(NumberArgument(call, index));
    if (!(whole >= INT32_MIN && whole <= INT32_MAX)) return 0;
  }
  if (!IsPictureSize(receiver.width, receiver.height)) return 0;
  return int64_t{receiver.height} + 2;
}

using YieldCounter = int64_t (*)(const MethodCall&, const Receiver&);

// Methods whose yields are known, by name.
const std::map<std::string, YieldCounter>& YieldCounters() {
  static const std::map<std::string, YieldCounter> counters = {
      {"BlurQPX", &BlurYields},
      {"ScaleQPX", &ScaleYields},
      {"ScaleImageAndMaskQPX", &ScaleWithMaskYields},
      {"ScalingQPX", &ScalingYields},
      {"DrawPictureFQPX", &DrawYields}};
  return counters;
}

qpxhost::RegisteredMethod FindPictureMethod(const qpxhost::Host& host, const MethodCall& call) {
  std::optional<qpxhost::RegisteredMethod> method = host.FindMethod("Picture", call.method);
  if (!method) throw std::runtime_error("the module has no method " + call.method);
  return *std::move(method);
}

// The arguments for the host: the call's own, declared defaults up to the last parameter, which
// every method of the module uses for its yield argument.
std::vector<qpxhost::Value> FullArguments(const qpxhost::RegisteredMethod& method,
                                          const MethodCall& call, int32_t yield) {
  const std::vector<qpxhost::Parameter>& parameters = method.declaration.parameters;
  if (parameters.empty() || call.arguments.size() >= parameters.size()) {
    throw std::runtime_error(call.Text() + ": the call does not match the declaration " +
                             method.declarationText);
  }
  std::vector<qpxhost::Value> arguments = call.arguments;
  for (size_t i = arguments.size(); i + 1 < parameters.size(); ++i) {
    if (!parameters[i].defaultValue) {
      throw std::runtime_error(call.Text() + ": missing argument '" + parameters[i].name + "'");
    }
    arguments.push_back(*parameters[i].defaultValue);
  }
  arguments.emplace_back(yield);
  return arguments;
}

// Gives `picture`, which has no mask yet, a mask of `value(bytes)` for the bytes of each pixel
// of `source`, an image of the picture's size.
template <typename Value>
void AttachMask(qpxhost::Host& host, qpxhost::HostPicture& picture, const Image& source,
                Value value) {
  picture.mask = qpxhost::NewHostMask(host, picture);  // the picture's reference
  std::vector<uint8_t> row(size_t(source.width) * 4);
  const uint8_t* p = source.rgba.data();
  for (int32_t y = 0; y < source.height; ++y) {
    for (size_t x = 0; x < row.size(); x += 4, p += 4) {
      const uint8_t v = value(p);
      row[x] = row[x + 1] = row[x + 2] = v;
      row[x + 3] = 255;
    }
    picture.mask->SetRow(y, row.data());
  }
}

// The picture's colours, and its alpha channel when it has one.
Image PixelsOf(const qpxhost::HostPicture& picture) {
  Image image;
  image.width = picture.width;
  image.height = picture.height;
  image.hasAlpha = picture.hasAlpha;
  image.rgba.resize(size_t(picture.width) * size_t(picture.height) * 4);
  for (int32_t y = 0; y < picture.height; ++y) {
    picture.GetRow(y, image.rgba.data() + size_t(y) * size_t(picture.width) * 4);
  }
  return image;
}

// The pictures a call is handed, whose reference counts it must leave as they were: the
// receiver, the picture arguments and their masks.
std::vector<qpxhost::HostObject*> HandedPictures(qpxhost::HostPicture* receiver,
                                                 const std::vector<qpxhost::Value>& arguments) {
  std::vector<qpxhost::HostObject*> handed = {receiver};
  for (const qpxhost::Value& argument : arguments) {
    const auto* object = std::get_if<qpxhost::HostObject*>(&argument);
    if (object != nullptr && *object != nullptr) handed.push_back(*object);
  }
  for (size_t i = 0, count = handed.size(); i < count; ++i) {
    const auto* picture = dynamic_cast<const qpxhost::HostPicture*>(handed[i]);
    if (picture != nullptr && picture->mask != nullptr) handed.push_back(picture->mask);
  }
  return handed;
}

// Throws when the call left a handed picture with another count than `before`, apart from the
// reference a result that is one of them carries.
void CheckHandedReferences(const qpxhost::Host& host, const MethodCall& call,
                           const std::vector<qpxhost::HostObject*>& handed,
                           const std::vector<int>& before, const qpxhost::HostObject* result) {
  for (size_t i = 0; i < handed.size(); ++i) {
    const int expected = before[i] + (handed[i] == result ? 1 : 0);
    const int refs = host.RefCount(handed[i]);
    if (refs != expected) {
      throw std::runtime_error(call.Text() + " left " +
                               (i == 0 ? std::string("the receiver") : "a picture it was given") +
                               " with " + std::to_string(refs) + " references instead of " +
                               std::to_string(expected));
    }
  }
}

}  // namespace

PictureRef& PictureRef::operator=(PictureRef&& other) noexcept {
  if (this != &other) {
    Reset();
    host_ = other.host_;
    picture_ = other.picture_;
    other.picture_ = nullptr;
  }
  return *this;
}

void PictureRef::Reset() {
  if (picture_ != nullptr) host_->Unlock(picture_);
  picture_ = nullptr;
}

PictureRef ImageToPicture(qpxhost::Host& host, const Image& image,
                          const qpxhost::PictureOptions& kind, const Image* mask) {
  if (mask != nullptr && (mask->width != image.width || mask->height != image.height)) {
    throw std::invalid_argument("the mask is not the size of the picture");
  }
  if (!FitsHostPicture(uint64_t(image.width), uint64_t(image.height))) {
    throw std::invalid_argument("a host picture cannot hold " + std::to_string(image.width) +
                                " x " + std::to_string(image.height) + " pixels");
  }
  PictureRef picture(host, qpxhost::NewHostPicture(host, image.width, image.height, kind));
  for (int32_t y = 0; y < image.height; ++y) {
    picture->SetRow(y, image.rgba.data() + size_t(y) * size_t(image.width) * 4);
  }
  if (mask != nullptr) {
    AttachMask(host, *picture.get(), *mask, [](const uint8_t* p) { return p[0]; });
  } else if (image.hasAlpha && !kind.hasAlpha) {
    AttachMask(host, *picture.get(), image,
               [](const uint8_t* p) { return static_cast<uint8_t>(255 - p[3]); });
  }
  return picture;
}

Image PictureToImage(const qpxhost::HostPicture& picture) {
  Image image = PixelsOf(picture);
  const qpxhost::HostPicture* mask = picture.mask;
  if (picture.hasAlpha || mask == nullptr) return image;
  // Where a mask of another size does not reach, the picture stays opaque.
  image.hasAlpha = true;
  std::vector<uint8_t> row(size_t(mask->width) * 4);
  const int32_t width = std::min(image.width, mask->width);
  for (int32_t y = 0; y < std::min(image.height, mask->height); ++y) {
    mask->GetRow(y, row.data());
    uint8_t* p = image.rgba.data() + size_t(y) * size_t(image.width) * 4;
    for (int32_t x = 0; x < width; ++x) p[4 * x + 3] = static_cast<uint8_t>(255 - row[4 * x]);
  }
  return image;
}

std::optional<Image> MaskToImage(const qpxhost::HostPicture& picture) {
  if (picture.mask == nullptr) return std::nullopt;
  return PixelsOf(*picture.mask);
}

void CheckLedger(const qpxhost::Host& host, const std::string& after) {
  if (!host.problems().empty()) {
    throw std::runtime_error("host misuse during " + after + ": " + host.problems().front());
  }
  if (host.LiveObjectCount() != 0) {
    throw std::runtime_error("after " + after + " the host still holds " +
                             std::to_string(host.LiveObjectCount()) + " objects");
  }
}

std::string MethodCall::Text() const {
  std::string text = receiver + "." + method + "(";
  for (size_t i = 0; i < arguments.size(); ++i) {
    if (i > 0) text += ", ";
    text += ValueText(arguments[i], picture);
  }
  return text + ")";
}

int64_t RowYields(const MethodCall& call, int32_t width, int32_t height, bool masked) {
  auto it = YieldCounters().find(call.method);
  return it == YieldCounters().end() ? 0 : it->second(call, {width, height, masked});
}

PictureRef RunMethod(qpxhost::Host& host, qpxhost::HostPicture* picture, const MethodCall& call,
                     int32_t yield) {
  const qpxhost::RegisteredMethod& method = FindPictureMethod(host, call);
  const std::vector<qpxhost::Value> arguments = FullArguments(method, call, yield);
  const size_t raisedBefore = host.raisedExceptions.size();
  const size_t problemsBefore = host.problems().size();
  const std::vector<qpxhost::HostObject*> handed = HandedPictures(picture, arguments);
  std::vector<int> refsBefore;
  for (const qpxhost::HostObject* object : handed) refsBefore.push_back(host.RefCount(object));

  const qpxhost::CallResult result = host.Call(call.method, picture, arguments);
  if (host.problems().size() > problemsBefore) {
    throw std::runtime_error("host misuse during " + call.Text() + ": " +
                             host.problems()[problemsBefore]);
  }
  // Owned from here on, so that every way out drops it.
  PictureRef owned;
  auto* resultPicture = dynamic_cast<qpxhost::HostPicture*>(result.picture);
  if (resultPicture != nullptr) owned = PictureRef(host, resultPicture);
  if (host.raisedExceptions.size() > raisedBefore) {
    const qpxhost::RaisedException& raised = host.raisedExceptions[raisedBefore];
    throw std::runtime_error(call.Text() + " raised " + raised.className +
                             (raised.message ? ": " + *raised.message : std::string()));
  }
  if (method.declaration.result == qpxhost::ValueType::Boolean) {
    // Drawn into the receiver in place.
    if (!result.boolean) throw std::runtime_error(call.Text() + " answered False");
    CheckHandedReferences(host, call, handed, refsBefore, nullptr);
    host.Lock(picture);
    return PictureRef(host, picture);
  }
  if (result.picture == nullptr) throw std::runtime_error(call.Text() + " returned nil");
  if (resultPicture == nullptr) {
    host.Unlock(result.picture);
    throw std::runtime_error(call.Text() + " returned a " + result.picture->className() +
                             " instead of a picture");
  }
  // The result carries one reference for the caller, on top of those it had when the method
  // hands back a picture it was given.
  const auto given = std::find(handed.begin(), handed.end(), resultPicture);
  const int had = given == handed.end() ? 0 : refsBefore[size_t(given - handed.begin())];
  const int refs = host.RefCount(resultPicture);
  if (refs != had + 1) {
    throw std::runtime_error(call.Text() + " returned a picture carrying " +
                             std::to_string(refs - had) + " references instead of 1");
  }
  CheckHandedReferences(host, call, handed, refsBefore, resultPicture);
  return owned;
}

}  // namespace qpx
