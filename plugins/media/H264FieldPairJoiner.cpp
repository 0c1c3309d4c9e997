#include "H264FieldPairJoiner.h"

#include <cstring>

extern "C" {
#include <libavformat/avformat.h>
}

namespace NmMedia {
namespace {

// What a joined packet carries in its opaque field: its fields' order.
char TopFieldFirst;
char BottomFieldFirst;

} // namespace

CmH264FieldPairJoiner::CmH264FieldPairJoiner() = default;
CmH264FieldPairJoiner::~CmH264FieldPairJoiner() = default;

void CmH264FieldPairJoiner::SmPacketDeleter::operator()(AVPacket* packet) const {
  av_packet_free(&packet);
}

void CmH264FieldPairJoiner::AddStream(int index, const uint8_t* configuration, size_t size) {
  m_Readers[index].Configure(configuration, size);
}

bool CmH264FieldPairJoiner::IsFieldPair(const AVPacket& packet, bool& topFieldFirst) {
  topFieldFirst = packet.opaque == &TopFieldFirst;
  return packet.opaque == &TopFieldFirst || packet.opaque == &BottomFieldFirst;
}

CmH264FieldPairJoiner::CmOwnedPacket CmH264FieldPairJoiner::Take(AVPacket* packet) {
  CmOwnedPacket owned(av_packet_alloc());
  if (owned) {
    av_packet_move_ref(owned.get(), packet);
  }
  return owned;
}

int CmH264FieldPairJoiner::Read(AVFormatContext* context, AVPacket* packet) {
  for (;;) {
    if (!m_Pending.empty()) {
      av_packet_move_ref(packet, m_Pending.front().get());
      m_Pending.pop_front();
    } else if (m_End) {
      if (m_Held.empty()) {
        const int end = *m_End;
        m_End.reset();
        return end;
      }
      // A first field at the end has no partner to wait for.
      for (auto& [index, held] : m_Held) {
        m_Pending.push_back(std::move(held.packet));
      }
      m_Held.clear();
      continue;
    } else {
      const int result = av_read_frame(context, packet);
      if (result == AVERROR(EAGAIN)) {
        return result;
      }
      if (result < 0) {
        m_End = result;
        continue;
      }
    }
    if (Offer(packet)) {
      return 0;
    }
  }
}

bool CmH264FieldPairJoiner::Offer(AVPacket* packet) {
  const int index = packet->stream_index;
  const auto reader = m_Readers.find(index);
  if (reader == m_Readers.end()) {
    return true;
  }
  const auto field = reader->second.Read(packet->data, static_cast<size_t>(packet->size));
  const auto held = m_Held.find(index);
  if (held != m_Held.end()) {
    if (field && CmH264FieldReader::Completes(held->second.field, *field) &&
        Join(*held->second.packet, !held->second.field.bottom, packet)) {
      m_Held.erase(held);
      return true;
    }
    // The held field leaves alone; the packet is looked at again after it.
    CmOwnedPacket later = Take(packet);
    av_packet_move_ref(packet, held->second.packet.get());
    m_Held.erase(held);
    if (later) {
      m_Pending.push_front(std::move(later));
    }
    return true;
  }
  if (!field) {
    return true;
  }
  CmOwnedPacket first = Take(packet);
  if (!first) {
    return true;
  }
  m_Held.emplace(index, SmHeldField{std::move(first), *field});
  return false;
}

bool CmH264FieldPairJoiner::Join(const AVPacket& first, bool topFirst, AVPacket* second) {
  CmOwnedPacket joined(av_packet_alloc());
  if (!joined || av_new_packet(joined.get(), first.size + second->size) < 0 ||
      av_packet_copy_props(joined.get(), &first) < 0) {
    return false;
  }
  std::memcpy(joined->data, first.data, static_cast<size_t>(first.size));
  std::memcpy(joined->data + first.size, second->data, static_cast<size_t>(second->size));
  if (first.duration > 0 && second->duration > 0) {
    joined->duration = first.duration + second->duration;
  }
  joined->opaque = topFirst ? &TopFieldFirst : &BottomFieldFirst;
  av_packet_unref(second);
  av_packet_move_ref(second, joined.get());
  return true;
}

} // namespace NmMedia
