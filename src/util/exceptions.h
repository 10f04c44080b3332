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
    explicit APIException(String message, int code = 0)
        : itsMessage(std::move(message)), itsCode(code) {}

    const String& getMessage() const { return itsMessage; }
    int getCode() const { return itsCode; }

protected:
    String itsMessage;
    int itsCode;
};

class QZ_API IOException : private APIException {
public:
    explicit IOException(const String& text, int code = 0)
        : APIException(String("IOException: ") + text, code) {}
    using APIException::getCode;
    using APIException::getMessage;
};

/// The end of a stream where more was due. It carries no message.
class QZ_API EOFException : private APIException {
public:
    EOFException() : APIException(String()) {}
    using APIException::getCode;
    using APIException::getMessage;
};

class QZ_API RuntimeException : private APIException {
public:
    explicit RuntimeException(const String& text, int code = 0)
        : APIException(String("RuntimeException: ") + text, code) {}
    using APIException::getCode;
    using APIException::getMessage;
};

class QZ_API IllegalArgumentException : private APIException {
public:
    explicit IllegalArgumentException(const String& text, int code = 0)
        : APIException(String("IllegalArgumentException: ") + text, code) {}
    using APIException::getCode;
    using APIException::getMessage;
};

/// Every throw of an exception object goes through here: one breakpoint finds them all, and one
/// leak suppression covers the objects that nobody deletes.
template <class E, class... Args>
[[noreturn]] __attribute__((noinline)) void raise(Args&&... args) {
    throw new E(std::forward<Args>(args)...);
}

}  // namespace Quenvale::Interceptor::SDK::Util
