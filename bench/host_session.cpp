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
  std::string text = call.method + " on " + call.source.Name() + " (";
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
  host_.LoadPlugin(module_);
}

Session::~Session() {
  for (auto& [size, pictures] : pictures_) {
    host_.Unlock(pictures.target);
    host_.Unlock(pictures.source);
  }
}

Session::Pictures& Session::PicturesOf(Size size) {
  Pictures& pictures = pictures_[size];
  if (pictures.source == nullptr) {
    pictures.source = qpxhost::NewHostPicture(host_, size.width, size.height);
    pictures.target = qpxhost::NewHostPicture(host_, size.width, size.height);
    const uint8_t* noise = NoisePixels(size).data();
    for (int32_t y = 0; y < size.height; ++y) {
      std::memcpy(pictures.source->Row(y), noise + static_cast<size_t>(y) * size.RowBytes(),
                  size.RowBytes());
    }
  }
  return pictures;
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
  qpxhost::HostPicture* source = Source(call.source);
  const int sourceRefs = host_.RefCount(source);
  const size_t objects = host_.LiveObjectCount();
  const size_t problems = host_.problems().size();
  const size_t raised = host_.raisedExceptions.size();
  const qpxhost::CallResult result = host_.Call(call.method, source, call.arguments);
  auto* picture = dynamic_cast<qpxhost::HostPicture*>(result.picture);
  std::string error;
  if (result.picture == nullptr) {
    error = call.method + " returned nil";
  } else if (picture == nullptr || picture == source || picture->width != call.result.width ||
             picture->height != call.result.height) {
    error = call.method + " did not return a new picture of " + call.result.Name();
  } else if (host_.RefCount(picture) != 1) {
    error = call.method + " returned a picture with " + std::to_string(host_.RefCount(picture)) +
            " references";
  } else if (picture->lockCount != 0) {
    error = call.method + " left its result locked";
  } else if (host_.problems().size() != problems) {
    error = "host misuse: " + host_.problems().back();
  } else if (host_.raisedExceptions.size() != raised) {
    error = call.method + " raised " + host_.raisedExceptions.back().className;
  }
  // A receiver handed back without a reference of its own must stay alive for the cases after.
  if (result.picture != nullptr && (picture != source || host_.RefCount(source) > sourceRefs)) {
    host_.Unlock(result.picture);
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
  qpxhost::HostPicture* source = session->Source(call.source);
  for (auto _ : state) {
    const qpxhost::CallResult result = host.Call(call.method, source, call.arguments);
    benchmark::DoNotOptimize(result.picture);
    host.Unlock(result.picture);
  }
  SetCounters(state, call.result.Pixels());
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
