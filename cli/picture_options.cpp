#include "picture_options.h"

#include <map>

namespace qpx {

void AddLayoutOption(CLI::App& command, PictureCommandOptions& options) {
  command
      .add_option("--layout", options.layout,
                  "Pixel layout of desktop pictures: 1 premultiplied RGBA, 2 premultiplied ARGB, "
                  "3 RGBA, 4 ARGB, 5 RGB and a skipped byte, 6 a skipped byte and RGB")
      ->check(CLI::Range(1, 6))
      ->capture_default_str();
}

void AddYieldOption(CLI::App& command, PictureCommandOptions& options) {
  command.add_option("--yield", options.yield,
                     "The methods' yield argument: >0 ticks of 1/60 s between yields, <0 "
                     "milliseconds, 0 never (default: 0, or every row while a progress bar is "
                     "shown)");
}

void AddPictureOptions(CLI::App& command, PictureCommandOptions& options) {
  AddHostOptions(command, options.host);
  AddLayoutOption(command, options);
  command.add_flag("--alpha", options.alpha,
                   "Give the picture an alpha channel from the file's alpha instead of a mask "
                   "(with --layout 1 or 2)");
  AddYieldOption(command, options);
  command.add_option("--mask", options.mask,
                     "Image file of the picture's mask, the picture's size: its gray level (the "
                     "red channel of a colour file), 0 opaque to 255 transparent; for draw the "
                     "mask of PIC");
  command.add_option("--mask-out", options.maskOut,
                     "Also write the result's mask as a gray PNG file (an error when it has none)");
  command
      .add_option("--max-pixels", options.maxPixels,
                  "Refuse input files whose header claims more pixels than this, before "
                  "decoding them")
      ->check(CLI::Range(uint64_t{1}, kMaxPictureBytes / 4))
      ->capture_default_str();
  command.add_flag("--auto-orient", options.autoOrient,
                   "Turn each input (and --mask) upright as its EXIF orientation says (JPEG "
                   "APP1 Exif, PNG eXIf) before the method sees it");
  command.add_flag("--strip", options.strip,
                   "Write no metadata: without it the ICC colour profile of the input (of DEST "
                   "for draw) goes into every colour file written");
  command
      .add_option("--format", options.format,
                  "Format of the files written: png or jpeg (default: by each file's name, JPEG "
                  "for .jpg, .jpeg and .jpe, PNG for any other name and for -)")
      ->transform(CLI::CheckedTransformer(
          std::map<std::string, FileFormat>{
              {"png", FileFormat::Png}, {"jpeg", FileFormat::Jpeg}, {"jpg", FileFormat::Jpeg}},
          CLI::ignore_case));
  command
      .add_option("--quality", options.quality,
                  "libjpeg quality of the JPEG files written, 1 to 100 (JPEG keeps no "
                  "transparency: alpha is left out)")
      ->check(CLI::Range(1, 100))
      ->capture_default_str();
  command
      .add_option("--compression", options.compression,
                  "zlib effort for the PNG files written, 0 (none, fastest) to 9 (smallest "
                  "files); rows are written unfiltered")
      ->check(CLI::Range(0, 9))
      ->capture_default_str();
  command.footer(
      "Transparency:\n"
      "  An input file with an alpha channel gives its picture a mask of 255 - alpha (host\n"
      "  masks: 0 opaque, 255 transparent), or with --alpha an alpha channel instead; --mask\n"
      "  FILE gives it that mask instead of one from its alpha. Any other input picture has no\n"
      "  mask at all. The output takes its alpha from the result's alpha channel, else from\n"
      "  its mask (alpha = 255 - mask), and is opaque RGB when the result has neither.\n"
      "Files:\n"
      "  '-' reads standard input or writes standard output. An output that is a device or a\n"
      "  pipe is written straight through; any other is replaced whole or not at all, keeping\n"
      "  an existing file's permissions and writing where a symbolic link points.\n");
}

qpxhost::HostConfig MakePictureHostConfig(const PictureCommandOptions& options) {
  // Pictures with an alpha channel come in the premultiplied layouts only.
  if (options.alpha && options.layout != 1 && options.layout != 2) {
    throw CLI::ValidationError("--alpha",
                               "needs --layout 1 or 2, not " + std::to_string(options.layout));
  }
  // The host's other layout follows in the same byte order, as a platform makes its bitmaps.
  qpxhost::HostConfig config = MakeHostConfig(options.host);
  if (options.alpha) {
    config.desktopAlphaLayout = options.layout;
    config.desktopLayout = qpxhost::OpaqueLayoutPairedWith(options.layout);
  } else {
    config.desktopLayout = options.layout;
    config.desktopAlphaLayout = qpxhost::AlphaLayoutPairedWith(options.layout);
  }
  return config;
}

OutputFile OutputFileOf(const PictureCommandOptions& options, const std::string& path,
                        const Image& image, FileColour colour, const std::vector<uint8_t>& icc) {
  return {path,
          image,
          colour,
          options.format.value_or(FormatOfPath(path)),
          options.compression,
          options.quality,
          options.strip ? std::vector<uint8_t>() : icc};
}

qpxhost::PictureOptions MakePictureKind(const PictureCommandOptions& options) {
  qpxhost::PictureOptions kind;
  kind.hasAlpha = options.alpha;
  kind.layout = options.layout;
  return kind;
}

YieldPlan PlanYield(const std::optional<int32_t>& requested, bool progressWanted) {
  if (requested) return {*requested, *requested == kYieldEveryRow};
  if (progressWanted) return {kYieldEveryRow, true};
  return {};
}

}  // namespace qpx
