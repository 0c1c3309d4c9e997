#include "Codecs/H264/TaskSupplier.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <utility>

#include "Codecs/H264/NalUnits.h"
#include "Codecs/H264/ReferenceLists.h"
#include "Codecs/H264/SliceDecoder.h"
#include "Codecs/H264/SliceGroupMap.h"

namespace MCL {

using namespace NmH264;

namespace {

// Slices kept for reuse at most; a picture seldom has more.
constexpr size_t MostPooledSlices = 64;

// Frames gathered or in decoding block reuse and output until they are done.
constexpr int32_t Gathering = 2;

// Whether slice b starts a new picture after slice a (7.4.1.2.4).
bool IsNewPicture(const SmSliceHeader& a, const SmSliceHeader& b,
                  const SmSequenceParameterSet& sps) {
  if (a.frameNum != b.frameNum || a.ppsId != b.ppsId || a.fieldPic != b.fieldPic ||
      a.bottomField != b.bottomField || (a.nalRefIdc == 0) != (b.nalRefIdc == 0) ||
      a.IsIdr() != b.IsIdr() || (a.IsIdr() && a.idrPicId != b.idrPicId)) {
    return true;
  }
  if (sps.picOrderCntType == 0) {
    return a.picOrderCntLsb != b.picOrderCntLsb ||
           a.deltaPicOrderCntBottom != b.deltaPicOrderCntBottom;
  }
  if (sps.picOrderCntType == 1) {
    return a.deltaPicOrderCnt[0] != b.deltaPicOrderCnt[0] ||
           a.deltaPicOrderCnt[1] != b.deltaPicOrderCnt[1];
  }
  return false;
}

// The recovery_frame_cnt of a recovery point message among the messages of
// an SEI unit (D.1.8), if it holds one.
std::optional<uint32_t> ReadRecoveryFrameCount(const std::vector<uint8_t>& rbsp) {
  CmBitReader reader(rbsp.data(), rbsp.size());
  while (reader.HasMoreData()) {
    uint32_t type = 0, size = 0;
    uint32_t byte = 0xFF;
    while (byte == 0xFF && !reader.IsOverrun()) {
      byte = reader.ReadBits(8);
      type += byte;
    }
    byte = 0xFF;
    while (byte == 0xFF && !reader.IsOverrun()) {
      byte = reader.ReadBits(8);
      size += byte;
    }
    if (reader.IsOverrun()) {
      return std::nullopt;
    }
    if (type == 6) {
      const uint32_t count = reader.ReadUE();
      return reader.IsOverrun() ? std::nullopt : std::optional<uint32_t>(count);
    }
    reader.Skip(size_t{size} * 8);
  }
  return std::nullopt;
}

// Only a reference picture can be the co-located picture of a later B
// slice, and only in a sequence that may have B slices: one that keeps to
// the Baseline profile has none.
bool KeepsMotion(const SmSliceHeader& first, const SmSequenceParameterSet& sps) {
  const bool baseline = sps.profileIdc == 66 || (sps.constraintFlags & 0x80) != 0;
  return first.IsReference() && !baseline;
}

} // namespace

std::array<const SmSequenceParameterSet*, 32> Headers::GetSequenceTable() const {
  std::array<const SmSequenceParameterSet*, 32> table{};
  for (size_t i = 0; i < table.size(); ++i) {
    table[i] = sequence[i].get();
  }
  return table;
}

std::array<const SmPictureParameterSet*, 256> Headers::GetPictureTable() const {
  std::array<const SmPictureParameterSet*, 256> table{};
  for (size_t i = 0; i < table.size(); ++i) {
    table[i] = picture[i].get();
  }
  return table;
}

void Headers::Clear() {
  for (auto& entry : sequence) {
    entry.reset();
  }
  for (auto& entry : picture) {
    entry.reset();
  }
}

TaskSupplier::TaskSupplier(const SmTaskSupplierSettings& settings)
    : m_Settings(settings), m_ExtraFrames(settings.threadCount + 1),
      m_LowDelayActive(settings.lowDelay) {
  for (int32_t number = 0; number < std::max(settings.threadCount, 1); ++number) {
    m_SegmentDecoders.push_back(std::make_unique<H264SegmentDecoderMultiThreaded>(number));
  }
  if (m_SegmentDecoders.size() == 1) {
    m_Broker = std::make_unique<TaskBrokerSingleThread>(m_SegmentDecoders);
  } else {
    m_Broker = std::make_unique<TaskBrokerTwoThread>(m_SegmentDecoders);
    m_Workers = std::make_unique<CmPictureWorkers>(m_SegmentDecoders);
  }
}

TaskSupplier::~TaskSupplier() {
  for (const auto& job : m_Jobs) {
    m_Workers->Wait(*job);
  }
}

int32_t TaskSupplier::AddSource(const uint8_t* data, size_t size, double time, int32_t frameId,
                                size_t* consumed) {
  m_MayStall = consumed != nullptr;
  m_Stalled = false;
  m_FrameTaken = false;
  m_Split = false;
  // Bytes of an Annex B unit whose end has not come yet wait for the next
  // input, unless every input ends its frame; length-prefixed units end
  // where their length says.
  const bool wait = !m_Settings.lengthPrefixed && !m_Settings.wholeFramePerBuffer;
  const size_t given = size;
  if (wait) {
    m_Pending.insert(m_Pending.end(), data, data + size);
    data = m_Pending.data();
    size = m_Pending.size();
  }
  size_t position = 0;
  const int32_t status = TakeUnits(data, size, !wait, time, frameId, position);
  if (wait) {
    m_Pending.erase(m_Pending.begin(), m_Pending.begin() + static_cast<std::ptrdiff_t>(position));
  }
  if (consumed != nullptr) {
    // What waits inside counts as taken.
    *consumed = wait || (!m_Stalled && !m_Split) ? given : position;
  }
  if (m_Settings.wholeFramePerBuffer && !m_Stalled) {
    CompletePicture();
  }
  m_MayStall = false;
  return status;
}

int32_t TaskSupplier::TakeUnits(const uint8_t* data, size_t size, bool atEnd, double time,
                                int32_t frameId, size_t& position) {
  position = 0;
  SmNalUnit unit;
  int32_t status = 0;
  for (size_t start = position;
       m_Settings.lengthPrefixed ? NextLengthPrefixedUnit(data, size, position, 4, unit)
                                 : NextAnnexBUnit(data, size, position, atEnd, unit);
       start = position) {
    if (m_Settings.wholeFramePerBuffer && m_MayStall && StartsAnotherFrame(unit.data, unit.size)) {
      position = start;
      m_Split = true;
      break;
    }
    HandleUnit(unit.data, unit.size, time, frameId);
    if (m_Stalled) {
      // The unit is taken again once a frame has left.
      position = start;
      break;
    }
    if (m_NoFrameCounter > 20) {
      status = -882;
      break;
    }
  }
  return status;
}

void TaskSupplier::Flush() {
  m_MayStall = true;
  m_Stalled = false;
  if (!m_Pending.empty()) {
    std::vector<uint8_t> rest;
    rest.swap(m_Pending);
    size_t position = 0;
    TakeUnits(rest.data(), rest.size(), true, -1.0, -1, position);
    m_Pending.assign(rest.begin() + static_cast<std::ptrdiff_t>(position), rest.end());
  }
  if (!m_Stalled) {
    CompletePicture();
    FinishLoneField();
  }
  m_MayStall = false;
}

bool TaskSupplier::StartsAnotherFrame(const uint8_t* unit, size_t size) const {
  const uint8_t type = unit[0] & 0x1F;
  if (!m_FrameTaken || (type != NalSlice && type != NalIdrSlice) || size < 2) {
    return false;
  }
  // first_mb_in_slice is the slice header's first ue(v): 0 is a single 1 bit.
  const bool firstSlice = (unit[1] & 0x80) != 0;
  // Fields stay together: the second field of a pair belongs to the frame.
  const bool fields =
      m_FirstField != nullptr || (!m_Slices.empty() && m_Slices.front().header.fieldPic);
  return firstSlice && !fields;
}

void TaskSupplier::HandleUnit(const uint8_t* unit, size_t size, double time, int32_t frameId) {
  const uint8_t type = unit[0] & 0x1F;
  std::vector<uint8_t> rbsp;
  switch (type) {
  case NalSlice:
  case NalIdrSlice: {
    m_FrameTaken = true;
    H264Slice slice = TakeSlice();
    ExtractPayload(unit + 1, size - 1, slice.rbsp);
    slice.nalHeader = unit[0];
    AddSlice(std::move(slice), time, frameId);
    return;
  }
  case NalSei:
    CompletePicture();
    ExtractPayload(unit + 1, size - 1, rbsp);
    if (const auto count = ReadRecoveryFrameCount(rbsp)) {
      m_PendingRecoveryCount = count;
    }
    return;
  case NalSequenceParameterSet: {
    ExtractPayload(unit + 1, size - 1, rbsp);
    CmBitReader reader(rbsp.data(), rbsp.size());
    auto sps = std::make_unique<SmSequenceParameterSet>();
    const SmParseResult result = ParseSequenceParameterSet(reader, *sps);
    if (result == ParseDamaged) {
      return;
    }
    // Kept all the same, so that its pictures are known for what they are.
    sps->unsupported = result == ParseUnsupported;
    // A changed copy takes effect once the picture in progress is done.
    auto& entry = m_Headers.sequence[sps->id];
    if (entry != nullptr && !(*entry == *sps)) {
      CompletePicture();
    }
    entry = std::move(sps);
    m_Latest = entry.get();
    return;
  }
  case NalPictureParameterSet: {
    ExtractPayload(unit + 1, size - 1, rbsp);
    CmBitReader reader(rbsp.data(), rbsp.size());
    auto pps = std::make_unique<SmPictureParameterSet>();
    const auto table = m_Headers.GetSequenceTable();
    if (ParsePictureParameterSet(reader, table.data(), *pps) != ParseOk) {
      return;
    }
    // A repeated copy may come between the slices of one picture; a changed
    // one ends the picture that used the old.
    auto& entry = m_Headers.picture[pps->id];
    if (entry != nullptr && !(*entry == *pps)) {
      CompletePicture();
    }
    entry = std::move(pps);
    return;
  }
  case NalAccessUnitDelimiter:
  case NalEndOfSequence:
  case NalEndOfStream: {
    const bool pending = !m_Slices.empty();
    CompletePicture();
    if (type != NalAccessUnitDelimiter) {
      FinishLoneField();
    }
    if (type != NalAccessUnitDelimiter && !pending) {
      m_WaitingForKeyUnit = true;
    }
    return;
  }
  default:
    return;
  }
}

void TaskSupplier::Activate(const SmSequenceParameterSet& sps) {
  if (m_Active != nullptr && *m_Active == sps) {
    return;
  }
  // Pictures of another size or layout can serve as references to none of
  // the new sequence's.
  if (m_Active != nullptr && (m_Active->widthInMbs != sps.widthInMbs ||
                              m_Active->GetFrameHeightInMbs() != sps.GetFrameHeightInMbs() ||
                              m_Active->chromaFormatIdc != sps.chromaFormatIdc)) {
    m_References = SmReferenceState();
    m_Frames.DropAllReferences();
  }
  m_Active = std::make_shared<SmSequenceParameterSet>(sps);
  m_DpbSize = static_cast<int32_t>(sps.GetDpbFrames());
  // Streams that never reorder leave in decoding order at once; the others
  // wait until the store is full, which no conforming order can outrun.
  m_DpbDelay = sps.GetReorderFrames() == 0 ? 0 : m_DpbSize + 1;
  if (m_Settings.playbackMode != 1) {
    m_DpbDelay = 0;
  }
}

H264Slice TaskSupplier::TakeSlice() {
  if (m_SlicePool.empty()) {
    return H264Slice();
  }
  H264Slice slice = std::move(m_SlicePool.back());
  m_SlicePool.pop_back();
  return slice;
}

void TaskSupplier::ReleaseSlices() {
  PoolSlices(m_Slices);
  m_Slices.clear();
}

void TaskSupplier::PoolSlices(std::vector<H264Slice>& slices) {
  for (H264Slice& slice : slices) {
    if (m_SlicePool.size() < MostPooledSlices) {
      m_SlicePool.push_back(std::move(slice));
    }
  }
}

void TaskSupplier::AddSlice(H264Slice&& added, double time, int32_t frameId) {
  H264Slice slice = std::move(added);
  const uint8_t nalHeader = slice.nalHeader;
  CmBitReader reader(slice.rbsp.data(), slice.rbsp.size());
  const auto spsTable = m_Headers.GetSequenceTable();
  const auto ppsTable = m_Headers.GetPictureTable();
  const SmSequenceParameterSet* sps = nullptr;
  const SmPictureParameterSet* pps = nullptr;
  const SmParseResult parsed = ParseSliceHeader(
      reader, nalHeader, {spsTable.data(), ppsTable.data()}, slice.header, sps, pps);
  // Coding that this decoder does not decode yet gives no picture, never a
  // wrong one, and the caller hears of it.
  if (parsed == ParseUnsupported ||
      (parsed == ParseOk && (sps->unsupported || !IsEntropyCodingDecoded(slice.header, *pps)))) {
    m_Unsupported = true;
    return;
  }
  if (parsed != ParseOk) {
    return;
  }
  if (m_WaitingForKeyUnit) {
    // A recovery point is a place to start too: the pictures before the one
    // it names stay hidden.
    if (!m_PendingRecoveryCount && (!slice.header.IsIdr() || slice.header.sliceType != SliceI)) {
      return;
    }
    m_WaitingForKeyUnit = false;
  }
  if (!m_Slices.empty() && IsNewPicture(m_Slices.front().header, slice.header, *m_Active)) {
    CompletePicture();
  }
  if (m_Slices.empty() && !StartPicture(slice.header, *sps, time, frameId)) {
    return;
  }
  m_Slices.push_back(std::move(slice));
}

bool TaskSupplier::StartPicture(const SmSliceHeader& header, const SmSequenceParameterSet& sps,
                                double time, int32_t frameId) {
  // The second field of a frame: the opposite parity, the same frame_num,
  // and both fields references or neither, right after the first.
  // A first field that started the numbering over has frame_num 0.
  const uint32_t firstFrameNum =
      m_FirstFieldHeader.HasMemoryManagement5() ? 0 : m_FirstFieldHeader.frameNum;
  if (m_FirstField != nullptr && header.fieldPic &&
      header.bottomField != m_FirstFieldHeader.bottomField && header.frameNum == firstFrameNum &&
      header.IsReference() == m_FirstFieldHeader.IsReference() && m_Active != nullptr &&
      *m_Active == sps) {
    H264DecoderFrame* frame = std::exchange(m_FirstField, nullptr);
    const int parity = header.bottomField ? 1 : 0;
    CmPicture& field = frame->GetPicture().GetField(parity);
    field.SetId(m_NextPictureId++);
    field.SetFieldDecoded(true);
    m_Order.Compute(sps, header, m_Top, m_Bottom);
    field.SetPoc(m_Top);
    frame->picOrderCnt[parity] = m_Top;
    frame->GetPicture().SetPoc(frame->GetPicOrderCnt());
    frame->frameInfo[parity].state = H264DecoderFrameInfo::ReadyForDecoding;
    m_CurrentFrame = frame;
    m_CurrentField = parity;
    return true;
  }
  FinishLoneField();
  Activate(sps);
  const uint32_t maxFrameNum = sps.GetMaxFrameNum();
  if (!header.IsIdr() && m_HaveLastFrameNum && header.frameNum != m_LastFrameNum &&
      header.frameNum != (m_LastFrameNum + 1) % maxFrameNum && sps.gapsInFrameNumAllowed) {
    InsertGapFrames(header, sps);
  }
  H264DecoderFrame* frame = TakeFreeFrame(static_cast<size_t>(m_ExtraFrames + m_DpbSize));
  if (frame == nullptr) {
    const H264DecoderFrame* waiting = m_Frames.ChooseForOutput(m_DpbDelay, m_DpbSize);
    if (m_MayStall && waiting != nullptr && waiting->decodingState < Gathering) {
      m_Stalled = true;
      return false;
    }
    ++m_NoFrameCounter;
    return false;
  }
  m_NoFrameCounter = 0;
  if (header.IsIdr()) {
    // What waits for output belongs to the generation before this one.
    m_Frames.StartNewGeneration();
    m_ShownOrder.reset();
    frame->resetCount[0] = frame->resetCount[1] = 0;
  }
  CmPicture& picture = frame->GetPicture();
  picture.Allocate(sps.widthInMbs, sps.GetFrameHeightInMbs(), sps.chromaFormatIdc == 0);
  picture.SetId(m_NextPictureId++);
  m_Order.Compute(sps, header, m_Top, m_Bottom);
  picture.SetPoc(std::min(m_Top, m_Bottom));
  frame->picOrderCnt[0] = m_Top;
  frame->picOrderCnt[1] = m_Bottom;
  frame->progressive = sps.frameMbsOnly;
  picture.SetFieldDecoded(header.fieldPic);
  picture.SetMbaff(sps.mbAdaptiveFrameField && !header.fieldPic);
  picture.SetFieldPocs(m_Top, m_Bottom);
  m_CurrentField = -1;
  if (header.fieldPic) {
    // Until its partner comes, the field's count stands for the frame's.
    m_CurrentField = header.bottomField ? 1 : 0;
    CmPicture& field = picture.GetField(m_CurrentField);
    field.SetId(m_NextPictureId++);
    field.SetPoc(m_Top);
    field.SetFieldDecoded(true);
  }
  frame->frameNum = static_cast<int32_t>(header.frameNum);
  frame->time = time;
  frame->frameId = frameId;
  frame->visibleWidth = sps.GetVisibleWidth();
  frame->visibleHeight = sps.GetVisibleHeight();
  frame->cropLeft = sps.cropLeft;
  frame->cropTop = sps.cropTop;
  if (sps.vuiPresent) {
    frame->sarWidth = sps.vui.sarWidth;
    frame->sarHeight = sps.vui.sarHeight;
  }
  frame->idr = header.IsIdr();
  frame->intraOnly = true;
  frame->isDisplayable = true;
  frame->decodingState = Gathering;
  frame->frameInfo[0].state = frame->frameInfo[1].state = H264DecoderFrameInfo::ReadyForDecoding;
  if (m_CurrentField >= 0) {
    frame->frameInfo[1 - m_CurrentField].state = H264DecoderFrameInfo::SecondFieldWaiting;
  }
  m_CurrentFrame = frame;
  // Decoding that starts at a recovery point, without the pictures before
  // it, is right only from the picture that the point names on (in order
  // of frame_num): the ones before it stay hidden, as any decoder hides
  // them, and keep only their place in the order of times.
  if (header.IsIdr()) {
    m_RecoveryFrameNum.reset();
    m_RecoveredOrder.reset();
  } else if (m_PendingRecoveryCount && m_References.frames.empty()) {
    m_RecoveryFrameNum = (header.frameNum + *m_PendingRecoveryCount) % maxFrameNum;
  }
  m_PendingRecoveryCount.reset();
  if (m_RecoveryFrameNum) {
    if (header.frameNum == *m_RecoveryFrameNum) {
      m_RecoveryFrameNum.reset();
      m_RecoveredOrder = picture.GetPoc();
    } else {
      frame->hideFromOutput = true;
    }
  } else if (m_RecoveredOrder) {
    // Recovery holds in output order: pictures decoded after the recovered
    // one but shown before it (the leading pictures of an open group) may
    // refer to pictures from before the start, and stay hidden. The first
    // picture shown after it ends them.
    if (picture.GetPoc() < *m_RecoveredOrder) {
      frame->hideFromOutput = true;
    } else {
      m_RecoveredOrder.reset();
    }
  }
  // A stream that begins on a P or B picture: one grey frame stands in for
  // its references, never shown.
  if (header.sliceType != SliceI && m_References.frames.empty()) {
    H264DecoderFrame* stand = TakeFreeFrame(static_cast<size_t>(m_ExtraFrames + m_DpbSize));
    if (stand != nullptr) {
      CmPicture& grey = stand->GetPicture();
      grey.Allocate(sps.widthInMbs, sps.GetFrameHeightInMbs(), sps.chromaFormatIdc == 0);
      grey.SetId(m_NextPictureId++);
      grey.SetPoc(picture.GetPoc());
      grey.Fill(128);
      grey.ExtendBorders();
      PrepareFields(grey, *stand);
      stand->frameNum = static_cast<int32_t>(header.frameNum);
      m_References.frames.push_back({&grey, header.frameNum, false, 0});
      m_Frames.SetReferences(m_References.frames);
    }
  }
  return true;
}

void TaskSupplier::InsertGapFrames(const SmSliceHeader& header, const SmSequenceParameterSet& sps) {
  const uint32_t maxFrameNum = sps.GetMaxFrameNum();
  uint32_t frameNum = (m_LastFrameNum + 1) % maxFrameNum;
  for (int32_t count = 0; frameNum != header.frameNum && count < m_DpbSize; ++count) {
    H264DecoderFrame* frame = TakeFreeFrame(static_cast<size_t>(m_ExtraFrames + 2 * m_DpbSize));
    if (frame == nullptr) {
      break;
    }
    CmPicture& picture = frame->GetPicture();
    picture.Allocate(sps.widthInMbs, sps.GetFrameHeightInMbs(), sps.chromaFormatIdc == 0);
    picture.SetId(m_NextPictureId++);
    picture.Fill(128);
    picture.ExtendBorders();
    frame->frameNum = static_cast<int32_t>(frameNum);
    frame->isDisplayable = true; // and without a picture: it costs no output
    frame->hasPicture = false;
    SmSliceHeader gap;
    gap.nalRefIdc = 1;
    gap.nalUnitType = NalSlice;
    gap.frameNum = frameNum;
    // Order counts of types 1 and 2 follow from frame_num, so a made-up
    // frame has its own, and B lists place it by that (8.2.5.2); type 0
    // gives it none.
    picture.SetPoc(0);
    if (sps.picOrderCntType != 0) {
      int32_t top = 0, bottom = 0;
      m_Order.Compute(sps, gap, top, bottom);
      m_Order.Finish(gap, top, bottom);
      frame->picOrderCnt[0] = top;
      frame->picOrderCnt[1] = bottom;
      picture.SetPoc(std::min(top, bottom));
    }
    PrepareFields(picture, *frame);
    MarkReferences(m_References, gap, &picture, sps.maxNumRefFrames, maxFrameNum);
    m_Frames.SetReferences(m_References.frames);
    m_LastFrameNum = frameNum;
    frameNum = (frameNum + 1) % maxFrameNum;
  }
}

void TaskSupplier::CompletePicture() {
  if (m_Slices.empty() || m_CurrentFrame == nullptr) {
    ReleaseSlices();
    return;
  }
  H264DecoderFrame& frame = *m_CurrentFrame;
  CmPicture& picture = frame.GetPicture();
  const SmSliceHeader first = m_Slices.front().header;
  const SmSequenceParameterSet& sps = *m_Active;
  for (const H264Slice& slice : m_Slices) {
    frame.intraOnly = frame.intraOnly && slice.header.sliceType == SliceI;
  }
  const bool skipped = (m_Settings.skipMode == 1 && !first.IsReference()) ||
                       (m_Settings.skipMode == 2 && !frame.intraOnly);
  if (skipped) {
    // Dropped pictures keep no reference mark and are never shown.
    frame.hideFromOutput = true;
    frame.decodingState = 0;
    frame.frameInfo[0].state = frame.frameInfo[1].state = H264DecoderFrameInfo::Done;
    ReleaseSlices();
    m_CurrentFrame = nullptr;
    return;
  }
  if (MayDecodeAside(first)) {
    StartAside(frame);
  } else {
    // The broker's decoders are the workers' too, and the picture may
    // predict from any of theirs.
    CollectJobs(true);
    CmPicture* target = m_CurrentField >= 0 ? picture.FindField(m_CurrentField) : &picture;
    H264PictureTask task;
    task.picture = target;
    task.slices = &m_Slices;
    task.sps = &sps;
    task.pictureParameterSets = m_Headers.GetPictureTable();
    task.references = &m_References.frames;
    task.filters.resize(m_Slices.size() + 1);
    // One map for the picture: every slice of it tells the same change cycle.
    const SmPictureParameterSet* pps = task.pictureParameterSets[first.ppsId];
    if (pps != nullptr && pps->numSliceGroups > 1 &&
        !BuildSliceGroupMap(sps, *pps, first.sliceGroupChangeCycle, task.sliceGroups,
                            first.fieldPic             ? SmMacroblockOrder::Field
                            : sps.mbAdaptiveFrameField ? SmMacroblockOrder::Pairs
                                                       : SmMacroblockOrder::Frame)) {
      task.slices = &m_NoSlices;
    }
    {
      const CmDecodingRecords::CmLease lease = m_Records.Lend(*target);
      m_Broker->DecodePicture(task);
      if (KeepsMotion(first, sps)) {
        target->GetMotion().Store(
            target->GetMacroblocks(), target->GetWidthInMbs() * target->GetHeightInMbs(),
            target->IsMbaff(), CmMotionRecord::LayoutFor(sps.direct8x8Inference, sps.frameMbsOnly));
      }
    }
    if (task.unsupported) {
      m_Unsupported = true;
      frame.hideFromOutput = true;
    }
  }
  if (m_CurrentField >= 0) {
    picture.WeaveField(m_CurrentField);
    picture.ExtendBorders();
  } else {
    PrepareFields(picture, frame);
  }
  if (first.IsReference()) {
    MarkReferences(m_References, first, &picture, sps.maxNumRefFrames, sps.GetMaxFrameNum(),
                   m_CurrentField);
    m_Frames.SetReferences(m_References.frames);
  }
  if (first.HasMemoryManagement5()) {
    // The picture becomes the origin of the order counts after it (8.2.1):
    // it leaves before them, and later B slices place it by its new count.
    // A field moves its own count; a first field's stands for its frame's
    // until the second comes.
    if (m_CurrentField >= 0) {
      const bool secondField =
          frame.frameInfo[1 - m_CurrentField].state == H264DecoderFrameInfo::Done;
      frame.picOrderCnt[m_CurrentField] = 0;
      if (!secondField) {
        frame.picOrderCnt[1 - m_CurrentField] = 0;
      }
      picture.GetField(m_CurrentField).SetPoc(0);
      picture.SetPoc(frame.GetPicOrderCnt());
    } else {
      const int32_t origin = frame.GetPicOrderCnt();
      frame.picOrderCnt[0] -= origin;
      frame.picOrderCnt[1] -= origin;
      picture.SetPoc(0);
    }
    picture.SetFieldPocs(frame.picOrderCnt[0], frame.picOrderCnt[1]);
    frame.frameNum = 0;
    m_Frames.StartNewGeneration();
    m_ShownOrder.reset();
    frame.resetCount[0] = frame.resetCount[1] = 0;
  }
  m_Order.Finish(first, m_Top, m_Bottom);
  m_LastFrameNum = first.HasMemoryManagement5() ? 0 : first.frameNum;
  m_HaveLastFrameNum = true;
  // Low delay shows each picture as soon as it is decoded, which is right
  // only while none comes before one already shown: a stream that reorders
  // turns it off for good, and its pictures wait for their turn again.
  if (m_LowDelayActive && m_ShownOrder && frame.GetPicOrderCnt() < *m_ShownOrder) {
    m_LowDelayActive = false;
  }
  frame.hasPicture = true;
  ReleaseSlices();
  m_CurrentFrame = nullptr;
  if (m_CurrentField >= 0) {
    frame.frameInfo[m_CurrentField].state = H264DecoderFrameInfo::Done;
    if (frame.frameInfo[1 - m_CurrentField].state == H264DecoderFrameInfo::SecondFieldWaiting) {
      // Neither shown nor reused until its partner comes or cannot.
      m_FirstField = &frame;
      m_FirstFieldHeader = first;
      return;
    }
  }
  frame.decodingState = 0;
  frame.frameInfo[0].state = frame.frameInfo[1].state = H264DecoderFrameInfo::Done;
}

bool TaskSupplier::MayDecodeAside(const SmSliceHeader& first) const {
  // Low delay shows each picture before the next comes in, so there is no
  // next picture to decode beside it.
  if (m_Workers == nullptr || m_LowDelayActive || !m_Active->frameMbsOnly || m_CurrentField >= 0 ||
      first.HasMemoryManagement5()) {
    return false;
  }
  const SmPictureParameterSet* pps = m_Headers.picture[first.ppsId].get();
  return pps != nullptr && pps->numSliceGroups == 1 && SlicesFollowEachOther(m_Slices);
}

void TaskSupplier::StartAside(H264DecoderFrame& frame) {
  auto job = std::make_unique<SmPictureJob>();
  job->slices = std::move(m_Slices);
  m_Slices.clear();
  job->sps = m_Active;
  job->references = m_References.frames;
  job->keepsMotion = KeepsMotion(job->slices.front().header, *m_Active);
  job->motionLayout =
      CmMotionRecord::LayoutFor(m_Active->direct8x8Inference, m_Active->frameMbsOnly);
  H264PictureTask& task = job->task;
  task.picture = &frame.GetPicture();
  task.slices = &job->slices;
  task.sps = job->sps.get();
  task.references = &job->references;
  task.filters.resize(job->slices.size() + 1);
  for (const H264Slice& slice : job->slices) {
    const auto& pps = m_Headers.picture[slice.header.ppsId];
    if (task.pictureParameterSets[slice.header.ppsId] == nullptr && pps != nullptr) {
      task.pictureParameterSets[slice.header.ppsId] = pps.get();
      job->pictureParameterSets.push_back(pps);
    }
  }
  job->frame = &frame;
  frame.inFlight = true;
  ++frame.readers;
  for (H264DecoderFrame* other = m_Frames.GetHead(); other != nullptr; other = other->next) {
    for (const SmReferenceFrame& reference : job->references) {
      if (reference.picture == &other->GetPicture()) {
        ++other->readers;
        job->readFrames.push_back(other);
        break;
      }
    }
  }
  m_Workers->Start(*job);
  m_Jobs.push_back(std::move(job));
}

void TaskSupplier::CollectJobs(bool all) {
  while (!m_Jobs.empty()) {
    SmPictureJob& job = *m_Jobs.front();
    if (all) {
      m_Workers->Wait(job);
    } else if (!job.done.load(std::memory_order_acquire)) {
      return;
    }
    std::unique_ptr<SmPictureJob> taken = std::move(m_Jobs.front());
    m_Jobs.pop_front();
    taken->frame->inFlight = false;
    --taken->frame->readers;
    for (H264DecoderFrame* read : taken->readFrames) {
      --read->readers;
    }
    if (taken->task.unsupported) {
      m_Unsupported = true;
      taken->frame->hideFromOutput = true;
    }
    PoolSlices(taken->slices);
    if (taken->error) {
      std::rethrow_exception(taken->error);
    }
  }
}

H264DecoderFrame* TaskSupplier::TakeFreeFrame(size_t limit) {
  for (;;) {
    CollectJobs(false);
    H264DecoderFrame* frame = m_Frames.GetFreeFrame(limit);
    if (frame != nullptr || m_Jobs.empty()) {
      return frame;
    }
    m_Workers->Wait(*m_Jobs.front());
  }
}

void TaskSupplier::FinishLoneField() {
  H264DecoderFrame* frame = std::exchange(m_FirstField, nullptr);
  if (frame == nullptr) {
    return;
  }
  const int parity = m_FirstFieldHeader.bottomField ? 1 : 0;
  frame->GetPicture().RepeatField(parity);
  frame->GetPicture().ExtendBorders();
  frame->picOrderCnt[1 - parity] = frame->picOrderCnt[parity];
  frame->loneField = parity;
  frame->decodingState = 0;
  frame->frameInfo[0].state = frame->frameInfo[1].state = H264DecoderFrameInfo::Done;
}

void TaskSupplier::PrepareFields(CmPicture& picture, const H264DecoderFrame& frame) {
  if (m_Active == nullptr || m_Active->frameMbsOnly) {
    return;
  }
  picture.SplitIntoFields();
  for (int parity = 0; parity < 2; ++parity) {
    CmPicture& field = *picture.FindField(parity);
    field.SetId(m_NextPictureId++);
    field.SetPoc(frame.picOrderCnt[parity]);
    field.SetFieldDecoded(false);
  }
}

H264DecoderFrame* TaskSupplier::GetFrameToDisplay(bool force) {
  for (;;) {
    if (m_Frames.CountForOutput() < m_DpbDelay && !force && !m_LowDelayActive) {
      return nullptr;
    }
    H264DecoderFrame* frame = m_Frames.ChooseForOutput(m_DpbDelay, m_DpbSize);
    if (frame == nullptr || frame->decodingState >= Gathering) {
      return nullptr;
    }
    if (!frame->hasPicture) {
      frame->wasOutputted = true;
      continue; // a frame made up for a gap costs no output
    }
    if (frame->inFlight && !force) {
      // A picture among the newest a worker may take next: the caller
      // brings the next picture rather than wait, so that the pictures
      // decode side by side, and this one leaves a call later. An older one
      // is waited for while the newer ones go on.
      const size_t newer = static_cast<size_t>(
          std::find_if(m_Jobs.rbegin(), m_Jobs.rend(),
                       [frame](const auto& job) { return job->frame == frame; }) -
          m_Jobs.rbegin());
      if (newer + 1 < m_Workers->GetWorkerCount()) {
        return nullptr;
      }
    }
    if (frame->inFlight) {
      while (frame->inFlight) {
        m_Workers->Wait(*m_Jobs.front());
        CollectJobs(false);
      }
      if (frame->hideFromOutput) {
        frame->wasOutputted = true;
        continue;
      }
    }
    m_Frames.TakeEarliestWaitingTime(*frame);
    frame->wasOutputted = true;
    m_ShownOrder = frame->GetPicOrderCnt();
    if (frame->time < 0) {
      frame->time = m_LocalTime;
    }
    m_LocalTime = frame->time + m_Settings.frameTime;
    if (!frame->hideFromOutput) {
      return frame;
    }
  }
}

void TaskSupplier::Reset() {
  RecoveryReset();
  m_WaitingForKeyUnit = false;
}

void TaskSupplier::RecoveryReset() {
  m_Broker->Stop();
  for (;;) {
    try {
      CollectJobs(true);
      break;
    } catch (...) {
      // Whatever failed in a picture being reset away is forgotten with it.
    }
  }
  m_Pending.clear();
  m_Frames.Clear();
  m_References = SmReferenceState();
  m_Slices.clear();
  m_SlicePool.clear();
  m_CurrentFrame = nullptr;
  m_FirstField = nullptr;
  m_CurrentField = -1;
  m_WaitingForKeyUnit = true;
  m_Order.Reset();
  m_HaveLastFrameNum = false;
  m_NoFrameCounter = 0;
  m_ShownOrder.reset();
  m_LowDelayActive = m_Settings.lowDelay;
  m_PendingRecoveryCount.reset();
  m_RecoveryFrameNum.reset();
  m_RecoveredOrder.reset();
}

} // namespace MCL
