// The plumbing of qpx run in-process: pictures in and out of the emulated host, method calls,
// yields and the progress bar.
#include "cli_support.h"

namespace qpx {
namespace {

// --- in-process plumbing ----------------------------------------------------------------------

qpxhost::HostConfig ConfigFor(const std::string& host, int32_t layout, bool alpha) {
  PictureCommandOptions options;
  options.host.host = host;
  options.layout = layout;
  options.alpha = alpha;
  return MakePictureHostConfig(options);
}

TEST(CliPlumbingTest, ConversionsLeaveNoHostObjects) {
  const Image opaque = RandomImage(9, 7, false, 3);
  const Image transparent = RandomImage(9, 7, true, 4);
  for (const char* kind : kHostKinds) {
    for (int32_t layout = 1; layout <= 6; ++layout) {
      for (bool alpha : {false, true}) {
        if (alpha && layout > 2) continue;
        SCOPED_TRACE(std::string(kind) + " layout " + std::to_string(layout) +
                     (alpha ? " alpha" : ""));
        qpxhost::Host host(ConfigFor(kind, layout, alpha));
        host.LoadPlugin(QPX_PLUGIN_PATH);
        qpxhost::PictureOptions pictureKind;
        pictureKind.hasAlpha = alpha;
        pictureKind.layout = layout;
        const Image& input = alpha ? transparent : opaque;
        Image output;
        {
          PictureRef picture = ImageToPicture(host, input, pictureKind);
          EXPECT_EQ(picture->hasAlpha, alpha);
          if (std::string(kind) == "desktop") {
            EXPECT_EQ(picture->layout, layout);
          }
          output = PictureToImage(*picture.get());
          EXPECT_EQ(host.LiveObjectCount(), 1u);
        }
        EXPECT_EQ(host.LiveObjectCount(), 0u);
        EXPECT_TRUE(host.problems().empty());
        EXPECT_EQ(output.hasAlpha, alpha);
        if (!alpha) {
          EXPECT_TRUE(output.rgba == input.rgba);
        }
      }
    }
  }
}

TEST(CliPlumbingTest, TransparencyBecomesAMaskUnlessAnAlphaChannelIsAsked) {
  const Image transparent = RandomImage(9, 7, true, 7);
  const Image opaque = RandomImage(9, 7, false, 8);
  const Image maskFile = RandomImage(9, 7, false, 9);
  for (const char* kind : kHostKinds) {
    SCOPED_TRACE(kind);
    qpxhost::Host host(ConfigFor(kind, 1, false));
    host.LoadPlugin(QPX_PLUGIN_PATH);
    {
      const PictureRef masked = ImageToPicture(host, transparent, {});
      ASSERT_NE(masked->mask, nullptr);
      EXPECT_FALSE(masked->hasAlpha);
      EXPECT_EQ(host.RefCount(masked->mask), 1);
      EXPECT_EQ(masked->mask->width, 9);
      EXPECT_EQ(masked->mask->height, 7);
      for (int32_t y = 0; y < 7; ++y) {
        for (int32_t x = 0; x < 9; ++x) {
          const uint8_t* p = PixelAt(transparent, x, y);
          const uint8_t m = uint8_t(255 - p[3]);
          ASSERT_EQ(masked->mask->Get(x, y), (qpxhost::RGBA{m, m, m, 255}));
          ASSERT_EQ(masked->Get(x, y), (qpxhost::RGBA{p[0], p[1], p[2], 255}));
        }
      }
      EXPECT_TRUE(PictureToImage(*masked.get()).rgba == transparent.rgba);
      ASSERT_TRUE(MaskToImage(*masked.get()).has_value());
      EXPECT_EQ(RedChannel(*MaskToImage(*masked.get())), MaskOfAlpha(transparent));

      qpxhost::PictureOptions withAlpha;
      withAlpha.hasAlpha = true;
      const PictureRef alpha = ImageToPicture(host, transparent, withAlpha);
      EXPECT_TRUE(alpha->hasAlpha);
      EXPECT_EQ(alpha->mask, nullptr);
      EXPECT_FALSE(MaskToImage(*alpha.get()).has_value());

      const PictureRef plain = ImageToPicture(host, opaque, {});
      EXPECT_EQ(plain->mask, nullptr);
      EXPECT_FALSE(PictureToImage(*plain.get()).hasAlpha);

      // An explicit mask wins over the file's alpha.
      const PictureRef given = ImageToPicture(host, transparent, {}, &maskFile);
      ASSERT_NE(given->mask, nullptr);
      EXPECT_EQ(RedChannel(*MaskToImage(*given.get())), RedChannel(maskFile));
      const Image small = RandomImage(3, 2, false);
      EXPECT_THROW(ImageToPicture(host, opaque, {}, &small), std::invalid_argument);
      EXPECT_EQ(host.LiveObjectCount(), 6u);  // four pictures, two masks
    }
    EXPECT_EQ(host.LiveObjectCount(), 0u);
    EXPECT_TRUE(host.problems().empty());
  }
}

TEST(CliPlumbingTest, HostConfigFollowsLayoutAndAlpha) {
  const qpxhost::HostConfig plain = ConfigFor("desktop", 6, false);
  EXPECT_EQ(plain.app, qpxhost::AppKind::Desktop);
  EXPECT_EQ(plain.desktopLayout, 6);
  EXPECT_EQ(plain.desktopAlphaLayout, 2);  // alpha first, as the skipped byte
  EXPECT_EQ(ConfigFor("desktop", 3, false).desktopAlphaLayout, 1);
  const qpxhost::HostConfig alpha = ConfigFor("web", 2, true);
  EXPECT_EQ(alpha.app, qpxhost::AppKind::Web);
  EXPECT_EQ(alpha.desktopAlphaLayout, 2);
  EXPECT_EQ(alpha.desktopLayout, 6);
  EXPECT_EQ(ConfigFor("desktop", 1, true).desktopLayout, 5);
  EXPECT_THROW(ConfigFor("console", 4, true), CLI::ValidationError);
}

TEST(CliPlumbingTest, PictureJobChecksTheLedgerAndWritesTheFile) {
  const fs::path dir = fs::temp_directory_path() / ("qpx-plumbing-" + std::to_string(getpid()));
  fs::create_directories(dir);
  const Image input = RandomImage(10, 6, false);
  WritePng((dir / "in.png").string(), input, false);
  PictureCommandOptions options;
  options.host.plugin = QPX_PLUGIN_PATH;
  options.host.host = "desktop";
  options.layout = 4;
  const PictureJob job{{(dir / "in.png").string()},
                       (dir / "out.png").string(),
                       [](const std::vector<qpxhost::HostObject*>&) { return std::nullopt; }};
  EXPECT_NO_THROW(RunPictureJob(options, job));
  EXPECT_TRUE(ReadImage((dir / "out.png").string()).rgba == input.rgba);
  fs::remove_all(dir);
}

TEST(CliPlumbingTest, CallTextReadsLikeTheHostLanguage) {
  EXPECT_EQ((MethodCall{"BlurQPX", {3.0}}).Text(), "pic.BlurQPX(3.0)");
  EXPECT_EQ((MethodCall{"BlurQPX", {2.5}}).Text(), "pic.BlurQPX(2.5)");
  EXPECT_EQ((MethodCall{"ScaleQPX", {int32_t{320}, int32_t{240}, true}}).Text(),
            "pic.ScaleQPX(320, 240, True)");
  EXPECT_EQ((MethodCall{"ScaleQPX", {int32_t{8}, int32_t{6}, false}, "detail"}).Text(),
            "detail.ScaleQPX(8, 6, False)");
  EXPECT_EQ((MethodCall{"ScalingQPX", {int32_t{3}, int32_t{160}, int32_t{120}}}).Text(),
            "pic.ScalingQPX(3, 160, 120)");
}

TEST(CliPlumbingTest, RowYieldsOfBlur) {
  EXPECT_EQ(RowYields({"BlurQPX", {3.0}}, 640, 480), 962);
  EXPECT_EQ(RowYields({"BlurQPX", {1.0}}, 1, 1), 4);
  EXPECT_EQ(RowYields({"BlurQPX", {0.99}}, 640, 480), 0);
  EXPECT_EQ(RowYields({"BlurQPX", {std::nan("")}}, 640, 480), 0);
  EXPECT_EQ(RowYields({"NoSuchQPX", {}}, 640, 480), 0);
}

TEST(CliPlumbingTest, RowYieldsOfScale) {
  auto scale = [](int32_t width, int32_t height, bool antiAlias) {
    return MethodCall{"ScaleQPX", {width, height, antiAlias}};
  };
  // The box resizer: a check per row and one after.
  EXPECT_EQ(RowYields(scale(160, 120, false), 640, 480), 121);
  EXPECT_EQ(RowYields(scale(320, 240, false), 80, 60), 241);
  // Anti-aliasing only where the picture grows both ways: three checks, then one per row
  // for each of the 4 pixel bytes.
  EXPECT_EQ(RowYields(scale(320, 240, true), 80, 60), 963);
  EXPECT_EQ(RowYields(scale(800, 480, true), 640, 480), 481);
  EXPECT_EQ(RowYields(scale(640, 600, true), 640, 480), 601);
  EXPECT_EQ(RowYields(scale(320, 240, true), 640, 480), 241);
  // The receiver itself, and nil.
  EXPECT_EQ(RowYields(scale(640, 480, true), 640, 480), 0);
  EXPECT_EQ(RowYields(scale(640, 480, false), 640, 480), 0);
  EXPECT_EQ(RowYields(scale(0, 10, true), 640, 480), 0);
  EXPECT_EQ(RowYields(scale(10, -1, false), 640, 480), 0);
}

TEST(CliPlumbingTest, RowYieldsOfScaleWithMask) {
  auto scale = [](int32_t width, int32_t height, bool antiAlias) {
    return MethodCall{"ScaleImageAndMaskQPX", {width, height, antiAlias}};
  };
  // Without a mask as ScaleQPX: the box resizer checks once per row and once after.
  EXPECT_EQ(RowYields(scale(160, 120, false), 640, 480), 121);
  // With a mask (or an alpha channel) the same resizer runs again, on the mask: 2 x 121.
  EXPECT_EQ(RowYields(scale(160, 120, false), 640, 480, true), 242);
  // The anti-aliased enlargement: 3 + 4 x 240 for the image, as many again for the mask.
  EXPECT_EQ(RowYields(scale(320, 240, true), 80, 60), 963);
  EXPECT_EQ(RowYields(scale(320, 240, true), 80, 60, true), 1926);
  // Growing one way only takes the box resizer: 2 x (60 + 1).
  EXPECT_EQ(RowYields(scale(320, 60, true), 80, 60, true), 122);
  // The same size gives the receiver back; a size below 1 gives nil.
  EXPECT_EQ(RowYields(scale(80, 60, true), 80, 60, true), 0);
  EXPECT_EQ(RowYields(scale(0, 60, false), 80, 60, true), 0);
  // Only this method resizes the mask.
  EXPECT_EQ(RowYields({"ScaleQPX", {int32_t{160}, int32_t{120}, false}}, 640, 480, true), 121);
}

TEST(CliPlumbingTest, RowYieldsOfScaling) {
  auto scaling = [](int32_t mode, int32_t width, int32_t height) {
    return MethodCall{"ScalingQPX", {mode, width, height}};
  };
  // Four checks before the rows, one per row and three after.
  EXPECT_EQ(RowYields(scaling(3, 160, 120), 640, 480), 127);
  EXPECT_EQ(RowYields(scaling(1, 320, 240), 80, 60), 247);
  EXPECT_EQ(RowYields(scaling(7, 640, 480), 640, 480), 487);
  EXPECT_EQ(RowYields(scaling(4, 1, 1), 1, 1), 8);
  EXPECT_EQ(RowYields(scaling(2, 10, 32767), 5, 5), 32774);
  // Nil before any work: a mode outside 1 to 7, no pixels, or an intermediate picture of new
  // width x source height words above 2^31 - 1 bytes (32767 x 16384 x 4 is 2^31 - 65536).
  for (int32_t mode : {0, 8, -1, INT32_MIN}) EXPECT_EQ(RowYields(scaling(mode, 8, 8), 4, 4), 0);
  EXPECT_EQ(RowYields(scaling(1, 0, 8), 4, 4), 0);
  EXPECT_EQ(RowYields(scaling(1, 8, -2), 4, 4), 0);
  EXPECT_EQ(RowYields(scaling(5, 32767, 10), 5, 16384), 17);
  EXPECT_EQ(RowYields(scaling(5, 32767, 10), 5, 16385), 0);
  // Nil after five checks, when the new picture cannot be made: not counted.
  EXPECT_EQ(RowYields(scaling(2, 32768, 10), 5, 5), 0);
  EXPECT_EQ(RowYields(scaling(2, 10, 32768), 5, 5), 0);
}

TEST(CliPlumbingTest, RowYieldsOfDrawing) {
  auto draw = [](double x, double y) {
    return MethodCall{"DrawPictureFQPX", {static_cast<qpxhost::HostObject*>(nullptr), x, y, 1.0}};
  };
  // A check before the rows, one per row of the receiver and one after, wherever the picture
  // lands.
  EXPECT_EQ(RowYields(draw(10.5, -3.25), 640, 480), 482);
  EXPECT_EQ(RowYields(draw(-5000, 9000), 1, 1), 3);
  EXPECT_EQ(RowYields(draw(2147483647.5, -2147483648.0), 4, 3), 5);
  // False before any check when a coordinate's floor is outside the 32-bit range.
  for (const MethodCall& call :
       {draw(std::nan(""), 0), draw(0, std::nan("")), draw(1e300, 0), draw(2147483648.0, 0),
        draw(0, -2147483648.5), draw(-INFINITY, 0)}) {
    EXPECT_EQ(RowYields(call, 640, 480), 0) << call.Text();
  }
}

TEST(CliPlumbingTest, ResamplingModesByNumberAndName) {
  for (const auto& [number, name] : kModes) {
    EXPECT_EQ(ParseResamplingMode(number), std::stoi(number));
    EXPECT_EQ(ParseResamplingMode(name), std::stoi(number));
    ASSERT_NE(FindResamplingMode(std::stoi(number)), nullptr);
    EXPECT_STREQ(FindResamplingMode(std::stoi(number))->name, name);
  }
  EXPECT_EQ(ParseResamplingMode("MITCHELL"), 5);
  // Other numbers are taken as they are, for the method to refuse.
  EXPECT_EQ(ParseResamplingMode("0"), 0);
  EXPECT_EQ(ParseResamplingMode("8"), 8);
  EXPECT_EQ(ParseResamplingMode("-2147483648"), INT32_MIN);
  for (const char* bad : {"", "sharp", "2.5", " 3", "3 ", "0x3", "2147483648", "lanczos"}) {
    EXPECT_EQ(ParseResamplingMode(bad), std::nullopt) << bad;
  }
  EXPECT_EQ(FindResamplingMode(0), nullptr);
  EXPECT_EQ(FindResamplingMode(8), nullptr);
  EXPECT_EQ(ResamplingModeNames(), "triangle, box, lanczos3, lanczos8, mitchell, cubic, cubic6");
}

TEST(CliPlumbingTest, YieldPlan) {
  EXPECT_EQ(PlanYield(std::nullopt, false).argument, 0);
  EXPECT_FALSE(PlanYield(std::nullopt, false).everyRow);
  EXPECT_EQ(PlanYield(std::nullopt, true).argument, kYieldEveryRow);
  EXPECT_TRUE(PlanYield(std::nullopt, true).everyRow);
  EXPECT_EQ(PlanYield(-50, true).argument, -50);
  EXPECT_FALSE(PlanYield(-50, true).everyRow);
  EXPECT_EQ(PlanYield(0, true).argument, 0);
}

class CliMethodTest : public ::testing::TestWithParam<const char*> {
 protected:
  void SetUp() override {
    qpxhost::HostConfig config;
    config.app = *qpxhost::ParseAppKind(GetParam());
    host_ = std::make_unique<qpxhost::Host>(config);
    host_->LoadPlugin(QPX_PLUGIN_PATH);
  }
  void TearDown() override {
    EXPECT_EQ(host_->LiveObjectCount(), 0u);
    EXPECT_THAT(host_->problems(), ::testing::IsEmpty());
    host_.reset();
  }
  std::unique_ptr<qpxhost::Host> host_;
};

INSTANTIATE_TEST_SUITE_P(Hosts, CliMethodTest, ::testing::ValuesIn(kHostKinds));

// Needs the module's BlurQPX.
TEST_P(CliMethodTest, BlurYieldsOncePerRowAndPassWhenAskedTo) {
  const Image input = RandomImage(21, 13, false);
  PictureRef picture = ImageToPicture(*host_, input, {});
  const MethodCall call{"BlurQPX", {2.0}};
  int yields = 0;
  host_->onYield = [&] { ++yields; };
  RunMethod(*host_, picture.get(), call, kYieldEveryRow);
  EXPECT_EQ(yields, RowYields(call, input.width, input.height));
  yields = 0;
  RunMethod(*host_, picture.get(), call, 0);
  EXPECT_EQ(yields, 0);
}

// Needs the module's BlurQPX.
TEST_P(CliMethodTest, BlurWithRadiusZeroHandsBackTheReceiver) {
  const Image input = RandomImage(5, 4, false);
  PictureRef picture = ImageToPicture(*host_, input, {});
  const qpxhost::CallResult result = host_->Call("BlurQPX", picture.get(), {0.0});
  EXPECT_EQ(result.picture, picture.get());
  if (result.picture != nullptr) host_->Unlock(result.picture);
  const Image output = RunToImage(*host_, picture.get(), {"BlurQPX", {0.0}}, 0);
  EXPECT_TRUE(output.rgba == input.rgba);
  EXPECT_EQ(host_->RefCount(picture.get()), 1);
}

// Needs the module's ScaleQPX.
TEST_P(CliMethodTest, ScaleYieldsAsTheProgressBarCounts) {
  const Image input = RandomImage(7, 5, false);
  PictureRef picture = ImageToPicture(*host_, input, {});
  for (const MethodCall& call : {
           MethodCall{"ScaleQPX", {int32_t{3}, int32_t{2}, false}},
           MethodCall{"ScaleQPX", {int32_t{14}, int32_t{10}, false}},
           MethodCall{"ScaleQPX", {int32_t{14}, int32_t{10}, true}},
           MethodCall{"ScaleQPX", {int32_t{14}, int32_t{5}, true}},
           MethodCall{"ScaleQPX", {int32_t{7}, int32_t{5}, true}},
       }) {
    SCOPED_TRACE(call.Text());
    int yields = 0;
    host_->onYield = [&] { ++yields; };
    const Image output = RunToImage(*host_, picture.get(), call, kYieldEveryRow);
    EXPECT_EQ(yields, RowYields(call, input.width, input.height));
    EXPECT_EQ(output.width, std::get<int32_t>(call.arguments[0]));
    EXPECT_EQ(output.height, std::get<int32_t>(call.arguments[1]));
    yields = 0;
    RunMethod(*host_, picture.get(), call, 0);
    EXPECT_EQ(yields, 0);
  }
  host_->onYield = nullptr;
}

// Needs the module's ScaleImageAndMaskQPX.
TEST_P(CliMethodTest, ScaleWithMaskYieldsAsTheProgressBarCounts) {
  const Image opaque = RandomImage(7, 5, false, 61);
  const Image transparent = RandomImage(7, 5, true, 62);
  qpxhost::PictureOptions alphaChannel;
  alphaChannel.hasAlpha = true;
  struct Receiver {
    const char* name;
    PictureRef picture;
    bool masked;
  } receivers[] = {{"no mask", ImageToPicture(*host_, opaque, {}), false},
                   {"mask", ImageToPicture(*host_, transparent, {}), true},
                   {"alpha channel", ImageToPicture(*host_, transparent, alphaChannel), true}};
  int yields = 0;
  host_->onYield = [&] { ++yields; };
  for (const Receiver& receiver : receivers) {
    for (const auto& [width, height, antiAlias] :
         {std::tuple{3, 2, false}, {14, 10, false}, {14, 10, true}, {14, 5, true}, {7, 5, true}}) {
      const MethodCall call{"ScaleImageAndMaskQPX", {int32_t{width}, int32_t{height}, antiAlias}};
      SCOPED_TRACE(std::string(receiver.name) + " " + call.Text());
      yields = 0;
      const PictureRef result = RunMethod(*host_, receiver.picture.get(), call, kYieldEveryRow);
      EXPECT_EQ(yields, RowYields(call, 7, 5, receiver.masked));
      EXPECT_EQ(result->width, width);
      EXPECT_EQ(result->height, height);
      if (result.get() == receiver.picture.get()) {
        EXPECT_TRUE(width == 7 && height == 5);  // only at the same size
      } else {
        EXPECT_EQ(result->mask != nullptr, receiver.masked);
      }
      yields = 0;
      RunMethod(*host_, receiver.picture.get(), call, 0);
      EXPECT_EQ(yields, 0);
    }
  }
  host_->onYield = nullptr;
}

// Needs the module's ScalingQPX.
TEST_P(CliMethodTest, ScalingYieldsAsTheProgressBarCounts) {
  const Image input = RandomImage(7, 5, false);
  PictureRef picture = ImageToPicture(*host_, input, {});
  int yields = 0;
  host_->onYield = [&] { ++yields; };
  for (int32_t mode = 1; mode <= 7; ++mode) {
    for (const auto& [width, height] : {std::pair{3, 2}, {14, 10}, {7, 5}, {14, 3}, {2, 11}}) {
      const MethodCall call{"ScalingQPX", {mode, width, height}};
      SCOPED_TRACE(call.Text());
      yields = 0;
      const Image output = RunToImage(*host_, picture.get(), call, kYieldEveryRow);
      EXPECT_EQ(yields, RowYields(call, input.width, input.height));
      EXPECT_EQ(output.width, width);
      EXPECT_EQ(output.height, height);
      yields = 0;
      RunMethod(*host_, picture.get(), call, 0);
      EXPECT_EQ(yields, 0);
    }
  }
  // Nil before any work, and nil after five checks when the new picture cannot be made, which
  // the bar does not count.
  for (const auto& [call, expected] : {
           std::pair{MethodCall{"ScalingQPX", {int32_t{0}, int32_t{3}, int32_t{2}}}, 0},
           {MethodCall{"ScalingQPX", {int32_t{8}, int32_t{3}, int32_t{2}}}, 0},
           {MethodCall{"ScalingQPX", {int32_t{1}, int32_t{0}, int32_t{2}}}, 0},
           {MethodCall{"ScalingQPX", {int32_t{1}, int32_t{3}, int32_t{-1}}}, 0},
           {MethodCall{"ScalingQPX", {int32_t{1}, int32_t{32768}, int32_t{2}}}, 5},
       }) {
    SCOPED_TRACE(call.Text());
    yields = 0;
    EXPECT_THROW(RunMethod(*host_, picture.get(), call, kYieldEveryRow), std::runtime_error);
    EXPECT_EQ(yields, expected);
    EXPECT_EQ(RowYields(call, input.width, input.height), 0);
  }
  // An intermediate picture above 2^31 - 1 bytes: nil before any work.
  PictureRef tall = ImageToPicture(*host_, UniformImage(1, 16385, 0, 0, 0), {});
  const MethodCall wide{"ScalingQPX", {int32_t{1}, int32_t{32767}, int32_t{2}}};
  yields = 0;
  EXPECT_THROW(RunMethod(*host_, tall.get(), wide, kYieldEveryRow), std::runtime_error);
  EXPECT_EQ(yields, 0);
  EXPECT_EQ(RowYields(wide, 1, 16385), 0);
  host_->onYield = nullptr;
}

// Needs the module's DrawPictureFQPX.
TEST_P(CliMethodTest, DrawYieldsAsTheProgressBarCounts) {
  const Image destinationImage = RandomImage(7, 5, false, 51);
  PictureRef picture = ImageToPicture(*host_, RandomImage(3, 2, true, 52), {});
  ASSERT_NE(picture->mask, nullptr);
  int yields = 0;
  host_->onYield = [&] { ++yields; };
  for (const auto& [x, y, opacity] : {std::tuple{1.0, 2.0, 1.0},
                                      {-0.5, 3.75, 0.5},
                                      {-100.0, 100.0, 2.0},
                                      {2147483647.5, -2147483648.0, 1.0}}) {
    PictureRef destination = ImageToPicture(*host_, destinationImage, {});
    const MethodCall call{"DrawPictureFQPX", {picture.get(), x, y, opacity}, "dest", "pic"};
    SCOPED_TRACE(call.Text());
    yields = 0;
    const PictureRef drawn = RunMethod(*host_, destination.get(), call, kYieldEveryRow);
    EXPECT_EQ(drawn.get(), destination.get());  // drawn in place
    EXPECT_EQ(host_->RefCount(destination.get()), 2);
    EXPECT_EQ(yields, 7);
    EXPECT_EQ(yields, RowYields(call, destinationImage.width, destinationImage.height));
    yields = 0;
    RunMethod(*host_, destination.get(), call, 0);
    EXPECT_EQ(yields, 0);
  }
  // False, before any yield, which the bar does not count.
  PictureRef destination = ImageToPicture(*host_, destinationImage, {});
  for (const double x : {std::nan(""), 1e300, 2147483648.0, -2147483648.5}) {
    const MethodCall call{"DrawPictureFQPX", {picture.get(), x, 0.0, 1.0}, "dest", "pic"};
    SCOPED_TRACE(call.Text());
    yields = 0;
    try {
      RunMethod(*host_, destination.get(), call, kYieldEveryRow);
      ADD_FAILURE() << "no error";
    } catch (const std::runtime_error& e) {
      EXPECT_EQ(e.what(), call.Text() + " answered False");
    }
    EXPECT_EQ(yields, 0);
    EXPECT_EQ(RowYields(call, destinationImage.width, destinationImage.height), 0);
  }
  EXPECT_EQ(host_->RefCount(destination.get()), 1);
  EXPECT_EQ(host_->RefCount(picture.get()), 1);
  EXPECT_EQ(host_->RefCount(picture->mask), 1);
  host_->onYield = nullptr;
}

// Needs the module's DrawPictureFQPX.
TEST_P(CliMethodTest, RaisedExceptionIsAnErrorNamingIt) {
  PictureRef destination = ImageToPicture(*host_, RandomImage(4, 3, false), {});
  const MethodCall call{
      "DrawPictureFQPX", {static_cast<qpxhost::HostObject*>(nullptr), 1.0, 2.0}, "dest"};
  try {
    RunMethod(*host_, destination.get(), call, 0);
    ADD_FAILURE() << "no error";
  } catch (const std::runtime_error& e) {
    EXPECT_STREQ(e.what(),
                 "dest.DrawPictureFQPX(Nil, 1.0, 2.0) raised NilObjectException: picture "
                 "is nil");
  }
  EXPECT_EQ(host_->RefCount(destination.get()), 1);
}

TEST(CliPlumbingTest, NilResultIsAnErrorNamingTheCall) {
  // The module reads only 32-bit console and web pictures; a 16-bit one makes it give nil.
  for (const char* kind : {"console", "web"}) {
    SCOPED_TRACE(kind);
    qpxhost::HostConfig config;
    config.app = *qpxhost::ParseAppKind(kind);
    qpxhost::Host host(config);
    host.LoadPlugin(QPX_PLUGIN_PATH);
    qpxhost::PictureOptions sixteenBits;
    sixteenBits.depth = 16;
    {
      PictureRef picture(host, qpxhost::NewHostPicture(host, 4, 4, sixteenBits));
      try {
        RunMethod(host, picture.get(), {"BlurQPX", {2.0}}, 0);
        ADD_FAILURE() << "no error";
      } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "pic.BlurQPX(2.0) returned nil");
      }
    }
    EXPECT_EQ(host.LiveObjectCount(), 0u);
  }
}

TEST_P(CliMethodTest, UnknownMethodIsAnError) {
  PictureRef picture = ImageToPicture(*host_, RandomImage(2, 2, false), {});
  EXPECT_THROW(RunMethod(*host_, picture.get(), {"PaintQPX", {}}, 0), std::runtime_error);
}

// --- progress bar -----------------------------------------------------------------------------

TEST(CliProgressBarTest, RendersWithinTheTerminalWidth) {
  const std::string half = ProgressBar::Render("blur", 50, 100, 1.25, 80);
  EXPECT_THAT(half, StartsWith("blur ["));
  EXPECT_THAT(half, HasSubstr(" 50%"));
  EXPECT_THAT(half, HasSubstr("1.2 s"));
  EXPECT_LT(half.size(), 80u);
  EXPECT_EQ(std::count(half.begin(), half.end(), '#'), 25);
  const std::string full = ProgressBar::Render("blur", 140, 100, 0, 80);
  EXPECT_THAT(full, HasSubstr("100%"));
  EXPECT_EQ(full.find(' ', full.find('[')), full.find(']') + 1);  // no gap inside the bar
  EXPECT_LT(ProgressBar::Render("a long label", 1, 2, 0, 10).size(), 10u);
  const std::string unknown = ProgressBar::Render("demo", 7, 0, 3, 60);
  EXPECT_THAT(unknown, HasSubstr("==="));
  EXPECT_THAT(unknown, ::testing::Not(HasSubstr("%")));
}

TEST(CliProgressBarTest, SilentWithoutATerminal) {
  int pipeFds[2];
  ASSERT_EQ(pipe(pipeFds), 0);
  {
    ProgressBar bar("blur", 10, {pipeFds[1], {}, {}});
    EXPECT_FALSE(bar.enabled());
    for (int i = 0; i < 10; ++i) bar.Advance();
    EXPECT_EQ(bar.done(), 10);
  }
  close(pipeFds[1]);
  char buffer[16];
  EXPECT_EQ(read(pipeFds[0], buffer, sizeof buffer), 0);
  close(pipeFds[0]);
}

// A pseudo-terminal: what the bar writes to `terminal` can be read from `master`.
void OpenPseudoTerminal(int& master, int& terminal) {
  master = posix_openpt(O_RDWR | O_NOCTTY);
  ASSERT_GE(master, 0);
  ASSERT_EQ(grantpt(master), 0);
  ASSERT_EQ(unlockpt(master), 0);
  terminal = open(ptsname(master), O_RDWR | O_NOCTTY);
  ASSERT_GE(terminal, 0);
}

TEST(CliProgressBarTest, DrawsOnATerminalAndWipesItselfAtTheEnd) {
  int master = -1, terminal = -1;
  ASSERT_NO_FATAL_FAILURE(OpenPseudoTerminal(master, terminal));
  {
    ProgressBar bar("blur", 4, {terminal, {}, {}});
    EXPECT_TRUE(bar.enabled());
    bar.Advance(2);
  }
  close(terminal);
  std::string seen;
  char buffer[512];
  for (ssize_t n; (n = read(master, buffer, sizeof buffer)) > 0;) seen.append(buffer, size_t(n));
  close(master);
  EXPECT_THAT(seen, HasSubstr("blur ["));
  EXPECT_THAT(seen, HasSubstr(" 50%"));
  EXPECT_THAT(seen, ::testing::EndsWith("\r\033[K"));
}

TEST(CliProgressBarTest, WaitsBeforeShowingUp) {
  int master = -1, terminal = -1;
  ASSERT_NO_FATAL_FAILURE(OpenPseudoTerminal(master, terminal));
  {
    ProgressBar bar("blur", 4, {terminal, std::chrono::hours(1), {}});
    bar.Advance(4);
  }
  close(terminal);
  char buffer[64];
  EXPECT_LE(read(master, buffer, sizeof buffer), 0);  // nothing, then EIO once the pty is shut
  close(master);
}

}  // namespace
}  // namespace qpx
