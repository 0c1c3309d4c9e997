#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

namespace NmVzkTool {

// A file written from the start, closed when the object goes. Every failure
// to write throws CmRunError naming the file and the reason.
class CmOutputFile {
public:
  CmOutputFile() = default;
  explicit CmOutputFile(const std::string& path) { Open(path); }
  ~CmOutputFile();
  CmOutputFile(const CmOutputFile&) = delete;
  CmOutputFile& operator=(const CmOutputFile&) = delete;

  void Open(const std::string& path);
  bool IsOpen() const { return m_File != nullptr; }
  void Write(const void* data, size_t size);
  void Write(const std::string& text) { Write(text.data(), text.size()); }
  // Overwrites bytes already written, then goes back to the end.
  void WriteAt(uint64_t offset, const void* data, size_t size);
  uint64_t GetSize() const { return m_Size; }
  const std::string& GetPath() const { return m_Path; }
  // Flushes and closes; throws if what was buffered cannot be written.
  void Close();

private:
  std::FILE* m_File = nullptr;
  std::string m_Path;
  uint64_t m_Size = 0;
};

// Writes a whole file at once.
void WriteWholeFile(const std::string& path, const void* data, size_t size);

} // namespace NmVzkTool
