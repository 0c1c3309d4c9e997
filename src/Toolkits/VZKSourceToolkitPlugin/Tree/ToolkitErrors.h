#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <typeinfo>
#include <vector>

#include "vzk/ToolkitError.h"

namespace NmToolkit {

// Fills the arguments into a boost::format string. A format that does not fit
// its arguments gives the format, "; " and the reason; nothing is thrown.
std::string FormatToolkitMessage(const std::string& format,
                                 const std::vector<std::string>& arguments) noexcept;

// The last blank-separated word of a demangled type name.
std::string ToolkitErrorName(const std::type_info& type);

// Implements a toolkit error interface I: a code, a format and its arguments,
// and an optional inner error that it owns.
template <typename I> class CmToolkitExceptionBase : public I {
public:
  CmToolkitExceptionBase(uint32_t code, std::string format, std::vector<std::string> arguments,
                         std::shared_ptr<const ImToolkitError> inner = nullptr)
      : m_ErrorCode(code), m_Format(std::move(format)), m_Inner(std::move(inner)),
        m_Arguments(std::move(arguments)) {}

  // Computed once: a pointer handed out stays valid while the error lives.
  const char* what() const noexcept override {
    if (!m_WhatReady) {
      m_What = GetDescription();
      m_WhatReady = true;
    }
    return m_What.c_str();
  }
  std::string GetErrorName() const override { return ToolkitErrorName(typeid(I)); }
  uint32_t GetErrorCode() const override { return m_ErrorCode; }
  std::vector<std::string> GetArguments() const override { return m_Arguments; }
  std::string GetDescription() const override {
    return FormatToolkitMessage(m_Format, m_Arguments);
  }
  const ImToolkitError* GetInnerError() const override { return m_Inner.get(); }

private:
  uint32_t m_ErrorCode;
  std::string m_Format;
  // Shared so that the copies made while an exception travels own it jointly.
  std::shared_ptr<const ImToolkitError> m_Inner;
  mutable std::string m_What;
  mutable bool m_WhatReady = false;
  std::vector<std::string> m_Arguments;
};

template <uint32_t N> struct SmConfigurationMessage;
template <> struct SmConfigurationMessage<0> {
  static constexpr const char* text = "Could not parse toolkit configuration xml!";
};
template <> struct SmConfigurationMessage<1> {
  static constexpr const char* text = "Toolkit type is not specified!";
};
template <> struct SmConfigurationMessage<2> {
  static constexpr const char* text = "Toolkit provider is not specified!";
};

template <uint32_t N> struct SmNotConnectedMessage;
template <> struct SmNotConnectedMessage<1> {
  static constexpr const char* text = "Not connected to toolkit!";
};

template <uint32_t N> struct SmInvalidArgumentMessage;
template <> struct SmInvalidArgumentMessage<2> {
  static constexpr const char* text = "Expected a value for argument %1%!";
};

template <uint32_t N> struct SmInvalidOperationMessage;
template <> struct SmInvalidOperationMessage<0> {
  static constexpr const char* text = "Operation %1% could not be performed!";
};
template <> struct SmInvalidOperationMessage<1> {
  static constexpr const char* text = "Operation %1% is not allowed in live mode!";
};
template <> struct SmInvalidOperationMessage<2> {
  static constexpr const char* text = "Operation %1% is not allowed in playback mode!";
};

template <uint32_t N> struct SmFileMessage;
template <> struct SmFileMessage<6> {
  static constexpr const char* text = "Could not open file %1%!";
};

// A concrete error: interface I, code N, the message of Message<N>.
template <typename I, template <uint32_t> class Message, uint32_t N>
class CmToolkitError : public CmToolkitExceptionBase<I> {
public:
  template <typename... Arguments>
  explicit CmToolkitError(Arguments&&... arguments)
      : CmToolkitExceptionBase<I>(N, Message<N>::text,
                                  std::vector<std::string>{std::string(arguments)...}) {}
};

template <uint32_t N>
using CmConfigurationError = CmToolkitError<ImConfigurationError, SmConfigurationMessage, N>;
template <uint32_t N>
using CmNotConnectedError = CmToolkitError<ImNotConnectedError, SmNotConnectedMessage, N>;
template <uint32_t N>
using CmInvalidArgumentError = CmToolkitError<ImInvalidArgumentError, SmInvalidArgumentMessage, N>;
template <uint32_t N>
using CmInvalidOperationError =
    CmToolkitError<ImInvalidOperationError, SmInvalidOperationMessage, N>;
template <uint32_t N> using CmFileError = CmToolkitError<ImFileError, SmFileMessage, N>;

} // namespace NmToolkit
