#include "host_session.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <type_traits>
#include <variant>

#include "picture_services.h"

namespace qpxbench {
namespace {

qpxhost::HostConfig ConfigFor(qpxhost::AppKind app) {
  qpxhost::HostConfig config;
  config.app = app;
  return config;
}

// Tells calls apart, for checking each once.
std::string Describe(const MethodCall& call) {
  std::string text = call.method + " on " + call.source.Name() + (call.result ? "" : " in place") +
                     (call.masked ? " masked" : "") + " (";
  if (call.picture) {
    text += call.picture->size.Name() + (call.picture->masked ? " masked" : "") + ", ";
  }
  for (const qpxhost::Value& argument : call.arguments) {
    std::visit(
        [&text](auto value) {
          if constexpr (std::is_pointer_v<decltype(value)>) {
            text += "picture";
          } else {
            text += std::to_string(value);
          }
        },
        argument);
    text += ", ";
  }
  return text + ")";
}

// Gives `picture` a mask made by the host, as a host program's picture has one, with
// MaskNoise's values as its gray levels.
void AddNoiseMask(qpxhost::Host& host, qpxhost::HostPicture& picture) {
  picture.mask = qpxhost::NewHostMask(host, picture);  // the picture's reference
  const uint8_t* values = MaskNoise({picture.width, picture.height}).data();
  for (int32_t y = 0; y < picture.height; ++y) {
    for (int32_t x = 0; x < picture.width; ++x) {
      const uint8_t value = *values++;
      picture.mask->Set(x, y, {value, value, value, 255});
    }
  }
}

// What is wrong with the result of `call`: it has to be a new picture carrying one reference,
// or true from a method drawing in place. Empty when nothing is.
std::string ResultError(qpxhost::Host& host, const MethodCall& call,
                        const qpxhost::CallResult& result, const qpxhost::HostPicture* source) {
  if (!call.result) return result.boolean ? "" : call.method + " answered false";
  auto* picture = dynamic_cast<qpxhost::HostPicture*>(result.picture);
  if (result.picture == nullptr) return call.method + " returned nil";
  if (picture == nullptr || picture == source || picture->width != call.result->width ||
      picture->height != call.result->height) {
    return call.method + " did not return a new picture of " + call.result->Name();
  }
  if (host.RefCount(picture) != 1) {
    return call.method + " returned a picture with " + std::to_string(host.RefCount(picture)) +
           " references";
  }
  if (picture->lockCount != 0) return call.method + " left its result locked";
  if (call.masked) {
    const qpxhost::HostPicture* mask = picture->mask;
    if (mask == nullptr || mask->width != picture->width || mask->height != picture->height) {
      return call.method + " returned a picture without a mask of its size";
    }
    if (host.RefCount(mask) != 1 || mask->lockCount != 0) {
      return call.method + " returned a picture whose mask has " +
             std::to_string(host.RefCount(mask)) + " references, locked " +
             std::to_string(mask->lockCount) + " times";
    }
  }
  return {};
}

}  // namespace

const char* NormalModulePath() {
  return QPX_PLUGIN_PATH;
}

Session& Session::For(qpxhost::AppKind app, const std::string& module) {
  if (current_ == nullptr || current_->app_ != app || current_->module_ != module) {
    current_.reset();
    current_ = std::make_unique<Session>(app, module);
  }
  return *current_;
}

void Session::End() {
  current_.reset();
}

Session::Session(qpxhost::AppKind app, const std::string& module)
    : app_(app), module_(module), host_(ConfigFor(app)) {
  // Timed calls run by the thousand: the host keeps no log of them.
  host_.log.Enable(false);
  host_.LoadPlugin(module_);
}

Session::~Session() {
  for (auto& [argument, picture] : arguments_) host_.Unlock(picture);
  for (auto& [size, pictures] : pictures_) {
    if (pictures.canvas != nullptr) host_.Unlock(pictures.canvas);
    host_.Unlock(pictures.target);
    host_.Unlock(pictures.source);
  }
}

qpxhost::HostPicture* Session::NoisePicture(Size size) {
  qpxhost::HostPicture* picture = qpxhost::NewHostPicture(host_, size.width, size.height);
  const uint8_t* noise = NoisePixels(size).data();
  for (int32_t y = 0; y < size.height; ++y) {
    std::memcpy(picture->Row(y), noise + static_cast<size_t>(y) * size.RowBytes(), size.RowBytes());
  }
  return picture;
}

Session::Pictures& Session::PicturesOf(Size size) {
  Pictures& pictures = pictures_[size];
  if (pictures.source == nullptr) {
    pictures.source = NoisePicture(size);
    pictures.target = qpxhost::NewHostPicture(host_, size.width, size.height);
  }
  return pictures;
}

qpxhost::HostPicture* Session::Canvas(Size size) {
  Pictures& pictures = PicturesOf(size);
  if (pictures.canvas == nullptr) pictures.canvas = NoisePicture(size);
  return pictures.canvas;
}

qpxhost::HostPicture* Session::Argument(const PictureArgument& argument) {
  qpxhost::HostPicture*& picture = arguments_[argument];
  if (picture == nullptr) {
    picture = NoisePicture(argument.size);
    if (argument.masked) AddNoiseMask(host_, *picture);
  }
  return picture;
}

qpxhost::HostPicture* Session::Receiver(const MethodCall& call) {
  if (!call.result) return Canvas(call.source);
  return call.masked ? Argument({call.source, true}) : Source(call.source);
}

std::vector<qpxhost::Value> Session::Arguments(const MethodCall& call) {
  std::vector<qpxhost::Value> arguments;
  if (call.picture) {
    arguments.emplace_back(static_cast<qpxhost::HostObject*>(Argument(*call.picture)));
  }
  arguments.insert(arguments.end(), call.arguments.begin(), call.arguments.end());
  return arguments;
}

std::vector<qpxhost::HostPicture*> Session::Handed(const MethodCall& call) {
  std::vector<qpxhost::HostPicture*> handed{Receiver(call)};
  if (call.picture) handed.push_back(Argument(*call.picture));
  for (size_t i = 0, pictures = handed.size(); i < pictures; ++i) {
    if (handed[i]->mask != nullptr) handed.push_back(handed[i]->mask);
  }
  return handed;
}

std::string Session::Check(const MethodCall& call) {
  const std::string key =
      std::string(qpxhost::AppKindName(app_)) + " " + module_ + ": " + Describe(call);
  if (checked_.count(key) != 0) return {};
  std::string error;
  try {
    error = CheckedCall(call);
  } catch (const std::exception& exception) {
    error = call.method + " could not be called: " + exception.what();
  }
  if (error.empty()) checked_.insert(key);
  return error;
}

std::string Session::CheckedCall(const MethodCall& call) {
  qpxhost::HostPicture* receiver = Receiver(call);
  const std::vector<qpxhost::HostPicture*> handed = Handed(call);
  std::vector<int> handedRefs;
  for (const qpxhost::HostPicture* picture : handed) handedRefs.push_back(host_.RefCount(picture));
  const size_t objects = host_.LiveObjectCount();
  const size_t problems = host_.problems().size();
  const size_t raised = host_.raisedExceptions.size();
  const qpxhost::CallResult result = host_.Call(call.method, receiver, Arguments(call));
  std::string error = ResultError(host_, call, result, receiver);
  if (error.empty() && host_.problems().size() != problems) {
    error = "host misuse: " + host_.problems().back();
  } else if (error.empty() && host_.raisedExceptions.size() != raised) {
    error = call.method + " raised " + host_.raisedExceptions.back().className;
  }
  // A receiver handed back without a reference of its own must stay alive for the cases after.
  if (result.picture != nullptr &&
      (result.picture != receiver || host_.RefCount(receiver) > handedRefs.front())) {
    host_.Unlock(result.picture);
  }
  for (size_t i = 0; i < handed.size() && error.empty(); ++i) {
    if (host_.RefCount(handed[i]) != handedRefs[i] || handed[i]->lockCount != 0) {
      error = call.method + " left a picture it was handed with " +
              std::to_string(host_.RefCount(handed[i])) + " references (had " +
              std::to_string(handedRefs[i]) + "), locked " + std::to_string(handed[i]->lockCount) +
              " times";
    }
  }
  if (error.empty() && host_.LiveObjectCount() != objects) {
    error = call.method + " left " + std::to_string(host_.LiveObjectCount() - objects) +
            " host objects behind";
  }
  return error;
}

void TimeMethodCall(benchmark::State& state, qpxhost::AppKind app, const MethodCall& call,
                    const std::string& module) {
  Session* session = nullptr;
  std::string error;
  try {
    session = &Session::For(app, module);
    error = session->Check(call);
  } catch (const std::exception& exception) {
    error = exception.what();  // the module could not be loaded
  }
  if (!error.empty()) {
    state.SkipWithError(error.c_str());
    return;
  }
  qpxhost::Host& host = session->host();
  qpxhost::HostPicture* receiver = session->Receiver(call);
  const std::vector<qpxhost::Value> arguments = session->Arguments(call);
  for (auto _ : state) {
    const qpxhost::CallResult result = host.Call(call.method, receiver, arguments);
    benchmark::DoNotOptimize(result);
    if (result.picture != nullptr) host.Unlock(result.picture);
  }
  // A method drawing in place computes every pixel of its receiver.
  SetCounters(state, call.result.value_or(call.source).Pixels());
}

void CopyRows(qpxhost::HostPicture& from, qpxhost::HostPicture& to) {
  const size_t fromBytes = 4 * static_cast<size_t>(from.width);
  const size_t toBytes = 4 * static_cast<size_t>(to.width);
  for (int32_t y = 0; y < to.height; ++y) {
    const int64_t sourceRow = static_cast<int64_t>(y) * from.height / to.height;
    const uint8_t* source = from.Row(static_cast<int32_t>(sourceRow));
    uint8_t* destination = to.Row(y);
    for (size_t offset = 0; offset < fromBytes; offset += toBytes) {
      std::memcpy(destination, source + offset, std::min(toBytes, fromBytes - offset));
    }
  }
}

void SetCounters(benchmark::State& state, int64_t pixels) {
  state.SetItemsProcessed(state.iterations() * pixels);
  state.SetBytesProcessed(state.iterations() * pixels * 4);
}

}  // namespace qpxbench
