#include "CommandLine.h"

#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <set>

namespace NmVzkTool {
namespace {

const char* const GeneralHelp =
    R"(vzk: runs toolkit trees of the vzk plug-in and handles recordings.

Usage:
  vzk run CONFIG.xml [options]     build the tree of CONFIG.xml and pull its items
  vzk import MEDIA OUT.gbd [options]
                                   write a recording from a media file or stream
  vzk info FILE.gbd [--records]    tell what a recording holds
  vzk help [COMMAND]               this text, or the text of one command
  vzk --version                    the version of vzk

Exit status: 0 when everything went well, 1 when the toolkit or a file failed
or some items could not be delivered or written, 2 when the command line is wrong.
)";

const char* const RunHelp = R"(
vzk run CONFIG.xml [options]
  Loads ToolkitSourcePlugin_vzk.so from the directory of vzk, builds the tree of
  CONFIG.xml, connects, and pulls items until the source has no more or a limit
  is reached. Without --out the items are pulled and dropped, which is how a
  tree is timed. Ctrl-C stops the run after the current item; the summary and
  the files written so far stay.

  --mode playback|live   playback (the default) steps with MoveNext from the
                         first item; live starts the live stream and pulls with
                         GetLiveData until a limit or Ctrl-C
  --from MS              playback only: start at the first item that begins at
                         or after MS milliseconds since 1970-01-01 UTC
  --count N              pull at most N items (N >= 1)
  --duration S           stop after S seconds (a decimal number above 0): of
                         media time from the first item in playback, of wall
                         clock time in live mode
  --out DIR              write what is delivered into DIR (created if needed):
                           pictures   as image-NNNNNN.png or .jpg, or into out.y4m
                           JPEG records as jpeg-NNNNNN.jpg, byte for byte
                           PCM audio  as audio.wav (audio-2.wav, ... when the
                                      form changes)
                           any other record appended to records.gbd, anything
                           else as item-NNNNNN.bin
                         and a list of every item, with its times, its file
                         and the requested properties, in items.txt
  --format png|jpg|y4m   how pictures are written (default png); jpg uses the
                         toolkit's own JPEG encoder. y4m writes one
                         YUV4MPEG2 stream, DIR/out.y4m; a change of size or
                         layout starts DIR/out-2.y4m, and so on. Planar YCbCr
                         keeps its planes, gray is written as mono, packed RGB
                         is converted to 4:4:4 (JFIF equations)
  --quality Q            with --format jpg: the JPEG quality, 1 to 100
                         (default 90)
  --request NAME...      ask the tree for these item properties at Connect
                         (names separated by blanks or commas), for example
                         Sequence_Number Privacy_Mask Has_Motion
  --contact-sheet FILE.png
                         write one picture of small thumbnails of the pictures
                         delivered (at most 64, spread over the run)
  --plugin PATH          load this toolkit plug-in instead of the one beside vzk
  --quiet                no progress line, even on a terminal
)";

const char* const ImportHelp = R"(
vzk import MEDIA OUT.gbd [options]
  Reads MEDIA (a file, or a stream such as rtsp://...) through the "media"
  source plug-in and writes every record it delivers into the recording
  OUT.gbd, one after the other. A MEDIA that ends in .gbd is read through the
  "recording" plug-in instead, which copies a recording. OUT.gbd is written
  under a temporary name and renamed when complete. Network streams are read
  in live mode until a limit or Ctrl-C.

  --count N              import at most N records
  --duration S           stop after S seconds of media time
  --blocks               store video as one block record per group of pictures
                         instead of one record per frame; audio is left out
  --plugin PATH          load this toolkit plug-in instead of the one beside vzk
)";

const char* const InfoHelp = R"(
vzk info FILE.gbd [--records]
  Prints what the recording holds: the number of records of each kind, codecs,
  picture sizes, the time span, sync frames, sizes, and how the records form
  continuous sequences (gaps, time warps, lost sync).

  --records              one line for each record as well as the summary
)";

bool IsOption(const std::string& argument) {
  return argument.size() > 1 && argument[0] == '-';
}

// Arguments one after another, with the `--name=value` form split in two.
class CmArgumentReader {
public:
  CmArgumentReader(const std::vector<std::string>& arguments, size_t first) {
    for (size_t i = first; i < arguments.size(); ++i) {
      const std::string& argument = arguments[i];
      const size_t equals = argument.find('=');
      if (argument.rfind("--", 0) == 0 && equals != std::string::npos) {
        m_Arguments.push_back(argument.substr(0, equals));
        m_Arguments.push_back(argument.substr(equals + 1));
        m_Attached.insert(m_Arguments.size() - 1);
      } else {
        m_Arguments.push_back(argument);
      }
    }
  }
  bool AtEnd() const { return m_Next >= m_Arguments.size(); }
  const std::string& Take() { return m_Arguments[m_Next++]; }
  // The next option; the plain arguments before it, and all after "--", go
  // to `positional`. False when no option is left.
  bool NextOption(std::string& option, std::vector<std::string>& positional) {
    while (!AtEnd()) {
      const std::string& argument = Take();
      if (m_OptionsEnded || !IsOption(argument)) {
        positional.push_back(argument);
      } else if (argument == "--") {
        m_OptionsEnded = true;
      } else {
        option = argument;
        return true;
      }
    }
    return false;
  }
  // The value of `option`: the next argument, unless it is missing or is
  // itself an option (a value of `--name=value` may look like one).
  std::string TakeValue(const std::string& option) {
    if (AtEnd() || (IsOption(m_Arguments[m_Next]) && m_Attached.count(m_Next) == 0 &&
                    !LooksNegative(m_Arguments[m_Next]))) {
      throw CmUsageError("The option " + option + " needs a value.");
    }
    return Take();
  }
  // Further plain arguments, for options that take a list.
  bool NextIsPlain() const { return !AtEnd() && !IsOption(m_Arguments[m_Next]); }
  const std::string& Peek() const { return m_Arguments[m_Next]; }

private:
  static bool LooksNegative(const std::string& text) {
    return text.size() > 1 && text[0] == '-' && (std::isdigit(static_cast<unsigned char>(text[1])));
  }
  std::vector<std::string> m_Arguments;
  std::set<size_t> m_Attached;
  size_t m_Next = 0;
  bool m_OptionsEnded = false;
};

uint64_t ParseCount(const std::string& option, const std::string& text) {
  uint64_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (text.empty() || error != std::errc() || end != text.data() + text.size() || value == 0) {
    throw CmUsageError("The value '" + text + "' of " + option +
                       " is not a whole number of 1 or more.");
  }
  return value;
}

int64_t ParseMilliseconds(const std::string& option, const std::string& text) {
  int64_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (text.empty() || error != std::errc() || end != text.data() + text.size()) {
    throw CmUsageError("The value '" + text + "' of " + option +
                       " is not a whole number of milliseconds since 1970-01-01 UTC.");
  }
  return value;
}

double ParseSeconds(const std::string& option, const std::string& text) {
  char* end = nullptr;
  const double value = text.empty() ? 0 : std::strtod(text.c_str(), &end);
  if (text.empty() || end != text.c_str() + text.size() || !std::isfinite(value) || value <= 0 ||
      value > 1e9) {
    throw CmUsageError("The value '" + text + "' of " + option +
                       " is not a number of seconds above 0.");
  }
  return value;
}

template <typename T> void SetOnce(std::optional<T>& target, T value, const std::string& option) {
  if (target) {
    throw CmUsageError("The option " + option + " is given twice.");
  }
  target = std::move(value);
}

std::string UnknownOption(const std::string& command, const std::string& option) {
  return "Unknown option " + option + " for vzk " + command + "; see vzk help " + command + ".";
}

bool LooksLikePropertyNames(const std::string& text) {
  for (const char c : text) {
    if (!std::isalnum(static_cast<unsigned char>(c)) && c != '_' && c != ',') {
      return false;
    }
  }
  return !text.empty();
}

void AddPropertyNames(const std::string& text, std::vector<std::string>& names) {
  size_t start = 0;
  while (start <= text.size()) {
    const size_t comma = text.find(',', start);
    const std::string name =
        text.substr(start, comma == std::string::npos ? std::string::npos : comma - start);
    if (!name.empty()) {
      names.push_back(name);
    }
    if (comma == std::string::npos) {
      break;
    }
    start = comma + 1;
  }
}

// The arguments of vzk run: what stands alone goes straight into the
// options, what depends on other options waits as written until all are read.
struct SmRunArguments {
  SmRunOptions options;
  std::vector<std::string> positional;
  std::optional<std::string> mode, format, from;
  std::optional<uint64_t> quality;
  bool sawRequest = false;
};

SmRunArguments ReadRunArguments(const std::vector<std::string>& arguments) {
  SmRunArguments given;
  SmRunOptions& options = given.options;
  CmArgumentReader reader(arguments, 1);
  std::string argument;
  while (reader.NextOption(argument, given.positional)) {
    if (argument == "--mode") {
      SetOnce(given.mode, reader.TakeValue(argument), argument);
    } else if (argument == "--from") {
      SetOnce(given.from, reader.TakeValue(argument), argument);
    } else if (argument == "--count") {
      SetOnce(options.count, ParseCount(argument, reader.TakeValue(argument)), argument);
    } else if (argument == "--duration") {
      SetOnce(options.duration, ParseSeconds(argument, reader.TakeValue(argument)), argument);
    } else if (argument == "--out") {
      SetOnce(options.outputDirectory, reader.TakeValue(argument), argument);
    } else if (argument == "--format") {
      SetOnce(given.format, reader.TakeValue(argument), argument);
    } else if (argument == "--quality") {
      const std::string text = reader.TakeValue(argument);
      const uint64_t value = ParseCount(argument, text);
      if (value > 100) {
        throw CmUsageError("The value '" + text + "' of --quality is not between 1 and 100.");
      }
      SetOnce(given.quality, value, argument);
    } else if (argument == "--contact-sheet") {
      SetOnce(options.contactSheet, reader.TakeValue(argument), argument);
    } else if (argument == "--plugin") {
      SetOnce(options.plugin, reader.TakeValue(argument), argument);
    } else if (argument == "--quiet" || argument == "-q") {
      options.quiet = true;
    } else if (argument == "--request") {
      AddPropertyNames(reader.TakeValue(argument), options.requested);
      // The list goes on while the words look like property names, so that a
      // configuration file after it (it has a dot or a slash) ends it.
      while (reader.NextIsPlain() && LooksLikePropertyNames(reader.Peek())) {
        AddPropertyNames(reader.Take(), options.requested);
      }
      given.sawRequest = true;
    } else {
      throw CmUsageError(UnknownOption("run", argument));
    }
  }
  return given;
}

SmRunMode ParseMode(const std::string& text) {
  if (text == "playback") {
    return SmRunMode::Playback;
  }
  if (text == "live") {
    return SmRunMode::Live;
  }
  throw CmUsageError("The value '" + text + "' of --mode is neither playback nor live.");
}

SmPictureFormat ParseFormat(const std::string& text) {
  if (text == "png") {
    return SmPictureFormat::Png;
  }
  if (text == "jpg" || text == "jpeg") {
    return SmPictureFormat::Jpeg;
  }
  if (text == "y4m") {
    return SmPictureFormat::Y4m;
  }
  throw CmUsageError("The value '" + text + "' of --format is not one of png, jpg, y4m.");
}

SmRunOptions ParseRun(const std::vector<std::string>& arguments) {
  SmRunArguments given = ReadRunArguments(arguments);
  SmRunOptions& options = given.options;
  if (given.positional.empty()) {
    throw CmUsageError("vzk run needs a configuration file: vzk run CONFIG.xml [options].");
  }
  if (given.positional.size() > 1) {
    throw CmUsageError("vzk run takes one configuration file, but '" + given.positional[1] +
                       "' follows '" + given.positional[0] + "'.");
  }
  options.configuration = given.positional[0];
  if (given.sawRequest && options.requested.empty()) {
    throw CmUsageError("The option --request needs at least one property name.");
  }
  if (given.mode) {
    options.mode = ParseMode(*given.mode);
  }
  if (given.from) {
    if (options.mode == SmRunMode::Live) {
      throw CmUsageError("The option --from works in playback only: a live stream starts now.");
    }
    options.from = ParseMilliseconds("--from", *given.from);
  }
  if (given.format) {
    options.format = ParseFormat(*given.format);
    if (!options.outputDirectory) {
      throw CmUsageError("The option --format needs --out: without an output directory nothing "
                         "is written.");
    }
  }
  if (given.quality) {
    if (options.format != SmPictureFormat::Jpeg) {
      throw CmUsageError("The option --quality is for pictures written as JPEG: it needs "
                         "--format jpg.");
    }
    options.quality = static_cast<uint32_t>(*given.quality);
  }
  if (options.outputDirectory && options.outputDirectory->empty()) {
    throw CmUsageError("The option --out needs a directory name, not an empty text.");
  }
  if (options.contactSheet && options.contactSheet->empty()) {
    throw CmUsageError("The option --contact-sheet needs a file name, not an empty text.");
  }
  return options;
}

SmImportOptions ParseImport(const std::vector<std::string>& arguments) {
  SmImportOptions options;
  CmArgumentReader reader(arguments, 1);
  std::vector<std::string> positional;
  std::string argument;
  while (reader.NextOption(argument, positional)) {
    if (argument == "--count") {
      SetOnce(options.count, ParseCount(argument, reader.TakeValue(argument)), argument);
    } else if (argument == "--duration") {
      SetOnce(options.duration, ParseSeconds(argument, reader.TakeValue(argument)), argument);
    } else if (argument == "--plugin") {
      SetOnce(options.plugin, reader.TakeValue(argument), argument);
    } else if (argument == "--blocks") {
      if (options.blocks) {
        throw CmUsageError("The option --blocks is given twice.");
      }
      options.blocks = true;
    } else {
      throw CmUsageError(UnknownOption("import", argument));
    }
  }
  if (positional.size() != 2) {
    throw CmUsageError("vzk import needs a media file or stream and an output recording: "
                       "vzk import MEDIA OUT.gbd.");
  }
  options.media = positional[0];
  options.output = positional[1];
  if (options.media.empty() || options.output.empty()) {
    throw CmUsageError("vzk import needs names that are not empty.");
  }
  return options;
}

SmInfoOptions ParseInfo(const std::vector<std::string>& arguments) {
  SmInfoOptions options;
  std::vector<std::string> positional;
  bool optionsEnded = false;
  for (size_t i = 1; i < arguments.size(); ++i) {
    const std::string& argument = arguments[i];
    if (optionsEnded || !IsOption(argument)) {
      positional.push_back(argument);
    } else if (argument == "--") {
      optionsEnded = true;
    } else if (argument == "--records") {
      options.perRecord = true;
    } else {
      throw CmUsageError(UnknownOption("info", argument));
    }
  }
  if (positional.size() != 1) {
    throw CmUsageError("vzk info needs exactly one recording: vzk info FILE.gbd.");
  }
  options.recording = positional[0];
  return options;
}

bool AsksForHelp(const std::vector<std::string>& arguments) {
  for (const std::string& argument : arguments) {
    if (argument == "--") {
      return false;
    }
    if (argument == "--help" || argument == "-h") {
      return true;
    }
  }
  return false;
}

} // namespace

std::string HelpText() {
  return std::string(GeneralHelp) + RunHelp + ImportHelp + InfoHelp;
}

std::string HelpText(const std::string& topic) {
  if (topic == "run") {
    return RunHelp + 1;
  }
  if (topic == "import") {
    return ImportHelp + 1;
  }
  if (topic == "info") {
    return InfoHelp + 1;
  }
  return HelpText();
}

SmCommand ParseCommandLine(const std::vector<std::string>& arguments) {
  if (arguments.empty()) {
    throw CmUsageError("vzk needs a command: run, import, info or help; see vzk --help.");
  }
  const std::string& command = arguments[0];
  const std::set<std::string> commands = {"run", "import", "info"};
  if (command == "--help" || command == "-h" || command == "help") {
    if (arguments.size() > 1 && commands.count(arguments[1]) == 0 && command == "help") {
      throw CmUsageError("There is no command '" + arguments[1] +
                         "'; the commands are run, import and info.");
    }
    return SmHelpRequest{command == "help" && arguments.size() > 1 ? arguments[1] : ""};
  }
  if (command == "--version") {
    return SmVersionRequest{};
  }
  if (commands.count(command) != 0 && AsksForHelp(arguments)) {
    return SmHelpRequest{command};
  }
  if (command == "run") {
    return ParseRun(arguments);
  }
  if (command == "import") {
    return ParseImport(arguments);
  }
  if (command == "info") {
    return ParseInfo(arguments);
  }
  if (IsOption(command)) {
    throw CmUsageError("The option " + command +
                       " needs a command before it: vzk run, vzk import or vzk info.");
  }
  throw CmUsageError("There is no command '" + command +
                     "'; the commands are run, import, info and help.");
}

} // namespace NmVzkTool
