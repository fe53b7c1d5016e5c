#include "picture_class.h"

#include "picture_methods.h"

namespace {

constexpr REALword kMethodFlags = 0x00040000;

template <typename Fn>
void (*Entry(Fn* function))() {
  return reinterpret_cast<void (*)()>(function);
}

REALmethodDefinition pictureMethods[] = {
    {Entry(DrawPictureF), nullptr,
     "DrawPictureFQPX(pic as picture, x as double, y as double, alpha as double = 1.0, yield as "
     "integer = 0) as boolean",
     kMethodFlags, 0, nullptr},
    {Entry(PictureResizeQPX), nullptr,
     "ScaleQPX(width as integer, height as integer, AntiAlias as boolean=false, YieldTicks as "
     "integer=0) as picture",
     kMethodFlags, 0, nullptr},
    {Entry(PictureResizeImageAndMaskQPX), nullptr,
     "ScaleImageAndMaskQPX(width as integer, height as integer, AntiAlias as boolean=false, "
     "YieldTicks as integer=0) as picture",
     kMethodFlags, 0, nullptr},
    {Entry(PictureScalingQPX), nullptr,
     "ScalingQPX(mode as integer, width as integer, height as integer, yield as integer = 0) as "
     "picture",
     kMethodFlags, 0, nullptr},
    {Entry(BlurQPX), nullptr, "BlurQPX(Radius as double, yield as integer = 0) as picture",
     kMethodFlags, 0, nullptr},
};

}  // namespace

REALclassDefinition pictureClass = {
    12,         // version, set at registration
    "Picture",  // the host class extended
    nullptr,
    0,
    0,  // superclass, data size, reserved
    nullptr,
    nullptr,
    nullptr,
    0,  // properties
    pictureMethods,
    sizeof(pictureMethods) / sizeof(pictureMethods[0]),
    nullptr,
    0,  // events
    nullptr,
    0,        // event instances
    nullptr,  // interfaces
    nullptr,
    0,  // bindings
    nullptr,
    0,           // constants
    0x00040000,  // class flags
    nullptr,
    0,  // shared properties
    nullptr,
    0,  // shared methods
    {0, 0, 0, 0},
};
