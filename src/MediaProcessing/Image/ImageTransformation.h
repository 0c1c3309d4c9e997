#pragma once

#include <cstdint>
#include <cstdlib>
#include <memory>

#include "MediaProcessing/Image/Image.h"
#include "MediaProcessing/Image/SPLError.h"

namespace NmMediaProcessing {

// An image operation that is configured once and applied to any number of images.
class ImImageTransformation {
public:
  enum Options : uint32_t {
    OptionHighQuality = 2,
    OptionFast = 4,
  };

  virtual ~ImImageTransformation() = default;
  virtual void Execute(CmImage& image) = 0;
  // Source and destination may be the same object.
  virtual void Execute(const CmImage& source, CmImage& destination) = 0;
  virtual void SetOptions(uint32_t flags) = 0;
  virtual ImImageTransformation* Clone() const = 0;
};

// Options and a scratch buffer that grows and is kept between calls.
template <typename I> class CmBaseImageTransformation : public I {
public:
  CmBaseImageTransformation() = default;
  // A clone keeps the options but not the scratch memory.
  CmBaseImageTransformation(const CmBaseImageTransformation& other)
      : I(other), m_Options(other.m_Options) {}
  CmBaseImageTransformation& operator=(const CmBaseImageTransformation&) = delete;
  ~CmBaseImageTransformation() override = default;

  // In place by way of a temporary that shares the planes, so no pixels move
  // until the two-image form writes its result.
  void Execute(CmImage& image) override {
    const CmImage temporary(image);
    image.Reset();
    this->Execute(temporary, image);
  }
  using I::Execute;
  void SetOptions(uint32_t flags) override { m_Options |= flags; }
  uint32_t GetOptions() const { return m_Options; }

protected:
  uint8_t* GetScratch(uint64_t size) {
    if (size > m_ScratchSize) {
      m_Scratch.reset();
      m_ScratchSize = 0;
      void* memory = std::aligned_alloc(64, (size + 63) / 64 * 64);
      if (memory == nullptr) {
        throw CmBadAllocation();
      }
      m_Scratch.reset(static_cast<uint8_t*>(memory));
      m_ScratchSize = size;
    }
    return m_Scratch.get();
  }

private:
  struct CmFree {
    void operator()(uint8_t* p) const { std::free(p); }
  };
  uint32_t m_Options = 0;
  std::unique_ptr<uint8_t, CmFree> m_Scratch;
  uint64_t m_ScratchSize = 0;
};

} // namespace NmMediaProcessing
