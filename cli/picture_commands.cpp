#include "picture_commands.h"

#include <memory>

#include "progress_bar.h"

namespace qpx {
namespace {

struct FileCommand {
  PictureCommandOptions options;
  std::string input, output;
  double radius = 0;
};

CLI::App* AddFileCommand(CLI::App& app, const std::string& name, const std::string& description,
                         FileCommand& command) {
  CLI::App* sub = app.add_subcommand(name, description);
  sub->add_option("input", command.input, "Image file to read (PNG or JPEG)")->required();
  sub->add_option("output", command.output, "PNG file to write")->required();
  AddPictureOptions(*sub, command.options);
  return sub;
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
  auto command = std::make_shared<FileCommand>();
  CLI::App* sub =
      AddFileCommand(app, "convert",
                     "Load an image into a host picture of the chosen kind and layout and write "
                     "it back out",
                     *command);
  sub->callback(
      [command] { ProcessFile(command->options, command->input, command->output, std::nullopt); });
}

void AddBlurCommand(CLI::App& app) {
  auto command = std::make_shared<FileCommand>();
  CLI::App* sub =
      AddFileCommand(app, "blur", "Box-blur an image with the module's BlurQPX", *command);
  sub->add_option("-r,--radius", command->radius,
                  "Blur radius; its whole part r gives a (2r+1) x (2r+1) box, below 1 no blur")
      ->required();
  sub->callback([command] {
    ProcessFile(command->options, command->input, command->output,
                MethodCall{"BlurQPX", {command->radius}});
  });
}

}  // namespace qpx
