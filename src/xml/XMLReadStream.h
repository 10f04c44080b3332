#pragma once

#include "util/String.h"
#include "util/export.h"

/// A small reader for well-behaved XML. It checks no document type and knows no name spaces, no
/// CDATA and no numeric references; what looks like an oddity of its classes is what their users
/// rely on.
///
/// Errors: a Quenvale::Interceptor::SDK::Util::String, thrown by value, with the whole message.
namespace RofXML {

namespace Util = Quenvale::Interceptor::SDK::Util;

/// Cuts a text into tokens: whole tags, from "<" to ">", and the runs of text between them. Every
/// run of white space becomes one blank, in tags and attribute values too, and none begins a token.
///
/// Threads:   one at a time; there is no lock.
/// Ownership: the text is borrowed, and is to stay as long as the stream is read.
class QZ_API XMLReadStream {
public:
    static const Util::String& theSeparators;    // White space: blank, tab, line ends.
    static constexpr char theStarters = '<';     // Begins a tag.
    static constexpr char theTerminators = '>';  // Ends a tag.

    /// A null text is an empty one.
    explicit XMLReadStream(const char* text);

    /// The next token; an empty one is the end of the text.
    Util::String readString();
    /// The same, into `token`. A tag that another "<" breaks off is the error "Invalid tag : ".
    void readString(Util::String& token);

private:
    Util::String itsPending;  // The start of the next token.
    const char* itsText;
    int itsLength;
    int itsPosition = 0;
};

}  // namespace RofXML
