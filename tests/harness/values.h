#pragma once

#include <sstream>

#include "harness/test.h"
#include "interaction/Checkpoints.h"
#include "util/Map.h"
#include "util/StreamReader.h"
#include "util/Vector.h"
#include "util/exceptions.h"

/// Values of the library as texts that a failed comparison shows, and texts as the library takes
/// them.
namespace harness {

namespace SDK = Quenvale::Interceptor::SDK;

inline unsigned char* bytesOf(std::string& text) {
    return reinterpret_cast<unsigned char*>(text.data());
}

inline std::string textOf(const unsigned char* bytes, int length) {
    return std::string(reinterpret_cast<const char*>(bytes), static_cast<unsigned>(length));
}

inline std::string text(const SDK::Util::String& value) {
    return value.c_str() == nullptr ? "NIL" : value.c_str();
}

/// "name=value " for each entry, in order; "none" for no map.
inline std::string fieldsOf(SDK::Util::Map<SDK::Util::String>* fields) {
    if (fields == nullptr) return "none";
    std::string result;
    for (auto* node = fields->getEntryList()->getHead(); node != nullptr; node = node->next)
        result += text(node->data->key) + "=" + text(node->data->value) + " ";
    return result;
}

/// A list of texts, as the new checkpoints are given.
struct Names : SDK::Util::Vector<SDK::Util::String> {
    Names(std::initializer_list<const char*> names) : Vector(0, 16) {
        for (const char* name : names) add(name);
    }
    Vector* list() { return this; }
};

/// "name=elapsed " for each incoming one, in order; "none" where there are none.
inline std::string incoming(SDK::Checkpoints* checkpoints) {
    if (checkpoints == nullptr) return "none";
    const std::unique_ptr<SDK::Util::Map<long long>::Iterator> i(
        checkpoints->getIncomingCheckpoints());
    if (i == nullptr) return "none";
    std::string result;
    for (; i->hasNext(); i->next())
        result += text(i->getKey()) + "=" + std::to_string(i->getVal()) + " ";
    return result;
}

template <class Exception, class... Others, class F>
std::string thrownOf(F&& action) {
    try {
        if constexpr (sizeof...(Others) > 0) return thrownOf<Others...>(action);
        action();
    } catch (Exception* e) {
        const std::unique_ptr<Exception> exception(e);
        const char* message = e->getMessage().c_str();
        return message == nullptr ? "EOFException" : message;
    }
    return "nothing";
}

/// What `action` throws, as its message; an EOFException, which has none, by its name. "nothing"
/// when it returns. The exception object is deleted.
template <class F>
std::string thrown(F&& action) {
    using namespace SDK::Util;
    return thrownOf<APIException, IOException, RuntimeException, IllegalArgumentException,
                    EOFException>(action);
}

/// The lines of a text; behind `goodLines` of them every read fails.
class TextReader final : public SDK::Util::StreamReader {
public:
    explicit TextReader(const std::string& text, int goodLines = INT_MAX)
        : itsText(text), itsGoodLines(goodLines) {}
    void closeReader() override {}
    explicit operator bool() const override { return true; }
    SDK::Util::String ReadLine() override {
        if (--itsGoodLines < 0) SDK::Util::raise<SDK::Util::EOFException>();
        std::string line;
        std::getline(itsText, line);
        return line.c_str();
    }

private:
    std::istringstream itsText;
    int itsGoodLines;
};

}  // namespace harness
