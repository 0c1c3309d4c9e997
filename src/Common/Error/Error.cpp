#include "Common/Error/Error.h"

#include <cstring>
#include <iostream>

namespace NmError {

std::string QualifiedFunctionName(const char* prettyFunction) {
  const std::string text = prettyFunction ? prettyFunction : "";
  // The parameter list starts at the first '(' outside template brackets.
  int angle = 0;
  size_t open = std::string::npos;
  for (size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (c == '<') {
      ++angle;
    } else if (c == '>') {
      --angle;
    } else if (c == '(' && angle == 0) {
      // "operator()" has its own parentheses before the parameter list.
      if (i >= 8 && text.compare(i - 8, 8, "operator") == 0 && i + 1 < text.size() &&
          text[i + 1] == ')') {
        ++i;
        continue;
      }
      open = i;
      break;
    }
  }
  const std::string head = text.substr(0, open);
  // The name starts after the last blank outside template brackets.
  angle = 0;
  size_t start = 0;
  for (size_t i = 0; i < head.size(); ++i) {
    const char c = head[i];
    if (c == '<') {
      ++angle;
    } else if (c == '>') {
      --angle;
    } else if (c == ' ' && angle == 0) {
      start = i + 1;
    }
  }
  return head.substr(start);
}

std::string ComponentRelativeFile(const char* file) {
  std::string path = file ? file : "";
  const size_t src = path.rfind("/src/");
  if (src == std::string::npos) {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
  }
  // Skip "src/", the area ("Common", "MediaProcessing", ...) and the component.
  size_t pos = src + 5;
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

const char* CmError::what() const noexcept { return m_Description.c_str(); }

CmError* CmError::Clone() const { return new CmError(*this); }

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
