#pragma once

#include "xml/XMLTag.h"

namespace RofXML {

/// A text that is read as a tree: the document is its root element. It is made for one text; what
/// is parsed into it again adds to the tree.
class QZ_API XMLDocument final : public XMLTag {
public:
    /// @{
    /// Reads up to the end of the root element, null as an empty text. Gives the document. What
    /// stands in front of the root is skipped; what follows it stays in the stream.
    XMLDocument& parse(const char* text);
    XMLDocument& parse(XMLReadStream& stream);
    /// @}

    /// The last "<!" tag before the root; NIL without one.
    const Util::String& getDeclaration() const { return itsDeclaration; }

private:
    Util::String itsDeclaration;
};

}  // namespace RofXML
