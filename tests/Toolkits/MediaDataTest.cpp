#include <gtest/gtest.h>

#include <memory>

#include "Toolkits/VZKSourceToolkitPlugin/Items/MediaData.h"
#include "Toolkits/VZKSourceToolkitPlugin/Items/SharedData.h"
#include "support/FlatJPEG.h"
#include "support/GenericByteDataBuilder.h"

using namespace NmToolkit;
using namespace NmTestSupport;

namespace {

std::unique_ptr<CmVZKSourceToolkitProperties> Mask(const std::string& text) {
  auto properties = std::make_unique<CmVZKSourceToolkitProperties>();
  properties->SetProperty("Privacy_Mask", std::make_unique<CmStringProperty>(text));
  return properties;
}

TEST(MediaDataTest, PacketsAndBlocksCopyTheRecordAndReadTheirTimes) {
  SmVideoPacketFields video;
  video.frameTime = 1700000000123ULL;
  video.syncTime = 1700000000000ULL;
  CmBytes videoBytes = BuildVideoPacket(video);
  const CmToolkitMediaDataSinglePacket videoItem(videoBytes.data(), videoBytes.size(),
                                                 Mask("1x1;1"));
  videoBytes.assign(videoBytes.size(), 0);
  EXPECT_EQ(videoItem.GetBeginTime(), 1700000000123LL) << "the frame time, not the sync time";
  EXPECT_EQ(videoItem.GetDataSize(), BuildVideoPacket(video).size()) << "header included";
  EXPECT_EQ(videoItem.GetPayloadSize(), video.payload.size());
  EXPECT_EQ(CmBytes(videoItem.GetPayloadPointer(), videoItem.GetPayloadPointer() + 16),
            video.payload)
      << "the bytes were copied before the caller's buffer changed";
  ASSERT_NE(videoItem.GetProperty("Privacy_Mask"), nullptr);
  EXPECT_EQ(videoItem.GetProperty("Sequence_Number"), nullptr);

  SmAudioPacketFields audio;
  audio.time = 42;
  const CmBytes audioBytes = BuildAudioPacket(audio);
  const CmToolkitMediaDataSinglePacket audioItem(audioBytes.data(), audioBytes.size());
  EXPECT_EQ(audioItem.GetBeginTime(), 42);
  EXPECT_EQ(audioItem.GetProperty("Privacy_Mask"), nullptr) << "no set, no property";

  SmBlockFields block;
  block.beginTime = 1000;
  block.endTime = 1999;
  block.imageCount = 25;
  const CmBytes blockBytes = BuildBlock(block);
  const CmMediaData blockItem(blockBytes.data(), blockBytes.size());
  EXPECT_EQ(blockItem.GetBeginTime(), 1000);
  EXPECT_EQ(blockItem.GetEndTime(), 1999);
  EXPECT_EQ(blockItem.GetPayloadSize(), block.payload.size());

  // Damaged records never throw: unreadable fields read as 0.
  const CmBytes garbage = {0xFF, 0x00, 0x01};
  EXPECT_EQ(CmMediaData(garbage.data(), garbage.size()).GetBeginTime(), 0);
  EXPECT_EQ(CmToolkitMediaDataSinglePacket(garbage.data(), garbage.size()).GetBeginTime(), 0);
  SmVideoPacketFields farFuture;
  farFuture.frameTime = ~0ULL;
  const CmBytes farBytes = BuildVideoPacket(farFuture);
  EXPECT_EQ(CmToolkitMediaDataSinglePacket(farBytes.data(), farBytes.size()).GetBeginTime(), 0)
      << "a time beyond what a stamp holds reads as 0";
}

TEST(MediaDataTest, VectorSpansItsElementsAndWrapsAsAVector) {
  auto vector = std::make_shared<CmMediaDataVector>(Mask("2x1;01"));
  EXPECT_EQ(vector->GetBeginTime(), 0);
  EXPECT_EQ(vector->GetDataPointer(), nullptr);
  for (uint64_t time : {100u, 140u, 180u}) {
    SmVideoPacketFields fields;
    fields.frameTime = time;
    const CmBytes bytes = BuildVideoPacket(fields);
    auto own = std::make_unique<CmVZKSourceToolkitProperties>();
    own->SetProperty("Sequence_Number", std::make_unique<CmStringProperty>(std::to_string(time)));
    vector->AddElement(std::make_unique<CmToolkitMediaDataSinglePacket>(bytes.data(), bytes.size()),
                       std::move(own));
  }
  EXPECT_EQ(vector->GetBeginTime(), 100);
  EXPECT_EQ(vector->GetEndTime(), 180);
  std::vector<ImMediaData*> elements;
  vector->GetElements(elements);
  ASSERT_EQ(elements.size(), 3u);
  EXPECT_EQ(vector->GetDataPointer(), elements[0]->GetDataPointer());
  EXPECT_EQ(dynamic_cast<const ImStringProperty*>(
                vector->GetElementProperties(2)->GetProperty("Sequence_Number"))
                ->GetValue(),
            "180");
  EXPECT_EQ(vector->GetElementProperties(3), nullptr);
  EXPECT_EQ(vector->GetBlock(), nullptr) << "frames of no JPEG make no block";

  std::unique_ptr<ImData> wrapper(WrapSharedData(vector));
  auto* asVector = dynamic_cast<ImMediaDataVector*>(wrapper.get());
  ASSERT_NE(asVector, nullptr) << "a vector is wrapped as a vector, not as plain media data";
  std::vector<ImMediaData*> wrapped;
  asVector->GetElements(wrapped);
  EXPECT_EQ(wrapped, elements);
  vector.reset();
  EXPECT_EQ(asVector->GetEndTime(), 180) << "the wrapper keeps the item alive";
  EXPECT_NE(asVector->GetProperty("Privacy_Mask"), nullptr);
}

} // namespace

TEST(MediaDataTest, VectorOffersItsFramesAsOneBlockMadeOnce) {
  SmVideoPacketFields fields;
  fields.codec = 1;
  fields.frameTime = fields.syncTime = 1700000000000ULL;
  fields.payload = FlatJPEG(70);
  const CmBytes frame = BuildVideoPacket(fields);
  CmMediaDataVector one;
  EXPECT_EQ(one.GetBlock(), nullptr) << "no frames, no block";
  one.AddElement(std::make_unique<CmToolkitMediaDataSinglePacket>(frame.data(), frame.size()));
  const auto* block = one.GetBlock();
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(block->GetImageWidth(), 48u);
  EXPECT_EQ(block->GetPayloadLength(), fields.payload.size());
  EXPECT_EQ(one.GetBlock(), block) << "built once";
  // Two JPEG frames are two groups of pictures: no single block.
  fields.frameTime = fields.syncTime = fields.frameTime + 40;
  const CmBytes second = BuildVideoPacket(fields);
  CmMediaDataVector two;
  for (const CmBytes* bytes : {&frame, &second}) {
    two.AddElement(std::make_unique<CmToolkitMediaDataSinglePacket>(bytes->data(), bytes->size()));
  }
  EXPECT_EQ(two.GetBlock(), nullptr);
  EXPECT_EQ(two.GetBlock(), nullptr);
}
