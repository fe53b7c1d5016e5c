#include "fuzz_checks.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <limits>

#include "fuzz_pictures.h"

namespace qpxfuzz {
namespace {

using qpxhost::HostPicture;
using qpxtest::ExpectedPicture;

constexpr uint32_t kASCII = 0x0600;  // the encoding of exception messages

// Before 2012.0 the module answers a refused lock with an unlock, as callers on those hosts
// did, so unlocks without a lock are counted only from then on.
bool UnlocksMustMatch(const qpxhost::Host& host) {
  return host.config().version.value_or(0.0) >= 2012.0;
}

// What holds for every picture once a call is over.
void CheckSettled(const qpxhost::Host& host, const HostPicture& picture, const std::string& name) {
  Require(picture.lockCount == 0, name + " left locked");
  Require(!UnlocksMustMatch(host) || picture.unmatchedUnlocks == 0,
          name + " unlocked without a lock");
  Require(picture.GuardBytesIntact(), name + ": bytes outside its rows overwritten");
}

void CheckNewMask(const qpxhost::Host& host, const HostPicture& picture,
                  const ExpectedPicture& expected) {
  HostPicture* mask = picture.mask;
  switch (expected.maskCheck) {
    case ExpectedPicture::MaskCheck::Unchecked:
      if (mask != nullptr) CheckSettled(host, *mask, "the result's mask");
      break;
    case ExpectedPicture::MaskCheck::Absent:
      Require(mask == nullptr, "the result has a mask, expected none");
      break;
    case ExpectedPicture::MaskCheck::Present:
      Require(mask != nullptr, "the result has no mask, expected one");
      Require(host.RefCount(mask) == 1, "the result's mask carries other references");
      Require(!mask->hasAlpha && mask->depth == 32, "the result's mask is not a 32-bit mask");
      CheckSettled(host, *mask, "the result's mask");
      RequireSamePixels(expected.maskPixels, BytesOf(*mask), "the result's mask");
      break;
  }
}

}  // namespace

std::string& CaseLog() {
  static std::string log;
  return log;
}

void ShowCase() {
  static const bool verbose = std::getenv("QPX_FUZZ_VERBOSE") != nullptr;
  if (verbose) std::fprintf(stderr, "--- fuzz case ---\n%s", CaseLog().c_str());
}

void RequireSamePixels(const qpxtest::RawPicture& expected, const qpxtest::RawPicture& actual,
                       const std::string& name) {
  const ::testing::AssertionResult same = qpxtest::SamePixels(expected, actual);
  if (!same) Fail(name + ": " + same.message());
}

void Fail(const std::string& what) {
  std::fprintf(stderr, "\n--- fuzz case ---\n%s--- failed: %s\n", CaseLog().c_str(), what.c_str());
  std::abort();
}

CallWatch::CallWatch(qpxhost::Host& host, std::initializer_list<HostPicture*> pictures)
    : host_(host), yieldsBefore_(host.yieldCount) {
  std::vector<HostPicture*> watched;
  for (HostPicture* picture : pictures) {
    for (HostPicture* p : {picture, picture != nullptr ? picture->mask : nullptr}) {
      if (p != nullptr && std::find(watched.begin(), watched.end(), p) == watched.end()) {
        watched.push_back(p);
      }
    }
  }
  for (HostPicture* p : watched) {
    before_.push_back({p, host.RefCount(p), BytesOf(*p), p->mask});
  }
}

void CallWatch::CheckPictures(const HostPicture* changed, const qpxhost::HostObject* returned) {
  for (const Before& before : before_) {
    HostPicture& picture = *before.picture;
    const std::string name = "a picture of the call (" + std::to_string(picture.width) + " x " +
                             std::to_string(picture.height) + ")";
    Require(host_.IsLive(&picture), name + " was destroyed");
    const int added = returned == &picture ? 1 : 0;
    Require(host_.RefCount(&picture) == before.refs + added, name + ": references changed");
    Require(picture.mask == before.mask, name + ": mask replaced, made or dropped");
    CheckSettled(host_, picture, name);
    if (&picture != changed) RequireSamePixels(before.pixels, BytesOf(picture), name);
  }
}

void CheckReturned(qpxhost::Host& host, qpxhost::HostObject* returned, const HostPicture* receiver,
                   const ExpectedPicture& expected) {
  switch (expected.kind) {
    case ExpectedPicture::Kind::Nil:
      Require(returned == nullptr, "returned a picture, expected nil");
      return;
    case ExpectedPicture::Kind::Receiver:
      Require(returned != nullptr && returned == receiver, "expected the receiver itself");
      return;
    case ExpectedPicture::Kind::NewPicture:
      break;
  }
  Require(returned != nullptr, "returned nil, expected a new picture");
  Require(returned != receiver, "returned the receiver, expected a new picture");
  auto* picture = dynamic_cast<HostPicture*>(returned);
  Require(picture != nullptr, "returned an object that is not a picture");
  Require(host.RefCount(picture) == 1, "the result carries other than one reference");
  Require(picture->hasAlpha == expected.hasAlpha, "the result's alpha channel");
  Require(picture->depth == 32, "the result is not 32 bits deep");
  CheckSettled(host, *picture, "the result");
  RequireSamePixels(expected.pixels, BytesOf(*picture), "the result");
  CheckNewMask(host, *picture, expected);
}

void CheckYields(int yields, int everyCheck, int32_t yieldArgument) {
  const std::string counts = std::to_string(yields) + " yields, " + std::to_string(everyCheck) +
                             " when every check yields";
  if (yieldArgument == 0) {
    Require(yields == 0, "yielded with a yield argument of 0: " + counts);
  } else if (yieldArgument == std::numeric_limits<int32_t>::min()) {
    Require(yields == everyCheck, counts);
  } else {
    Require(yields >= 0 && yields <= everyCheck, counts);
  }
}

void CheckRaised(const qpxhost::Host& host, const std::optional<std::string>& message) {
  if (!message) {
    Require(host.raisedExceptions.empty(), "raised an exception");
    return;
  }
  Require(host.raisedExceptions.size() == 1, "expected one exception: " + *message);
  const qpxhost::RaisedException& raised = host.raisedExceptions[0];
  Require(raised.className == "NilObjectException" && raised.message == message &&
              raised.messageEncoding == kASCII,
          "expected a NilObjectException \"" + *message + "\", got a " + raised.className + " \"" +
              raised.message.value_or("(nil)") + "\"");
}

void ReleaseAll(qpxhost::Host& host, std::initializer_list<qpxhost::HostObject*> references) {
  for (qpxhost::HostObject* object : references) {
    if (object != nullptr) host.Unlock(object);
  }
  Require(host.LiveObjectCount() == 0,
          std::to_string(host.LiveObjectCount()) + " host objects left after releasing");
  if (!host.problems().empty()) Fail("the host saw misuse: " + host.problems()[0]);
}

}  // namespace qpxfuzz
