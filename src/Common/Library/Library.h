#pragma once

#include <string>

#include "Common/Error/Error.h"
#include "Common/File/File.h"

namespace NmLibrary {

struct CmLibraryErrorTag;
using CmLibraryError = NmError::CmCodedError<CmLibraryErrorTag>;

struct CmLibraryErrorCode {
  enum Code : uint32_t { LoadFailed = 1, UnloadFailed = 2 };
};

// The loader beneath CmLibrary. Failures throw CmSystemError with the
// loader's own text.
class CmLibraryOS {
public:
  static void* Open(const std::string& path, const std::string& location);
  static void Close(void* handle, const std::string& location);
  static void* Symbol(void* handle, const std::string& name);
};

// A loaded shared library; unloads at destruction.
class CmLibrary {
public:
  CmLibrary() = default;
  ~CmLibrary();
  CmLibrary(const CmLibrary&) = delete;
  CmLibrary& operator=(const CmLibrary&) = delete;

  // Frees any module loaded before, then loads the file.
  void Load(const NmFile::CmFile& file);
  void Unload();
  bool IsLoaded() const { return m_Handle != nullptr; }
  // Null if nothing is loaded or the name is absent.
  void* GetSymbol(const std::string& name) const;
  const std::string& GetPath() const { return m_Path; }

private:
  std::string m_Path;
  void* m_Handle = nullptr;
};

} // namespace NmLibrary
