#pragma once

#include <cxxabi.h>

#include <utility>

#include "util/String.h"
#include "util/export.h"

namespace Quenvale::Interceptor::SDK::Util {

/// Errors travel as heap pointers, thrown by raise(), and nobody deletes them: the handlers are
/// catch-alls that clean up and abandon the object. The subclasses derive privately, so a handler
/// for APIException* does not meet them.
class QZ_API APIException {
public:
    /// The code is kept for whoever reads it; the library gives none.
    explicit APIException(String message, int code = 0)
        : itsMessage(std::move(message)), itsCode(code) {}

    /// The whole text, with the class's prefix where it has one.
    const String& getMessage() const { return itsMessage; }
    /// 0 unless one was given.
    int getCode() const { return itsCode; }

protected:
    String itsMessage;  // See getMessage().
    int itsCode;        // See getCode().
};

/// A stream that can't go on. Its message begins with "IOException: ".
class QZ_API IOException : private APIException {
public:
    /// `text` goes behind the prefix.
    explicit IOException(const String& text, int code = 0)
        : APIException(String("IOException: ") + text, code) {}
    using APIException::getCode;     // As in APIException.
    using APIException::getMessage;  // As in APIException.
};

/// The end of a stream where more was due. It carries no message.
class QZ_API EOFException : private APIException {
public:
    EOFException() : APIException(String()) {}
    using APIException::getCode;     // As in APIException.
    using APIException::getMessage;  // As in APIException.
};

/// A call that the object's state does not allow. Its message begins with "RuntimeException: ".
class QZ_API RuntimeException : private APIException {
public:
    /// `text` goes behind the prefix.
    explicit RuntimeException(const String& text, int code = 0)
        : APIException(String("RuntimeException: ") + text, code) {}
    using APIException::getCode;     // As in APIException.
    using APIException::getMessage;  // As in APIException.
};

/// An argument that makes no sense. Its message begins with "IllegalArgumentException: ".
class QZ_API IllegalArgumentException : private APIException {
public:
    /// `text` goes behind the prefix.
    explicit IllegalArgumentException(const String& text, int code = 0)
        : APIException(String("IllegalArgumentException: ") + text, code) {}
    using APIException::getCode;     // As in APIException.
    using APIException::getMessage;  // As in APIException.
};

/// Every throw of an exception object goes through here: one breakpoint finds them all, and one
/// leak suppression covers the objects that nobody deletes.
template <class E, class... Args>
[[noreturn]] __attribute__((noinline)) void raise(Args&&... args) {
    throw new E(std::forward<Args>(args)...);
}

}  // namespace Quenvale::Interceptor::SDK::Util
