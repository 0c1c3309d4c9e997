#include <gtest/gtest.h>

#include <sys/mman.h>
#include <unistd.h>

#include <cstring>

#include "MediaProcessing/GenericByteData/GenericAudioStreamDataPacket.h"
#include "MediaProcessing/GenericByteData/GenericByteDataBlock.h"
#include "MediaProcessing/GenericByteData/GenericVideoStreamDataPacket.h"
#include "TestTimes.h"
#include "support/GenericByteDataBuilder.h"

using namespace NmMediaProcessing;
using namespace NmTestSupport;

namespace {
// Anonymous pages whose protection the test sets page by page.
class CmMappedPages {
public:
  explicit CmMappedPages(size_t pages)
      : m_PageSize(static_cast<size_t>(sysconf(_SC_PAGESIZE))), m_Size(pages * m_PageSize) {
    void* p = mmap(nullptr, m_Size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    m_Data = p == MAP_FAILED ? nullptr : static_cast<uint8_t*>(p);
  }
  ~CmMappedPages() {
    if (m_Data != nullptr) {
      munmap(m_Data, m_Size);
    }
  }
  CmMappedPages(const CmMappedPages&) = delete;
  CmMappedPages& operator=(const CmMappedPages&) = delete;

  uint8_t* Page(size_t index) const { return m_Data + index * m_PageSize; }
  size_t PageSize() const { return m_PageSize; }
  bool Protect(size_t index, int protection) {
    return mprotect(Page(index), m_PageSize, protection) == 0;
  }

private:
  size_t m_PageSize;
  size_t m_Size;
  uint8_t* m_Data;
};
} // namespace

TEST(GenericByteDataReadOnlyMemory, WritesToAReadOnlyPageHaveNoEffectAndReportNothing) {
  CmMappedPages pages(1);
  ASSERT_NE(pages.Page(0), nullptr);
  const CmBytes block = BuildBlock({.beginTime = 1000, .endTime = 2000, .imageCount = 3});
  const CmBytes video = BuildVideoPacket({.sequenceNumber = 5, .frameTime = 40});
  const CmBytes audio = BuildAudioPacket({});
  uint8_t* const blockAt = pages.Page(0);
  uint8_t* const videoAt = blockAt + 512;
  uint8_t* const audioAt = blockAt + 1024;
  std::memcpy(blockAt, block.data(), block.size());
  std::memcpy(videoAt, video.data(), video.size());
  std::memcpy(audioAt, audio.data(), audio.size());
  ASSERT_TRUE(pages.Protect(0, PROT_READ));
  const CmBytes before(blockAt, blockAt + pages.PageSize());

  CmGenericVideoByteDataBlock blockView(blockAt, block.size());
  ASSERT_FALSE(blockView.IsEmpty());
  // Setters whose fields are open report success; the write is just dropped.
  EXPECT_TRUE(blockView.SetBeginTime(Ms(5)) && blockView.SetImageCount(9) &&
              blockView.SetPictureFormat(13) && blockView.SetEndTimeExclusive(true) &&
              blockView.SetType(4));
  EXPECT_FALSE(blockView.CopyPayloadFrom(Pattern(16).data(), 16));

  CmGenericVideoStreamDataPacket videoView(videoAt, video.size());
  EXPECT_TRUE(videoView.SetSequenceNumber(6) && videoView.SetSync(false) &&
              videoView.SetFrameTime(Ms(80)));

  CmGenericAudioStreamDataPacket audioView(audioAt, audio.size());
  EXPECT_TRUE(audioView.SetSamplingFrequency(44100) && audioView.SetChannelCount(2));

  // Copying a record into read-only memory fails instead of faulting.
  CmGenericVideoStreamDataPacket owned(videoView);
  ASSERT_FALSE(owned.IsEmpty());
  EXPECT_FALSE(owned.CopyTo(blockAt + 2048, pages.PageSize() - 2048));
  // Not a byte of the page changed; the views read what was there.
  EXPECT_EQ(CmBytes(blockAt, blockAt + pages.PageSize()), before);
  EXPECT_EQ(blockView.GetBeginTime(), Ms(1000));
  EXPECT_EQ(videoView.GetSequenceNumber(), 5);
}

TEST(GenericByteDataReadOnlyMemory, AFieldAcrossIntoAReadOnlyPageIsNotHalfWritten) {
  CmMappedPages pages(2);
  ASSERT_NE(pages.Page(0), nullptr);
  const CmBytes video =
      BuildVideoPacket({.syncTime = 0x0102030405060708ull, .frameTime = 0x0102030405060708ull});
  // The sync time at offset 12 straddles the page boundary: 4 bytes each side.
  uint8_t* const at = pages.Page(1) - 16;
  std::memcpy(at, video.data(), video.size());
  ASSERT_TRUE(pages.Protect(1, PROT_READ));
  CmGenericVideoStreamDataPacket view(at, video.size());
  ASSERT_FALSE(view.IsEmpty());
  EXPECT_TRUE(view.SetSyncTime(Ms(0)));
  EXPECT_EQ(CmBytes(at, at + video.size()), video);
  // A field wholly in the writable page is still written.
  EXPECT_TRUE(view.SetSequenceNumber(0xBEEF));
  EXPECT_EQ(view.GetSequenceNumber(), 0xBEEF);
}

TEST(GenericByteDataReadOnlyMemory, CopiesFromUnreadableMemoryFail) {
  CmMappedPages pages(2);
  ASSERT_NE(pages.Page(0), nullptr);
  const CmBytes video = BuildVideoPacket({.payload = Pattern(64)});
  std::memcpy(pages.Page(0), video.data(), video.size());
  const CmGenericVideoStreamDataPacket view(pages.Page(0), video.size());
  ASSERT_FALSE(view.IsEmpty());
  CmGenericVideoStreamDataPacket target(true);
  ASSERT_TRUE(target.Allocate(64));
  ASSERT_TRUE(pages.Protect(1, PROT_NONE));
  EXPECT_FALSE(target.CopyPayloadFrom(pages.Page(1), 64));
  // A record that straddles into unreadable memory: the deep copy gives up
  // and leaves an empty record.
  uint8_t* const straddling = pages.Page(1) - 40;
  std::memcpy(straddling, video.data(), 40);
  // The view claims more bytes than are readable.
  const CmGenericVideoStreamDataPacket claim(straddling, video.size());
  EXPECT_TRUE(CmGenericVideoStreamDataPacket(claim).IsEmpty());
  CmBytes out(video.size());
  EXPECT_FALSE(claim.CopyTo(out.data(), out.size()));
}
