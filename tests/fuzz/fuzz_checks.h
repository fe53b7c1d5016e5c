// Checks of one fuzzed method call. A failed check prints the case and what failed and aborts,
// so that libFuzzer keeps the input as a crash.
#pragma once

#include <initializer_list>
#include <optional>
#include <string>
#include <vector>

#include "differential.h"
#include "host.h"
#include "host_picture.h"
#include "picture_bytes.h"

namespace qpxfuzz {

// The description of the case being run, printed with a failure.
std::string& CaseLog();
// Prints it before the call when QPX_FUZZ_VERBOSE is set, which shows the case of a sanitizer
// report too, or what a corpus holds: QPX_FUZZ_VERBOSE=1 fuzz_methods -runs=0 DIR (or FILE).
void ShowCase();
[[noreturn]] void Fail(const std::string& what);
inline void Require(bool condition, const std::string& what) {
  if (!condition) Fail(what);
}
// Same size, layout and bytes.
void RequireSamePixels(const qpxtest::RawPicture& expected, const qpxtest::RawPicture& actual,
                       const std::string& name);

// The pictures of a call (each with its mask) and the host's yield count before it.
class CallWatch {
 public:
  CallWatch(qpxhost::Host& host, std::initializer_list<qpxhost::HostPicture*> pictures);

  // After the call: every picture has its references (one more for the receiver when it was
  // `returned`), its mask, its bytes (but for `changed`), no lock left, no unlock without a
  // lock, and its guard bytes.
  void CheckPictures(const qpxhost::HostPicture* changed, const qpxhost::HostObject* returned);
  int Yields() const { return host_.yieldCount - yieldsBefore_; }

 private:
  struct Before {
    qpxhost::HostPicture* picture;
    int refs;
    qpxtest::RawPicture pixels;
    qpxhost::HostPicture* mask;
  };
  qpxhost::Host& host_;
  std::vector<Before> before_;
  int yieldsBefore_;
};

// The picture a method returned against `expected`: nil, the receiver itself, or a new 32-bit
// picture carrying one reference with the expected alpha channel, bytes and mask, unlocked and
// with its guard bytes.
void CheckReturned(qpxhost::Host& host, qpxhost::HostObject* returned,
                   const qpxhost::HostPicture* receiver, const qpxtest::ExpectedPicture& expected);

// The yields of a call against those it makes when every check yields: none for a yield
// argument of 0, all of them for one that yields at every check, at most that many otherwise.
void CheckYields(int yields, int everyCheck, int32_t yieldArgument);

// The exceptions the call raised: none, or one "NilObjectException" with `message`.
void CheckRaised(const qpxhost::Host& host, const std::optional<std::string>& message);

// Releases the caller's references (null ones skipped) and checks that the host holds no
// object any more and saw no misuse, guard bytes overwritten in pictures made and released
// within the call included.
void ReleaseAll(qpxhost::Host& host, std::initializer_list<qpxhost::HostObject*> references);

}  // namespace qpxfuzz
