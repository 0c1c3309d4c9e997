#pragma once

// Errors of the toolkit layer, thrown across the plug-in boundary. Hosts catch
// them by these interfaces.

#include <cstdint>
#include <exception>
#include <string>
#include <vector>

namespace NmToolkit {

class ImToolkitError : public std::exception {
public:
  ~ImToolkitError() override = default;
  const char* what() const noexcept override = 0;
  // Qualified name of the error's interface, such as "NmToolkit::ImFileError".
  virtual std::string GetErrorName() const = 0;
  // The number of the error within its class.
  virtual uint32_t GetErrorCode() const = 0;
  virtual std::vector<std::string> GetArguments() const = 0;
  // The message with its arguments filled in.
  virtual std::string GetDescription() const = 0;
  // The error that this one wraps, owned by this one; null if none.
  virtual const ImToolkitError* GetInnerError() const = 0;
};

class ImConfigurationError : public ImToolkitError {};
class ImFileError : public ImToolkitError {};
class ImInvalidArgumentError : public ImToolkitError {};
class ImInvalidOperationError : public ImToolkitError {};
class ImNotConnectedError : public ImToolkitError {};

} // namespace NmToolkit
