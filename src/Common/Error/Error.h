#pragma once

#include <cstdint>
#include <exception>
#include <memory>
#include <string>

namespace NmError {

// Builds the location text of a throw: the qualified function name, " (line ",
// the source unit relative to its component, ", ", the line number, ")".
std::string MakeLocation(const char* prettyFunction, const char* file, int line);

// Qualified name of a function from the compiler's pretty signature, without
// return type and parameters: "void NmA::CmB::F(int) const" gives "NmA::CmB::F".
std::string QualifiedFunctionName(const char* prettyFunction);

// The source file named relative to its component: ".../src/Common/Xerces/Xerces.cpp"
// gives "Xerces.cpp" and ".../src/Common/GUID/linux/GUID-OSD.cpp" "linux/GUID-OSD.cpp".
std::string ComponentRelativeFile(const char* file);

// Base of every error below the toolkit layer. It owns the error it wraps.
class CmError : public std::exception {
public:
  CmError(std::string location, std::string description);
  CmError(std::string location, std::string description, const CmError& inner);
  CmError(const CmError& other);
  CmError& operator=(const CmError& other);
  ~CmError() override;

  const char* what() const noexcept override;
  virtual CmError* Clone() const;
  // location ": " description, then "\n" and the inner error's full text.
  virtual void GetFullText(std::string& out) const;
  std::string GetFullText() const;
  virtual void Print() const;

  std::string GetLocation() const { return m_Location; }
  std::string GetDescription() const { return m_Description; }
  const CmError* GetInnerError() const { return m_Inner.get(); }

protected:
  void PrintInner() const;

  std::string m_Location;
  std::string m_Description;
  std::unique_ptr<CmError> m_Inner;
};

// Derived errors repeat the same clone; this keeps it in one place.
template <typename Derived, typename Base> class CmCloneable : public Base {
public:
  using Base::Base;
  CmError* Clone() const override { return new Derived(static_cast<const Derived&>(*this)); }
};

// An error that carries one 32-bit code of its own. Tag keeps each family a
// distinct type, so that a catch of one never catches another.
template <typename Tag> class CmCodedError : public CmError {
public:
  CmCodedError(std::string location, std::string description, uint32_t code)
      : CmError(std::move(location), std::move(description)), m_Code(code) {}
  CmCodedError(std::string location, std::string description, uint32_t code, const CmError& inner)
      : CmError(std::move(location), std::move(description), inner), m_Code(code) {}
  CmError* Clone() const override { return new CmCodedError(*this); }
  uint32_t GetCode() const { return m_Code; }

private:
  uint32_t m_Code;
};

// An error raised by a system call; the description gains the system's own text
// for the calling thread's errno, read at construction.
class CmSystemError : public CmError {
public:
  CmSystemError(std::string location, std::string description);
  // For failures whose number does not live in errno (the loader, getrandom).
  CmSystemError(std::string location, std::string description, int32_t systemErrorNumber,
                const char* systemText);
  CmError* Clone() const override { return new CmSystemError(*this); }
  int32_t GetSystemErrorNumber() const { return m_SystemErrorNumber; }

private:
  int32_t m_SystemErrorNumber;
};

// Code holder of the integrity family. The values beyond those the callers
// name are ours.
struct CmIntegrityErrorCode {
  enum Code : uint32_t {
    Unknown = 0,
    InvalidPointer = 1,
    InvalidArgument = 2,
    OutOfRange = 3,
    InvalidState = 4,
    IntegrityViolation = 5,
    NotImplemented = 6,
    OutOfMemory = 7,
  };
};

// An error of Base with a code from the enumeration holder Codes.
template <typename Codes, typename Base = CmError>
class CmGenericError : public Base, public Codes {
public:
  CmGenericError(std::string location, std::string description, uint32_t code)
      : Base(std::move(location), std::move(description)), m_ErrorCode(code) {}
  CmGenericError(std::string location, std::string description, uint32_t code, const CmError& inner)
      : Base(std::move(location), std::move(description), inner), m_ErrorCode(code) {}
  CmError* Clone() const override { return new CmGenericError(*this); }
  void Print() const override;
  uint32_t GetErrorCode() const { return m_ErrorCode; }

private:
  uint32_t m_ErrorCode;
};

// Stacks one more code on a CmGenericError: the error's own code, with the
// CmGenericError's code kept as the base code (N tells instances apart).
template <typename Codes, typename Base, int N>
class CmGenericErrorWithBaseErrorCode : public CmGenericError<Codes, Base> {
public:
  CmGenericErrorWithBaseErrorCode(std::string location, std::string description, uint32_t code,
                                  uint32_t baseCode)
      : CmGenericError<Codes, Base>(std::move(location), std::move(description), baseCode),
        m_OwnErrorCode(code) {}
  CmGenericErrorWithBaseErrorCode(std::string location, std::string description, uint32_t code,
                                  uint32_t baseCode, const CmError& inner)
      : CmGenericError<Codes, Base>(std::move(location), std::move(description), baseCode, inner),
        m_OwnErrorCode(code) {}
  CmError* Clone() const override { return new CmGenericErrorWithBaseErrorCode(*this); }
  void Print() const override;
  uint32_t GetErrorCode() const { return m_OwnErrorCode; }
  uint32_t GetBaseErrorCode() const { return CmGenericError<Codes, Base>::GetErrorCode(); }

private:
  uint32_t m_OwnErrorCode;
};

using CmIntegrityError = CmGenericError<CmIntegrityErrorCode>;

// For long-lived objects that report failure by status: keeps the latest error.
template <typename E> class CmLastError {
public:
  void SetLastError(const E& error) { m_LastError.reset(static_cast<E*>(error.Clone())); }
  void ClearLastError() { m_LastError.reset(); }
  const E* GetLastError() const { return m_LastError.get(); }

private:
  std::unique_ptr<E> m_LastError;
};

void PrintCodeLine(const CmError& error, const std::string& codes);

template <typename Codes, typename Base> void CmGenericError<Codes, Base>::Print() const {
  PrintCodeLine(*this, ": error code " + std::to_string(m_ErrorCode));
  this->PrintInner();
}

template <typename Codes, typename Base, int N>
void CmGenericErrorWithBaseErrorCode<Codes, Base, N>::Print() const {
  PrintCodeLine(*this, ": error code " + std::to_string(m_OwnErrorCode) + ": base error code " +
                           std::to_string(GetBaseErrorCode()));
  this->PrintInner();
}

} // namespace NmError

// The location of the throw site in the form that every error carries.
#define VZK_LOCATION ::NmError::MakeLocation(__PRETTY_FUNCTION__, __FILE__, __LINE__)
