#pragma once

#include <memory>
#include <string>
#include <vector>

#include "vzk/Data.h"

namespace NmToolkit {

// Wrappers that give one item many owners: each holds the item by shared
// pointer and forwards every operation, so a caller may delete its wrapper
// while the item lives on for the others.
template <typename I> class CmSharedDataBase : public I {
public:
  CmSharedDataBase(std::shared_ptr<ImData> item, const I* typed)
      : m_Item(std::move(item)), m_Typed(typed) {}

  int64_t GetBeginTime() const override { return m_Typed->GetBeginTime(); }
  int64_t GetEndTime() const override { return m_Typed->GetEndTime(); }
  size_t GetDataSize() const override { return m_Typed->GetDataSize(); }
  const uint8_t* GetDataPointer() const override { return m_Typed->GetDataPointer(); }
  const ImProperty* GetProperty(const std::string& name) const override {
    return m_Typed->GetProperty(name);
  }
  const std::shared_ptr<ImData>& GetSharedItem() const { return m_Item; }

protected:
  std::shared_ptr<ImData> m_Item;
  const I* m_Typed;
};

template <typename I> class CmSharedMediaDataBase : public CmSharedDataBase<I> {
public:
  using CmSharedDataBase<I>::CmSharedDataBase;
  size_t GetPayloadSize() const override { return this->m_Typed->GetPayloadSize(); }
  const uint8_t* GetPayloadPointer() const override { return this->m_Typed->GetPayloadPointer(); }
};

class CmSharedData : public CmSharedDataBase<ImData> {
public:
  using CmSharedDataBase::CmSharedDataBase;
};

class CmSharedMediaData : public CmSharedMediaDataBase<ImMediaData> {
public:
  using CmSharedMediaDataBase::CmSharedMediaDataBase;
};

class CmSharedMediaDataVector : public CmSharedMediaDataBase<ImMediaDataVector> {
public:
  using CmSharedMediaDataBase::CmSharedMediaDataBase;
  void GetElements(std::vector<ImMediaData*>& elements) const override {
    m_Typed->GetElements(elements);
  }
};

class CmSharedImage : public CmSharedMediaDataBase<ImImage> {
public:
  using CmSharedMediaDataBase::CmSharedMediaDataBase;
  uint32_t GetColorFormat() const override { return m_Typed->GetColorFormat(); }
  uint32_t GetInterlacing() const override { return m_Typed->GetInterlacing(); }
  double GetPixelAspectRatio() const override { return m_Typed->GetPixelAspectRatio(); }
  uint32_t GetWidth() const override { return m_Typed->GetWidth(); }
  uint32_t GetHeight() const override { return m_Typed->GetHeight(); }
  const uint8_t* GetPlanePointer(uint32_t plane) const override {
    return m_Typed->GetPlanePointer(plane);
  }
  uint32_t GetPlaneWidth(uint32_t plane) const override { return m_Typed->GetPlaneWidth(plane); }
  uint32_t GetPlaneHeight(uint32_t plane) const override { return m_Typed->GetPlaneHeight(plane); }
  uint32_t GetPlaneStride(uint32_t plane) const override { return m_Typed->GetPlaneStride(plane); }
};

class CmSharedMetaData : public CmSharedDataBase<ImMetaData> {
public:
  using CmSharedDataBase::CmSharedDataBase;
};

class CmSharedOutOfBandData : public CmSharedDataBase<ImOutOfBandData> {
public:
  using CmSharedDataBase::CmSharedDataBase;
};

class CmSharedExportData : public CmSharedDataBase<ImExportData> {
public:
  using CmSharedDataBase::CmSharedDataBase;
};

// A new wrapper of the most specific kind the item has, owned by the caller;
// null for a null item.
ImData* WrapSharedData(const std::shared_ptr<ImData>& item);

} // namespace NmToolkit
