#include "differential.h"

#include <gmock/gmock.h>

namespace qpxtest {
namespace {

// A picture's references and bytes at one moment, to tell later whether it was left alone.
struct Snapshot {
  qpxhost::HostPicture* picture = nullptr;
  int refs = 0;
  RawPicture pixels;
};

Snapshot Take(qpxhost::Host& host, qpxhost::HostPicture* picture) {
  if (picture == nullptr) return {};
  return {picture, host.RefCount(picture), ReadRaw(*picture)};
}

// The receiver's mask is the one it had, with its references and bytes, and not left locked.
void ExpectMaskUntouched(qpxhost::Host& host, const qpxhost::HostPicture& receiver,
                         const Snapshot& mask) {
  EXPECT_EQ(receiver.mask, mask.picture) << "receiver's mask replaced, made or dropped";
  if (mask.picture == nullptr || receiver.mask != mask.picture) return;
  EXPECT_EQ(host.RefCount(mask.picture), mask.refs) << "receiver's mask's references changed";
  EXPECT_EQ(mask.picture->lockCount, 0) << "receiver's mask left locked";
  EXPECT_TRUE(SamePixels(mask.pixels, ReadRaw(*mask.picture))) << "receiver's mask changed";
}

// The new picture's mask as `expected` asks: none, or one held by the picture alone, opaque,
// 32 bits deep, unlocked, with every byte given.
void ExpectMask(qpxhost::Host& host, const qpxhost::HostPicture& picture,
                const ExpectedPicture& expected) {
  switch (expected.maskCheck) {
    case ExpectedPicture::MaskCheck::Unchecked:
      break;
    case ExpectedPicture::MaskCheck::Absent:
      EXPECT_EQ(picture.mask, nullptr) << "expected no mask";
      break;
    case ExpectedPicture::MaskCheck::Present: {
      qpxhost::HostPicture* mask = picture.mask;
      if (mask == nullptr) {
        ADD_FAILURE() << "expected a mask";
        break;
      }
      EXPECT_EQ(host.RefCount(mask), 1) << "mask's references";
      EXPECT_FALSE(mask->hasAlpha);
      EXPECT_EQ(mask->depth, 32);
      EXPECT_EQ(mask->lockCount, 0) << "mask left locked";
      EXPECT_TRUE(SamePixels(expected.maskPixels, ReadRaw(*mask))) << "mask";
      break;
    }
  }
}

}  // namespace

void CheckPictureCall(qpxhost::Host& host, qpxhost::HostPicture* receiver,
                      const std::string& method, std::vector<qpxhost::Value> arguments,
                      const ExpectedPicture& expected) {
  RawPicture receiverBefore;
  int receiverRefs = 0;
  Snapshot maskBefore;
  if (receiver != nullptr) {
    receiverBefore = ReadRaw(*receiver);
    receiverRefs = host.RefCount(receiver);
    maskBefore = Take(host, receiver->mask);
  }

  qpxhost::HostObject* result = host.Call(method, receiver, std::move(arguments)).picture;

  switch (expected.kind) {
    case ExpectedPicture::Kind::Nil:
      EXPECT_EQ(result, nullptr) << "expected nil";
      break;
    case ExpectedPicture::Kind::Receiver:
      EXPECT_EQ(result, receiver) << "expected the receiver itself";
      if (receiver != nullptr) {
        EXPECT_EQ(host.RefCount(receiver), receiverRefs + 1);
      }
      break;
    case ExpectedPicture::Kind::NewPicture: {
      EXPECT_NE(result, receiver) << "expected a new picture";
      auto* picture = dynamic_cast<qpxhost::HostPicture*>(result);
      if (picture == nullptr || result == receiver) {
        ADD_FAILURE() << "no new picture";
        break;
      }
      EXPECT_EQ(host.RefCount(picture), 1);
      EXPECT_EQ(picture->hasAlpha, expected.hasAlpha);
      EXPECT_EQ(picture->depth, 32);
      EXPECT_EQ(picture->lockCount, 0) << "result left locked";
      EXPECT_TRUE(SamePixels(expected.pixels, ReadRaw(*picture)));
      ExpectMask(host, *picture, expected);
      break;
    }
  }

  if (receiver != nullptr) {
    if (expected.kind != ExpectedPicture::Kind::Receiver || result != receiver) {
      EXPECT_EQ(host.RefCount(receiver), receiverRefs) << "receiver's references changed";
    }
    EXPECT_EQ(receiver->lockCount, 0) << "receiver left locked";
    EXPECT_TRUE(SamePixels(receiverBefore, ReadRaw(*receiver))) << "receiver changed";
    ExpectMaskUntouched(host, *receiver, maskBefore);
  }

  if (result != nullptr && host.IsLive(result)) host.Unlock(result);
  if (receiver != nullptr) host.Unlock(receiver);
  EXPECT_EQ(host.LiveObjectCount(), 0u) << "host objects left";
  EXPECT_THAT(host.problems(), ::testing::IsEmpty());
}

}  // namespace qpxtest
