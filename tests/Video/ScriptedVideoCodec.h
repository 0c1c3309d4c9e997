#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "MediaProcessing/Video/SmartVideoDecoderPointer.h"
#include "MediaProcessing/Video/VideoFactory.h"

// A codec decoder whose every answer the test writes in advance, and which
// records every call it gets; the framework around it is what is under test.
namespace NmVideoTest {

using namespace NmMediaProcessing;

struct SmStep {
  bool succeed = true;
  bool produce = false;
  // The frame whose image comes out: the one fed this many data calls ago.
  uint32_t back = 0;
  // Overrides the id that comes back.
  std::optional<int32_t> id{};
  // The image's time in wire ms; else the time fed with that frame.
  std::optional<int64_t> timeMs{};
  bool callAgain = false;
  bool nothingConsumed = false;
  // Produce is reported but the image is left empty.
  bool leaveImageEmpty = false;
};

struct SmCall {
  uint32_t codec;
  bool flush;
  int32_t id;
  int64_t timeMs;
};

struct CmScript {
  std::deque<SmStep> steps;
  std::vector<SmCall> calls;
  std::vector<uint32_t> madeCodecs;
  std::vector<SmVideoDecodeParameters> parameters;
  uint32_t resets = 0;
};

class CmScriptedDecoder : public ImVideoDecoder {
public:
  CmScriptedDecoder(std::shared_ptr<CmScript> script, uint32_t codec)
      : m_Script(std::move(script)), m_Codec(codec) {}

  bool Decode(const uint8_t* data, uint64_t, int32_t imageId, const NmTimeStamp::CmTimeStamp& time,
              CmImage& image, SmVideoDecodeResult& result) override {
    result = SmVideoDecodeResult();
    const bool flush = data == nullptr;
    m_Script->calls.push_back({m_Codec, flush, imageId, time.GetMilliseconds()});
    if (!flush) {
      m_Fed.push_back({imageId, time.GetMilliseconds()});
    }
    SmStep step;
    if (!m_Script->steps.empty()) {
      step = m_Script->steps.front();
      m_Script->steps.pop_front();
    } else {
      step.produce = !flush;
    }
    result.m_CallAgain = step.callAgain;
    result.m_NothingConsumed = step.nothingConsumed;
    if (!step.succeed) {
      return false;
    }
    if (step.produce) {
      const auto& frame = m_Fed.at(m_Fed.size() - 1 - step.back);
      image.Reset();
      if (!step.leaveImageEmpty) {
        image.Allocate(16, 8, YCbCr420_Planar);
        image.GetAttributes().timeStamp =
            NmTimeStamp::CmTimeStamp::FromMilliseconds(step.timeMs.value_or(frame.second));
        image.GetAttributes().attribute0 = 1;
      }
      result.m_ImageProduced = true;
      result.m_ImageId = step.id.value_or(frame.first);
    }
    return true;
  }
  void Reset() override { ++m_Script->resets; }
  SmVideoDecodeParameters GetParameters() const override { return m_Parameters; }
  void SetParameters(const SmVideoDecodeParameters& parameters) override {
    m_Parameters = parameters;
    m_Script->parameters.push_back(parameters);
  }

private:
  std::shared_ptr<CmScript> m_Script;
  uint32_t m_Codec;
  SmVideoDecodeParameters m_Parameters;
  std::vector<std::pair<int32_t, int64_t>> m_Fed;
};

// A factory of decoders made by a function, for every codec value asked.
class CmFunctionFactory : public ImVideoFactory {
public:
  explicit CmFunctionFactory(std::function<ImVideoDecoder*()> make) : m_Make(std::move(make)) {}
  ImVideoDecoder* CreateDecoder() override { return m_Make(); }
  ImVideoAnalyzer* CreateAnalyzer() override { return nullptr; }
  ImVideoParser* CreateParser() override { return nullptr; }

private:
  std::function<ImVideoDecoder*()> m_Make;
};

inline CmVideoFactoryMaker MakerOf(std::function<ImVideoDecoder*()> make) {
  return [make](uint32_t) { return std::make_unique<CmFunctionFactory>(make); };
}

// Known codec values keep the factory's refusals; every accepted one is scripted.
inline CmVideoFactoryMaker ScriptedFactoryMaker(std::shared_ptr<CmScript> script) {
  return [script](uint32_t codec) -> std::unique_ptr<ImVideoFactory> {
    CmVideoFactory::CreateFromCodec(codec);
    return std::make_unique<CmFunctionFactory>([script, codec] {
      script->madeCodecs.push_back(codec);
      return new CmScriptedDecoder(script, codec);
    });
  };
}

} // namespace NmVideoTest
