#include "PluginHost.h"

#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <fstream>
#include <sstream>

using namespace NmToolkit;

namespace NmVzkTool {

std::string ProgramDirectory() {
  char path[PATH_MAX];
  const ssize_t length = readlink("/proc/self/exe", path, sizeof path - 1);
  if (length <= 0) {
    return ".";
  }
  const std::string text(path, static_cast<size_t>(length));
  return text.substr(0, text.rfind('/'));
}

std::string DefaultPluginPath() {
  return ProgramDirectory() + "/ToolkitSourcePlugin_vzk.so";
}

CmPluginLibrary::CmPluginLibrary(const std::string& path) : m_Path(path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) {
    throw CmRunError("The toolkit plug-in " + path + " cannot be found: " + std::strerror(errno) +
                     ".");
  }
  // dlopen looks a plain name up in the library path; a path with a slash is
  // taken as it stands, which is what the user means.
  const std::string loadPath = path.find('/') == std::string::npos ? "./" + path : path;
  m_Handle = dlopen(loadPath.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (m_Handle == nullptr) {
    const char* reason = dlerror();
    throw CmRunError("The toolkit plug-in " + path +
                     " cannot be loaded: " + (reason ? reason : "no reason given") + ".");
  }
  m_Create = reinterpret_cast<VzkCreateInstanceFunction>(dlsym(m_Handle, "CreateInstance"));
  m_Delete = reinterpret_cast<VzkDeleteInstanceFunction>(dlsym(m_Handle, "DeleteInstance"));
  if (m_Create == nullptr || m_Delete == nullptr) {
    dlclose(m_Handle);
    throw CmRunError("The library " + path +
                     " is no toolkit plug-in: it lacks CreateInstance or DeleteInstance.");
  }
}

CmPluginLibrary::~CmPluginLibrary() {
  dlclose(m_Handle);
}

CmToolkitTree::CmToolkitTree(const CmPluginLibrary& library, const std::string& xml)
    : m_Delete(library.GetDelete()) {
  m_Root = library.GetCreate()(xml.c_str());
  if (m_Root == nullptr) {
    throw CmRunError("The toolkit plug-in " + library.GetPath() +
                     " could not create a toolkit (out of memory?).");
  }
  m_Playback = dynamic_cast<ImPlaybackSourceToolkit*>(m_Root);
  m_Live = dynamic_cast<ImLiveSourceToolkit*>(m_Root);
}

CmToolkitTree::~CmToolkitTree() {
  DisconnectQuietly();
  m_Delete(m_Root);
}

ImPlaybackSourceToolkit& CmToolkitTree::Playback() {
  if (m_Playback == nullptr) {
    throw CmRunError("The root toolkit cannot play back: it is no playback source.");
  }
  return *m_Playback;
}

ImLiveSourceToolkit& CmToolkitTree::Live() {
  if (m_Live == nullptr) {
    throw CmRunError("The root toolkit cannot run live: it is no live source.");
  }
  return *m_Live;
}

void CmToolkitTree::DisconnectQuietly() noexcept {
  if (!m_Connected) {
    return;
  }
  m_Connected = false;
  try {
    if (m_Playback != nullptr) {
      m_Playback->Disconnect();
    } else if (m_Live != nullptr) {
      m_Live->Disconnect();
    }
  } catch (...) {
  }
}

std::string DescribeToolkitError(const ImToolkitError& error) {
  std::string text = error.GetDescription() + " (" + error.GetErrorName() + " " +
                     std::to_string(error.GetErrorCode()) + ")";
  int depth = 0;
  for (const ImToolkitError* inner = error.GetInnerError(); inner != nullptr && depth < 16;
       inner = inner->GetInnerError(), ++depth) {
    text += "; because: " + inner->GetDescription() + " (" + inner->GetErrorName() + " " +
            std::to_string(inner->GetErrorCode()) + ")";
  }
  return text;
}

std::string ReadTextFile(const std::string& path, const std::string& what) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) {
    throw CmRunError("The " + what + " " + path + " cannot be read: " + std::strerror(errno) + ".");
  }
  if (S_ISDIR(status.st_mode)) {
    throw CmRunError("The " + what + " " + path + " is a directory, not a file.");
  }
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    throw CmRunError("The " + what + " " + path + " cannot be read: " + std::strerror(errno) + ".");
  }
  std::stringstream text;
  text << file.rdbuf();
  return text.str();
}

int RunTellingFailures(std::ostream& err, const std::function<int()>& command) {
  try {
    return command();
  } catch (const CmRunError& error) {
    err << "vzk: " << error.what() << "\n";
    return 1;
  } catch (const NmToolkit::ImToolkitError& error) {
    err << "vzk: The toolkit failed: " << DescribeToolkitError(error) << ".\n";
    return 1;
  }
}

} // namespace NmVzkTool
