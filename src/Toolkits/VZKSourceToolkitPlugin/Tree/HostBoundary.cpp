#include "Toolkits/VZKSourceToolkitPlugin/Tree/HostBoundary.h"

#include <cstdio>
#include <cstring>
#include <new>

#include "Toolkits/VZKSourceToolkitPlugin/Tree/ToolkitErrors.h"

namespace NmToolkit {
namespace {

// The same error as CmInvalidOperationError<0>, with its text kept in the
// object itself: it can be thrown when the heap has nothing left.
class CmOperationFailedWithoutMemory : public ImInvalidOperationError {
public:
  explicit CmOperationFailedWithoutMemory(const char* operation) : m_Operation(operation) {
    // The message's one placeholder is filled by hand, without the heap.
    const char* format = SmInvalidOperationMessage<0>::text;
    const char* placeholder = std::strstr(format, "%1%");
    std::snprintf(m_Text, sizeof m_Text, "%.*s%s%s", static_cast<int>(placeholder - format), format,
                  operation, placeholder + 3);
  }
  const char* what() const noexcept override { return m_Text; }
  std::string GetErrorName() const override {
    return ToolkitErrorName(typeid(ImInvalidOperationError));
  }
  uint32_t GetErrorCode() const override { return 0; }
  std::vector<std::string> GetArguments() const override { return {m_Operation}; }
  std::string GetDescription() const override { return m_Text; }
  const ImToolkitError* GetInnerError() const override { return nullptr; }

private:
  const char* m_Operation;
  char m_Text[96];
};

} // namespace

void ThrowOperationFailed(const char* operation) {
  try {
    throw CmInvalidOperationError<0>(operation);
  } catch (const std::bad_alloc&) {
    throw CmOperationFailedWithoutMemory(operation);
  }
}

} // namespace NmToolkit
