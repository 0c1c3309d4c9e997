#pragma once

namespace NmMediaProcessing {

// A choice of frames to leave out that can change while a stream runs.
template <typename Derived> class CmDynamicVideoSubsampler {};

// Leaves out every frame that is not a sync frame, when asked to.
class CmKeyFrameOnlyVideoSubsampler
    : public CmDynamicVideoSubsampler<CmKeyFrameOnlyVideoSubsampler> {
public:
  void SetKeyFramesOnly(bool keyFramesOnly) { m_KeyFramesOnly = keyFramesOnly; }
  bool GetKeyFramesOnly() const { return m_KeyFramesOnly; }

private:
  bool m_KeyFramesOnly = false;
};

} // namespace NmMediaProcessing
