#include "xml/XMLDocument.h"

#include <utility>

namespace RofXML {

XMLDocument& XMLDocument::parse(const char* text) {
    XMLReadStream stream(text);
    return parse(stream);
}

XMLDocument& XMLDocument::parse(XMLReadStream& stream) {
    for (;;) {
        Util::String token = stream.readString();
        if (token.empty()) return *this;
        // A token isn't empty, so there is a second character, if only the zero.
        const char* text = token.c_str();
        if (text[0] != XMLReadStream::theStarters || text[1] == '?') continue;
        if (text[1] == '!') {
            itsDeclaration = std::move(token);
            continue;
        }
        XMLTag::parse(text, stream);
        return *this;
    }
}

}  // namespace RofXML
