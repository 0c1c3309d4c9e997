#pragma once

#include <functional>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <string>

#include "vzk/vzk.h"

namespace NmVzkTool {

// A failure of the run that ends it with status 1. The text is a sentence.
class CmRunError : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

// An item that cannot be written: the run counts it as an error and goes on.
class CmItemError : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

// The directory that holds the running vzk executable.
std::string ProgramDirectory();

// The toolkit plug-in beside vzk, unless `path` names another.
std::string DefaultPluginPath();

// A toolkit plug-in library, loaded for the lifetime of the object.
class CmPluginLibrary {
public:
  // Throws CmRunError when the file cannot be loaded or lacks the two entries.
  explicit CmPluginLibrary(const std::string& path);
  ~CmPluginLibrary();
  CmPluginLibrary(const CmPluginLibrary&) = delete;
  CmPluginLibrary& operator=(const CmPluginLibrary&) = delete;

  VzkCreateInstanceFunction GetCreate() const { return m_Create; }
  VzkDeleteInstanceFunction GetDelete() const { return m_Delete; }
  const std::string& GetPath() const { return m_Path; }

private:
  std::string m_Path;
  void* m_Handle = nullptr;
  VzkCreateInstanceFunction m_Create = nullptr;
  VzkDeleteInstanceFunction m_Delete = nullptr;
};

// The root toolkit of one tree; handed back to its library when destroyed.
// The library must outlive it.
class CmToolkitTree {
public:
  CmToolkitTree(const CmPluginLibrary& library, const std::string& xml);
  ~CmToolkitTree();
  CmToolkitTree(const CmToolkitTree&) = delete;
  CmToolkitTree& operator=(const CmToolkitTree&) = delete;

  NmToolkit::ImPlaybackSourceToolkit& Playback();
  NmToolkit::ImLiveSourceToolkit& Live();
  // Disconnects if connected; errors on the way out are dropped, since the
  // run's own outcome is what the user needs to hear about.
  void DisconnectQuietly() noexcept;
  void MarkConnected() { m_Connected = true; }

private:
  NmToolkit::ImToolkit* m_Root = nullptr;
  VzkDeleteInstanceFunction m_Delete = nullptr;
  NmToolkit::ImPlaybackSourceToolkit* m_Playback = nullptr;
  NmToolkit::ImLiveSourceToolkit* m_Live = nullptr;
  bool m_Connected = false;
};

// A toolkit error as the user reads it: the toolkit's message, its class and
// code, and what it wraps.
std::string DescribeToolkitError(const NmToolkit::ImToolkitError& error);

// Runs a command that works on a toolkit tree and answers its exit status. A
// failure of the run or of a toolkit ends it with 1, said on `err`.
int RunTellingFailures(std::ostream& err, const std::function<int()>& command);

// Reads a whole file; throws CmRunError with the reason when it cannot.
std::string ReadTextFile(const std::string& path, const std::string& what);

} // namespace NmVzkTool
