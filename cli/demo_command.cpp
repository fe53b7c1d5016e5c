#include "demo_command.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <stdexcept>

#include "demo_picture.h"
#include "progress_bar.h"

namespace qpx {
namespace {

constexpr qpxhost::AppKind kDemoHosts[] = {qpxhost::AppKind::Console, qpxhost::AppKind::Desktop};

struct DemoResult {
  const DemoCall* call;
  qpxhost::AppKind host;
  std::string file;
  std::string note;
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
  const std::string temp = path + ".tmp-" + std::to_string(getpid());
  auto fail = [&](int err) {
    unlink(temp.c_str());
    return std::runtime_error("cannot write '" + path + "': " + std::strerror(err));
  };
  const int fd = open(temp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (fd < 0) throw fail(errno);
  size_t at = 0;
  while (at < text.size()) {
    const ssize_t n = write(fd, text.data() + at, text.size() - at);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      const int err = n < 0 ? errno : EIO;
      close(fd);
      throw fail(err);
    }
    at += static_cast<size_t>(n);
  }
  if (fsync(fd) != 0 || close(fd) != 0) throw fail(errno);
  if (std::rename(temp.c_str(), path.c_str()) != 0) throw fail(errno);
}

std::string Figure(const std::string& file, const std::string& title, const std::string& text) {
  return "<figure><a href=\"" + Html(file) + "\"><img src=\"" + Html(file) + "\" alt=\"" +
         Html(file) + "\"></a><figcaption>" + title + "<br>" + text + "</figcaption></figure>\n";
}

std::string ContactSheet(const Image& input, const std::vector<DemoResult>& results,
                         const PictureCommandOptions& options) {
  std::string page =
      "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
      "<title>qpx demo</title>\n<style>\n"
      "body { font-family: system-ui, sans-serif; margin: 24px; background: #f3f3f0; color: "
      "#222; }\n"
      ".sheet { display: grid; grid-template-columns: repeat(auto-fill, minmax(330px, 1fr)); "
      "gap: 16px; }\n"
      "figure { margin: 0; padding: 8px; background: #fff; border: 1px solid #d8d8d2; }\n"
      "figure img { display: block; width: 100%; height: auto; }\n"
      "figcaption { margin-top: 6px; font-size: 14px; line-height: 1.4; }\n"
      "code { font-size: 15px; }\n</style>\n</head>\n<body>\n"
      "<h1>Picture QPX: contact sheet</h1>\n<p>Each picture below is the result of the call under "
      "it, run by <code>qpx demo</code> on the input picture through the emulated host (version " +
      Html(options.host.hostVersion) + ", desktop pixel layout " + std::to_string(options.layout) +
      "). Click a picture to see it at full size.</p>\n<div class=\"sheet\">\n";
  page += Figure("input.png", "<b>input</b>",
                 std::to_string(input.width) + " &times; " + std::to_string(input.height) +
                     ", the sample picture made by qpx");
  for (const DemoResult& result : results) {
    page += Figure(result.file, "<code>" + Html(result.call->call.Text()) + "</code>",
                   std::string(qpxhost::AppKindName(result.host)) + " host &middot; " +
                       Html(result.call->caption) + (result.note.empty() ? "" : "<br>") +
                       Html(result.note));
  }
  return page + "</div>\n</body>\n</html>\n";
}

// Pixels in which two results of the same size differ.
int64_t DifferentPixels(const Image& a, const Image& b) {
  int64_t count = 0;
  for (size_t i = 0; i < a.rgba.size(); i += 4) {
    if (std::memcmp(&a.rgba[i], &b.rgba[i], 4) != 0) ++count;
  }
  return count;
}

}  // namespace

const std::vector<DemoCall>& DemoCalls() {
  static const std::vector<DemoCall> calls = {
      {"blur-1", "box blur, radius 1 (3 x 3 box)", {"BlurQPX", {1.0}}},
      {"blur-3", "box blur, radius 3 (7 x 7 box)", {"BlurQPX", {3.0}}},
      {"blur-8", "box blur, radius 8 (17 x 17 box)", {"BlurQPX", {8.0}}},
  };
  return calls;
}

void RunDemo(const PictureCommandOptions& options, const std::string& directory) {
  qpxhost::HostConfig config = MakeHostConfig(options.host);
  config.desktopLayout = options.layout;
  const std::filesystem::path dir(directory);
  std::error_code error;
  std::filesystem::create_directories(dir, error);
  if (error) throw std::runtime_error("cannot create '" + directory + "': " + error.message());

  const Image input = MakeDemoPicture();
  WritePng((dir / "input.png").string(), input, false);

  const YieldPlan plan = PlanYield(options.yield, ProgressBar::Wanted());
  int64_t total = 0;
  for (const DemoCall& call : DemoCalls()) {
    total += RowYields(call.call, input.width, input.height) * std::size(kDemoHosts);
  }
  ProgressBar bar("demo", plan.everyRow ? total : 0);

  std::vector<DemoResult> results;
  std::vector<Image> firstHostResults;
  for (const qpxhost::AppKind kind : kDemoHosts) {
    config.app = kind;
    qpxhost::Host host(config);
    host.LoadPlugin(PluginPath(options.host));
    host.onYield = [&bar] { bar.Advance(); };
    qpxhost::PictureOptions pictureKind;
    pictureKind.layout = options.layout;
    PictureRef picture = ImageToPicture(host, input, pictureKind);
    for (size_t i = 0; i < DemoCalls().size(); ++i) {
      const DemoCall& call = DemoCalls()[i];
      Image result = RunMethod(host, picture.get(), call.call, plan.argument);
      DemoResult shown{&call, kind, call.file + "-" + qpxhost::AppKindName(kind) + ".png", ""};
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
    picture.Reset();
    CheckLedger(host, "the demo's calls");
  }
  bar.Finish();
  // Results of one call side by side.
  std::stable_sort(results.begin(), results.end(),
                   [](const DemoResult& a, const DemoResult& b) { return a.call < b.call; });

  const std::string index = (dir / "index.html").string();
  WriteTextFile(index, ContactSheet(input, results, options));
  std::printf("wrote %zu pictures and the contact sheet %s\n", results.size() + 1, index.c_str());
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
