#include "call_digest.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "picture_bytes.h"

namespace qpxtest {
namespace {

enum Outcome : int64_t { kNil = 0, kReceiver = 1, kNewPicture = 2 };

void AddPicture(Fnv1a64& digest, qpxhost::HostPicture& picture) {
  const RawPicture raw = ReadRaw(picture);
  for (int64_t v : {int64_t{raw.width}, int64_t{raw.height}, int64_t{raw.format},
                    int64_t{picture.depth}, int64_t{picture.hasAlpha}}) {
    digest.Int(v);
  }
  digest.Bytes(raw.bytes.data(), raw.bytes.size());
}

// A picture's references, bytes and mask before a call, to tell afterwards that it was only
// read.
struct Snapshot {
  qpxhost::HostPicture* picture = nullptr;
  int refs = 0;
  RawPicture bytes;
  qpxhost::HostPicture* mask = nullptr;
  int maskRefs = 0;
  RawPicture maskBytes;
};

Snapshot Take(qpxhost::Host& host, qpxhost::HostPicture* picture) {
  Snapshot s;
  if (picture == nullptr) return s;
  s = {picture, host.RefCount(picture), ReadRaw(*picture), picture->mask, 0, {}};
  if (s.mask != nullptr) {
    s.maskRefs = host.RefCount(s.mask);
    s.maskBytes = ReadRaw(*s.mask);
  }
  return s;
}

// The picture has the references it had plus `addedRefs` and is unlocked; unless it is
// `changed` (the destination of a drawing), its bytes and its mask are as they were.
void ExpectLeftAlone(qpxhost::Host& host, const Snapshot& s, int addedRefs,
                     const qpxhost::HostPicture* changed) {
  if (s.picture == nullptr) return;
  EXPECT_EQ(host.RefCount(s.picture), s.refs + addedRefs) << "references changed";
  EXPECT_EQ(s.picture->lockCount, 0) << "left locked";
  if (s.picture != changed) {
    EXPECT_TRUE(SamePixels(s.bytes, ReadRaw(*s.picture))) << "bytes changed";
  }
  EXPECT_EQ(s.picture->mask, s.mask) << "mask replaced, made or dropped";
  if (s.mask == nullptr || s.picture->mask != s.mask) return;
  EXPECT_EQ(s.mask->lockCount, 0) << "mask left locked";
  if (s.mask != changed) {
    EXPECT_EQ(host.RefCount(s.mask), s.maskRefs) << "mask's references changed";
    EXPECT_TRUE(SamePixels(s.maskBytes, ReadRaw(*s.mask))) << "mask changed";
  }
}

// Releases the caller's references and expects the host to hold nothing and to have seen no
// misuse.
void ReleaseAll(qpxhost::Host& host, std::vector<qpxhost::HostObject*> references) {
  for (qpxhost::HostObject* object : references) {
    if (object != nullptr && host.IsLive(object)) host.Unlock(object);
  }
  EXPECT_EQ(host.LiveObjectCount(), 0u) << "host objects left";
  EXPECT_THAT(host.problems(), ::testing::IsEmpty());
}

}  // namespace

uint64_t DigestPictureCall(qpxhost::Host& host, qpxhost::HostPicture* receiver,
                           const std::string& method, std::vector<qpxhost::Value> arguments) {
  const Snapshot before = Take(host, receiver);
  const int yieldsBefore = host.yieldCount;
  const size_t exceptionsBefore = host.raisedExceptions.size();

  qpxhost::HostObject* result = host.Call(method, receiver, std::move(arguments)).picture;

  Fnv1a64 digest;
  if (result == nullptr) {
    digest.Int(kNil);
  } else if (result == receiver) {
    digest.Int(kReceiver);
  } else {
    digest.Int(kNewPicture);
    auto* picture = dynamic_cast<qpxhost::HostPicture*>(result);
    if (picture == nullptr) {
      ADD_FAILURE() << "the result is not a picture";
    } else {
      EXPECT_EQ(host.RefCount(picture), 1) << "result's references";
      EXPECT_EQ(picture->lockCount, 0) << "result left locked";
      AddPicture(digest, *picture);
      digest.Int(picture->mask != nullptr);
      if (picture->mask != nullptr) {
        EXPECT_EQ(host.RefCount(picture->mask), 1) << "result's mask's references";
        EXPECT_EQ(picture->mask->lockCount, 0) << "result's mask left locked";
        AddPicture(digest, *picture->mask);
      }
    }
  }
  digest.Int(host.yieldCount - yieldsBefore);
  EXPECT_EQ(host.raisedExceptions.size(), exceptionsBefore) << "unexpected exception";
  ExpectLeftAlone(host, before, result != nullptr && result == receiver ? 1 : 0, nullptr);
  ReleaseAll(host, {result, receiver});
  return digest.value();
}

uint64_t DigestDrawCall(qpxhost::Host& host, qpxhost::HostPicture* destination,
                        qpxhost::HostPicture* picture, double x, double y, double alpha,
                        int32_t yield) {
  const Snapshot destinationBefore = Take(host, destination);
  const Snapshot pictureBefore = picture != destination ? Take(host, picture) : Snapshot{};
  const int yieldsBefore = host.yieldCount;
  const size_t exceptionsBefore = host.raisedExceptions.size();

  const bool answer = host.Call("DrawPictureFQPX", destination,
                                {static_cast<qpxhost::HostObject*>(picture), x, y, alpha, yield})
                          .boolean;

  Fnv1a64 digest;
  digest.Int(answer);
  digest.Int(static_cast<int64_t>(host.raisedExceptions.size() - exceptionsBefore));
  for (size_t i = exceptionsBefore; i < host.raisedExceptions.size(); ++i) {
    const qpxhost::RaisedException& raised = host.raisedExceptions[i];
    const std::string text = raised.className + ": " + raised.message.value_or("(nil)");
    digest.Bytes(reinterpret_cast<const uint8_t*>(text.data()), text.size());
  }
  if (destination != nullptr) AddPicture(digest, *destination);
  digest.Int(host.yieldCount - yieldsBefore);
  ExpectLeftAlone(host, destinationBefore, 0, destination);
  ExpectLeftAlone(host, pictureBefore, 0, destination);
  ReleaseAll(host, {destination, picture != destination ? picture : nullptr});
  return digest.value();
}

}  // namespace qpxtest
