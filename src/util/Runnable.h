#pragma once

#include "util/export.h"

namespace Quenvale::Interceptor::SDK {

/// What a qzthread runs. Not deleted through this type.
class QZ_API Runnable {
public:
    /// The thread's body: the thread ends with it.
    virtual void run() = 0;

protected:
    ~Runnable() = default;
};

}  // namespace Quenvale::Interceptor::SDK
