#include "MediaProcessing/Image/MaskRepository.h"

#include "Common/Error/Error.h"
#include "Common/Error/Precondition.h"

namespace NmMediaProcessing {

using NmError::CmIntegrityError;
using NmError::CmIntegrityErrorCode;
using NmTimeStamp::CmTimeStamp;

CmTimeSpan CmTimeSpan::AllTime() {
  return CmTimeSpan{CmTimeStamp(CmTimeStamp::Earliest), CmTimeStamp(CmTimeStamp::Latest)};
}

void CmMaskRepositoryBase::Add(const ImMaskDefinition& definition, const CmTimeSpan& timeSpan) {
  VZK_REQUIRE(timeSpan.IsValid(), "Invalid time span given (end before start)",
              CmIntegrityErrorCode::OutOfRange);
  AddImpl(definition, timeSpan);
}

void CmMaskRepositoryBase::Remove(const CmTimeSpan& timeSpan) {
  VZK_REQUIRE(timeSpan.IsValid(), "Invalid time span given (end before start)",
              CmIntegrityErrorCode::OutOfRange);
  if (!IsEmpty()) {
    RemoveImpl(timeSpan);
  }
}

void CmMaskRepositoryBase::Clear() {
  if (!IsEmpty()) {
    RemoveImpl(CmTimeSpan::AllTime());
  }
}

bool CmMaskRepositoryBase::GetMaskAt(const CmTimeStamp& time, bool useEmptyDefault,
                                     std::unique_ptr<ImMaskDefinition>& mask,
                                     CmTimeSpan& validSpan) const {
  bool changed = false;
  if (!IsEmpty() && GetMaskAtImpl(time, mask, validSpan, changed)) {
    return changed;
  }
  if (!useEmptyDefault) {
    const CmTimeSpan instant{time, time};
    if (mask == nullptr && validSpan == instant) {
      return false;
    }
    mask.reset();
    validSpan = instant;
    return true;
  }
  const CmTimeSpan always = CmTimeSpan::AllTime();
  if (mask != nullptr && mask->IsEmpty() && validSpan == always) {
    return false;
  }
  mask = std::make_unique<CmAllEmptyMaskDefinition>();
  validSpan = always;
  return true;
}

CmSingularMaskRepository::CmSingularMaskRepository(const CmSingularMaskRepository& other)
    : CmMaskRepositoryBase(other),
      m_Definition(other.m_Definition ? other.m_Definition->Clone() : nullptr) {}

void CmSingularMaskRepository::AddImpl(const ImMaskDefinition& definition, const CmTimeSpan&) {
  m_Definition = definition.Clone();
}

void CmSingularMaskRepository::RemoveImpl(const CmTimeSpan&) {
  m_Definition.reset();
}

bool CmSingularMaskRepository::GetMaskAtImpl(const CmTimeStamp&,
                                             std::unique_ptr<ImMaskDefinition>& mask,
                                             CmTimeSpan& validSpan, bool& changed) const {
  if (mask == nullptr || !mask->IsEqual(*m_Definition)) {
    mask = m_Definition->Clone();
    changed = true;
  }
  const CmTimeSpan always = CmTimeSpan::AllTime();
  if (!(validSpan == always)) {
    validSpan = always;
    changed = true;
  }
  return true;
}

namespace {

// One to four decimal digits; a leading 0 is the whole number. Returns the
// position after the number, or npos when there is none.
size_t ParseDimension(std::string_view text, size_t position, uint64_t& value) {
  value = 0;
  if (position >= text.size() || text[position] < '0' || text[position] > '9') {
    return std::string_view::npos;
  }
  if (text[position] == '0') {
    return position + 1;
  }
  size_t digits = 0;
  while (digits < 4 && position < text.size() && text[position] >= '0' && text[position] <= '9') {
    value = value * 10 + static_cast<uint64_t>(text[position] - '0');
    ++position;
    ++digits;
  }
  return position;
}

bool ParseGrid(std::string_view text, uint64_t& columns, uint64_t& rows,
               std::vector<uint8_t>& grid) {
  size_t position = ParseDimension(text, 0, columns);
  if (position == std::string_view::npos || position >= text.size() || text[position] != 'x') {
    return false;
  }
  position = ParseDimension(text, position + 1, rows);
  if (position == std::string_view::npos) {
    return false;
  }
  if (position < text.size() && text[position] != ';') {
    return false;
  }
  if (columns == 0) {
    return rows == 0 && position == text.size();
  }
  if (rows == 0 || text.size() - position != (columns + 1) * rows) {
    return false;
  }
  grid.resize(columns * rows);
  for (uint64_t r = 0; r < rows; ++r) {
    if (text[position++] != ';') {
      return false;
    }
    for (uint64_t c = 0; c < columns; ++c) {
      const char cell = text[position++];
      if (cell != '0' && cell != '1') {
        return false;
      }
      grid[r * columns + c] = cell == '1' ? 1 : 0;
    }
  }
  return true;
}

} // namespace

bool ParseMaskGrid(std::string_view text, uint64_t& columns, uint64_t& rows,
                   std::vector<uint8_t>& grid) {
  grid.clear();
  if (ParseGrid(text, columns, rows, grid)) {
    return true;
  }
  columns = 0;
  rows = 0;
  grid.clear();
  return false;
}

std::unique_ptr<ImMaskRepository> ParseMaskString(std::string_view text) {
  uint64_t columns = 0;
  uint64_t rows = 0;
  std::vector<uint8_t> grid;
  if (!ParseMaskGrid(text, columns, rows, grid)) {
    return nullptr;
  }
  auto repository = std::make_unique<CmSingularMaskRepository>();
  repository->Add(CmGridBasedMaskDefinition(columns, rows, std::move(grid)), CmTimeSpan::AllTime());
  return repository;
}

} // namespace NmMediaProcessing
