#pragma once

#include <cstdint>
#include <memory>

#include "MediaProcessing/GenericByteData/ByteDataSequenceAnalyzer.h"
#include "MediaProcessing/GenericByteData/GenericByteData.h"
#include "MediaProcessing/Video/VideoAnalyzer.h"

namespace NmMediaProcessing {

// The attributes of a video stream that a consumer must see change.
struct SmVideoStreamAttributes {
  enum Status : uint32_t {
    AttributesUsable = 0,
    AttributesChangedInSequence = 1,
    AttributesContradictory = 2,
  };

  uint32_t m_Status = AttributesUsable;
  uint32_t m_Codec = 1;
  bool m_Interlaced = false;
  bool m_TopFieldFirst = false;
  uint32_t m_InterlaceLayout = 0;
  uint32_t m_PictureFormat = 0;
};

// Follows the attributes of one stream record by record and reports when they
// change within a sequence, where a consumer could not follow.
class CmVideoStreamAttributesAnalyzer {
public:
  bool Analyze(const CmGenericByteData& byteData, SmVideoStreamAttributes& result);
  const SmVideoStreamAttributes& GetState() const { return m_State; }

private:
  bool AnalyzeBlock(const CmGenericByteData& byteData, SmVideoStreamAttributes& result);
  bool ReadAttributes(const CmGenericByteData& byteData, bool compare,
                      SmVideoStreamAttributes& result);

  SmVideoStreamAttributes m_State;
  CmByteDataSequenceSpecificAnalyzer m_Sequence;
};

// Reads the picture size of a stream from its sync frames through the
// analyser of the stream's codec, which it keeps until the codec changes.
class CmVideoSizeKeyFrameAnalyzer {
public:
  bool Analyze(const CmGenericByteData& byteData, SmVideoSize& result);
  bool AnalyzeRawData(uint32_t codec, const uint8_t* data, uint64_t size, SmVideoSize& result);

private:
  ImVideoAnalyzer& AnalyzerFor(uint32_t codec);

  uint32_t m_Codec = 0;
  std::unique_ptr<ImVideoAnalyzer> m_Analyzer;
};

struct SmByteDataSequenceAnalysisTraits {
  static constexpr const char* Name = "struct NmMediaProcessing::SmByteDataSequenceAnalysisTraits";
  using Analyzer = CmByteDataSequenceSpecificAnalyzer;
  using Result = SmByteDataSequenceResult;
};

struct SmVideoStreamAttributesAnalysisTraits {
  static constexpr const char* Name =
      "struct NmMediaProcessing::SmVideoStreamAttributesAnalysisTraits";
  using Analyzer = CmVideoStreamAttributesAnalyzer;
  using Result = SmVideoStreamAttributes;
};

struct SmVideoSizeKeyFrameAnalysisTraits {
  static constexpr const char* Name = "struct NmMediaProcessing::SmVideoSizeKeyFrameAnalysisTraits";
  using Analyzer = CmVideoSizeKeyFrameAnalyzer;
  using Result = SmVideoSize;
};

// Raises "Null input parameters given" in the name of CmStreamAnalyzer<Traits>.
[[noreturn]] void RaiseNullStreamAnalyzerInput(const char* traitsName, const char* operation,
                                               const char* file, int line);

// One analysis of a stream, whose inner analyser keeps its state between calls
// and is made at first use.
template <typename Traits> class CmStreamAnalyzer {
public:
  using Result = typename Traits::Result;

  // Raises an integrity error (code 3) for an empty record.
  bool Analyze(const CmGenericByteData& byteData, Result& result) {
    if (byteData.IsEmpty()) {
      RaiseNullStreamAnalyzerInput(Traits::Name, "Analyze", __FILE__, __LINE__);
    }
    return Inner().Analyze(byteData, result);
  }

  // The payload of a record of the codec, without the record around it.
  bool AnalyzeRawData(uint32_t codec, const uint8_t* data, uint64_t size, Result& result) requires
      requires(typename Traits::Analyzer& a) {
    a.AnalyzeRawData(codec, data, size, result);
  }
  {
    if (data == nullptr || size == 0) {
      RaiseNullStreamAnalyzerInput(Traits::Name, "AnalyzeRawData", __FILE__, __LINE__);
    }
    return Inner().AnalyzeRawData(codec, data, size, result);
  }

  void Reset() { m_Inner.reset(); }

private:
  typename Traits::Analyzer& Inner() {
    if (!m_Inner) {
      m_Inner = std::make_unique<typename Traits::Analyzer>();
    }
    return *m_Inner;
  }

  std::unique_ptr<typename Traits::Analyzer> m_Inner;
};

using CmByteDataSequenceAnalyzer = CmStreamAnalyzer<SmByteDataSequenceAnalysisTraits>;
using CmVideoStreamAttributesStreamAnalyzer =
    CmStreamAnalyzer<SmVideoStreamAttributesAnalysisTraits>;
using CmVideoSizeKeyFrameStreamAnalyzer = CmStreamAnalyzer<SmVideoSizeKeyFrameAnalysisTraits>;

} // namespace NmMediaProcessing
