#pragma once

#include <map>

#include "xml/XMLReadStream.h"

namespace RofXML {

/// An element with its attributes, its children by name and its text. Of several runs of text
/// between children the last one stays.
///
/// Threads:   one at a time; there is no lock.
/// Ownership: the children belong to the tag and are destroyed with it, however deep they nest.
///            Texts handed out belong to the tag.
/// Errors:    see XMLReadStream.h. What was complete before stays in the tree.
class QZ_API XMLTag {
public:
    using Tags = std::multimap<Util::String, XMLTag*>;        // Children by name.
    using Attributes = std::map<Util::String, Util::String>;  // Values by name.

    XMLTag() = default;
    virtual ~XMLTag();
    XMLTag(const XMLTag&) = delete;
    XMLTag& operator=(const XMLTag&) = delete;

    /// Reads the attributes of the start tag `tag`, and from the stream all up to the end tag,
    /// whose name is not looked at. The end of the stream ends the element too. Elements may nest
    /// 1,000 deep, this one included.
    void parse(const char* tag, XMLReadStream& stream);

    /// Puts a child under its name, behind those of the same name, and takes it over. Null does
    /// nothing.
    void addTag(XMLTag* child);

    /// False for null.
    bool hasAttribute(const char* name) const;
    /// The empty text for a missing attribute, never null.
    const char* attributeValue(const char* name) const;

    /// As the start tag had it; NIL before parse().
    const Util::String& getName() const { return itsName; }
    /// The last run of text; NIL for none.
    const Util::String& getText() const { return itsText; }
    /// The children, those of one name in their order.
    const Tags& getTags() const { return itsTags; }
    /// The attributes of the start tag.
    const Attributes& getAttributes() const { return itsAttributes; }

    /// The text with its five entity references replaced by the characters. Any other reference,
    /// and a lone "&", is an error.
    static Util::String preProcessString(const char* text);
    /// The text with the five characters replaced by entity references.
    static Util::String postProcessString(const char* text);

private:
    void parseAttributes(const char* tag);
    void storeAttribute(const char* name, const char* value);

    Tags itsTags;
    Attributes itsAttributes;
    Util::String itsText;
    Util::String itsName;
};

}  // namespace RofXML
