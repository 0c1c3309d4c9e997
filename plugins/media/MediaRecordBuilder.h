#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "AACLoasWrapper.h"
#include "H264AnnexBConverter.h"

namespace NmMedia {

// How the packets of one stream become records: the codec value and header
// fields they carry, and what must be done to each payload on the way.
struct SmMediaStreamFormat {
  enum Kind : uint32_t { Video, Audio };
  enum Payload : uint32_t {
    // Bytes as they come.
    AsIs,
    // Length-prefixed or Annex B H.264 to Annex B with parameter sets.
    H264,
    // MPEG-4 part 2: the configuration (VOL header) before each sync frame.
    MPEG4,
    // Motion JPEG: the standard Huffman tables written into frames without.
    JPEG,
    // H.263: as it comes, but sync only where the picture is intra coded.
    H263,
    // AAC in any framing to LOAS.
    AAC,
    // PCM to the little-endian, unsigned-8-bit forms that PCM records hold.
    PCMSwap16,
    PCMSwap24,
    PCMSigned8,
  };

  Kind kind = Video;
  Payload payload = AsIs;
  uint32_t codec = 0;
  uint32_t codecOption = 0;
  // Audio only.
  uint32_t channels = 0;
  uint32_t samplingFrequency = 0;
  uint32_t bitsPerSample = 0;
  // Bits of one coded sample of one channel for codecs whose packet length
  // gives the sample count (PCM, G.711, G.726); 0 for the others.
  uint32_t bitsPerCodedSample = 0;
  // Samples per channel of one frame, for codecs with fixed frames.
  uint32_t frameSamples = 0;
  // Every frame stands alone (JPEG, JPEG 2000).
  bool intraOnly = false;
  // Video only: pictures of two interleaved fields, and which comes first.
  bool interlaced = false;
  bool topFieldFirst = false;
};

// One packet of a stream as the demuxer gave it.
struct SmMediaPacket {
  const uint8_t* data = nullptr;
  size_t size = 0;
  bool key = false;
  // Milliseconds since 1970.
  int64_t time = 0;
  // Samples per channel as the container timed them; 0 when unknown.
  uint32_t samples = 0;
  // Video: the two fields of one frame, coded as two field pictures.
  bool fieldPair = false;
  bool topFieldFirst = false;
};

// What a built record says, for navigation.
struct SmRecordInfo {
  int64_t time = 0;
  uint16_t sequenceNumber = 0;
  bool sync = false;
};

// Builds the video or audio stream data packets of one stream, numbering
// them and keeping each video frame's sync time.
class CmMediaRecordBuilder {
public:
  explicit CmMediaRecordBuilder(const SmMediaStreamFormat& format) : m_Format(format) {}

  // The container's codec configuration. False when the stream cannot be
  // read with it.
  bool Configure(const uint8_t* data, size_t size);
  // False when the packet cannot become a record; nothing is counted then.
  bool Build(const SmMediaPacket& packet, std::vector<uint8_t>& record, SmRecordInfo& info);

  const SmMediaStreamFormat& GetFormat() const { return m_Format; }

private:
  bool ConvertPayload(const SmMediaPacket& packet, bool& sync);
  bool BuildVideo(const SmMediaPacket& packet, bool sync, std::vector<uint8_t>& record,
                  SmRecordInfo& info);
  bool BuildAudio(const SmMediaPacket& packet, std::vector<uint8_t>& record, SmRecordInfo& info);

  SmMediaStreamFormat m_Format;
  CmH264AnnexBConverter m_H264;
  CmAACLoasWrapper m_AAC;
  std::vector<uint8_t> m_Configuration;
  std::vector<uint8_t> m_Payload;
  uint16_t m_NextSequenceNumber = 0;
  // Wire time of the sync frame that opened the current group; 0 before the
  // first one, which marks frames that nothing before them lets decode.
  int64_t m_SyncTime = 0;
};

} // namespace NmMedia
