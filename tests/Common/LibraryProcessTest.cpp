#include <dlfcn.h>
#include <unistd.h>

#include <climits>
#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "Common/Library/Library.h"
#include "Common/Process/Process.h"
#include "support/CaughtError.h"

using NmLibrary::CmLibrary;
using NmLibrary::CmLibraryError;

namespace {

const std::string ModulePath = VZK_COMMON_TEST_MODULE;

// Whether the loader still holds the module; asks without loading it.
bool IsResident(const std::string& path) {
  void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_NOLOAD);
  if (handle != nullptr) {
    dlclose(handle);
    return true;
  }
  return false;
}

std::string RealPath(const std::string& path) {
  char resolved[PATH_MAX];
  return realpath(path.c_str(), resolved) ? resolved : path;
}

} // namespace

TEST(Library, LoadFailureNamesTheLibraryAndTheLoaderText) {
  CmLibrary library;
  const std::string missing = "/nonexistent/dir/ToolkitSourcePlugin_none.so";
  auto error =
      NmTestSupport::Caught<CmLibraryError>([&] { library.Load(NmFile::CmFile(missing)); });
  EXPECT_EQ(error->GetDescription(), "Error loading library '" + missing + "'!");
  EXPECT_EQ(error->GetCode(), NmLibrary::CmLibraryErrorCode::LoadFailed);
  // The loader's own text, which names the file and the reason.
  std::string text =
      dynamic_cast<const NmError::CmSystemError&>(*error->GetInnerError()).GetDescription();
  EXPECT_EQ(text.rfind("LoadLibrary failed! : ", 0), 0u) << text;
  EXPECT_NE(text.find(missing), std::string::npos) << text;
  EXPECT_NE(text.find("No such file or directory"), std::string::npos) << text;
  EXPECT_FALSE(library.IsLoaded());

  // A file that exists but is no library.
  error = NmTestSupport::Caught<CmLibraryError>(
      [&] { library.Load(NmFile::CmFile("/proc/self/status")); });
  text = error->GetInnerError()->GetDescription();
  EXPECT_TRUE(text.find(" : ") != std::string::npos &&
              text.find("unavaliable") == std::string::npos)
      << text;
}

TEST(Library, LoadLookupUnloadAndLoadTwice) {
  ASSERT_FALSE(IsResident(ModulePath));
  {
    CmLibrary library;
    library.Unload();
    library.Load(NmFile::CmFile(ModulePath));
    EXPECT_EQ(library.GetPath(), ModulePath);
    EXPECT_TRUE(IsResident(ModulePath));
    auto answer = reinterpret_cast<int (*)()>(library.GetSymbol("VzkTestModuleAnswer"));
    ASSERT_NE(answer, nullptr);
    EXPECT_EQ(answer(), 42);
    EXPECT_EQ(library.GetSymbol("NoSuchSymbol"), nullptr);
    // Hidden symbols of the module are not found.
    EXPECT_EQ(library.GetSymbol("_ZN9NmProcess9CmProcess13CurrentModuleEv"), nullptr);

    library.Unload();
    EXPECT_FALSE(IsResident(ModulePath));
    EXPECT_EQ(library.GetSymbol("VzkTestModuleAnswer"), nullptr);

    library.Load(NmFile::CmFile(ModulePath));
    EXPECT_TRUE(IsResident(ModulePath));
  }
  // Destruction unloads.
  EXPECT_FALSE(IsResident(ModulePath));

  // A copy under another name is a module of its own for the loader.
  const std::string copy = ::testing::TempDir() + "vzk_common_test_module_copy.so";
  std::filesystem::copy_file(ModulePath, copy, std::filesystem::copy_options::overwrite_existing);
  CmLibrary library;
  library.Load(NmFile::CmFile(ModulePath));
  library.Load(NmFile::CmFile(copy));
  EXPECT_FALSE(IsResident(ModulePath));
  EXPECT_TRUE(IsResident(copy));
  EXPECT_NE(library.GetSymbol("VzkTestModuleAnswer"), nullptr);

  // A failed second load leaves nothing loaded, not the first module.
  EXPECT_THROW(library.Load(NmFile::CmFile("/nonexistent/none.so")), CmLibraryError);
  EXPECT_FALSE(library.IsLoaded());
  EXPECT_FALSE(IsResident(copy));
  std::remove(copy.c_str());
}

TEST(Process, CurrentModuleIsTheLibraryNotTheHost) {
  // Linked into the test program, the code lies in the program itself.
  char self[PATH_MAX];
  const ssize_t length = readlink("/proc/self/exe", self, sizeof self - 1);
  ASSERT_GT(length, 0);
  const NmFile::CmFile program = NmProcess::CmProcess::CurrentModule();
  EXPECT_EQ(program.GetPath(), std::string(self, static_cast<size_t>(length)));

  // Linked into a loaded module, it names the module.
  CmLibrary library;
  library.Load(NmFile::CmFile(ModulePath));
  auto modulePath =
      reinterpret_cast<bool (*)(char*, size_t)>(library.GetSymbol("VzkTestModulePath"));
  ASSERT_NE(modulePath, nullptr);
  char buffer[PATH_MAX];
  ASSERT_TRUE(modulePath(buffer, sizeof buffer));
  EXPECT_EQ(std::string(buffer), RealPath(ModulePath));
}
