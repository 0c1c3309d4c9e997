// vzk: the command-line host of the toolkit plug-in.

#include <unistd.h>

#include <iostream>
#include <string>
#include <vector>

#include "CommandLine.h"
#include "Commands.h"
#include "StopSignal.h"

using namespace NmVzkTool;

int main(int argc, char** argv) {
  const std::vector<std::string> arguments(argv + 1, argv + argc);
  SmCommand command;
  try {
    command = ParseCommandLine(arguments);
  } catch (const CmUsageError& error) {
    std::cerr << "vzk: " << error.what() << "\n";
    return 2;
  }
  InstallStopHandler();
  if (const auto* help = std::get_if<SmHelpRequest>(&command)) {
    std::cout << (help->topic.empty() ? HelpText() : HelpText(help->topic));
    return 0;
  }
  if (std::holds_alternative<SmVersionRequest>(command)) {
    std::cout << "vzk " << VZK_VERSION << "\n";
    return 0;
  }
  if (const auto* run = std::get_if<SmRunOptions>(&command)) {
    return RunTree(*run, std::cout, std::cerr, isatty(STDERR_FILENO) != 0);
  }
  if (const auto* import = std::get_if<SmImportOptions>(&command)) {
    return ImportMedia(*import, std::cout, std::cerr);
  }
  return ShowRecordingInfo(std::get<SmInfoOptions>(command), std::cout, std::cerr);
}
