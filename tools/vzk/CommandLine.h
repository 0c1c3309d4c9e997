#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

namespace NmVzkTool {

// A command line that cannot be run. The text is a whole sentence for the user;
// the program exits with status 2.
class CmUsageError : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

enum class SmRunMode { Playback, Live };
enum class SmPictureFormat { Png, Jpeg, Y4m };

struct SmRunOptions {
  std::string configuration;
  SmRunMode mode = SmRunMode::Playback;
  std::optional<int64_t> from;    // milliseconds since 1970, playback only
  std::optional<uint64_t> count;  // items to pull at most
  std::optional<double> duration; // seconds: of media time in playback, of wall time in live
  std::optional<std::string> outputDirectory;
  SmPictureFormat format = SmPictureFormat::Png;
  uint32_t quality = 90;              // of pictures written as JPEG
  std::vector<std::string> requested; // property names asked for at Connect
  std::optional<std::string> contactSheet;
  std::optional<std::string> plugin; // the toolkit plug-in, when not the one beside vzk
  bool quiet = false;
};

struct SmImportOptions {
  std::string media;
  std::string output;
  std::optional<uint64_t> count;
  std::optional<double> duration;
  std::optional<std::string> plugin;
  bool blocks = false; // video as one block per group of pictures
};

struct SmInfoOptions {
  std::string recording;
  bool perRecord = false;
};

struct SmHelpRequest {
  std::string topic; // empty for the whole help
};

struct SmVersionRequest {};

using SmCommand =
    std::variant<SmRunOptions, SmImportOptions, SmInfoOptions, SmHelpRequest, SmVersionRequest>;

// Reads the arguments after the program name. Throws CmUsageError.
SmCommand ParseCommandLine(const std::vector<std::string>& arguments);

// The text that --help prints, and the part of it for one command.
std::string HelpText();
std::string HelpText(const std::string& command);

} // namespace NmVzkTool
