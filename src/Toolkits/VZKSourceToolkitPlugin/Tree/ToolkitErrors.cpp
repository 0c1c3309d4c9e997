#include "Toolkits/VZKSourceToolkitPlugin/Tree/ToolkitErrors.h"

#include <cxxabi.h>

#include <cctype>
#include <cstdlib>
#include <memory>

#include <boost/format.hpp>

namespace NmToolkit {

std::string FormatToolkitMessage(const std::string& format,
                                 const std::vector<std::string>& arguments) noexcept {
  try {
    try {
      boost::format formatter(format);
      formatter.exceptions(boost::io::all_error_bits);
      for (const std::string& argument : arguments) {
        formatter % argument;
      }
      return formatter.str();
    } catch (const boost::io::format_error& error) {
      return format + "; " + error.what();
    }
  } catch (...) {
    // Out of memory while building the text: the bare format is all we can give.
    try {
      return format;
    } catch (...) {
      return {};
    }
  }
}

std::string ToolkitErrorName(const std::type_info& type) {
  int status = 0;
  std::unique_ptr<char, void (*)(void*)> demangled(
      abi::__cxa_demangle(type.name(), nullptr, nullptr, &status), std::free);
  const std::string name = (status == 0 && demangled) ? demangled.get() : type.name();
  size_t end = name.size();
  while (end > 0 && std::isspace(static_cast<unsigned char>(name[end - 1]))) {
    --end;
  }
  size_t begin = end;
  while (begin > 0 && !std::isspace(static_cast<unsigned char>(name[begin - 1]))) {
    --begin;
  }
  return name.substr(begin, end - begin);
}

} // namespace NmToolkit
