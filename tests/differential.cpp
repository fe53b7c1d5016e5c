#include "differential.h"

#include <gmock/gmock.h>

namespace qpxtest {

void CheckPictureCall(qpxhost::Host& host, qpxhost::HostPicture* receiver,
                      const std::string& method, std::vector<qpxhost::Value> arguments,
                      const ExpectedPicture& expected) {
  RawPicture receiverBefore;
  int receiverRefs = 0;
  if (receiver != nullptr) {
    receiverBefore = ReadRaw(*receiver);
    receiverRefs = host.RefCount(receiver);
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
      break;
    }
  }

  if (receiver != nullptr) {
    if (expected.kind != ExpectedPicture::Kind::Receiver || result != receiver) {
      EXPECT_EQ(host.RefCount(receiver), receiverRefs) << "receiver's references changed";
    }
    EXPECT_EQ(receiver->lockCount, 0) << "receiver left locked";
    EXPECT_TRUE(SamePixels(receiverBefore, ReadRaw(*receiver))) << "receiver changed";
  }

  if (result != nullptr && host.IsLive(result)) host.Unlock(result);
  if (receiver != nullptr) host.Unlock(receiver);
  EXPECT_EQ(host.LiveObjectCount(), 0u) << "host objects left";
  EXPECT_THAT(host.problems(), ::testing::IsEmpty());
}

}  // namespace qpxtest
