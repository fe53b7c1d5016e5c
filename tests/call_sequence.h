// Reading the emulated host's call log in tests: the calls a module made, as lines such as
// "REALLockPictureDescription(#3, 8) -> true", and how much of a new picture was written. Then
// the vocabulary the call-sequence tests write their expectations in: whole sequences with steps
// whose calls may come in any order (Sequence, Follows) and the lines and steps they are built
// of; the skeleton lines that the method tests compare with the log's locks, references and
// yields (namespace skeleton); and the fixtures those tests share.
#pragma once

#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

#include "differential.h"
#include "host.h"
#include "host_fixture.h"
#include "host_picture.h"
#include "picture_services.h"

namespace qpxtest {

// How the log names an object: "#serial", or "nil".
std::string Name(const qpxhost::HostObject* object);

// The calls from log index `from` on, lookups left out.
std::vector<std::string> Calls(const qpxhost::Host& host, size_t from = 0);
// Only the calls of the named services and loaded methods (a name matches a call's name
// exactly, so "REALLockObject" does not take "REALLockPictureDescription").
std::vector<std::string> CallsOf(const qpxhost::Host& host, const std::vector<std::string>& names,
                                 size_t from = 0);

// Whether `expected` stands in `calls` in this order, other calls allowed between them; the
// failure message names the first line not found and prints every call.
::testing::AssertionResult InOrder(const std::vector<std::string>& calls,
                                   const std::vector<std::string>& expected);

// The object the last call named `name` from `from` on returned (such as the picture of the last
// "newPicture"), or null.
qpxhost::HostObject* LastResultOf(const qpxhost::Host& host, const std::string& name,
                                  size_t from = 0);

// Rows of `picture` a method has written, counted as rows none of whose pixels still has the
// fourth byte `fill` that the host filled new pictures with (HostConfig::newPixelFill): every
// method writes 255 or 0 there.
int32_t RowsWritten(qpxhost::HostPicture& picture, uint8_t fill);

// The parts one after another.
template <typename T>
std::vector<T> Join(std::initializer_list<std::vector<T>> parts) {
  std::vector<T> all;
  for (const std::vector<T>& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

// --- Whole sequences ---------------------------------------------------------------------------

// Expected calls, step by step. The calls of one step may come in any order among themselves;
// the steps come in the order given.
class Sequence {
 public:
  Sequence& Then(std::string line) {
    steps_.push_back({std::move(line)});
    return *this;
  }
  Sequence& ThenAnyOrder(std::vector<std::string> lines) {
    steps_.push_back(std::move(lines));
    return *this;
  }
  Sequence& Then(const Sequence& more) {
    steps_.insert(steps_.end(), more.steps_.begin(), more.steps_.end());
    return *this;
  }
  const std::vector<std::vector<std::string>>& steps() const { return steps_; }

 private:
  std::vector<std::vector<std::string>> steps_;
};

// Whether `calls` are exactly the expected ones, step after step, and nothing else; the failure
// message prints the step that differs, every call and every expected step.
::testing::AssertionResult Follows(const std::vector<std::string>& calls, const Sequence& expected);

// --- Lines -------------------------------------------------------------------------------------

// Declarations the module loads with "REALLoadObjectMethod".
inline constexpr const char* kDrawPicture =
    "DrawPicture(Image as Picture, x as Integer, y as Integer, w as Integer, h as Integer, sx as "
    "Integer = 0, sy as Integer = 0, sw as Integer = -10000, sh as Integer = -10000)";
inline constexpr const char* kConstructor = "Constructor(width as integer, height as integer)";

// One yield to the host.
inline const std::string kYield = "REALYieldToRB()";

// The name of the host's object with that serial number ("#serial").
std::string Serial(uint64_t serial);
// The name of a picture the module holds.
std::string Named(REALpicture picture);
// "width, height".
std::string Size(int32_t width, int32_t height);

// The host's method `method` called on `self` with these arguments (ScaleQPX and
// ScaleImageAndMaskQPX), and its return with `result`.
std::string HostCallOf(const char* method, const std::string& self, int32_t width, int32_t height,
                       bool antiAlias, int32_t yieldTicks);
std::string ReturnOf(const char* method, const std::string& result);

// A picture's description locked as `type` (8 bitmap context, 10 console record), and unlocked.
std::string LockDescription(const std::string& picture, int type, bool locked);
std::string UnlockDescription(const std::string& picture);
// A reference taken and dropped.
std::string AddRef(const std::string& object);
std::string DropRef(const std::string& object);
// The host told that a picture's pixels changed.
std::string ClearCache(const std::string& picture);
// The picture's "HasAlphaChannel" read.
std::string HasAlpha(const std::string& picture, bool value);
// A new 32-bit picture made by "newPicture" ("nil" when the host made none).
std::string NewPicture(int32_t width, int32_t height, const std::string& made);
// A method of `object` loaded, found or not.
std::string LoadMethod(const std::string& object, const char* declaration, bool found);
// The graphics of `picture` asked for ("nil" where there are none).
std::string GraphicsOf(const std::string& picture, const std::string& graphics);
// `source` (w x h) drawn whole through `graphics` at 0, 0.
std::string Draw(const std::string& graphics, const std::string& source, int32_t w, int32_t h);

// --- Steps -------------------------------------------------------------------------------------

// The six reads of a locked bitmap context, in no particular order.
std::vector<std::string> ContextReads(const std::string& picture);

// Width and Height of a picture, read in either order.
Sequence ReadSize(const std::string& picture, int32_t width, int32_t height);

// `count` yields.
Sequence Yields(int count);

// The three application classes asked for on the first open of a process.
Sequence Detection(qpxhost::AppKind app);

// A picture opened by an editor: its alpha flag read, its description locked (a bitmap context,
// type 8 and read, on the desktop; the console record, type 10, elsewhere), one reference taken;
// the application classes asked for first when `detect`.
Sequence Open(qpxhost::AppKind app, const std::string& picture, bool detect, bool hasAlpha = false);

// An open editor let go: its description unlocked, the host told of changes (writers only), its
// reference dropped.
Sequence Release(const std::string& picture, bool clearCache);

// A writer's picture handed back: a reference for the caller, the host told of the new pixels,
// then the writer released.
Sequence Render(const std::string& picture);

// A new 32-bit picture made and opened for writing; only the editor's reference stays.
Sequence Writer(qpxhost::AppKind app, const std::string& made, int32_t width, int32_t height);

// A new desktop picture with an alpha channel, made by the "Picture" constructor and opened for
// writing; only the editor's reference stays.
Sequence AlphaWriter(const std::string& made, int32_t width, int32_t height);

// A new console picture whose description locks without data: unlocked and dropped.
Sequence RefusedWriter(const std::string& made, int32_t width, int32_t height);

// A failed lock; hosts older than 2012.0 are sent an unlock after it.
Sequence FailedLock(const std::string& picture, int type, double version);

// OwnCopy's calls between two console pictures that both lock.
Sequence CopyRows(const std::string& destination, const std::string& source);

// `source` (width x height) put whole into `target`: drawn through the target's graphics
// `graphics` on the desktop, copied row by row elsewhere.
Sequence DrawWhole(qpxhost::AppKind app, const std::string& target, const std::string& source,
                   int32_t width, int32_t height, const std::string& graphics);

// ScaleQPX's box resizer that succeeds: reader, writer, a yield per row, the result rendered,
// the reader released after it, one more yield.
Sequence BoxResize(qpxhost::AppKind app, const std::string& source, const std::string& made,
                   int32_t width, int32_t height, bool detect);

// ScaleQPX's anti-aliased enlargement that succeeds: three yield checks before the rows, one
// per row and byte after, none at the end.
Sequence Enlarge(qpxhost::AppKind app, const std::string& source, const std::string& made,
                 int32_t width, int32_t height, bool detect);

// --- Pictures and hosts ------------------------------------------------------------------------

// A picture whose description does not lock.
qpxhost::PictureOptions Unlockable();
// A picture with an alpha channel.
qpxhost::PictureOptions WithAlpha();

// A host of that kind and version.
qpxhost::HostConfig ConfigFor(qpxhost::AppKind app, double version = 2013.03);

// --- Skeletons ---------------------------------------------------------------------------------

// The lines of the calls that lock, unlock, take and drop pictures and yield, in the order they
// come, for comparing with CallsOf the log; a test file takes them, and the log readers, with
// `using namespace qpxtest::skeleton;` in its unnamed namespace.
namespace skeleton {

using qpxtest::Calls;
using qpxtest::CallsOf;
using qpxtest::InOrder;
using qpxtest::Join;
using qpxtest::Name;
using Lines = std::vector<std::string>;

// `count` yields.
Lines Yields(int count);

// The description type editors lock in `config`'s host: "8" (bitmap context) on desktops, "10"
// (console record) elsewhere.
std::string LockType(const qpxhost::HostConfig& config);

// An editor opening `object` without trouble.
Lines Open(const qpxhost::HostObject* object, const qpxhost::HostConfig& config);
// An editor releasing `object`, with the cache dropped for an editor opened to do so.
Lines Release(const qpxhost::HostObject* object, bool clearCache);
// A writer handing its picture over: a reference for the caller, the cache dropped, released.
Lines Render(const qpxhost::HostObject* object);

}  // namespace skeleton

// --- Fixtures ----------------------------------------------------------------------------------

// Named tests that run in a console and in a desktop host, each booted afresh.
class ConsoleAndDesktopTest : public MultiHostTest {
 protected:
  // Runs body(host, config) in each, `base` taken for the rest of the configuration.
  template <typename Body>
  void ForConsoleAndDesktop(Body body, qpxhost::HostConfig base = {}) {
    for (qpxhost::AppKind app : {qpxhost::AppKind::Console, qpxhost::AppKind::Desktop}) {
      qpxhost::HostConfig config = base;
      config.app = app;
      SCOPED_TRACE(HostName(config));
      body(Reboot(config), config);
    }
  }
};

// ScaleQPX and ScaleImageAndMaskQPX called through a booted host.
class ScaleSequence : public HostTest {
 public:
  qpxhost::HostPicture* Picture(int32_t width, int32_t height,
                                const qpxhost::PictureOptions& options = {}) {
    return qpxhost::NewHostPicture(host(), width, height, options);
  }
  // A picture with a mask of its own size (held by the picture).
  qpxhost::HostPicture* MaskedPicture(int32_t width, int32_t height) {
    qpxhost::HostPicture* picture = Picture(width, height);
    picture->mask = qpxhost::NewHostMask(host(), *picture);
    return picture;
  }
  static std::vector<qpxhost::Value> Arguments(int32_t width, int32_t height, bool antiAlias,
                                               int32_t yieldTicks) {
    return {width, height, antiAlias, yieldTicks};
  }
  // Calls `method` on `receiver`; the calls it made are then in Calls(host(), from).
  qpxhost::HostObject* Run(const char* method, qpxhost::HostObject* receiver, int32_t width,
                           int32_t height, bool antiAlias, int32_t yieldTicks) {
    from = host().log.size();
    return host().Call(method, receiver, Arguments(width, height, antiAlias, yieldTicks)).picture;
  }
  // The result carries exactly the caller's reference; released here.
  void ExpectOwnedAndRelease(qpxhost::HostObject* result) {
    ASSERT_NE(result, nullptr);
    EXPECT_EQ(host().RefCount(result), 1);
    host().Unlock(result);
  }
  size_t from = 0;
};

// The same in a host of each kind (instantiated in scale_sequence_test.cpp).
class ScaleSequenceInKind : public ScaleSequence,
                            public ::testing::WithParamInterface<qpxhost::AppKind> {};

}  // namespace qpxtest
