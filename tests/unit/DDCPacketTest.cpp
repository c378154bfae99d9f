#include <gtest/gtest.h>

#include "brightness/DDCChannel.h"

using Bytes = std::vector<std::uint8_t>;

TEST(DDCPacket, GetRequestLeavesTheHostOutOfItsChecksum) {
  EXPECT_EQ(DDCChannel::packet(0x01, {0x10}, 0x6E), (Bytes{0x82, 0x01, 0x10, 0xFD}));
}

TEST(DDCPacket, SetRequestCarriesTheValueHighByteFirst) {
  EXPECT_EQ(DDCChannel::packet(0x03, {0x10, 0x00, 0x32}, 0x3F), (Bytes{0x84, 0x03, 0x10, 0x00, 0x32, 0x9A}));
  EXPECT_EQ(DDCChannel::packet(0x03, {0x10, 0x00, 0x38}, 0x3F), (Bytes{0x84, 0x03, 0x10, 0x00, 0x38, 0x90}));
}

TEST(DDCPacket, WithoutPayloadHasThreeBytes) {
  EXPECT_EQ(DDCChannel::packet(0x07, {}, 0x6E), (Bytes{0x81, 0x07, 0x6E ^ 0x81 ^ 0x07}));
}

TEST(DDCPacket, HoldsAPayloadOf254Bytes) {
  const auto packet = DDCChannel::packet(0x03, Bytes(254, 0x55), 0x3F);
  ASSERT_EQ(packet.size(), 257U);
  EXPECT_EQ(packet.front(), 0xFF);
  EXPECT_EQ(packet.back(), 0x3F ^ 0xFF ^ 0x03);  // 254 equal bytes cancel out
}

TEST(DDCPacketDeathTest, RefusesALongerPayload) {
  EXPECT_DEATH((void)DDCChannel::packet(0x03, Bytes(255, 0), 0x3F), "");
}

namespace {

DDCChannel::Reply reply(std::uint8_t result = 0) {
  DDCChannel::Reply bytes = {0x6E, 0x88, 0x02, result, 0x10, 0x00, 0x01, 0x02, 0x03, 0x04, 0};
  std::uint8_t sum = 0x50;
  for (std::size_t i = 0; i < 10; ++i) sum = static_cast<std::uint8_t>(sum ^ bytes[i]);
  bytes[10] = sum;
  return bytes;
}

}  // namespace

TEST(DDCReply, GivesMaximumAndPresentValue) {
  const auto value = DDCChannel::decode(reply());
  ASSERT_TRUE(value);
  EXPECT_EQ(value->maximum, 0x0102);
  EXPECT_EQ(value->current, 0x0304);
}

TEST(DDCReply, IsRefusedForItsChecksumAlone) {
  for (std::size_t i = 0; i < DDCChannel::replyLength; ++i) {
    auto damaged = reply();
    damaged[i] ^= 0x04;
    EXPECT_FALSE(DDCChannel::decode(damaged)) << "byte " << i;
  }
}

TEST(DDCReply, OfAnUnsupportedFeatureIsDecodedAsItStands) { EXPECT_TRUE(DDCChannel::decode(reply(0x01))); }

TEST(DDCReply, OfNothingIsRefused) { EXPECT_FALSE(DDCChannel::decode(DDCChannel::Reply{})); }
