#include "util/threadkey.h"

#include <pthread.h>

#include "util/String.h"
#include "util/text.h"

namespace Quenvale::Interceptor::SDK::Util {

char* currentThreadKey() {
    char text[kNumberText];
    itoa(static_cast<int>(pthread_self()), text, 16);
    return String::convert(text);
}

}  // namespace Quenvale::Interceptor::SDK::Util
