#include "util/dispose.h"

#include "util/diagnostics.h"

namespace Quenvale::Interceptor::SDK::Util {

void reportVoidDeletion() {
    errorMsg("ERROR: can't delete a void *\n");
}

}  // namespace Quenvale::Interceptor::SDK::Util
