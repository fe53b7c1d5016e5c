// Sizes whose products would wrap around where size_t has 32 bits: the module's tests of them
// must answer as they do with 64-bit sizes.
#include "module_host.h"
#include "picture_editor.h"

namespace {

using qpxhost::AppKind;
using qpxhost::HostPicture;
using qpxtest::Config;
using qpxtest::ModuleHost;
using qpxtest::Ref;

// A bitmap context 2^30 + 1 pixels wide whose rows claim 8 bytes: four bytes a pixel make
// 2^32 + 4, which 32-bit arithmetic would take for 4 and let the rows pass as long enough.
// The picture does not open: nothing held, nothing locked.
FRESH_TEST(WrappingSizes, BitmapRowsShorterThanAWidthOf2To30PixelsAreRefused) {
  ModuleHost env(Config(AppKind::Desktop));
  HostPicture* picture = env.Picture(3, 2);
  picture->context.width = (size_t{1} << 30) + 1;
  picture->context.bytesPerRow = 8;
  {
    PictureReader reader;
    EXPECT_FALSE(reader.GetPictureEditor(Ref(picture), true, false));
    EXPECT_EQ(env.host.RefCount(picture), 1);
  }
  EXPECT_EQ(picture->lockCount, 0);
  env.host.Unlock(picture);
}

}  // namespace
