#include "picture_commands.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <stdexcept>

#include "batch.h"
#include "orientation.h"
#include "progress_bar.h"
#include "resampling_modes.h"

namespace qpx {
namespace {

struct FileCommand {
  PictureCommandOptions options;
  std::vector<std::string> inputs;
  std::string output;
};

// A command on one picture: IN OUT, or with -o any number of inputs.
struct BatchCommand {
  PictureCommandOptions options;
  std::vector<std::string> files;
  std::string batchOutput;  // -o; empty: files are IN OUT
  unsigned jobs = 0;        // 0: one worker per processor
};

void RunBatchCommand(const BatchCommand& command, const CallMaker& makeCall) {
  if (command.batchOutput.empty()) {
    if (command.files.size() != 2) {
      throw CLI::ValidationError("files",
                                 "expected IN OUT, or -o DIR|PATTERN and one or more "
                                 "inputs, not " +
                                     std::to_string(command.files.size()) + " files");
    }
    RunPictureJob(command.options, {{command.files[0]}, command.files[1], makeCall});
    return;
  }
  MakePictureHostConfig(command.options);  // its complaints before any worker starts
  const std::vector<BatchFile> files =
      PlanBatch(command.files, command.batchOutput, command.options.format);
  for (const BatchFile& file : files) {
    const std::filesystem::path folder = std::filesystem::path(file.output).parent_path();
    std::error_code error;
    if (!folder.empty()) std::filesystem::create_directories(folder, error);
    if (error) {
      throw std::runtime_error("cannot make the folder " + QuotePath(folder.string()) + ": " +
                               error.message());
    }
  }
  const int failed = RunBatch(
      files, command.jobs != 0 ? command.jobs : ProcessorCount(), [&](const BatchFile& file) {
        RunPictureJob(command.options, {{file.input}, file.output, makeCall, false});
      });
  if (failed != 0) {
    throw std::runtime_error(std::to_string(failed) + " of " + std::to_string(files.size()) +
                             " files failed");
  }
}

// One input file as a positional argument: its name in the usage line and its help.
struct InputArgument {
  std::string name, help;
};

// A command that reads `inputs` and writes `output`, with the common options. `makeCall` gives
// the method call to run once the pictures are made.
CLI::App* AddFilesCommand(CLI::App& app, const std::string& name, const std::string& description,
                          const std::vector<InputArgument>& inputs, CallMaker makeCall) {
  auto command = std::make_shared<FileCommand>();
  command->inputs.resize(inputs.size());
  CLI::App* sub = app.add_subcommand(name, description);
  for (size_t i = 0; i < inputs.size(); ++i) {
    sub->add_option(inputs[i].name, command->inputs[i], inputs[i].help)->required();
  }
  sub->add_option("output", command->output, "PNG file to write")->required();
  AddPictureOptions(*sub, command->options);
  sub->callback([command, makeCall] {
    RunPictureJob(command->options, {command->inputs, command->output, makeCall});
  });
  return sub;
}

// A command on one picture, read from `input`; `makeCall` gives the call once the command line
// is parsed.
CLI::App* AddFileCommand(CLI::App& app, const std::string& name, const std::string& description,
                         std::function<std::optional<MethodCall>()> makeCall) {
  auto command = std::make_shared<BatchCommand>();
  CLI::App* sub = app.add_subcommand(name, description);
  sub->add_option("files", command->files,
                  "IN OUT: the image file to read (PNG or JPEG) and the file to write; with -o, "
                  "every file named is an input")
      ->required();
  sub->add_option("-o,--output", command->batchOutput,
                  "Write each input's result into this folder under the input's name (with "
                  "--format, its extension changed), or to this name pattern: {name} is the "
                  "input's name without its extension, {ext} its extension (-o "
                  "'thumbs/{name}.jpg'); missing folders are made");
  sub->add_option("-j,--jobs", command->jobs,
                  "Worker processes for several inputs, each with its own host (default: one "
                  "per processor)")
      ->check(CLI::Range(1u, 1024u));
  AddPictureOptions(*sub, command->options);
  const CallMaker call = [makeCall](const std::vector<qpxhost::HostObject*>&) {
    return makeCall();
  };
  sub->callback([command, call] { RunBatchCommand(*command, call); });
  return sub;
}

struct ScaleArguments {
  int32_t width = 0, height = 0;
  bool antiAlias = false;
};

struct ResampleArguments {
  int32_t mode = 0, width = 0, height = 0;
};

struct DrawArguments {
  double x = 0, y = 0, opacity = 1.0;
};

// The required --width and --height of a command that makes a picture of a new size.
void AddSizeOptions(CLI::App& command, int32_t& width, int32_t& height) {
  command.add_option("--width", width, "Width of the result in pixels")->required();
  command.add_option("--height", height, "Height of the result in pixels")->required();
}

// A command that resizes with `method`, taking W, H and AntiAlias as ScaleQPX does.
CLI::App* AddResizeCommand(CLI::App& app, const std::string& name, const std::string& method,
                           const std::string& description) {
  auto arguments = std::make_shared<ScaleArguments>();
  CLI::App* sub = AddFileCommand(app, name, description, [arguments, method] {
    return MethodCall{method, {arguments->width, arguments->height, arguments->antiAlias}};
  });
  AddSizeOptions(*sub, arguments->width, arguments->height);
  sub->add_flag("--antialias", arguments->antiAlias,
                "Enlarge smoothly when the result is both wider and taller than the picture; "
                "otherwise, as without this flag, the box resizer");
  return sub;
}

// What scale-mask does with masks, and its surprise for pictures with an alpha channel.
constexpr const char* kScaleMaskFooter =
    "Masks:\n"
    "  The result is the picture resized as 'qpx scale' resizes it; its mask is the picture's\n"
    "  mask resized by the same resizer. A picture without a mask gives a result without one\n"
    "  (and --mask-out is then an error). The same size gives the picture itself back.\n"
    "  With --alpha the method takes another path, as it is meant to: the result is the\n"
    "  picture's top-left W x H region at its own scale, cut out and NOT resized (black where\n"
    "  W or H reach past the picture), under the mask made from its alpha channel (255 -\n"
    "  alpha) resized to W x H by the resizer the picture's size chooses. On a console or web\n"
    "  host, whose pictures have no graphics to draw with, even the region is not copied: the\n"
    "  image comes out black under that mask.\n\n";

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

// Throws unless `mask` is the size of `image`.
void CheckMaskSize(const Image& mask, const std::string& maskPath, const Image& image,
                   const std::string& imagePath) {
  if (mask.width == image.width && mask.height == image.height) return;
  auto size = [](const Image& i) {
    return std::to_string(i.width) + " x " + std::to_string(i.height);
  };
  throw std::runtime_error("the mask " + QuotePath(maskPath) + " is " + size(mask) +
                           " pixels, the picture " + QuotePath(imagePath) + " " + size(image));
}

}  // namespace

void RunPictureJob(const PictureCommandOptions& options, const PictureJob& job) {
  const qpxhost::HostConfig config = MakePictureHostConfig(options);
  // With --auto-orient each file is turned upright as its EXIF orientation asks.
  auto read = [&options](const std::string& path) {
    Image image = ReadImage(path, options.maxPixels);
    return options.autoOrient ? Oriented(image, image.orientation) : image;
  };
  std::vector<Image> images;
  for (const std::string& input : job.inputs) images.push_back(read(input));
  std::optional<Image> mask;
  if (!options.mask.empty()) {
    mask = read(options.mask);
    CheckMaskSize(*mask, options.mask, images.back(), job.inputs.back());
  }

  qpxhost::Host host(config);
  host.LoadPlugin(PluginPath(options.host));
  std::vector<PictureRef> pictures;
  std::vector<qpxhost::HostObject*> arguments;
  for (size_t i = 0; i < images.size(); ++i) {
    const bool last = i + 1 == images.size();
    pictures.push_back(
        ImageToPicture(host, images[i], MakePictureKind(options), last && mask ? &*mask : nullptr));
    if (i > 0) arguments.push_back(pictures.back().get());
  }
  const std::optional<MethodCall> call = job.makeCall(arguments);
  PictureRef result;
  if (call) {
    const YieldPlan plan = PlanYield(options.yield, job.progress && ProgressBar::Wanted());
    const int64_t total = plan.everyRow ? RowYields(*call, images[0].width, images[0].height) : 0;
    std::optional<ProgressBar> bar;
    if (job.progress) bar.emplace(call->method, total);
    host.onYield = [&bar] {
      if (bar) bar->Advance();
    };
    result = RunMethod(host, pictures[0].get(), *call, plan.argument);
    host.onYield = nullptr;
  }
  const std::string what = call ? call->Text() : "the conversion";
  const qpxhost::HostPicture& shown = call ? *result.get() : *pictures[0].get();
  const Image image = PictureToImage(shown);
  std::optional<Image> maskImage;
  if (!options.maskOut.empty()) {
    maskImage = MaskToImage(shown);
    if (!maskImage) {
      throw std::runtime_error((call ? "the result of " + what : std::string("the picture")) +
                               " has no mask to write to " + QuotePath(options.maskOut));
    }
  }
  result.Reset();
  pictures.clear();
  CheckLedger(host, what);
  // The result shows the receiver's colours, in the receiver's colour space.
  const std::vector<uint8_t>& icc = images[0].icc;
  std::vector<OutputFile> files = {OutputFileOf(
      options, job.output, image, image.hasAlpha ? FileColour::Rgba : FileColour::Rgb, icc)};
  if (maskImage) {
    files.push_back(OutputFileOf(options, options.maskOut, *maskImage, FileColour::Gray, {}));
  }
  WriteImageFiles(files);  // both or neither
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
  AddResizeCommand(app, "scale", "ScaleQPX", "Resize an image with the module's ScaleQPX");
}

void AddScaleMaskCommand(CLI::App& app) {
  CLI::App* sub = AddResizeCommand(
      app, "scale-mask", "ScaleImageAndMaskQPX",
      "Resize an image and its mask together with the module's ScaleImageAndMaskQPX");
  sub->footer(std::string(kScaleMaskFooter) + sub->get_footer());
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
  sub->footer("Modes:\n" + ResamplingModeTable() + "\n" + sub->get_footer());
}

void AddDrawCommand(CLI::App& app) {
  auto arguments = std::make_shared<DrawArguments>();
  CLI::App* sub = AddFilesCommand(
      app, "draw",
      "Draw PIC into DEST with the module's DrawPictureFQPX, at a fractional position, with an "
      "opacity and through PIC's mask, and write the changed DEST",
      {{"dest", "Image file of the picture drawn into (PNG or JPEG)"},
       {"pic", "Image file of the picture to draw (PNG or JPEG)"}},
      [arguments](const std::vector<qpxhost::HostObject*>& pictures) {
        return MethodCall{"DrawPictureFQPX",
                          {pictures.at(0), arguments->x, arguments->y, arguments->opacity},
                          "dest",
                          "pic"};
      });
  sub->add_option("--x", arguments->x,
                  "Where PIC's left edge falls in DEST, in pixels; fractional and negative "
                  "values are taken (--x -3.25 or --x=-3.25)")
      ->required()
      ->check(CLI::Number);  // CLI11 would read an empty value as 0
  sub->add_option("--y", arguments->y, "Where PIC's top edge falls in DEST, in pixels")
      ->required()
      ->check(CLI::Number);
  sub->add_option("--opacity", arguments->opacity,
                  "Weight of PIC's pixels: 1 covers, 0.5 mixes half and half; not clamped")
      ->capture_default_str()
      ->check(CLI::Number);
}

}  // namespace qpx
