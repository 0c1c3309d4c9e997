#include "Common/Error/Error.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <iostream>
#include <string_view>

namespace NmError {

namespace {

bool IsIdentifierCharacter(char c) {
  return std::isalnum(static_cast<unsigned char>(c)) || c == '_';
}

bool IsOperatorKeyword(const std::string& text, size_t at) {
  constexpr size_t length = 8;
  return text.compare(at, length, "operator") == 0 &&
         (at == 0 || !IsIdentifierCharacter(text[at - 1])) &&
         (at + length >= text.size() || !IsIdentifierCharacter(text[at + length]));
}

// The end of an operator's name that starts after the word "operator": the
// symbols of "operator<<" or "operator->", the "()" of the call operator, or
// the type of a conversion operator up to its parameter list.
size_t SkipOperatorName(const std::string& text, size_t at) {
  while (at < text.size() && text[at] == ' ') {
    ++at;
  }
  if (text.compare(at, 2, "()") == 0 || text.compare(at, 2, "[]") == 0) {
    return at + 2;
  }
  if (at < text.size() && IsIdentifierCharacter(text[at])) {
    int angle = 0;
    for (; at < text.size(); ++at) {
      if (text[at] == '<') {
        ++angle;
      } else if (text[at] == '>') {
        --angle;
      } else if (text[at] == '(' && angle <= 0) {
        break;
      }
    }
    return at;
  }
  while (at < text.size() && std::strchr("+-*/%^&|~!=<>,", text[at]) != nullptr) {
    ++at;
  }
  return at;
}

} // namespace

std::string QualifiedFunctionName(const char* prettyFunction) {
  const std::string text = prettyFunction ? prettyFunction : "";
  // clang names an anonymous namespace with parentheses of its own.
  // A plain literal: errors are also raised from static destructors at unload.
  constexpr std::string_view anonymous = "(anonymous namespace)";
  // The parameter list starts at the first '(' outside template brackets.
  int angle = 0;
  size_t open = std::string::npos;
  size_t operatorAt = std::string::npos;
  for (size_t i = 0; i < text.size();) {
    if (text.compare(i, anonymous.size(), anonymous) == 0) {
      i += anonymous.size();
      continue;
    }
    if (IsOperatorKeyword(text, i)) {
      operatorAt = i;
      i = SkipOperatorName(text, i + 8);
      continue;
    }
    const char c = text[i];
    if (c == '<') {
      ++angle;
    } else if (c == '>') {
      --angle;
    } else if (c == '(' && angle <= 0) {
      open = i;
      break;
    }
    ++i;
  }
  const std::string head = text.substr(0, open);
  // The name starts after the last blank outside brackets that comes before
  // it; an operator's own name may hold blanks ("operator new").
  const size_t limit = std::min(operatorAt, head.size());
  int depth = 0;
  size_t start = 0;
  for (size_t i = 0; i < limit; ++i) {
    const char c = head[i];
    if (c == '<' || c == '(') {
      ++depth;
    } else if (c == '>' || c == ')') {
      --depth;
    } else if (c == ' ' && depth == 0) {
      start = i + 1;
    }
  }
  return head.substr(start);
}

std::string ComponentRelativeFile(const char* file) {
  std::string path = file ? file : "";
  size_t pos = 0;
  const size_t src = path.rfind("/src/");
  if (src != std::string::npos) {
    pos = src + 5;
  } else if (path.compare(0, 4, "src/") == 0) {
    pos = 4;
  } else {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
  }
  // Skip the area ("Common", "MediaProcessing", ...) and the component.
  for (int skip = 0; skip < 2; ++skip) {
    const size_t next = path.find('/', pos);
    if (next == std::string::npos) {
      break;
    }
    pos = next + 1;
  }
  return path.substr(pos);
}

std::string MakeLocation(const char* prettyFunction, const char* file, int line) {
  return QualifiedFunctionName(prettyFunction) + " (line " + ComponentRelativeFile(file) + ", " +
         std::to_string(line) + ")";
}

CmError::CmError(std::string location, std::string description)
    : m_Location(std::move(location)), m_Description(std::move(description)) {}

CmError::CmError(std::string location, std::string description, const CmError& inner)
    : m_Location(std::move(location)), m_Description(std::move(description)),
      m_Inner(inner.Clone()) {}

CmError::CmError(const CmError& other)
    : std::exception(other), m_Location(other.m_Location), m_Description(other.m_Description),
      m_Inner(other.m_Inner ? other.m_Inner->Clone() : nullptr) {}

CmError& CmError::operator=(const CmError& other) {
  if (this != &other) {
    m_Location = other.m_Location;
    m_Description = other.m_Description;
    m_Inner.reset(other.m_Inner ? other.m_Inner->Clone() : nullptr);
  }
  return *this;
}

CmError::~CmError() = default;

const char* CmError::what() const noexcept {
  return m_Description.c_str();
}

CmError* CmError::Clone() const {
  return new CmError(*this);
}

void CmError::GetFullText(std::string& out) const {
  out += m_Location;
  out += ": ";
  out += m_Description;
  if (m_Inner) {
    out += "\n";
    m_Inner->GetFullText(out);
  }
}

std::string CmError::GetFullText() const {
  std::string text;
  GetFullText(text);
  return text;
}

void CmError::Print() const {
  std::cerr << m_Location << ": " << m_Description << std::endl;
  PrintInner();
}

void CmError::PrintInner() const {
  if (m_Inner) {
    m_Inner->Print();
  }
}

void PrintCodeLine(const CmError& error, const std::string& codes) {
  std::cerr << error.GetLocation() << ": " << error.GetDescription() << codes << std::endl;
}

} // namespace NmError
