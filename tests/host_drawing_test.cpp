// The emulated host's graphics drawing: an unscaled copy between opaque pictures, which it
// does a row at a time, gives what pixel-by-pixel drawing gives in every pair of layouts.
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "host_fixture.h"
#include "picture_services.h"

namespace {

using qpxhost::AppKind;
using qpxhost::HostConfig;
using qpxhost::HostPicture;
using qpxhost::PictureOptions;
using qpxhost::RGBA;
using qpxtest::HostTest;
using qpxtest::Ref;
using qpxtest::Service;

using DrawFn = void (*)(REALgraphics, REALpicture, int32_t, int32_t, int32_t, int32_t, int32_t,
                        int32_t, int32_t, int32_t);
constexpr const char* kDrawPicture =
    "DrawPicture(Image as Picture, x as Integer, y as Integer, w as Integer, h as Integer, sx as "
    "Integer = 0, sy as Integer = 0, sw as Integer = -10000, sh as Integer = -10000)";

HostPicture* Picture(qpxhost::Host& host, int32_t width, int32_t height, int32_t layout) {
  PictureOptions options;
  options.layout = layout;
  return qpxhost::NewHostPicture(host, width, height, options);
}

TEST_F(HostTest, UnscaledOpaqueDrawingCopiesColoursAndAnOpaqueFourthByte) {
  HostConfig config;
  config.app = AppKind::Desktop;
  config.rowPadding = 5;
  auto& host = Boot(config, false);
  auto getGraphics = Service<REALGetPictureGraphicsFn>("pluginPictureGraphicsGetter");
  auto loadMethod = Service<REALLoadObjectMethodFn>("REALLoadObjectMethod");
  for (int32_t from = 1; from <= 6; ++from) {
    for (int32_t to = 1; to <= 6; ++to) {
      SCOPED_TRACE(testing::Message() << "layouts " << from << " to " << to);
      HostPicture* source = Picture(host, 7, 5, from);
      HostPicture* target = Picture(host, 9, 6, to);
      for (HostPicture* p : {source, target}) {
        for (int32_t y = 0; y < p->height; ++y) {
          for (int32_t i = 0; i < 4 * p->width; ++i) p->Row(y)[i] = uint8_t(31 * y + 7 * i + from);
        }
      }
      std::vector<RGBA> before;
      for (int32_t y = 0; y < target->height; ++y) {
        for (int32_t x = 0; x < target->width; ++x) before.push_back(target->Get(x, y));
      }
      REALgraphics graphics = getGraphics(Ref(target));
      auto draw = reinterpret_cast<DrawFn>(loadMethod(graphics, kDrawPicture));
      ASSERT_NE(draw, nullptr);
      draw(graphics, Ref(source), 2, 1, 4, 3, 1, 2, 4, 3);  // a 4 x 3 block from (1, 2) to (2, 1)
      host.Unlock(host.Find(graphics, "test"));
      for (int32_t y = 0; y < target->height; ++y) {
        for (int32_t x = 0; x < target->width; ++x) {
          const bool inside = x >= 2 && x < 6 && y >= 1 && y < 4;
          const RGBA expected =
              inside ? source->Get(x - 1, y + 1) : before[size_t(y) * target->width + x];
          ASSERT_EQ(target->Get(x, y), expected) << x << ", " << y;
          if (inside) {
            ASSERT_EQ(target->Row(y)[4 * x + (to % 2 == 1 ? 3 : 0)], 255);
          }
        }
      }
      host.Unlock(source);
      host.Unlock(target);
    }
  }
}

}  // namespace
