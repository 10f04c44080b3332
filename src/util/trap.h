#pragma once

namespace Quenvale::Interceptor::SDK::Util {

/// Ends the process abnormally, without a message.
[[noreturn]] inline void trap() {
    __builtin_trap();
}

}  // namespace Quenvale::Interceptor::SDK::Util
