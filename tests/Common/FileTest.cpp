#include <regex>
#include <set>

#include <gtest/gtest.h>

#include "Common/File/File.h"
#include "Common/GUID/GUID.h"

using NmFile::CmFile;

TEST(File, JoiningPartsAndExistence) {
  EXPECT_EQ(CmFile("", "name.so").GetPath(), "name.so");
  EXPECT_EQ(CmFile("/dir", "").GetPath(), "/dir");
  EXPECT_EQ(CmFile("/dir", "name.so").GetPath(), "/dir/name.so");
  // A directory that already ends in a separator gets no second one.
  EXPECT_EQ(CmFile("/dir/", "name.so").GetPath(), "/dir/name.so");
  EXPECT_EQ(CmFile("C:\\dir\\", "name.so").GetPath(), "C:\\dir\\name.so");

  // Path, directory, name and extension. Whichever separator comes last
  // counts; a separator at the very start stays with the directory; without
  // one there is no directory and all is name.
  const std::tuple<const char*, const char*, const char*, const char*> table[] = {
      {"/opt/vzk/lib/ToolkitSourcePlugin_vzk.so", "/opt/vzk/lib", "ToolkitSourcePlugin_vzk.so",
       "so"},
      {"a\\b/c\\d.txt", "a\\b/c", "d.txt", "txt"},
      {"/x", "/", "x", ""},
      {"\\x", "\\", "x", ""},
      {"/", "/", "", ""},
      {"plain.tar.gz", "", "plain.tar.gz", "gz"},
      {"trailing.", "", "trailing.", ""},
      {"dir/", "dir", "", ""},
      {"", "", "", ""}};
  for (const auto& [path, directory, name, extension] : table) {
    const CmFile file(path);
    EXPECT_EQ(file.GetDirectory(), directory) << path;
    EXPECT_EQ(file.GetName(), name) << path;
    EXPECT_EQ(file.GetExtension(), extension) << path;
  }
  EXPECT_TRUE(CmFile("/").Exists());
  EXPECT_FALSE(CmFile("/nonexistent/vzk/none").Exists());
}

TEST(GUID, TextFormAndGeneration) {
  NmGUID::CmGUID zero;
  EXPECT_EQ(zero.ToString(), "00000000-0000-0000-0000-000000000000");

  // Upper-case hex in 8-4-4-4-12 groups, version 4, RFC 4122 variant.
  const std::regex form("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}");
  std::set<std::string> seen;
  for (int i = 0; i < 100; ++i) {
    NmGUID::CmGUID guid;
    guid.GenerateNew();
    const std::string text = guid.ToString();
    EXPECT_TRUE(std::regex_match(text, form)) << text;
    // The text follows the bytes in order.
    char ends[5];
    snprintf(ends, sizeof ends, "%02X%02X", guid.GetBytes()[0], guid.GetBytes()[15]);
    EXPECT_EQ(text.substr(0, 2) + text.substr(34, 2), ends);
    EXPECT_NE(guid, zero);
    seen.insert(text);
  }
  EXPECT_EQ(seen.size(), 100u);
}
