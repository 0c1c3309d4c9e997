#include "Toolkits/VZKSourceToolkitPlugin/Transform/ImageTransform.h"

#include <new>

#include "Common/Error/Error.h"
#include "Toolkits/VZKSourceToolkitPlugin/Items/ImageData.h"
#include "Toolkits/VZKSourceToolkitPlugin/Items/ItemImage.h"
#include "Toolkits/VZKSourceToolkitPlugin/Tree/ToolkitErrors.h"

namespace NmToolkit {

using NmMediaProcessing::CmImage;
using NmMediaProcessing::ImImageTransformation;

namespace {

// Stands for a transformation whose keys were refused: each picture fails
// with the reason that the keys were refused for.
class CmRefusedTransformation
    : public NmMediaProcessing::CmBaseImageTransformation<ImImageTransformation> {
public:
  explicit CmRefusedTransformation(const NmError::CmError& reason) : m_Reason(reason.Clone()) {}
  CmRefusedTransformation(const CmRefusedTransformation& other)
      : CmBaseImageTransformation(other), m_Reason(other.m_Reason->Clone()) {}

  using CmBaseImageTransformation::Execute;
  void Execute(const CmImage&, CmImage&) override {
    throw NmError::CmIntegrityError(VZK_LOCATION, "The transformation's keys were refused",
                                    NmError::CmIntegrityErrorCode::InvalidArgument, *m_Reason);
  }
  ImImageTransformation* Clone() const override { return new CmRefusedTransformation(*this); }

private:
  std::unique_ptr<NmError::CmError> m_Reason;
};

} // namespace

void CmImageTransform::ReadConfiguration() {
  m_PassNonBitmaps = GetConfigurationValue("non_bitmap_pass_through", "false") == "true";
  m_Enabled = GetConfigurationValue("enable", "true") == "true";
}

void CmImageTransform::SetTransformation(
    const std::function<std::unique_ptr<ImImageTransformation>()>& make) {
  try {
    m_Transformation = make();
  } catch (const NmError::CmError& error) {
    m_Transformation = std::make_unique<CmRefusedTransformation>(error);
  }
}

bool CmImageTransform::AcceptPicture(ImData* in, ImData** out) const {
  if (dynamic_cast<const ImImage*>(in) != nullptr) {
    return true;
  }
  if (!m_PassNonBitmaps) {
    throw CmInvalidOperationError<0>(GetElementName());
  }
  *out = in;
  return false;
}

void CmImageTransform::ProcessData(ImData* in, ImData** out) {
  if (!m_Enabled) {
    *out = in;
    return;
  }
  if (!AcceptPicture(in, out)) {
    return;
  }
  CmVZKSourceToolkitProperties properties;
  CopyPassedProperties(in, properties);
  CmImage result;
  try {
    const CmImage source = ImageOfItem(*dynamic_cast<const ImImage*>(in));
    if (m_Transformation) {
      m_Transformation->Execute(source, result);
    } else {
      result = source;
    }
  } catch (const NmError::CmError&) {
    result.Reset();
  } catch (const std::bad_alloc&) {
    result.Reset();
  }
  if (!result.IsValid()) {
    // An empty picture still says when it was due.
    try {
      result.GetAttributes().timeStamp =
          NmTimeStamp::CmTimeStamp::FromMilliseconds(in->GetBeginTime());
    } catch (const NmError::CmError&) {
    }
  }
  *out = new CmImageData(result, properties);
}

} // namespace NmToolkit
