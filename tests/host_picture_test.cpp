// Pictures, masks and graphics of the emulated host.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "host_fixture.h"
#include "picture_services.h"

namespace {

using qpxhost::AppKind;
using qpxhost::Host;
using qpxhost::HostConfig;
using qpxhost::HostPicture;
using qpxhost::PictureOptions;
using qpxhost::RGBA;
using qpxtest::HostTest;
using qpxtest::Ref;
using qpxtest::Service;

HostConfig Kind(AppKind app) {
  HostConfig config;
  config.app = app;
  return config;
}

struct LayoutCase {
  int layout;
  bool alpha;
};

class PixelLayout : public HostTest, public ::testing::WithParamInterface<LayoutCase> {};

TEST_P(PixelLayout, StoresChannelsAtTheirBytes) {
  auto& host = Boot(Kind(AppKind::Desktop), false);
  PictureOptions options;
  options.layout = GetParam().layout;
  options.hasAlpha = GetParam().alpha;
  HostPicture* picture = NewHostPicture(host, 2, 1, options);
  picture->Set(1, 0, {10, 20, 30, GetParam().alpha ? uint8_t{255} : uint8_t{7}});
  const uint8_t* p = picture->Row(0) + 4;
  switch (GetParam().layout) {
    case 1:
    case 3:
    case 5:
      EXPECT_EQ((std::vector<int>{p[0], p[1], p[2], p[3]}), (std::vector<int>{10, 20, 30, 255}));
      break;
    default:
      EXPECT_EQ((std::vector<int>{p[0], p[1], p[2], p[3]}), (std::vector<int>{255, 10, 20, 30}));
  }
  EXPECT_EQ(picture->Get(1, 0), (RGBA{10, 20, 30, 255}));
  host.Unlock(picture);
}

// Whole rows in and out give what Set and Get give pixel by pixel.
void ExpectRowsAsPixels(Host& host, const PictureOptions& options) {
  constexpr int32_t kWidth = 67;
  HostPicture* byRow = NewHostPicture(host, kWidth, 2, options);
  HostPicture* byPixel = NewHostPicture(host, kWidth, 2, options);
  std::vector<uint8_t> row(4 * kWidth);
  for (size_t i = 0; i < row.size(); ++i) row[i] = uint8_t(i * 97 + 13);
  byRow->SetRow(1, row.data());
  for (int32_t x = 0; x < kWidth; ++x) {
    const uint8_t* p = row.data() + 4 * x;
    byPixel->Set(x, 1, {p[0], p[1], p[2], p[3]});
  }
  EXPECT_EQ(0, std::memcmp(byRow->Row(1), byPixel->Row(1), 4 * kWidth));
  std::vector<uint8_t> back(4 * kWidth);
  byRow->GetRow(1, back.data());
  for (int32_t x = 0; x < kWidth; ++x) {
    const RGBA c = byRow->Get(x, 1);
    EXPECT_EQ((RGBA{back[4 * x], back[4 * x + 1], back[4 * x + 2], back[4 * x + 3]}), c) << x;
  }
  host.Unlock(byRow);
  host.Unlock(byPixel);
}

TEST_P(PixelLayout, RowsGoInAndOutAsPixelsDo) {
  PictureOptions options;
  options.layout = GetParam().layout;
  options.hasAlpha = GetParam().alpha;
  ExpectRowsAsPixels(Boot(Kind(AppKind::Desktop), false), options);
}

TEST_F(HostTest, ConsoleRowsGoInAndOutAsPixelsDo) {
  auto& host = Boot(Kind(AppKind::Console), false);
  for (bool alpha : {false, true}) {
    PictureOptions options;
    options.hasAlpha = alpha;
    ExpectRowsAsPixels(host, options);
  }
}

INSTANTIATE_TEST_SUITE_P(Layouts, PixelLayout,
                         ::testing::Values(LayoutCase{1, false}, LayoutCase{2, false},
                                           LayoutCase{3, false}, LayoutCase{4, false},
                                           LayoutCase{5, false}, LayoutCase{6, false},
                                           LayoutCase{1, true}, LayoutCase{2, true}));

TEST_F(HostTest, PremultipliedLayoutsStorePremultipliedColour) {
  auto& host = Boot(Kind(AppKind::Desktop), false);
  PictureOptions options;
  options.hasAlpha = true;
  options.layout = 1;
  HostPicture* picture = NewHostPicture(host, 1, 1, options);
  picture->Set(0, 0, {200, 100, 0, 128});
  EXPECT_EQ(picture->Row(0)[0], (200 * 128 + 127) / 255);
  EXPECT_EQ(picture->Row(0)[3], 128);
  EXPECT_EQ(picture->Get(0, 0).a, 128);
  EXPECT_NEAR(picture->Get(0, 0).r, 200, 1);
  host.Unlock(picture);
}

TEST_F(HostTest, ConsolePixelsAreBgrWithAColourlessFourthByte) {
  auto& host = Boot(Kind(AppKind::Console), false);
  HostPicture* picture = NewHostPicture(host, 1, 2);
  picture->Set(0, 1, {10, 20, 30, 255});
  const uint8_t* p = picture->Row(1);
  EXPECT_EQ((std::vector<int>{p[0], p[1], p[2], p[3]}), (std::vector<int>{30, 20, 10, 0}));
  host.Unlock(picture);
}

TEST_F(HostTest, PropertiesOfPictures) {
  auto& host = Boot(Kind(AppKind::Console), false);
  PictureOptions options;
  options.hasAlpha = true;
  HostPicture* picture = NewHostPicture(host, 7, 3, options);
  auto getInt = Service<REALGetPropValueInt32Fn>("REALGetPropValueInt");
  auto getBool = Service<REALGetPropValueUInt8Fn>("REALGetPropValueBool");
  int32_t value = 0;
  uint8_t flag = 0;
  EXPECT_TRUE(getInt(reinterpret_cast<REALobject>(picture), "Width", &value));
  EXPECT_EQ(value, 7);
  EXPECT_TRUE(getInt(reinterpret_cast<REALobject>(picture), "Height", &value));
  EXPECT_EQ(value, 3);
  EXPECT_FALSE(getInt(reinterpret_cast<REALobject>(picture), "Depth", &value));
  EXPECT_TRUE(getBool(reinterpret_cast<REALobject>(picture), "HasAlphaChannel", &flag));
  EXPECT_EQ(flag, 1);
  EXPECT_FALSE(getInt(nullptr, "Width", &value));
  host.Unlock(picture);
}

TEST_F(HostTest, DescriptionsLockByKind) {
  auto& host = Boot(Kind(AppKind::Desktop), false);
  auto lock = Service<REALLockPictureDescriptionFn>("REALLockPictureDescription");
  auto unlock = Service<REALUnlockPictureDescriptionFn>("unlockPictureDescription");
  HostPicture* picture = NewHostPicture(host, 4, 2);
  REALpictureDescription description{};
  EXPECT_FALSE(lock(Ref(picture), &description, kPictureTypeConsole));
  ASSERT_TRUE(lock(Ref(picture), &description, kPictureTypeBitmapContext));
  EXPECT_EQ(description.pictureType, 8);
  EXPECT_EQ(description.width, 4);
  auto* context = static_cast<qpxhost::BitmapContext*>(description.pictureData);
  EXPECT_EQ(context->bitsPerPixel, 32u);
  EXPECT_EQ(context->bytesPerRow, 16u);
  EXPECT_EQ(context->alphaInfo, 5u);
  EXPECT_EQ(picture->lockCount, 1);
  unlock(Ref(picture));
  unlock(Ref(picture));
  EXPECT_EQ(picture->lockCount, 0);
  EXPECT_EQ(picture->unmatchedUnlocks, 1);
  // From 2012.0 on, an unlock without a lock is misuse.
  EXPECT_THAT(
      host.TakeProblems(),
      ::testing::ElementsAre("unlockPictureDescription(#1): its description is not locked"));
  host.Unlock(picture);
}

TEST_F(HostTest, NewPictureAndConstructor) {
  auto& host = Boot(Kind(AppKind::Desktop), false);
  auto newPicture = Service<REALNewPictureFn>("newPicture");
  REALpicture made = newPicture(3, 2, 32);
  ASSERT_NE(made, nullptr);
  EXPECT_EQ(host.RefCount(made), 1);
  EXPECT_EQ(newPicture(-1, 2, 32), nullptr);
  EXPECT_EQ(newPicture(100000, 100000, 32), nullptr);
  // No rows, but a row of 2^32 or 2^31 bytes: refused like any row beyond 32 bits.
  EXPECT_EQ(newPicture(1 << 30, 0, 32), nullptr);
  EXPECT_EQ(newPicture(1 << 29, 0, 32), nullptr);

  auto newInstance = Service<REALnewInstanceFn>("PluginNewInstance");
  auto loadMethod = Service<REALLoadObjectMethodFn>("REALLoadObjectMethod");
  REALobject withAlpha = newInstance("Picture");
  auto* picture = dynamic_cast<HostPicture*>(host.Find(withAlpha, "test"));
  ASSERT_NE(picture, nullptr);
  EXPECT_TRUE(picture->hasAlpha);
  EXPECT_EQ(picture->width, 0);
  auto constructor = reinterpret_cast<void (*)(REALobject, int32_t, int32_t)>(
      loadMethod(withAlpha, "Constructor(width as integer, height as integer)"));
  ASSERT_NE(constructor, nullptr);
  constructor(withAlpha, 5, 6);
  EXPECT_EQ(picture->width, 5);
  EXPECT_EQ(picture->height, 6);
  EXPECT_EQ(picture->layout, 1);
  EXPECT_EQ(loadMethod(withAlpha, "NoSuchMethod()"), nullptr);
  host.Unlock(picture);
  host.Unlock(host.Find(made, "test"));
}

TEST_F(HostTest, MasksAreMadeOnRequestAndReturnedWithAReference) {
  auto& host = Boot(Kind(AppKind::Desktop), false);
  auto getMask = Service<REALGetPictureMaskFn>("REALGetPictureMask");
  HostPicture* picture = NewHostPicture(host, 3, 3);
  EXPECT_EQ(getMask(Ref(picture), false), nullptr);
  REALpicture mask = getMask(Ref(picture), true);
  ASSERT_NE(mask, nullptr);
  EXPECT_EQ(host.RefCount(mask), 2);  // the picture's and the caller's
  EXPECT_EQ(getMask(Ref(picture), false), mask);
  EXPECT_EQ(host.RefCount(mask), 3);
  host.Unlock(host.Find(mask, "test"));
  host.Unlock(host.Find(mask, "test"));
  host.Unlock(picture);  // takes its mask with it
}

TEST_F(HostTest, CopyMaskAndMaskSetter) {
  auto& host = Boot(Kind(AppKind::Console), false);
  auto loadMethod = Service<REALLoadObjectMethodFn>("REALLoadObjectMethod");
  PictureOptions options;
  options.hasAlpha = true;
  HostPicture* picture = NewHostPicture(host, 2, 1, options);
  picture->Set(1, 0, {1, 2, 3, 55});
  auto copyMask = reinterpret_cast<REALpicture (*)(REALpicture)>(
      loadMethod(reinterpret_cast<REALobject>(picture), "CopyMask as Picture"));
  ASSERT_NE(copyMask, nullptr);
  REALpicture mask = copyMask(Ref(picture));
  ASSERT_NE(mask, nullptr);
  auto* maskPicture = dynamic_cast<HostPicture*>(host.Find(mask, "test"));
  EXPECT_EQ(maskPicture->Get(1, 0).r, 200);  // 255 - alpha: 255 is transparent
  EXPECT_EQ(maskPicture->Get(0, 0).r, 255);

  HostPicture* plain = NewHostPicture(host, 2, 1);
  EXPECT_EQ(copyMask(Ref(plain)), nullptr);
  auto setMask = reinterpret_cast<void (*)(REALpicture, REALpicture)>(
      loadMethod(reinterpret_cast<REALobject>(plain), "Mask(assigns newMask As Picture)"));
  ASSERT_NE(setMask, nullptr);
  setMask(Ref(plain), mask);
  EXPECT_EQ(plain->mask, maskPicture);
  EXPECT_EQ(host.RefCount(mask), 2);
  host.Unlock(maskPicture);
  host.Unlock(plain);
  host.Unlock(picture);
}

// A mask of another size is kept as given, and copied at its own size.
TEST_F(HostTest, AMaskOfAnotherSizeIsKeptAndCopiedAtItsOwnSize) {
  auto& host = Boot(Kind(AppKind::Desktop), false);
  auto loadMethod = Service<REALLoadObjectMethodFn>("REALLoadObjectMethod");
  HostPicture* picture = NewHostPicture(host, 4, 3);
  HostPicture* small = NewHostPicture(host, 2, 5);
  small->Set(1, 4, {77, 77, 77, 255});
  auto setMask = reinterpret_cast<void (*)(REALpicture, REALpicture)>(
      loadMethod(reinterpret_cast<REALobject>(picture), "Mask(assigns newMask As Picture)"));
  ASSERT_NE(setMask, nullptr);
  setMask(Ref(picture), Ref(small));
  EXPECT_EQ(picture->mask, small);
  EXPECT_EQ(host.RefCount(Ref(small)), 2);
  auto copyMask = reinterpret_cast<REALpicture (*)(REALpicture)>(
      loadMethod(reinterpret_cast<REALobject>(picture), "CopyMask as Picture"));
  ASSERT_NE(copyMask, nullptr);
  REALpicture copy = copyMask(Ref(picture));
  ASSERT_NE(copy, nullptr);
  auto* copied = dynamic_cast<HostPicture*>(host.Find(copy, "test"));
  EXPECT_EQ(copied->width, 2);
  EXPECT_EQ(copied->height, 5);
  EXPECT_EQ(copied->Get(1, 4), (RGBA{77, 77, 77, 255}));
  EXPECT_EQ(copied->Get(0, 0), (RGBA{0, 0, 0, 255}));
  EXPECT_EQ(host.RefCount(copy), 1);
  host.Unlock(copied);
  host.Unlock(small);
  host.Unlock(picture);
}

TEST_F(HostTest, GraphicsDrawPictureCopiesAndScales) {
  auto& host = Boot(Kind(AppKind::Desktop), false);
  auto getGraphics = Service<REALGetPictureGraphicsFn>("pluginPictureGraphicsGetter");
  auto loadMethod = Service<REALLoadObjectMethodFn>("REALLoadObjectMethod");
  HostPicture* source = NewHostPicture(host, 2, 2);
  HostPicture* target = NewHostPicture(host, 4, 4);
  source->Set(1, 1, {9, 8, 7, 255});
  REALgraphics graphics = getGraphics(Ref(target));
  ASSERT_NE(graphics, nullptr);
  EXPECT_EQ(host.RefCount(target), 2);
  auto draw = reinterpret_cast<void (*)(REALgraphics, REALpicture, int32_t, int32_t, int32_t,
                                        int32_t, int32_t, int32_t, int32_t, int32_t)>(
      loadMethod(graphics,
                 "DrawPicture(Image as Picture, x as Integer, y as Integer, w as Integer, h as "
                 "Integer, sx as Integer = 0, sy as Integer = 0, sw as Integer = -10000, sh as "
                 "Integer = -10000)"));
  ASSERT_NE(draw, nullptr);
  draw(graphics, Ref(source), 0, 0, 4, 4, 0, 0, 2, 2);  // doubled, nearest pixel
  EXPECT_EQ(target->Get(3, 3), (RGBA{9, 8, 7, 255}));
  EXPECT_EQ(target->Get(2, 2), (RGBA{9, 8, 7, 255}));
  EXPECT_EQ(target->Get(1, 1), (RGBA{0, 0, 0, 255}));
  host.Unlock(host.Find(graphics, "test"));
  EXPECT_EQ(host.RefCount(target), 1);
  host.Unlock(source);
  host.Unlock(target);
}

TEST_F(HostTest, ConsolePicturesHaveNoGraphics) {
  auto& host = Boot(Kind(AppKind::Web), false);
  HostPicture* picture = NewHostPicture(host, 1, 1);
  EXPECT_EQ(Service<REALGetPictureGraphicsFn>("pluginPictureGraphicsGetter")(Ref(picture)),
            nullptr);
  host.Unlock(picture);
}

TEST_F(HostTest, BuildPictureFromBufferCopiesRows) {
  auto& host = Boot(Kind(AppKind::Console), false);
  uint8_t pixels[2 * 12] = {};
  pixels[12] = 99;  // row 1, pixel 0, first byte
  REALpicture made =
      Service<REALBuildPictureFromBufferFn>("REALBuildPictureFromBuffer")(2, 2, 1, pixels, 12);
  auto* picture = dynamic_cast<HostPicture*>(host.Find(made, "test"));
  ASSERT_NE(picture, nullptr);
  EXPECT_EQ(picture->Row(1)[0], 99);
  host.Unlock(picture);
}

TEST_F(HostTest, PictureServicesCountCacheClears) {
  auto& host = Boot(Kind(AppKind::Console), false);
  HostPicture* picture = NewHostPicture(host, 1, 1);
  auto clear = Service<REALPictureClearCacheFn>("REALPictureClearCache");
  clear(Ref(picture));
  clear(Ref(picture));
  EXPECT_EQ(picture->clearCacheCount, 2);
  host.Unlock(picture);
}

}  // namespace

namespace {

// New pictures start with every byte 0, padding included, in every storage; an empty one has
// no pixel memory at all.
TEST_F(HostTest, NewPicturesStartZeroed) {
  for (AppKind app : {AppKind::Desktop, AppKind::Console}) {
    HostConfig config = Kind(app);
    config.rowPadding = 12;
    auto& host = Boot(config, false);
    HostPicture* picture = NewHostPicture(host, 700, 600);
    const qpxhost::PixelMemory& memory =
        app == AppKind::Desktop ? picture->bitmap : picture->consoleBlock;
    ASSERT_NE(memory.data(), nullptr);
    size_t nonZero = 0;
    for (size_t i = 0; i < memory.size(); ++i) nonZero += memory.data()[i] != 0;
    EXPECT_EQ(nonZero, 0u) << qpxhost::AppKindName(app);
    HostPicture* empty = NewHostPicture(host, 0, 0);
    EXPECT_EQ(empty->bitmap.data(), nullptr);
    EXPECT_EQ(empty->consoleBlock.data(), nullptr);
    host.Unlock(empty);
    host.Unlock(picture);
    TearDown();
  }
}

}  // namespace

// --- Guard bytes around the rows ------------------------------------------------------------

namespace {

HostConfig Guarded(AppKind app, int32_t padding) {
  HostConfig config = Kind(app);
  config.rowPadding = padding;
  config.guardBytes = true;
  return config;
}

const qpxhost::PixelMemory& BlockOf(const HostPicture& picture) {
  return picture.storage == qpxhost::PictureStorage::Bitmap ? picture.bitmap : picture.consoleBlock;
}

// Every pixel byte can be written without touching a guard byte; a byte before the rows, after
// the first row (padding or gap), after the last row in memory, or at either end of the block
// cannot. Pixels still start at 0 and rows keep their addresses relative to each other.
TEST_F(HostTest, GuardBytesSurroundEveryRow) {
  for (AppKind app : {AppKind::Desktop, AppKind::Console}) {
    SCOPED_TRACE(qpxhost::AppKindName(app));
    auto& host = Boot(Guarded(app, 3), false);
    HostPicture* picture = NewHostPicture(host, 5, 4);
    EXPECT_TRUE(picture->guardBytes);
    EXPECT_TRUE(picture->GuardBytesIntact());
    uint8_t* lowest = picture->Row(0);
    uint8_t* highest = picture->Row(0);
    for (int32_t y = 0; y < 4; ++y) {
      for (int32_t i = 0; i < 20; ++i) EXPECT_EQ(picture->Row(y)[i], 0);
      std::memset(picture->Row(y), 0xff, 20);
      lowest = std::min(lowest, picture->Row(y));
      highest = std::max(highest, picture->Row(y));
    }
    EXPECT_TRUE(picture->GuardBytesIntact());
    if (app == AppKind::Desktop) {
      EXPECT_EQ(picture->context.data, picture->Row(0));
      EXPECT_EQ(picture->context.bytesPerRow, 5u * 4 + 3);
      EXPECT_EQ(picture->Row(1), picture->Row(0) + 23);
    }
    const qpxhost::PixelMemory& block = BlockOf(*picture);
    for (uint8_t* stray : {lowest - 1, picture->Row(0) + 20, highest + 20, block.data(),
                           block.data() + block.size() - 1}) {
      *stray ^= 0xff;
      EXPECT_FALSE(picture->GuardBytesIntact()) << "at block offset " << (stray - block.data());
      *stray ^= 0xff;
      EXPECT_TRUE(picture->GuardBytesIntact());
    }
    host.Unlock(picture);
    TearDown();
  }
}

// Without the option nothing changes: no margin, padding zeroed and never checked.
TEST_F(HostTest, WithoutGuardBytesRowsStartTheBlock) {
  HostConfig config = Kind(AppKind::Desktop);
  config.rowPadding = 4;
  auto& host = Boot(config, false);
  HostPicture* picture = NewHostPicture(host, 2, 2);
  EXPECT_FALSE(picture->guardBytes);
  EXPECT_EQ(picture->Row(0), picture->bitmap.data());
  EXPECT_EQ(picture->bitmap.size(), 2u * 12);
  picture->Row(0)[8] = 7;
  EXPECT_TRUE(picture->GuardBytesIntact());
  host.Unlock(picture);
}

// A picture whose guard bytes were overwritten tells the host when it goes, so a check of the
// host's problems after a call also covers pictures a module made and released within it.
TEST(GuardBytes, OverwrittenGuardByteIsReportedWhenThePictureGoes) {
  for (AppKind app : {AppKind::Desktop, AppKind::Console}) {
    Host host(Guarded(app, 4));
    HostPicture* picture = NewHostPicture(host, 2, 2);
    picture->Row(1)[8] ^= 0xff;  // padding or gap after a row
    EXPECT_TRUE(host.problems().empty());
    host.Unlock(picture);
    ASSERT_EQ(host.problems().size(), 1u) << qpxhost::AppKindName(app);
    EXPECT_NE(host.problems()[0].find("2 x 2 picture's bytes outside its rows"), std::string::npos);
  }
}

// A picture given its size later, as the "Picture" constructor does, gets guard bytes around
// its new rows.
TEST_F(HostTest, ConstructedPicturesAreGuardedToo) {
  auto& host = Boot(Guarded(AppKind::Desktop, 0), false);
  PictureOptions options;
  options.hasAlpha = true;
  HostPicture* picture = qpxhost::NewHostPicture(host, 0, 0, options);
  picture->Allocate(3, 2);
  EXPECT_TRUE(picture->GuardBytesIntact());
  picture->Row(1)[12] ^= 0xff;  // just past the last row
  EXPECT_FALSE(picture->GuardBytesIntact());
  picture->Row(1)[12] ^= 0xff;
  host.Unlock(picture);
}

}  // namespace
