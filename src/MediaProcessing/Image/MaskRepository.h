#pragma once

#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "Common/TimeStamp/TimeStamp.h"
#include "MediaProcessing/Image/MaskDefinition.h"

namespace NmMediaProcessing {

// A stretch of time between two stamps, both included.
struct CmTimeSpan {
  NmTimeStamp::CmTimeStamp start;
  NmTimeStamp::CmTimeStamp end;

  // From the earliest to the latest stamp there is.
  static CmTimeSpan AllTime();
  bool IsValid() const { return !(end < start); }
  bool operator==(const CmTimeSpan& other) const = default;
};

// Says which mask definition holds at a time.
class ImMaskRepository {
public:
  virtual ~ImMaskRepository() = default;
  virtual bool IsEmpty() const = 0;
  virtual void Add(const ImMaskDefinition& definition, const CmTimeSpan& timeSpan) = 0;
  virtual void Remove(const CmTimeSpan& timeSpan) = 0;
  virtual void Clear() = 0;
  // Brings mask and validSpan to what holds at time; true when either changed.
  // With useEmptyDefault an empty definition valid for all time stands in
  // where the repository has nothing, otherwise mask becomes null.
  virtual bool GetMaskAt(const NmTimeStamp::CmTimeStamp& time, bool useEmptyDefault,
                         std::unique_ptr<ImMaskDefinition>& mask, CmTimeSpan& validSpan) const = 0;
  virtual std::unique_ptr<ImMaskRepository> Clone() const = 0;
};

class CmMaskRepositoryBase : public ImMaskRepository {
public:
  bool IsEmpty() const override { return IsEmptyImpl(); }
  void Add(const ImMaskDefinition& definition, const CmTimeSpan& timeSpan) override;
  void Remove(const CmTimeSpan& timeSpan) override;
  void Clear() override;
  bool GetMaskAt(const NmTimeStamp::CmTimeStamp& time, bool useEmptyDefault,
                 std::unique_ptr<ImMaskDefinition>& mask, CmTimeSpan& validSpan) const override;
  std::unique_ptr<ImMaskRepository> Clone() const override { return CloneImpl(); }

protected:
  virtual bool IsEmptyImpl() const = 0;
  virtual void AddImpl(const ImMaskDefinition& definition, const CmTimeSpan& timeSpan) = 0;
  virtual void RemoveImpl(const CmTimeSpan& timeSpan) = 0;
  // False when the repository has nothing for time.
  virtual bool GetMaskAtImpl(const NmTimeStamp::CmTimeStamp& time,
                             std::unique_ptr<ImMaskDefinition>& mask, CmTimeSpan& validSpan,
                             bool& changed) const = 0;
  virtual std::unique_ptr<ImMaskRepository> CloneImpl() const = 0;
};

// One definition for all time: the last one added.
class CmSingularMaskRepository : public CmMaskRepositoryBase {
public:
  CmSingularMaskRepository() = default;
  CmSingularMaskRepository(const CmSingularMaskRepository& other);
  CmSingularMaskRepository& operator=(const CmSingularMaskRepository&) = delete;

protected:
  bool IsEmptyImpl() const override { return m_Definition == nullptr; }
  void AddImpl(const ImMaskDefinition& definition, const CmTimeSpan& timeSpan) override;
  void RemoveImpl(const CmTimeSpan& timeSpan) override;
  bool GetMaskAtImpl(const NmTimeStamp::CmTimeStamp& time, std::unique_ptr<ImMaskDefinition>& mask,
                     CmTimeSpan& validSpan, bool& changed) const override;
  std::unique_ptr<ImMaskRepository> CloneImpl() const override {
    return std::make_unique<CmSingularMaskRepository>(*this);
  }

private:
  std::unique_ptr<ImMaskDefinition> m_Definition;
};

// Reads the text form "<columns>x<rows>;<row>;<row>..." of a grid. On any
// fault the result is false with columns and rows 0 and the grid empty; it
// never throws for bad text.
bool ParseMaskGrid(std::string_view text, uint64_t& columns, uint64_t& rows,
                   std::vector<uint8_t>& grid);

// A repository that holds the text's grid for all time, or null when the text
// is not a mask.
std::unique_ptr<ImMaskRepository> ParseMaskString(std::string_view text);

} // namespace NmMediaProcessing
