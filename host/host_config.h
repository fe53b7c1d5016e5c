// How a booted emulated host is configured.
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>

namespace qpxhost {

// How a faulty host answers for one picture. A real host should never do these; the emulated one
// does on request, so that tests can see a module refuse such answers without touching memory
// outside the pictures it was given.
struct PictureFaults {
  // A description lock succeeds but reports the other picture type (10 when 8 was asked, 8 when
  // 10 was): the data it hands out is not what the module asked for.
  bool lockReportsOtherType = false;
  // A description lock succeeds with null picture data.
  bool lockReportsNullData = false;
  // The bitmap context reports this alpha info instead of the picture's layout: 0 or 7, which
  // name no layout a module can read.
  std::optional<uint32_t> alphaInfo;
  // Bits added above the low three of the alpha info the context reports, as a platform's
  // byte-order flags are (0x2000, 0x4000): the layout is still the low three bits.
  uint32_t alphaInfoExtraBits = 0;
};

// The kind of application the host runs; it decides which application class exists and how
// pictures store their pixels.
enum class AppKind { Desktop, Console, Web };

struct HostConfig {
  // The answer of "REALGetRBVersion"; nullopt: the host has no such service.
  std::optional<double> version = 2013.03;
  AppKind app = AppKind::Console;
  // Service names, class names and method declarations this host lacks.
  std::set<std::string> unavailable;
  // Desktop pictures: the bitmap layout (alpha-info code 1 to 6) of pictures without and with
  // an alpha channel, and extra bytes at the end of each row. The two layouts must be in one
  // byte order (LayoutsPaired): a platform makes all its bitmap contexts alike.
  int32_t desktopLayout = 5;
  int32_t desktopAlphaLayout = 1;
  int32_t rowPadding = 0;
  // Guard bytes: every byte around and between a picture's rows (row padding, the gaps between
  // console rows, a margin before the first and after the last row) holds a known pattern, so
  // that a write outside the pixels shows (HostPicture::GuardBytesIntact); a picture whose
  // guard bytes changed reports a problem when it is destroyed.
  bool guardBytes = false;

  // --- Faulty answers (none by default) ------------------------------------------------------
  // Faults of the pictures the host makes when a module asks ("newPicture", "Picture" through
  // "PluginNewInstance", masks made by "REALGetPictureMask" and "CopyMask"). Pictures that a test
  // makes itself take theirs from PictureOptions.
  PictureFaults newPictureFaults;
  // Pictures made by "newPicture" and by the picture constructor come out this many pixels
  // wider and taller than asked (at least 0 x 0).
  int32_t newPictureSizeChange = 0;
  // The bytes of a new picture's pixels, for pictures a module asks for: a value no method
  // writes (such as 0x5A) shows which rows a method has written so far. Unset: zero.
  std::optional<uint8_t> newPixelFill;
};

// A platform makes all its bitmap contexts in one byte order: the alpha or skipped byte last
// (layouts 1, 3, 5; pictures with an alpha channel in 1) or first (2, 4, 6; alpha in 2).
// The alpha layout in the byte order of `layout`: 1 or 2.
int32_t AlphaLayoutPairedWith(int32_t layout);
// The opaque layout qpx and the tests pair with an alpha layout (1 or 2): none-skip-last (5) or
// none-skip-first (6).
int32_t OpaqueLayoutPairedWith(int32_t alphaLayout);
// Whether the desktop layouts are 1 to 6 and in one byte order (alpha layout 1 or 2).
bool LayoutsPaired(const HostConfig& config);

const char* AppKindName(AppKind kind);
// "desktop", "console" or "web"; nullopt for anything else.
std::optional<AppKind> ParseAppKind(const std::string& name);

}  // namespace qpxhost
