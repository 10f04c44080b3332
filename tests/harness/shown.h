#pragma once

#include <memory>
#include <string>

#include "interaction/Checkpoints.h"
#include "util/Map.h"

/// Values of the library as texts that a failed comparison shows.
namespace harness {

inline std::string text(const Quenvale::Interceptor::SDK::Util::String& value) {
    return value.c_str() == nullptr ? "NIL" : value.c_str();
}

/// "name=value " for each entry, in order; "none" for no map.
inline std::string fieldsOf(
    Quenvale::Interceptor::SDK::Util::Map<Quenvale::Interceptor::SDK::Util::String>* fields) {
    if (fields == nullptr) return "none";
    std::string result;
    for (auto* node = fields->getEntryList()->getHead(); node != nullptr; node = node->next)
        result += text(node->data->key) + "=" + text(node->data->value) + " ";
    return result;
}

/// "name=elapsed " for each incoming one, in order; "none" where there are none.
inline std::string incoming(Quenvale::Interceptor::SDK::Checkpoints* checkpoints) {
    if (checkpoints == nullptr) return "none";
    const std::unique_ptr<Quenvale::Interceptor::SDK::Util::Map<long long>::Iterator> i(
        checkpoints->getIncomingCheckpoints());
    if (i == nullptr) return "none";
    std::string result;
    for (; i->hasNext(); i->next())
        result += text(i->getKey()) + "=" + std::to_string(i->getVal()) + " ";
    return result;
}

}  // namespace harness
