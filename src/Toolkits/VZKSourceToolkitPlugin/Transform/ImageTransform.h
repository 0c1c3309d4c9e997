#pragma once

#include <functional>
#include <memory>

#include "MediaProcessing/Image/ImageTransformation.h"
#include "Toolkits/VZKSourceToolkitPlugin/Tree/VZKSourceToolkit.h"

namespace NmToolkit {

// Base of the toolkits that run one image transformation on every picture.
// A failing transformation yields an empty picture with the item's time and
// properties, so that one bad picture never ends a stream.
class CmImageTransform : public CmVZKSourceToolkit {
public:
  explicit CmImageTransform(const NmXerces::CmXmlNodePtr& node) : CmVZKSourceToolkit(node) {}

  // Reads "non_bitmap_pass_through" and "enable"; derived toolkits read
  // theirs after calling this.
  void ReadConfiguration() override;
  void ProcessData(ImData* in, ImData** out) override;

  const NmMediaProcessing::ImImageTransformation* GetTransformation() const {
    return m_Transformation.get();
  }

protected:
  // Builds the transformation through `make`. When the keys describe no
  // valid transformation, the error is kept and every picture fails with it:
  // a bad key costs pictures, not the connection.
  void SetTransformation(
      const std::function<std::unique_ptr<NmMediaProcessing::ImImageTransformation>()>& make);
  // Says whether `in` can be processed: a picture, or passed on unchanged
  // (then `out` is set), or refused with an error.
  bool AcceptPicture(ImData* in, ImData** out) const;

  std::unique_ptr<NmMediaProcessing::ImImageTransformation> m_Transformation;
  bool m_PassNonBitmaps = false;
  bool m_Enabled = true;
};

} // namespace NmToolkit
