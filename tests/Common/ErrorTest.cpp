#include <cerrno>
#include <cstring>
#include <iostream>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "Common/Error/Error.h"
#include "Common/Error/Precondition.h"
#include "Common/Library/Library.h"
#include "Common/TimeStamp/TimeStamp.h"
#include "support/CaughtError.h"

using NmError::CmError;
using NmTestSupport::Caught;

namespace NmErrorTest {

struct CmThrower {
  static void Throw(int& line) {
    line = __LINE__ + 1;
    throw CmError(VZK_LOCATION, "thrown");
  }
};

// Captures what an error prints on std::cerr.
std::string Printed(const CmError& error) {
  std::ostringstream capture;
  std::streambuf* previous = std::cerr.rdbuf(capture.rdbuf());
  error.Print();
  std::cerr.rdbuf(previous);
  return capture.str();
}

struct CmVideoCodes {
  enum Code : uint32_t { Broken = 7 };
};
using CmVideoError = NmError::CmGenericError<CmVideoCodes>;
using CmStackedError = NmError::CmGenericErrorWithBaseErrorCode<CmVideoCodes, CmError, 2>;
struct CmTestTag;
using CmTestCodedError = NmError::CmCodedError<CmTestTag>;

} // namespace NmErrorTest

using namespace NmErrorTest;

TEST(ErrorLocation, ThrowSitesPreconditionsQualifiedNamesAndFiles) {
  // Thrown in the test body itself, not in a lambda, whose name differs
  // between compilers.
  const int line = __LINE__ + 3;
  std::string location;
  try {
    throw CmError(VZK_LOCATION, "x");
  } catch (const CmError& e) {
    location = e.GetLocation();
  }
  EXPECT_EQ(location, "ErrorLocation_ThrowSitesPreconditionsQualifiedNamesAndFiles_Test::TestBody "
                      "(line ErrorTest.cpp, " +
                          std::to_string(line) + ")");

  // A static member of a class in a namespace.
  int thrownAt = 0;
  auto error = Caught<CmError>([&] { CmThrower::Throw(thrownAt); });
  EXPECT_EQ(error->GetLocation(),
            "NmErrorTest::CmThrower::Throw (line ErrorTest.cpp, " + std::to_string(thrownAt) + ")");

  // A throw inside a component, and the system error that it wraps.
  const auto load = Caught<NmLibrary::CmLibraryError>(
      [] { NmLibrary::CmLibrary().Load(NmFile::CmFile("/nonexistent/vzk-none.so")); });
  const std::string loadAt = "NmLibrary::CmLibrary::Load (line Library.cpp, ";
  EXPECT_EQ(load->GetLocation().rfind(loadAt, 0), 0u) << load->GetLocation();
  ASSERT_NE(load->GetInnerError(), nullptr);
  EXPECT_EQ(load->GetInnerError()->GetLocation().rfind(loadAt, 0), 0u);

  // Two checks in a row: the first that fails is the one thrown, with the
  // caller's location and line; a check that holds builds no message.
  int built = 0;
  const auto message = [&built](const char* text) {
    ++built;
    return std::string(text);
  };
  const int checkLine = __LINE__ + 2;
  const auto check = [&](int value) {
    VZK_REQUIRE(value >= 0, message("negative"), NmError::CmIntegrityErrorCode::OutOfRange);
    VZK_REQUIRE_AS(CmStackedError, value != 7, message("seven"), CmVideoCodes::Broken, 3);
  };
  EXPECT_NO_THROW(check(3));
  EXPECT_EQ(built, 0);
  const auto negative = Caught<NmError::CmIntegrityError>([&] { check(-7); });
  EXPECT_STREQ(negative->what(), "negative");
  EXPECT_EQ(negative->GetErrorCode(), 3u);
  EXPECT_NE(negative->GetLocation().find("(line ErrorTest.cpp, " + std::to_string(checkLine) + ")"),
            std::string::npos)
      << negative->GetLocation();
  const auto seven = Caught<CmStackedError>([&] { check(7); });
  EXPECT_STREQ(seven->what(), "seven");
  EXPECT_EQ(seven->GetErrorCode(), 7u);
  EXPECT_EQ(seven->GetBaseErrorCode(), 3u);
  EXPECT_EQ(built, 2);

  const std::pair<const char*, const char*> names[] = {
      {"void NmA::CmB::F(int) const", "NmA::CmB::F"},
      {"NmA::CmB::CmB(const std::string&)", "NmA::CmB::CmB"},
      {"const char* NmA::F()", "NmA::F"},
      {"std::map<int, int> NmA::CmB<T>::F(T) [with T = int]", "NmA::CmB<T>::F"},
      {"bool NmA::CmB::operator()(int)", "NmA::CmB::operator()"},
      // Operators whose names hold brackets or blanks.
      {"bool NmA::CmB::operator<(const NmA::CmB&) const", "NmA::CmB::operator<"},
      {"bool NmA::CmB::operator>(const NmA::CmB&) const", "NmA::CmB::operator>"},
      {"std::ostream& NmA::operator<<(std::ostream&, int)", "NmA::operator<<"},
      {"T* NmA::CmP<T>::operator->() const [with T = int]", "NmA::CmP<T>::operator->"},
      // The forms of an anonymous namespace in gcc and in clang.
      {"void {anonymous}::Helper(int)", "{anonymous}::Helper"},
      {"void (anonymous namespace)::Helper(int)", "(anonymous namespace)::Helper"},
      {"", ""}};
  for (const auto& [signature, name] : names) {
    EXPECT_EQ(NmError::QualifiedFunctionName(signature), name);
  }
  EXPECT_EQ(NmError::QualifiedFunctionName(nullptr), "");

  const std::pair<const char*, const char*> files[] = {
      {"/work/src/Common/Xerces/Xerces.cpp", "Xerces.cpp"},
      {"/a/src/Common/GUID/linux/GUID-OSD.cpp", "linux/GUID-OSD.cpp"},
      {"/a/src/b/src/MediaProcessing/Image/Crop.cpp", "Crop.cpp"},
      // Relative paths, as some generators pass them.
      {"src/Common/TimeStamp/linux/TimeStamp-OSD.cpp", "linux/TimeStamp-OSD.cpp"},
      {"../src/Common/Error/Error.h", "Error.h"},
      // Outside the source tree only the file name is kept.
      {"/x/tests/Common/ErrorTest.cpp", "ErrorTest.cpp"},
      {"plain.cpp", "plain.cpp"}};
  for (const auto& [path, file] : files) {
    EXPECT_EQ(NmError::ComponentRelativeFile(path), file);
  }
  EXPECT_EQ(NmError::MakeLocation("void NmA::F()", "/r/src/Common/File/File.cpp", 12),
            "NmA::F (line File.cpp, 12)");
}

TEST(Error, TextsOfAChainAndCodes) {
  const CmError first("L1", "first");
  const CmError second("L2", "second", first);
  const CmError third("L3", "third", second);

  // what gives only the outer description, never the location.
  EXPECT_STREQ(third.what(), "third");
  std::string appended = "prefix|";
  third.GetFullText(appended);
  EXPECT_EQ(appended, "prefix|L3: third\nL2: second\nL1: first");
  EXPECT_EQ(Printed(third), "L3: third\nL2: second\nL1: first\n");

  // The wrapped error is a copy: the original may go away.
  const CmError* inner = second.GetInnerError();
  ASSERT_NE(inner, nullptr);
  EXPECT_NE(inner, &first);
  EXPECT_EQ(inner->GetFullText(), "L1: first");

  // Copies and assignment are deep.
  CmError copy = third;
  EXPECT_EQ(copy.GetFullText(), third.GetFullText());
  EXPECT_NE(copy.GetInnerError(), third.GetInnerError());
  copy = first;
  copy = copy;
  EXPECT_EQ(copy.GetFullText(), "L1: first");

  const CmError cause("L0", "cause");
  const CmVideoError video("L1", "video", CmVideoCodes::Broken, cause);
  EXPECT_EQ(Printed(video), "L1: video: error code 7\nL0: cause\n");
  EXPECT_EQ(video.GetFullText(), "L1: video\nL0: cause");

  const CmStackedError stacked("L2", "stacked", 9, 4, video);
  EXPECT_EQ(Printed(stacked),
            "L2: stacked: error code 9: base error code 4\nL1: video: error code 7\nL0: cause\n");

  const NmError::CmIntegrityError integrity("L3", "integrity",
                                            NmError::CmIntegrityErrorCode::InvalidPointer);
  EXPECT_EQ(Printed(integrity), "L3: integrity: error code 1\n");
}

TEST(Error, CloneKeepsDynamicTypeAndCodes) {
  const CmError cause("L0", "cause");
  errno = EACCES;
  const NmError::CmSystemError system("LS", "system");
  const CmTestCodedError coded("LC", "coded", 17, cause);
  const CmVideoError video("LV", "video", 7, coded);
  const CmStackedError stacked("LW", "stacked", 9, 4, video);
  const NmError::CmIntegrityError integrity("LI", "integrity", 5);
  const NmTimeStamp::CmTimeError time("LT", "time", 11, system);

  const CmError* originals[] = {&cause, &system, &coded, &video, &stacked, &integrity, &time};
  for (const CmError* original : originals) {
    std::unique_ptr<CmError> clone(original->Clone());
    EXPECT_EQ(typeid(*clone), typeid(*original));
    EXPECT_EQ(clone->GetFullText(), original->GetFullText());
    EXPECT_EQ(Printed(*clone), Printed(*original));
  }

  // The inner chain keeps its types and codes too.
  std::unique_ptr<CmError> stackedClone(static_cast<const CmError&>(stacked).Clone());
  const auto& asStacked = dynamic_cast<const CmStackedError&>(*stackedClone);
  const auto& innerVideo = dynamic_cast<const CmVideoError&>(*asStacked.GetInnerError());
  const auto& innerCoded = dynamic_cast<const CmTestCodedError&>(*innerVideo.GetInnerError());
  EXPECT_EQ(std::vector<uint32_t>({asStacked.GetErrorCode(), asStacked.GetBaseErrorCode(),
                                   innerVideo.GetErrorCode(), innerCoded.GetCode()}),
            std::vector<uint32_t>({9, 4, 7, 17}));

  std::unique_ptr<CmError> systemClone(static_cast<const CmError&>(system).Clone());
  EXPECT_EQ(dynamic_cast<NmError::CmSystemError&>(*systemClone).GetSystemErrorNumber(), EACCES);
  std::unique_ptr<CmError> timeClone(static_cast<const CmError&>(time).Clone());
  EXPECT_EQ(dynamic_cast<NmTimeStamp::CmTimeError&>(*timeClone).GetCode(), 11u);
  // A catch of one coded family never catches another.
  EXPECT_EQ(dynamic_cast<const CmTestCodedError*>(timeClone.get()), nullptr);
}

TEST(SystemError, AppendsTheSystemTextOfErrno) {
  errno = ENOENT;
  const NmError::CmSystemError known("L", "Opening failed!");
  EXPECT_EQ(known.GetSystemErrorNumber(), ENOENT);
  EXPECT_EQ(known.GetDescription(), std::string("Opening failed! : ") + std::strerror(ENOENT));
  // Reading the text leaves the caller's errno alone.
  EXPECT_EQ(errno, ENOENT);

  errno = 123456;
  EXPECT_EQ(NmError::CmSystemError("L", "Opening failed!").GetDescription(),
            "Opening failed! : Further error description unavaliable!");

  const NmError::CmSystemError loader("L", "LoadLibrary failed!", 0, "cannot open it");
  EXPECT_EQ(loader.GetDescription(), "LoadLibrary failed! : cannot open it");
  const NmError::CmSystemError noText("L", "FreeLibrary failed!", 0, nullptr);
  EXPECT_EQ(noText.GetDescription(),
            "FreeLibrary failed! : Further error description unavaliable!");
  const NmError::CmSystemError byNumber("L", "x", EPERM, "");
  EXPECT_EQ(byNumber.GetDescription(), std::string("x : ") + std::strerror(EPERM));
}
