#pragma once

#include <deque>
#include <map>
#include <memory>
#include <optional>

#include "H264FieldReader.h"

struct AVFormatContext;
struct AVPacket;

namespace NmMedia {

// libavformat's reading with the two fields of an H.264 frame coded as two
// field pictures joined into one packet: MP4, Matroska and others store each
// field as a packet of its own, but a record holds a frame, so that its time
// is the frame's, random access lands on frames, and a decoder gets a whole
// picture from each record. A first field whose second field does not follow
// leaves alone.
class CmH264FieldPairJoiner {
public:
  CmH264FieldPairJoiner();
  ~CmH264FieldPairJoiner();
  CmH264FieldPairJoiner(const CmH264FieldPairJoiner&) = delete;
  CmH264FieldPairJoiner& operator=(const CmH264FieldPairJoiner&) = delete;

  // An H.264 stream to watch, with the container's configuration.
  void AddStream(int index, const uint8_t* configuration, size_t size);
  // As av_read_frame, into an empty `packet`.
  int Read(AVFormatContext* context, AVPacket* packet);
  // Whether the packet is a joined pair, and which of its fields is on top.
  static bool IsFieldPair(const AVPacket& packet, bool& topFieldFirst);

private:
  struct SmPacketDeleter {
    void operator()(AVPacket* packet) const;
  };
  using CmOwnedPacket = std::unique_ptr<AVPacket, SmPacketDeleter>;
  struct SmHeldField {
    CmOwnedPacket packet;
    CmH264FieldReader::SmField field;
  };
  // False when the packet was kept as a first field.
  bool Offer(AVPacket* packet);
  static bool Join(const AVPacket& first, bool topFirst, AVPacket* second);
  static CmOwnedPacket Take(AVPacket* packet);

  std::map<int, CmH264FieldReader> m_Readers;
  std::map<int, SmHeldField> m_Held;
  // Packets read but not handed on yet, oldest first.
  std::deque<CmOwnedPacket> m_Pending;
  std::optional<int> m_End;
};

} // namespace NmMedia
