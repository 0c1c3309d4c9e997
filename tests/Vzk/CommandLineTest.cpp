// The option parser, and what the program says and returns for a wrong line.

#include <gtest/gtest.h>

#include <tuple>

#include "CommandLine.h"
#include "VzkTestSupport.h"

using namespace NmVzkTool;
using NmVzkTest::RunVzk;

namespace {

// The words of a command line written as one text.
std::vector<std::string> Words(const std::string& line) {
  std::vector<std::string> words;
  for (size_t at = 0; at < line.size();) {
    const size_t end = std::min(line.find(' ', at), line.size());
    words.push_back(line.substr(at, end - at));
    at = end + 1;
  }
  return words;
}

SmRunOptions ParseRunLine(const std::string& line) {
  return std::get<SmRunOptions>(ParseCommandLine(Words(line)));
}

std::string UsageMessage(const std::string& line) {
  try {
    ParseCommandLine(Words(line));
  } catch (const CmUsageError& error) {
    return error.what();
  }
  return "(accepted)";
}

TEST(VzkCommandLine, RunTakesEveryOptionInEitherForm) {
  const SmRunOptions options = ParseRunLine(
      "run --mode playback --from=-40 --count 7 --duration 2.5 --out pictures --format=y4m "
      "--request Sequence_Number,Has_Motion Privacy_Mask tree.xml --contact-sheet sheet.png "
      "--plugin /x/p.so --quiet");
  EXPECT_EQ(
      std::tuple(options.configuration, options.mode, options.from, options.count, options.duration,
                 options.outputDirectory, options.format),
      std::tuple("tree.xml", SmRunMode::Playback, -40, 7u, 2.5, "pictures", SmPictureFormat::Y4m));
  EXPECT_EQ(options.requested,
            (std::vector<std::string>{"Sequence_Number", "Has_Motion", "Privacy_Mask"}));
  EXPECT_EQ(std::tuple(options.contactSheet, options.plugin, options.quiet),
            std::tuple("sheet.png", "/x/p.so", true));

  const SmRunOptions defaults = ParseRunLine("run tree.xml");
  EXPECT_EQ(defaults.mode, SmRunMode::Playback);
  EXPECT_FALSE(defaults.from || defaults.count || defaults.duration || defaults.outputDirectory);
  EXPECT_EQ(defaults.format, SmPictureFormat::Png);

  const SmRunOptions live = ParseRunLine("run --mode=live --out o --format jpg -- -tree.xml");
  EXPECT_EQ(std::tuple(live.configuration, live.mode, live.format, live.quality),
            std::tuple("-tree.xml", SmRunMode::Live, SmPictureFormat::Jpeg, 90u));
  EXPECT_EQ(ParseRunLine("run t.xml --out o --format jpg --quality 35").quality, 35u);
  // After "--" a name that looks like an option is a second file, which is wrong.
  EXPECT_EQ(UsageMessage("run tree.xml -- --x"),
            "vzk run takes one configuration file, but '--x' follows 'tree.xml'.");
  // The request list ends at the configuration file; a file name without a
  // dot would be taken for a name: it must come first.
  const SmRunOptions request = ParseRunLine("run --request Sequence_Number Has_Motion tree.xml");
  EXPECT_EQ(request.configuration, "tree.xml");
  EXPECT_EQ(request.requested, (std::vector<std::string>{"Sequence_Number", "Has_Motion"}));
  EXPECT_EQ(ParseRunLine("run tree --request Has_Motion").configuration, "tree");
}

TEST(VzkCommandLine, BadValuesAndMissingArgumentsAreSentences) {
  const std::pair<std::string, std::string> cases[] = {
      {"", "vzk needs a command: run, import, info or help; see vzk --help."},
      {"play", "There is no command 'play'; the commands are run, import, info and help."},
      {"--count 3",
       "The option --count needs a command before it: vzk run, vzk import or vzk info."},
      {"run", "vzk run needs a configuration file: vzk run CONFIG.xml [options]."},
      {"run a.xml b.xml", "vzk run takes one configuration file, but 'b.xml' follows 'a.xml'."},
      {"run a.xml --count", "The option --count needs a value."},
      {"run a.xml --count --out d", "The option --count needs a value."},
      {"run a.xml --count 1 --count 2", "The option --count is given twice."},
      {"run a.xml --from 1.5",
       "The value '1.5' of --from is not a whole number of milliseconds since 1970-01-01 UTC."},
      {"run a.xml --mode replay", "The value 'replay' of --mode is neither playback nor live."},
      {"run a.xml --mode live --from 0",
       "The option --from works in playback only: a live stream starts now."},
      {"run a.xml --format gif --out d",
       "The value 'gif' of --format is not one of png, jpg, y4m."},
      {"run a.xml --format png",
       "The option --format needs --out: without an output directory nothing is written."},
      {"run a.xml --out=", "The option --out needs a directory name, not an empty text."},
      {"run a.xml --out d --format jpg --quality 101",
       "The value '101' of --quality is not between 1 and 100."},
      {"run a.xml --out d --format jpg --quality 0",
       "The value '0' of --quality is not a whole number of 1 or more."},
      {"run a.xml --out d --quality 50",
       "The option --quality is for pictures written as JPEG: it needs --format jpg."},
      {"run a.xml --request", "The option --request needs a value."},
      {"run a.xml --request ,", "The option --request needs at least one property name."},
      {"run a.xml --loop", "Unknown option --loop for vzk run; see vzk help run."},
      {"import a.mp4", "vzk import needs a media file or stream and an output recording: vzk "
                       "import MEDIA OUT.gbd."},
      {"import a.mp4 b.gbd --from 3", "Unknown option --from for vzk import; see vzk help import."},
      {"info", "vzk info needs exactly one recording: vzk info FILE.gbd."},
      {"info a.gbd --all", "Unknown option --all for vzk info; see vzk help info."},
      {"help play", "There is no command 'play'; the commands are run, import and info."},
  };
  for (const auto& [line, message] : cases) {
    EXPECT_EQ(UsageMessage(line), message) << line;
  }
  for (const std::string value : {"0", "-3", "2x", "99999999999999999999999"}) {
    EXPECT_EQ(UsageMessage("run a.xml --count " + value),
              "The value '" + value + "' of --count is not a whole number of 1 or more.");
  }
  for (const std::string value : {" 0", " nan", "="}) {
    EXPECT_EQ(UsageMessage("run a.xml --duration" + value),
              "The value '" + value.substr(1) +
                  "' of --duration is not a number of seconds above 0.");
  }
  // The program itself: the sentence on standard error, status 2, nothing else.
  const auto result = RunVzk({"run", "a.xml", "--count", "0"});
  EXPECT_EQ(result.status, 2);
  EXPECT_EQ(result.err, "vzk: The value '0' of --count is not a whole number of 1 or more.\n");
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(RunVzk({}).status, 2);
}

TEST(VzkCommandLine, HelpExplainsEveryOptionAndCommand) {
  const auto result = RunVzk({"--help"});
  EXPECT_EQ(result.status, 0);
  for (const char* word : {"vzk run", "vzk import", "vzk info", "--mode", "--from", "--count",
                           "--duration", "--out", "--format", "--quality", "--request",
                           "--contact-sheet", "--plugin", "--quiet", "--records", "Exit status"}) {
    EXPECT_NE(result.out.find(word), std::string::npos) << word;
  }
  // Help wins over any other fault on the line.
  const auto runHelp = RunVzk({"run", "--count", "0", "--help"});
  EXPECT_EQ(runHelp.status, 0);
  EXPECT_EQ(runHelp.out.rfind("vzk run CONFIG.xml", 0), 0u);
  EXPECT_EQ(runHelp.out.find("vzk import"), std::string::npos);
  EXPECT_EQ(RunVzk({"help", "info"}).out.rfind("vzk info FILE.gbd", 0), 0u);
  EXPECT_EQ(RunVzk({"--version"}).out.rfind("vzk ", 0), 0u);
}

} // namespace
