#pragma once

#include "util/String.h"

namespace RofXML {

/// Every error of the reader goes through here. Its message is no exception object but the text.
[[noreturn]] inline void fail(const char* what, const char* text) {
    using Quenvale::Interceptor::SDK::Util::String;
    throw String(what) + String(text);
}

}  // namespace RofXML
