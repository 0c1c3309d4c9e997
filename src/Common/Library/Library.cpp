#include "Common/Library/Library.h"

namespace NmLibrary {

CmLibrary::~CmLibrary() {
  // A throw here would end the process during library unload; the module is
  // gone from our view either way.
  try {
    Unload();
  } catch (const NmError::CmError&) {
  }
}

void CmLibrary::Load(const NmFile::CmFile& file) {
  Unload();
  m_Path = file.GetPath();
  try {
    m_Handle = CmLibraryOS::Open(m_Path, VZK_LOCATION);
  } catch (const NmError::CmSystemError& inner) {
    throw CmLibraryError(VZK_LOCATION, "Error loading library '" + m_Path + "'!",
                         CmLibraryErrorCode::LoadFailed, inner);
  }
}

void CmLibrary::Unload() {
  if (m_Handle == nullptr) {
    return;
  }
  void* handle = m_Handle;
  m_Handle = nullptr;
  try {
    CmLibraryOS::Close(handle, VZK_LOCATION);
  } catch (const NmError::CmSystemError& inner) {
    throw CmLibraryError(VZK_LOCATION, "Error unloading library '" + m_Path + "'!",
                         CmLibraryErrorCode::UnloadFailed, inner);
  }
}

void* CmLibrary::GetSymbol(const std::string& name) const {
  return m_Handle == nullptr ? nullptr : CmLibraryOS::Symbol(m_Handle, name);
}

} // namespace NmLibrary
