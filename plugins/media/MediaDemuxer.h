#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "DecodeOrderTimes.h"
#include "H264FieldPairJoiner.h"
#include "MediaRecordBuilder.h"

struct AVFormatContext;
struct AVPacket;

namespace NmMedia {

// A media file or stream that cannot be opened, with the reason in words.
class CmMediaOpenError : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

// A stream of the input and how its packets become records.
struct SmMediaStream {
  int index = 0;
  // The codec as libavformat names it, for messages.
  std::string codecName;
  // Nothing when no record form exists for the codec.
  std::optional<SmMediaStreamFormat> format;
  std::vector<uint8_t> configuration;
};

// One packet read, with its time already in milliseconds since 1970.
struct SmDemuxedPacket {
  int stream = 0;
  SmMediaPacket packet;
};

// libavformat's demuxer over a file or a network address. Times are placed on
// the wall clock: from the stream's own real-time start when it tells one
// (RTSP sender reports), else from the file's creation time, else from the
// moment of opening.
class CmMediaDemuxer {
public:
  // Throws CmMediaOpenError. `stop`, when given, aborts blocking reads as soon
  // as it turns true. A network stream is paused once open unless `sending`.
  CmMediaDemuxer(const std::string& url, bool network, const std::atomic<bool>* stop = nullptr,
                 bool sending = false);
  ~CmMediaDemuxer();
  CmMediaDemuxer(const CmMediaDemuxer&) = delete;
  CmMediaDemuxer& operator=(const CmMediaDemuxer&) = delete;

  const std::vector<SmMediaStream>& GetStreams() const { return m_Streams; }
  // Milliseconds since 1970 at which the stream's time 0 lies.
  int64_t GetBaseTime() const { return m_BaseTime; }

  // The next packet; it stays valid until the next call. 0 on success,
  // AVERROR_EOF at the end, another negative AVERROR on failure. The frames
  // of a video stream come in decoding order with rising times: see
  // CmDecodeOrderTimes. Such a stream's frames may leave a few packets later
  // than they were read.
  int Read(SmDemuxedPacket& out);
  // Network streams: ask the server to send, or to hold.
  void Play();
  void Pause();

  static std::string ErrorText(int error);

private:
  struct SmTiming {
    int64_t lastTime = 0;
    int64_t lastDuration = 0;
    bool seen = false;
  };
  struct SmPacketDeleter {
    void operator()(AVPacket* packet) const;
  };
  // A frame of a video stream that waits for its time.
  struct SmHeldPacket {
    std::unique_ptr<AVPacket, SmPacketDeleter> packet;
    int stream = 0;
  };

  static int Interrupt(void* opaque);
  // The time of m_Packet in ms since 1970, as its container tells it.
  int64_t PacketTime();
  // Fills `out` from m_Packet with the given time.
  void Deliver(SmDemuxedPacket& out, int64_t time);
  // Hands on the oldest held frame of a stream whose time is known.
  bool DeliverHeld(SmDemuxedPacket& out, bool atEnd);

  AVFormatContext* m_Context = nullptr;
  AVPacket* m_Packet = nullptr;
  const std::atomic<bool>* m_Stop = nullptr;
  // Opening a network address gives up after this point.
  int64_t m_OpenDeadline = 0;
  std::vector<SmMediaStream> m_Streams;
  std::vector<SmTiming> m_Timing;
  // Per stream, for video streams only.
  std::vector<std::optional<CmDecodeOrderTimes>> m_DecodeOrder;
  std::deque<SmHeldPacket> m_Held;
  // The two fields of a frame come out of reading as one packet.
  CmH264FieldPairJoiner m_FieldPairs;
  // The result that ended reading, once the input is exhausted.
  std::optional<int> m_End;
  int64_t m_BaseTime = 0;
  int64_t m_Origin = 0;
  // Packets come over RTP, through libavformat's RTSP or SDP input.
  bool m_RealTimeTransport = false;
};

} // namespace NmMedia
