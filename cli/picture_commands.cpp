#include "picture_commands.h"

#include <functional>
#include <memory>

#include "progress_bar.h"
#include "resampling_modes.h"

namespace qpx {
namespace {

struct FileCommand {
  PictureCommandOptions options;
  std::string input, output;
};

// A command that reads `input` and writes `output`, with the common options. `makeCall` gives
// the method call to run once the command line is parsed, or nothing for a plain conversion.
CLI::App* AddFileCommand(CLI::App& app, const std::string& name, const std::string& description,
                         std::function<std::optional<MethodCall>()> makeCall) {
  auto command = std::make_shared<FileCommand>();
  CLI::App* sub = app.add_subcommand(name, description);
  sub->add_option("input", command->input, "Image file to read (PNG or JPEG)")->required();
  sub->add_option("output", command->output, "PNG file to write")->required();
  AddPictureOptions(*sub, command->options);
  sub->callback([command, makeCall] {
    ProcessFile(command->options, command->input, command->output, makeCall());
  });
  return sub;
}

struct ScaleArguments {
  int32_t width = 0, height = 0;
  bool antiAlias = false;
};

struct ResampleArguments {
  int32_t mode = 0, width = 0, height = 0;
};

// The required --width and --height of a command that makes a picture of a new size.
void AddSizeOptions(CLI::App& command, int32_t& width, int32_t& height) {
  command.add_option("--width", width, "Width of the result in pixels")->required();
  command.add_option("--height", height, "Height of the result in pixels")->required();
}

// Turns a mode name into its number before CLI11 reads the option as an integer.
CLI::Validator ResamplingModeValidator() {
  return CLI::Validator(
      [](std::string& text) {
        const std::optional<int32_t> mode = ParseResamplingMode(text);
        if (!mode) {
          return "unknown mode '" + text + "': expected a 32-bit integer or one of " +
                 ResamplingModeNames();
        }
        text = std::to_string(*mode);
        return std::string();
      },
      "MODE");
}

}  // namespace

void ProcessFile(const PictureCommandOptions& options, const std::string& input,
                 const std::string& output, const std::optional<MethodCall>& call) {
  const qpxhost::HostConfig config = MakePictureHostConfig(options);
  const Image image = ReadImage(input);

  qpxhost::Host host(config);
  host.LoadPlugin(PluginPath(options.host));
  PictureRef picture = ImageToPicture(host, image, MakePictureKind(options));
  Image result;
  if (call) {
    const YieldPlan plan = PlanYield(options.yield, ProgressBar::Wanted());
    const int64_t total = plan.everyRow ? RowYields(*call, image.width, image.height) : 0;
    ProgressBar bar(call->method, total);
    host.onYield = [&bar] { bar.Advance(); };
    result = RunMethod(host, picture.get(), *call, plan.argument);
    host.onYield = nullptr;
  } else {
    result = PictureToImage(*picture.get());
  }
  picture.Reset();
  CheckLedger(host, call ? call->Text() : "the conversion");
  WritePng(output, result, result.hasAlpha);
}

void AddConvertCommand(CLI::App& app) {
  AddFileCommand(app, "convert",
                 "Load an image into a host picture of the chosen kind and layout and write it "
                 "back out",
                 [] { return std::optional<MethodCall>(); });
}

void AddBlurCommand(CLI::App& app) {
  auto radius = std::make_shared<double>(0);
  CLI::App* sub =
      AddFileCommand(app, "blur", "Box-blur an image with the module's BlurQPX", [radius] {
        return MethodCall{"BlurQPX", {*radius}};
      });
  sub->add_option("-r,--radius", *radius,
                  "Blur radius; its whole part r gives a (2r+1) x (2r+1) box, below 1 no blur")
      ->required();
}

void AddScaleCommand(CLI::App& app) {
  auto arguments = std::make_shared<ScaleArguments>();
  CLI::App* sub =
      AddFileCommand(app, "scale", "Resize an image with the module's ScaleQPX", [arguments] {
        return MethodCall{"ScaleQPX", {arguments->width, arguments->height, arguments->antiAlias}};
      });
  AddSizeOptions(*sub, arguments->width, arguments->height);
  sub->add_flag("--antialias", arguments->antiAlias,
                "Enlarge smoothly when the result is both wider and taller than the picture; "
                "otherwise, as without this flag, the box resizer");
}

void AddResampleCommand(CLI::App& app) {
  auto arguments = std::make_shared<ResampleArguments>();
  CLI::App* sub = AddFileCommand(
      app, "resample", "Resample an image with one of the kernels of the module's ScalingQPX",
      [arguments] {
        return MethodCall{"ScalingQPX", {arguments->mode, arguments->width, arguments->height}};
      });
  sub->add_option("-m,--mode", arguments->mode,
                  "Kernel: a mode number or name from the list below (a number outside 1 to 7 "
                  "is passed on, and the method answers nil)")
      ->required()
      ->transform(ResamplingModeValidator());
  AddSizeOptions(*sub, arguments->width, arguments->height);
  sub->footer("Modes:\n" + ResamplingModeTable());
}

}  // namespace qpx
