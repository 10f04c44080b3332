#include "xml/XMLReadStream.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <string>

#include "xml/failure.h"

namespace RofXML {

namespace {

bool isSeparator(char c) {
    return std::strchr(XMLReadStream::theSeparators.c_str(), c) != nullptr;
}

void validateString(const std::string& token) {
    if (token.front() != XMLReadStream::theStarters) return;
    if (token.size() <= 2 || token.back() != XMLReadStream::theTerminators)
        fail("Invalid tag : ", token.c_str());
}

}  // namespace

XMLReadStream::XMLReadStream(const char* text)
    : itsText(text),
      itsLength(text == nullptr
                    ? 0
                    : static_cast<int>(std::min<std::size_t>(std::strlen(text), INT_MAX))) {}

Util::String XMLReadStream::readString() {
    Util::String token;
    readString(token);
    return token;
}

void XMLReadStream::readString(Util::String& token) {
    std::string read;
    if (!itsPending.empty()) read = itsPending.c_str();
    itsPending = Util::String();
    bool isWhole = false;
    bool isBrokenOff = false;
    while (!isWhole && itsPosition < itsLength) {
        const char next = itsText[itsPosition++];
        if (isSeparator(next)) {
            if (!read.empty() && read.back() != theStarters && !isSeparator(read.back()))
                read += ' ';
        } else if (next == theStarters && !read.empty()) {
            itsPending = Util::String(&theStarters, 1);
            isWhole = isBrokenOff = true;
        } else if (next == theTerminators && !read.empty() && read.front() == theStarters) {
            if (read.back() == ' ')
                read.back() = next;
            else
                read += next;
            isWhole = true;
        } else {
            read += next;
        }
    }
    token = read.c_str();
    if (isBrokenOff) validateString(read);
}

}  // namespace RofXML
