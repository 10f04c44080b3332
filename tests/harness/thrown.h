#pragma once

#include <string>

#include "util/exceptions.h"

namespace harness {

/// What `action` throws, as its message; an EOFException, which has none, by its name. "nothing"
/// when it returns. The exception object is deleted.
template <class F>
std::string thrown(F&& action) {
    namespace Util = Quenvale::Interceptor::SDK::Util;
    const auto take = [](auto* exception) {
        const std::string text = exception->getMessage().c_str();
        delete exception;
        return text;
    };
    try {
        action();
    } catch (Util::APIException* e) {
        return take(e);
    } catch (Util::IOException* e) {
        return take(e);
    } catch (Util::RuntimeException* e) {
        return take(e);
    } catch (Util::IllegalArgumentException* e) {
        return take(e);
    } catch (Util::EOFException* e) {
        delete e;
        return "EOFException";
    }
    return "nothing";
}

}  // namespace harness
