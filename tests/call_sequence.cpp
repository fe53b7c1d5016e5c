#include "call_sequence.h"

#include <algorithm>

#include "host_picture.h"

namespace qpxtest {

using qpxhost::AppKind;

std::string Name(const qpxhost::HostObject* object) {
  return qpxhost::ObjectName(object);
}

std::vector<std::string> Calls(const qpxhost::Host& host, size_t from) {
  return host.log.Lines(from);
}

std::vector<std::string> CallsOf(const qpxhost::Host& host, const std::vector<std::string>& names,
                                 size_t from) {
  return host.log.Lines(
      [&](const qpxhost::HostCall& call) {
        return std::find(names.begin(), names.end(), call.name) != names.end();
      },
      from);
}

::testing::AssertionResult InOrder(const std::vector<std::string>& calls,
                                   const std::vector<std::string>& expected) {
  size_t at = 0;
  for (const std::string& line : expected) {
    while (at < calls.size() && calls[at] != line) ++at;
    if (at == calls.size()) {
      std::string all;
      for (const std::string& call : calls) all += "  " + call + "\n";
      return ::testing::AssertionFailure()
             << "'" << line << "' not found in order among the calls:\n"
             << all;
    }
    ++at;
  }
  return ::testing::AssertionSuccess();
}

qpxhost::HostObject* LastResultOf(const qpxhost::Host& host, const std::string& name, size_t from) {
  const auto& calls = host.log.calls();
  for (size_t i = calls.size(); i > from; --i) {
    const qpxhost::HostCall& call = calls[i - 1];
    if (call.name == name && call.kind != qpxhost::HostCall::Kind::Lookup) {
      return host.FindSerial(call.resultObject);
    }
  }
  return nullptr;
}

int32_t RowsWritten(qpxhost::HostPicture& picture, uint8_t fill) {
  const int fourth = picture.layout == 8 || picture.layout % 2 == 1 ? 3 : 0;
  int32_t rows = 0;
  for (int32_t y = 0; y < picture.height; ++y) {
    const uint8_t* row = picture.Row(y);
    bool written = true;
    for (int32_t x = 0; x < picture.width && written; ++x) written = row[4 * x + fourth] != fill;
    rows += written ? 1 : 0;
  }
  return rows;
}

// --- Whole sequences ---------------------------------------------------------------------------

namespace {

std::string Listing(const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines) text += "  " + line + "\n";
  return text;
}

std::string Listing(const Sequence& sequence) {
  std::string text;
  for (const auto& step : sequence.steps()) {
    if (step.size() == 1) {
      text += "  " + step[0] + "\n";
    } else {
      text += "  (any order)\n";
      for (const std::string& line : step) text += "    " + line + "\n";
    }
  }
  return text;
}

}  // namespace

::testing::AssertionResult Follows(const std::vector<std::string>& calls,
                                   const Sequence& expected) {
  size_t at = 0;
  for (const auto& step : expected.steps()) {
    std::vector<std::string> want = step;
    std::vector<std::string> got(
        calls.begin() + static_cast<ptrdiff_t>(std::min(at, calls.size())),
        calls.begin() + static_cast<ptrdiff_t>(std::min(at + step.size(), calls.size())));
    std::sort(want.begin(), want.end());
    std::sort(got.begin(), got.end());
    if (got != want) {
      return ::testing::AssertionFailure() << "from call " << at << " on, expected:\n"
                                           << Listing(step) << "got:\n"
                                           << Listing(got) << "all calls:\n"
                                           << Listing(calls) << "all expected:\n"
                                           << Listing(expected);
    }
    at += step.size();
  }
  if (at != calls.size()) {
    return ::testing::AssertionFailure() << "calls after the last expected one; all calls:\n"
                                         << Listing(calls) << "all expected:\n"
                                         << Listing(expected);
  }
  return ::testing::AssertionSuccess();
}

// --- Lines -------------------------------------------------------------------------------------

namespace {

// "true" or "false", as the log writes a service's boolean.
std::string Flag(bool value) {
  return value ? "true" : "false";
}

}  // namespace

std::string Serial(uint64_t serial) {
  return qpxhost::ObjectName(serial);
}
std::string Named(REALpicture picture) {
  return Name(reinterpret_cast<const qpxhost::HostObject*>(picture));
}
std::string Size(int32_t width, int32_t height) {
  return std::to_string(width) + ", " + std::to_string(height);
}

std::string HostCallOf(const char* method, const std::string& self, int32_t width, int32_t height,
                       bool antiAlias, int32_t yieldTicks) {
  return std::string("call ") + method + "(" + self + ", " + Size(width, height) + ", " +
         (antiAlias ? "True" : "False") + ", " + std::to_string(yieldTicks) + ")";
}
std::string ReturnOf(const char* method, const std::string& result) {
  return std::string("return ") + method + "() -> " + result;
}

std::string LockDescription(const std::string& picture, int type, bool locked) {
  return "REALLockPictureDescription(" + picture + ", " + std::to_string(type) + ") -> " +
         Flag(locked);
}
std::string UnlockDescription(const std::string& picture) {
  return "unlockPictureDescription(" + picture + ")";
}
std::string AddRef(const std::string& object) {
  return "REALLockObject(" + object + ")";
}
std::string DropRef(const std::string& object) {
  return "REALUnlockObject(" + object + ")";
}
std::string ClearCache(const std::string& picture) {
  return "REALPictureClearCache(" + picture + ")";
}
std::string HasAlpha(const std::string& picture, bool value) {
  return "REALGetPropValueBool(" + picture + ", \"HasAlphaChannel\") -> " +
         (value ? "True" : "False");
}
std::string NewPicture(int32_t width, int32_t height, const std::string& made) {
  return "newPicture(" + Size(width, height) + ", 32) -> " + made;
}
std::string LoadMethod(const std::string& object, const char* declaration, bool found) {
  return "REALLoadObjectMethod(" + object + ", \"" + declaration + "\") -> " + Flag(found);
}
std::string GraphicsOf(const std::string& picture, const std::string& graphics) {
  return "pluginPictureGraphicsGetter(" + picture + ") -> " + graphics;
}
std::string Draw(const std::string& graphics, const std::string& source, int32_t w, int32_t h) {
  const std::string size = Size(w, h);
  return "Graphics.DrawPicture(" + graphics + ", " + source + ", 0, 0, " + size + ", 0, 0, " +
         size + ")";
}

// --- Steps -------------------------------------------------------------------------------------

std::vector<std::string> ContextReads(const std::string& picture) {
  std::vector<std::string> reads;
  for (const char* function : {"CGBitmapContextGetData", "CGBitmapContextGetBitsPerPixel",
                               "CGBitmapContextGetWidth", "CGBitmapContextGetHeight",
                               "CGBitmapContextGetBytesPerRow", "CGBitmapContextGetAlphaInfo"}) {
    reads.push_back(std::string(function) + "(" + picture + ")");
  }
  return reads;
}

Sequence ReadSize(const std::string& picture, int32_t width, int32_t height) {
  return Sequence().ThenAnyOrder(
      {"REALGetPropValueInt(" + picture + ", \"Width\") -> " + std::to_string(width),
       "REALGetPropValueInt(" + picture + ", \"Height\") -> " + std::to_string(height)});
}

Sequence Yields(int count) {
  Sequence sequence;
  for (int i = 0; i < count; ++i) sequence.Then(kYield);
  return sequence;
}

Sequence Detection(AppKind app) {
  return Sequence().ThenAnyOrder(
      {"pluginObjectType(\"Application\") -> " + Flag(app == AppKind::Desktop),
       "pluginObjectType(\"WebApplication\") -> " + Flag(app == AppKind::Web),
       "pluginObjectType(\"ConsoleApplication\") -> " + Flag(app == AppKind::Console)});
}

Sequence Open(AppKind app, const std::string& picture, bool detect, bool hasAlpha) {
  Sequence sequence;
  if (detect) sequence.Then(Detection(app));
  sequence.Then(HasAlpha(picture, hasAlpha));
  if (app == AppKind::Desktop) {
    sequence.Then(LockDescription(picture, 8, true)).ThenAnyOrder(ContextReads(picture));
  } else {
    sequence.Then(LockDescription(picture, 10, true));
  }
  return sequence.Then(AddRef(picture));
}

Sequence Release(const std::string& picture, bool clearCache) {
  Sequence sequence;
  sequence.Then(UnlockDescription(picture));
  if (clearCache) sequence.Then(ClearCache(picture));
  return sequence.Then(DropRef(picture));
}

Sequence Render(const std::string& picture) {
  return Sequence().Then(AddRef(picture)).Then(ClearCache(picture)).Then(Release(picture, true));
}

Sequence Writer(AppKind app, const std::string& made, int32_t width, int32_t height) {
  return Sequence()
      .Then(NewPicture(width, height, made))
      .Then(Open(app, made, false))
      .Then(DropRef(made));
}

Sequence AlphaWriter(const std::string& made, int32_t width, int32_t height) {
  return Sequence()
      .Then("PluginNewInstance(\"Picture\") -> " + made)
      .Then(LoadMethod(made, kConstructor, true))
      .Then("Picture.Constructor(" + made + ", " + Size(width, height) + ")")
      .Then(Open(AppKind::Desktop, made, false, true))
      .Then(DropRef(made));
}

Sequence RefusedWriter(const std::string& made, int32_t width, int32_t height) {
  return Sequence()
      .Then(NewPicture(width, height, made))
      .Then(HasAlpha(made, false))
      .Then(LockDescription(made, 10, true))
      .Then(UnlockDescription(made))
      .Then(DropRef(made));
}

Sequence FailedLock(const std::string& picture, int type, double version) {
  Sequence sequence;
  sequence.Then(LockDescription(picture, type, false));
  if (version < 2012.0) sequence.Then(UnlockDescription(picture));
  return sequence;
}

Sequence CopyRows(const std::string& destination, const std::string& source) {
  return Sequence()
      .Then(LockDescription(source, 10, true))
      .Then(LockDescription(destination, 10, true))
      .Then(UnlockDescription(destination))
      .Then(UnlockDescription(source))
      .Then(ClearCache(destination));
}

Sequence DrawWhole(AppKind app, const std::string& target, const std::string& source, int32_t width,
                   int32_t height, const std::string& graphics) {
  if (app == AppKind::Desktop) {
    return Sequence()
        .Then(GraphicsOf(target, graphics))
        .Then(LoadMethod(graphics, kDrawPicture, true))
        .Then(Draw(graphics, source, width, height))
        .Then(DropRef(graphics));
  }
  return Sequence().Then(GraphicsOf(target, "nil")).Then(CopyRows(target, source));
}

Sequence BoxResize(AppKind app, const std::string& source, const std::string& made, int32_t width,
                   int32_t height, bool detect) {
  return Open(app, source, detect)
      .Then(Writer(app, made, width, height))
      .Then(Yields(height))
      .Then(Render(made))
      .Then(Release(source, false))
      .Then(kYield);
}

Sequence Enlarge(AppKind app, const std::string& source, const std::string& made, int32_t width,
                 int32_t height, bool detect) {
  return Open(app, source, detect)
      .Then(Writer(app, made, width, height))
      .Then(Yields(3 + 4 * height))
      .Then(Render(made))
      .Then(Release(source, false));
}

// --- Pictures and hosts ------------------------------------------------------------------------

qpxhost::PictureOptions Unlockable() {
  qpxhost::PictureOptions options;
  options.lockable = false;
  return options;
}

qpxhost::PictureOptions WithAlpha() {
  qpxhost::PictureOptions options;
  options.hasAlpha = true;
  return options;
}

qpxhost::HostConfig ConfigFor(AppKind app, double version) {
  qpxhost::HostConfig config = AppHost(app);
  config.version = version;
  return config;
}

// --- Skeletons ---------------------------------------------------------------------------------

namespace skeleton {

namespace {

int DescriptionType(const qpxhost::HostConfig& config) {
  return config.app == AppKind::Desktop ? 8 : 10;
}

}  // namespace

Lines Yields(int count) {
  return Lines(static_cast<size_t>(count), kYield);
}

std::string LockType(const qpxhost::HostConfig& config) {
  return std::to_string(DescriptionType(config));
}

Lines Open(const qpxhost::HostObject* object, const qpxhost::HostConfig& config) {
  return {LockDescription(Name(object), DescriptionType(config), true), AddRef(Name(object))};
}

Lines Release(const qpxhost::HostObject* object, bool clearCache) {
  Lines lines = {UnlockDescription(Name(object))};
  if (clearCache) lines.push_back(ClearCache(Name(object)));
  lines.push_back(DropRef(Name(object)));
  return lines;
}

Lines Render(const qpxhost::HostObject* object) {
  return Join<std::string>(
      {{AddRef(Name(object)), ClearCache(Name(object))}, Release(object, true)});
}

}  // namespace skeleton

}  // namespace qpxtest
