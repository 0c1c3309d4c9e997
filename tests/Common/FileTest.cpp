#include <set>

#include <gtest/gtest.h>

#include "Common/File/File.h"
#include "Common/GUID/GUID.h"

using NmFile::CmFile;

TEST(File, Joining) {
  EXPECT_EQ(CmFile("", "name.so").GetPath(), "name.so");
  EXPECT_EQ(CmFile("/dir", "").GetPath(), "/dir");
  EXPECT_EQ(CmFile("", "").GetPath(), "");
  EXPECT_EQ(CmFile("/dir", "name.so").GetPath(), "/dir/name.so");
  // A directory that already ends in a separator gets no second one.
  EXPECT_EQ(CmFile("/dir/", "name.so").GetPath(), "/dir/name.so");
  EXPECT_EQ(CmFile("C:\\dir\\", "name.so").GetPath(), "C:\\dir\\name.so");
}

TEST(File, Parts) {
  const CmFile file("/opt/vzk/lib/ToolkitSourcePlugin_vzk.so");
  EXPECT_EQ(file.GetDirectory(), "/opt/vzk/lib");
  EXPECT_EQ(file.GetName(), "ToolkitSourcePlugin_vzk.so");
  EXPECT_EQ(file.GetExtension(), "so");

  // Whichever separator comes last counts.
  EXPECT_EQ(CmFile("a\\b/c\\d.txt").GetDirectory(), "a\\b/c");
  EXPECT_EQ(CmFile("a\\b/c\\d.txt").GetName(), "d.txt");
  EXPECT_EQ(CmFile("a/b\\c/d.txt").GetDirectory(), "a/b\\c");

  // A separator at the very start stays with the directory.
  EXPECT_EQ(CmFile("/x").GetDirectory(), "/");
  EXPECT_EQ(CmFile("\\x").GetDirectory(), "\\");
  EXPECT_EQ(CmFile("/x").GetName(), "x");
  EXPECT_EQ(CmFile("/").GetDirectory(), "/");
  EXPECT_EQ(CmFile("/").GetName(), "");

  // No separator: no directory, all name.
  EXPECT_EQ(CmFile("plain.tar.gz").GetDirectory(), "");
  EXPECT_EQ(CmFile("plain.tar.gz").GetName(), "plain.tar.gz");
  EXPECT_EQ(CmFile("plain.tar.gz").GetExtension(), "gz");
  EXPECT_EQ(CmFile("noext").GetExtension(), "");
  EXPECT_EQ(CmFile("trailing.").GetExtension(), "");
  EXPECT_EQ(CmFile("dir/").GetName(), "");
  EXPECT_EQ(CmFile("dir/").GetDirectory(), "dir");
  EXPECT_EQ(CmFile().GetPath(), "");
  EXPECT_EQ(CmFile().GetDirectory(), "");
}

TEST(File, Exists) {
  EXPECT_TRUE(CmFile("/").Exists());
  EXPECT_FALSE(CmFile("/nonexistent/vzk/none").Exists());
}

TEST(GUID, TextFormAndGeneration) {
  NmGUID::CmGUID zero;
  EXPECT_EQ(zero.ToString(), "00000000-0000-0000-0000-000000000000");

  std::set<std::string> seen;
  for (int i = 0; i < 100; ++i) {
    NmGUID::CmGUID guid;
    guid.GenerateNew();
    const std::string text = guid.ToString();
    ASSERT_EQ(text.size(), 36u);
    for (size_t p = 0; p < text.size(); ++p) {
      if (p == 8 || p == 13 || p == 18 || p == 23) {
        EXPECT_EQ(text[p], '-') << text;
      } else {
        EXPECT_TRUE((text[p] >= '0' && text[p] <= '9') || (text[p] >= 'A' && text[p] <= 'F'))
            << text;
      }
    }
    // Version 4, RFC 4122 variant.
    EXPECT_EQ(text[14], '4') << text;
    EXPECT_NE(std::string("89AB").find(text[19]), std::string::npos) << text;
    // The text follows the bytes in order.
    const auto& bytes = guid.GetBytes();
    char first[3];
    snprintf(first, sizeof first, "%02X", bytes[0]);
    EXPECT_EQ(text.substr(0, 2), first);
    char last[3];
    snprintf(last, sizeof last, "%02X", bytes[15]);
    EXPECT_EQ(text.substr(34, 2), last);
    EXPECT_NE(guid, zero);
    seen.insert(text);
  }
  EXPECT_EQ(seen.size(), 100u);
}
