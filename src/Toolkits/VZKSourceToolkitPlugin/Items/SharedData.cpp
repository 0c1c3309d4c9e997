#include "Toolkits/VZKSourceToolkitPlugin/Items/SharedData.h"

namespace NmToolkit {
namespace {

template <typename Wrapper, typename I> ImData* WrapAs(const std::shared_ptr<ImData>& item) {
  const auto* typed = dynamic_cast<const I*>(item.get());
  return typed ? new Wrapper(item, typed) : nullptr;
}

} // namespace

ImData* WrapSharedData(const std::shared_ptr<ImData>& item) {
  if (!item) {
    return nullptr;
  }
  // The first kind that fits wins: a vector is also media data, an image too.
  for (ImData* (*wrap)(const std::shared_ptr<ImData>&) :
       {&WrapAs<CmSharedMediaDataVector, ImMediaDataVector>, &WrapAs<CmSharedImage, ImImage>,
        &WrapAs<CmSharedMediaData, ImMediaData>, &WrapAs<CmSharedOutOfBandData, ImOutOfBandData>,
        &WrapAs<CmSharedMetaData, ImMetaData>, &WrapAs<CmSharedExportData, ImExportData>}) {
    if (ImData* wrapper = wrap(item)) {
      return wrapper;
    }
  }
  return new CmSharedData(item, item.get());
}

} // namespace NmToolkit
