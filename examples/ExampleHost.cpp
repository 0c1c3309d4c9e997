// Loads the toolkit plug-in, builds a tree from an XML file, and prints every
// item it pulls: first in playback from the first to the last item, then in
// live mode until the source has nothing more.
//
//   vzk_example_host <configuration.xml> [plugin.so]

#include <dlfcn.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>

#include "vzk/vzk.h"

using namespace NmToolkit;

namespace {

std::string ProgramDirectory() {
  char path[PATH_MAX];
  const ssize_t length = readlink("/proc/self/exe", path, sizeof path - 1);
  if (length <= 0) {
    return ".";
  }
  const std::string text(path, static_cast<size_t>(length));
  return text.substr(0, text.rfind('/'));
}

std::string DescribeProperty(const ImProperty* property) {
  if (const auto* text = dynamic_cast<const ImStringProperty*>(property)) {
    return "\"" + text->GetValue() + "\"";
  }
  if (const auto* flag = dynamic_cast<const ImBooleanProperty*>(property)) {
    return flag->GetValue() ? "true" : "false";
  }
  if (const auto* time = dynamic_cast<const ImUTCTimeProperty*>(property)) {
    return std::to_string(time->GetValue()) + " ms";
  }
  return "(opaque)";
}

void PrintItem(const char* mode, int index, const ImData& item,
               const CmPropertyNameSet& properties) {
  std::cout << mode << " #" << index << ": " << item.GetBeginTime() << " .. " << item.GetEndTime()
            << " ms, " << item.GetDataSize() << " bytes";
  if (const auto* image = dynamic_cast<const ImImage*>(&item)) {
    std::cout << ", image " << image->GetWidth() << "x" << image->GetHeight() << " format "
              << image->GetColorFormat();
  } else if (dynamic_cast<const ImOutOfBandData*>(&item)) {
    std::cout << ", out of band";
  }
  for (const std::string& name : properties) {
    if (const ImProperty* property = item.GetProperty(name)) {
      std::cout << ", " << name << "=" << DescribeProperty(property);
    }
  }
  std::cout << "\n";
}

int Run(const std::string& configurationPath, const std::string& pluginPath) {
  std::ifstream file(configurationPath);
  if (!file) {
    std::cerr << "cannot read " << configurationPath << "\n";
    return 2;
  }
  std::stringstream text;
  text << file.rdbuf();

  void* library = dlopen(pluginPath.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) {
    std::cerr << "cannot load " << pluginPath << ": " << dlerror() << "\n";
    return 2;
  }
  auto create = reinterpret_cast<VzkCreateInstanceFunction>(dlsym(library, "CreateInstance"));
  auto destroy = reinterpret_cast<VzkDeleteInstanceFunction>(dlsym(library, "DeleteInstance"));
  if (create == nullptr || destroy == nullptr) {
    std::cerr << pluginPath << " is no toolkit plug-in\n";
    dlclose(library);
    return 2;
  }

  int result = 0;
  {
    auto deleter = [destroy](ImToolkit* toolkit) { destroy(toolkit); };
    std::unique_ptr<ImToolkit, decltype(deleter)> root(create(text.str().c_str()), deleter);
    auto* playback = dynamic_cast<ImPlaybackSourceToolkit*>(root.get());
    auto* live = dynamic_cast<ImLiveSourceToolkit*>(root.get());
    try {
      if (playback == nullptr || live == nullptr) {
        throw std::runtime_error("the plug-in returned no source toolkit");
      }
      const CmPropertyNameSet requested = {
          NmPropertyNames::SequenceNumber, NmPropertyNames::PrivacyMask,
          NmPropertyNames::HasMotion,      NmPropertyNames::NextBeginTime,
          NmPropertyNames::PrevBeginTime,  NmPropertyNames::Transcoded};
      CmPropertyNameSet supported;
      playback->Connect(requested, supported, 0);
      std::cout << "connected; properties:";
      for (const std::string& name : supported) {
        std::cout << " " << name;
      }
      std::cout << "\n";

      int index = 0;
      for (uint32_t status = playback->MoveFirst(); status == StatusSuccess;
           status = playback->MoveNext()) {
        ImData* raw = nullptr;
        if (playback->GetData(&raw) == StatusSuccess && raw != nullptr) {
          std::unique_ptr<ImData> item(raw);
          PrintItem("playback", index, *item, supported);
        }
        ++index;
      }

      live->StartLiveStream();
      index = 0;
      ImData* raw = nullptr;
      while (live->GetLiveData(&raw, 100) == StatusSuccess) {
        std::unique_ptr<ImData> item(raw);
        if (item) {
          PrintItem("live", index, *item, supported);
        }
        ++index;
      }
      live->StopLiveStream();
      playback->Disconnect();
    } catch (const ImToolkitError& error) {
      std::cerr << error.GetErrorName() << " (" << error.GetErrorCode() << "): " << error.what()
                << "\n";
      result = 1;
    } catch (const std::exception& error) {
      std::cerr << "error: " << error.what() << "\n";
      result = 1;
    }
  }
  dlclose(library);
  return result;
}

} // namespace

int main(int argc, char** argv) {
  if (argc < 2 || argc > 3) {
    std::cerr << "usage: " << argv[0] << " <configuration.xml> [ToolkitSourcePlugin_vzk.so]\n";
    return 2;
  }
  const std::string plugin =
      argc == 3 ? argv[2] : ProgramDirectory() + "/ToolkitSourcePlugin_vzk.so";
  return Run(argv[1], plugin);
}
