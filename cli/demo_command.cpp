#include "demo_command.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <stdexcept>

#include "demo_picture.h"
#include "file_replacement.h"
#include "progress_bar.h"
#include "resampling_modes.h"

namespace qpx {
namespace {

constexpr qpxhost::AppKind kDemoHosts[] = {qpxhost::AppKind::Console, qpxhost::AppKind::Desktop};

// Each 4 x 4 block of a detail enlargement is one pixel of the detail.
constexpr int32_t kDetailZoom = 4;
// The pictures drawn and drawn into are shown 8 times as wide, so that fractional steps show.
constexpr int32_t kDrawZoom = 8;
// The badge and its resized copies are all shown this wide.
constexpr int32_t kBadgeShownWidth = 320;

// A picture the demo's calls are made on, indexed by DemoImage.
struct DemoInput {
  std::string file;
  std::string caption;
  Image image;
  int32_t shownWidth = 0;  // on the contact sheet; 0: as wide as a column
};

struct DemoResult {
  const DemoCall* call;
  std::string text;  // the call as the host program writes it
  qpxhost::AppKind host;
  std::string file;
  std::string note{};
  int32_t shownWidth = 0;    // as for Figure
  bool transparent = false;  // as for Figure
};

std::string Html(const std::string& text) {
  std::string out;
  for (char c : text) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      default:
        out += c;
    }
  }
  return out;
}

// Like WritePng: complete or not there at all.
void WriteTextFile(const std::string& path, const std::string& text) {
  FileReplacement replacement;
  FILE* file = replacement.Add(path);
  if (std::fwrite(text.data(), 1, text.size(), file) != text.size()) {
    throw WriteFailure(path, ErrnoText(errno));
  }
  replacement.Commit();
}

// Creates `dir` when needed and writes the pictures the calls are made on into it.
void WriteDemoInputs(const std::filesystem::path& dir, const std::vector<DemoInput>& inputs) {
  std::error_code error;
  std::filesystem::create_directories(dir, error);
  if (error) {
    throw std::runtime_error("cannot create " + QuotePath(dir.string()) + ": " + error.message());
  }
  for (const DemoInput& input : inputs) {
    WritePng((dir / input.file).string(), input.image, input.image.hasAlpha);
  }
}

// `shownWidth` > 0 shows the picture that wide with square pixels, for small pictures that the
// browser would otherwise smooth while stretching them. A `transparent` picture is shown over a
// checkerboard, so that its transparency can be seen.
std::string Figure(const std::string& file, const std::string& title, const std::string& text,
                   int32_t shownWidth = 0, bool transparent = false) {
  std::string classes;
  if (shownWidth > 0) classes += "pixels";
  if (transparent) classes += classes.empty() ? "checker" : " checker";
  const std::string attributes =
      (classes.empty() ? "" : " class=\"" + classes + "\"") +
      (shownWidth > 0 ? " width=\"" + std::to_string(shownWidth) + "\"" : "");
  return "<figure><a href=\"" + Html(file) + "\"><img src=\"" + Html(file) + "\" alt=\"" +
         Html(file) + "\"" + attributes + "></a><figcaption>" + title + "<br>" + text +
         "</figcaption></figure>\n";
}

std::vector<DemoInput> MakeDemoInputs() {
  const auto cut = [](Region region) {
    return "cut from pic at (" + std::to_string(region.x) + ", " + std::to_string(region.y) + ")";
  };
  std::vector<DemoInput> inputs(kDemoImageCount);
  DemoInput& sample = inputs[size_t(DemoImage::Sample)];
  sample = {"input.png", "the sample picture made by qpx", MakeDemoPicture()};
  const auto add = [&](DemoImage name, const std::string& file, const std::string& caption,
                       Image image, int32_t zoom) {
    const int32_t width = image.width * zoom;
    inputs[size_t(name)] = {file, caption + ", shown " + std::to_string(zoom) + " times as wide",
                            std::move(image), width};
  };
  add(DemoImage::Detail, "detail.png", "the corner of the sign board, " + cut(kDemoDetail),
      CropImage(sample.image, kDemoDetail), kDetailZoom);
  add(DemoImage::Sky, "sky.png", "a patch of sky to draw into, " + cut(kDemoSky),
      CropImage(sample.image, kDemoSky), kDrawZoom);
  add(DemoImage::Tile, "tile.png", "a checkerboard of 4 x 4 squares to draw", MakeDemoTile(),
      kDrawZoom);
  add(DemoImage::Ball, "ball.png",
      "a ball to draw, whose file's alpha becomes a soft round mask (255 - alpha)", MakeDemoBall(),
      kDrawZoom);
  Image badge = MakeDemoBadge();
  const int32_t badgeZoom = kBadgeShownWidth / badge.width;
  add(DemoImage::Badge, "badge.png",
      "a badge to resize with its mask, which its file's alpha makes (255 - alpha) and which "
      "fades over the rim",
      std::move(badge), badgeZoom);
  return inputs;
}

std::string ResultFigure(const DemoResult& result) {
  const DemoCall& call = *result.call;
  const std::string label = call.label.empty() ? "" : "<b>" + Html(call.label) + "</b> ";
  return Figure(result.file, label + "<code>" + Html(result.text) + "</code>",
                std::string(qpxhost::AppKindName(result.host)) + " host &middot; " +
                    Html(call.caption) + (result.note.empty() ? "" : "<br>") + Html(result.note),
                result.shownWidth, result.transparent);
}

// The documentation's method pages (docs/methods in the source tree qpx was built from) as a
// path relative to `dir`, or empty when they are not there.
std::string MethodPagesFrom(const std::filesystem::path& dir) {
  std::error_code error;
  const std::filesystem::path pages = std::filesystem::path(QPX_SOURCE_DIR) / "docs" / "methods";
  if (!std::filesystem::is_directory(pages, error)) return "";
  const std::filesystem::path relative = std::filesystem::relative(pages, dir, error);
  return error ? "" : relative.generic_string();
}

// `results` holds the results of the first host in the order of DemoCalls(), then those of the
// second; `methodPages` is the folder of the methods' documentation pages as seen from the
// sheet, or empty when there is none.
std::string ContactSheet(const std::vector<DemoInput>& inputs,
                         const std::vector<DemoResult>& results,
                         const PictureCommandOptions& options, const std::string& methodPages) {
  std::string page =
      "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
      "<title>qpx demo</title>\n<style>\n"
      "body { font-family: system-ui, sans-serif; margin: 24px; background: #f3f3f0; color: "
      "#222; }\n"
      ".sheet { display: grid; grid-template-columns: repeat(auto-fill, minmax(340px, 1fr)); "
      "gap: 16px; }\n"
      "figure { margin: 0; padding: 8px; background: #fff; border: 1px solid #d8d8d2; }\n"
      "figure img { display: block; max-width: 100%; height: auto; }\n"
      "figure img.pixels { image-rendering: pixelated; }\n"
      "figure img.checker { background: repeating-conic-gradient(#c4c4c4 0 25%, #fff 0 50%) 0 0 "
      "/ 16px 16px; }\n"
      "figcaption { margin-top: 6px; font-size: 14px; line-height: 1.4; }\n"
      "h2 { font-size: 19px; margin: 28px 0 10px; }\n"
      ".sheet + .sheet { margin-top: 16px; }\n"
      "code { font-size: 15px; }\n</style>\n</head>\n<body>\n"
      "<h1>Picture QPX: contact sheet</h1>\n<p>Each picture below is the result of the call under "
      "it, run by <code>qpx demo</code> on the pictures just below, named as in the calls, "
      "through the emulated host (version " +
      Html(options.host.hostVersion) + ", desktop pixel layout " + std::to_string(options.layout) +
      "). Pictures with transparency are shown over a checkerboard. Click a picture to see it at "
      "full size.</p>\n<div class=\"sheet\">\n";
  for (size_t i = 0; i < inputs.size(); ++i) {
    const DemoInput& input = inputs[i];
    page +=
        Figure(input.file, "<b><code>" + std::string(DemoImageName(DemoImage(i))) + "</code></b>",
               std::to_string(input.image.width) + " &times; " +
                   std::to_string(input.image.height) + ", " + Html(input.caption),
               input.shownWidth, input.image.hasAlpha);
  }
  page += "</div>\n";
  // Each section shows the results of one host, then those of the other.
  const std::vector<DemoCall>& calls = DemoCalls();
  for (size_t first = 0; first < calls.size();) {
    size_t end = first + 1;
    while (end < calls.size() && calls[end].section == calls[first].section) ++end;
    page += "<h2>" + Html(calls[first].section);
    if (!methodPages.empty()) {
      const std::string& method = calls[first].call.method;
      page += " <small><a href=\"" + Html(methodPages + "/" + method + ".md") + "\">" +
              Html(method) + " reference</a></small>";
    }
    page += "</h2>\n";
    for (size_t host = 0; host < std::size(kDemoHosts); ++host) {
      page += "<div class=\"sheet\">\n";
      for (size_t i = first; i < end; ++i) page += ResultFigure(results[host * calls.size() + i]);
      page += "</div>\n";
    }
    first = end;
  }
  return page + "</body>\n</html>\n";
}

// Pixels in which two results of the same size differ.
int64_t DifferentPixels(const Image& a, const Image& b) {
  int64_t count = 0;
  for (size_t i = 0; i < a.rgba.size(); i += 4) {
    if (std::memcmp(&a.rgba[i], &b.rgba[i], 4) != 0) ++count;
  }
  return count;
}

// ScalingQPX with each kernel on `receiver`, to `width` x `height`.
void AddEveryKernel(std::vector<DemoCall>& calls, const std::string& section,
                    const std::string& file, DemoImage receiver, int32_t width, int32_t height,
                    int32_t zoom) {
  for (const ResamplingMode& mode : ResamplingModes()) {
    calls.push_back({section, file + "-" + mode.name, mode.name,
                     std::string("kernel: ") + mode.kernel,
                     MethodCall{"ScalingQPX", {mode.number, width, height}}, receiver, zoom});
  }
}

// ScaleImageAndMaskQPX on badge: shrunk to half of each side and enlarged 4 times, with and
// without AntiAlias, each result shown as wide as badge.
void AddMaskedResizes(std::vector<DemoCall>& calls) {
  constexpr int32_t halfWidth = 20, halfHeight = 15, bigWidth = 160, bigHeight = 120;
  const std::string section =
      "ScaleImageAndMaskQPX: badge and its soft mask resized together, over a checkerboard";
  const auto resize = [&](const std::string& file, const std::string& caption, int32_t width,
                          int32_t height, bool antiAlias) {
    calls.push_back({section, file, "", caption,
                     MethodCall{"ScaleImageAndMaskQPX", {width, height, antiAlias}},
                     DemoImage::Badge, kBadgeShownWidth / width});
  };
  resize("badge-mask-half",
         "box resize to half of each side: colour and mask the mean of 2 pixels across, from "
         "every 2nd row",
         halfWidth, halfHeight, false);
  resize("badge-mask-half-antialias",
         "AntiAlias counts only where the picture grows both ways: this shrink takes the box "
         "resizer all the same",
         halfWidth, halfHeight, true);
  resize("badge-mask-nearest",
         "4 x enlargement without anti-aliasing: every pixel and its mask value repeated as a "
         "4 x 4 block",
         bigWidth, bigHeight, false);
  resize("badge-mask-antialias",
         "4 x anti-aliased enlargement: colour and mask blend between neighbours, so the rim "
         "stays soft",
         bigWidth, bigHeight, true);
}

// DrawPictureFQPX into sky: tile at quarter pixel steps, tile at three opacities and ball
// through its mask, each result shown as large as sky.
void AddDrawings(std::vector<DemoCall>& calls) {
  constexpr double tileX = 12, tileY = 7, ballX = 10, ballY = 5;
  const auto draw = [&](const std::string& section, const std::string& file,
                        const std::string& caption, DemoImage drawn, double x, double y,
                        double opacity) {
    calls.push_back({section, file, "", caption, MethodCall{"DrawPictureFQPX", {x, y, opacity}},
                     DemoImage::Sky, kDrawZoom, drawn});
  };
  const std::string offsets =
      "DrawPictureFQPX: tile drawn into sky at fractional offsets, a quarter pixel apart";
  draw(offsets, "draw-offset-0", "whole coordinates: tile's pixels copied into the rectangle",
       DemoImage::Tile, tileX, tileY, 1.0);
  draw(offsets, "draw-offset-25",
       "each pixel of tile spread over four of sky with weights 9/16, 3/16, 3/16 and 1/16",
       DemoImage::Tile, tileX + 0.25, tileY + 0.25, 1.0);
  draw(offsets, "draw-offset-50", "half a pixel on: every edge blends half and half",
       DemoImage::Tile, tileX + 0.5, tileY + 0.5, 1.0);
  draw(offsets, "draw-offset-75", "three quarters on: weights 1/16, 3/16, 3/16 and 9/16",
       DemoImage::Tile, tileX + 0.75, tileY + 0.75, 1.0);
  const std::string opacities = "DrawPictureFQPX: tile drawn into sky at three opacities";
  draw(opacities, "draw-opacity-100", "opacity 1: tile covers sky", DemoImage::Tile, tileX, tileY,
       1.0);
  draw(opacities, "draw-opacity-50", "opacity 0.5: half tile, half sky, each share truncated",
       DemoImage::Tile, tileX, tileY, 0.5);
  draw(opacities, "draw-opacity-25", "opacity 0.25: a quarter tile, three quarters sky",
       DemoImage::Tile, tileX, tileY, 0.25);
  const std::string masked = "DrawPictureFQPX: ball drawn into sky through its soft round mask";
  draw(masked, "draw-mask-0", "the mask scales each pixel's weight: sky shows through the rim",
       DemoImage::Ball, ballX, ballY, 1.0);
  draw(masked, "draw-mask-50", "half a pixel on, through the mask", DemoImage::Ball, ballX + 0.5,
       ballY + 0.5, 1.0);
  draw(masked, "draw-mask-opacity-50", "through the mask at opacity 0.5", DemoImage::Ball, ballX,
       ballY, 0.5);
}

std::vector<DemoCall> MakeDemoCalls() {
  constexpr int32_t quarterWidth = 160, quarterHeight = 120;  // of the 640 x 480 sample
  constexpr int32_t zoomedWidth = kDemoDetail.width * kDetailZoom;
  constexpr int32_t zoomedHeight = kDemoDetail.height * kDetailZoom;
  const std::string blur = "BlurQPX: box blur";
  const std::string scale = "ScaleQPX: box resize and anti-aliased enlargement";
  std::vector<DemoCall> calls = {
      {blur, "blur-1", "", "box blur, radius 1 (3 x 3 box)", {"BlurQPX", {1.0}}},
      {blur, "blur-3", "", "box blur, radius 3 (7 x 7 box)", {"BlurQPX", {3.0}}},
      {blur, "blur-8", "", "box blur, radius 8 (17 x 17 box)", {"BlurQPX", {8.0}}},
      {scale,
       "scale-quarter",
       "",
       "box resize to a quarter of each side, shown twice as wide: every pixel the mean of 4 "
       "pixels across, from every 4th row",
       {"ScaleQPX", {quarterWidth, quarterHeight, false}},
       DemoImage::Sample,
       2},
      {scale,
       "detail-nearest",
       "",
       "4 x enlargement without anti-aliasing: every pixel repeated as a 4 x 4 block",
       {"ScaleQPX", {zoomedWidth, zoomedHeight, false}},
       DemoImage::Detail},
      {scale,
       "detail-antialias",
       "",
       "4 x anti-aliased enlargement: smooth blends between neighbouring pixels",
       {"ScaleQPX", {zoomedWidth, zoomedHeight, true}},
       DemoImage::Detail},
  };
  AddMaskedResizes(calls);
  AddEveryKernel(calls,
                 "ScalingQPX: pic resampled to a quarter of each side with each kernel, shown "
                 "twice as wide",
                 "resample-quarter", DemoImage::Sample, quarterWidth, quarterHeight, 2);
  AddEveryKernel(calls, "ScalingQPX: detail resampled to 4 times its size with each kernel",
                 "detail-resample", DemoImage::Detail, zoomedWidth, zoomedHeight, 1);
  AddDrawings(calls);
  return calls;
}

}  // namespace

const char* DemoImageName(DemoImage image) {
  static const char* const names[kDemoImageCount] = {"pic",  "detail", "sky",
                                                     "tile", "ball",   "badge"};
  return names[size_t(image)];
}

MethodCall DemoCall::With(qpxhost::HostObject* picture) const {
  MethodCall full = call;
  full.receiver = DemoImageName(receiver);
  if (drawn) {
    full.arguments.insert(full.arguments.begin(), picture);
    full.picture = DemoImageName(*drawn);
  }
  return full;
}

const std::vector<DemoCall>& DemoCalls() {
  static const std::vector<DemoCall> calls = MakeDemoCalls();
  return calls;
}

void RunDemo(const PictureCommandOptions& options, const std::string& directory) {
  qpxhost::HostConfig config = MakeHostConfig(options.host);
  config.desktopLayout = options.layout;
  config.desktopAlphaLayout = qpxhost::AlphaLayoutPairedWith(options.layout);
  const std::filesystem::path dir(directory);
  const std::vector<DemoInput> inputs = MakeDemoInputs();

  const YieldPlan plan = PlanYield(options.yield, ProgressBar::Wanted());
  int64_t total = 0;
  for (const DemoCall& call : DemoCalls()) {
    const Image& receiver = inputs[size_t(call.receiver)].image;
    total += RowYields(call.With(nullptr), receiver.width, receiver.height, receiver.hasAlpha) *
             std::size(kDemoHosts);
  }
  ProgressBar bar("demo", plan.everyRow ? total : 0);

  std::vector<DemoResult> results;
  std::vector<Image> firstHostResults;
  for (const qpxhost::AppKind kind : kDemoHosts) {
    config.app = kind;
    qpxhost::Host host(config);
    host.LoadPlugin(PluginPath(options.host));
    // Only once the module has loaded, so that a module that cannot leaves nothing behind.
    if (kind == kDemoHosts[0]) WriteDemoInputs(dir, inputs);
    host.onYield = [&bar] { bar.Advance(); };
    qpxhost::PictureOptions pictureKind;
    pictureKind.layout = options.layout;
    std::vector<PictureRef> pictures;
    for (const DemoInput& input : inputs) {
      pictures.push_back(ImageToPicture(host, input.image, pictureKind));
    }
    for (size_t i = 0; i < DemoCalls().size(); ++i) {
      const DemoCall& call = DemoCalls()[i];
      qpxhost::HostPicture* receiver = pictures[size_t(call.receiver)].get();
      PictureRef copy;
      qpxhost::HostObject* drawn = nullptr;
      if (call.drawn) {  // drawing changes the receiver: draw into a copy
        copy = ImageToPicture(host, inputs[size_t(call.receiver)].image, pictureKind);
        receiver = copy.get();
        drawn = pictures[size_t(*call.drawn)].get();
      }
      const MethodCall made = call.With(drawn);
      Image result = PictureToImage(*RunMethod(host, receiver, made, plan.argument).get());
      DemoResult shown{.call = &call,
                       .text = made.Text(),
                       .host = kind,
                       .file = call.file + "-" + qpxhost::AppKindName(kind) + ".png",
                       .shownWidth = call.zoom > 1 ? result.width * call.zoom : 0,
                       .transparent = result.hasAlpha};
      WritePng((dir / shown.file).string(), result, result.hasAlpha);
      if (kind == kDemoHosts[0]) {
        firstHostResults.push_back(std::move(result));
      } else {
        const Image& first = firstHostResults[i];
        const std::string other = qpxhost::AppKindName(kDemoHosts[0]);
        if (first.width != result.width || first.height != result.height) {
          shown.note = "size differs from the " + other + " host's result";
        } else if (const int64_t differ = DifferentPixels(first, result); differ == 0) {
          shown.note = "same pixels as on the " + other + " host";
        } else {
          shown.note = std::to_string(differ) + " pixels differ from the " + other + " host's";
        }
      }
      results.push_back(std::move(shown));
    }
    host.onYield = nullptr;
    pictures.clear();
    CheckLedger(host, "the demo's calls");
  }
  bar.Finish();

  const std::string index = (dir / "index.html").string();
  WriteTextFile(index, ContactSheet(inputs, results, options, MethodPagesFrom(dir)));
  std::printf("wrote %zu pictures and the contact sheet %s\n", inputs.size() + results.size(),
              index.c_str());
}

void AddDemoCommand(CLI::App& app) {
  auto options = std::make_shared<PictureCommandOptions>();
  auto directory = std::make_shared<std::string>("qpx-demo");
  CLI::App* command = app.add_subcommand(
      "demo",
      "Run every method of the module on a built-in sample picture on a console and a desktop "
      "host and write the results with a contact sheet, index.html");
  command->add_option("outdir", *directory, "Directory to write into")->capture_default_str();
  AddHostOptions(*command, options->host, false);
  AddLayoutOption(*command, *options);
  AddYieldOption(*command, *options);
  command->callback([options, directory] { RunDemo(*options, *directory); });
}

}  // namespace qpx
