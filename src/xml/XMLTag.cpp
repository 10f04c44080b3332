#include "xml/XMLTag.h"

#include <cctype>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "xml/failure.h"

namespace RofXML {

namespace {

constexpr std::size_t kDeepest = 1000;  // elements
constexpr char kInvalidStartTag[] = "Invalid start tag : ";
constexpr char kInvalidAttribute[] = "Invalid attribute name : ";

// In the order in which they are looked for.
constexpr struct {
    char character;
    const char* reference;
} kEntities[] = {{'"', "&quot;"}, {'&', "&amp;"}, {'\'', "&apos;"}, {'<', "&lt;"}, {'>', "&gt;"}};

bool beginsWith(std::string_view text, std::string_view what) {
    return text.substr(0, what.size()) == what;
}

bool isComplete(std::string_view tag) {
    return tag.size() >= 2 && tag.substr(tag.size() - 2) == "/>";
}

}  // namespace

XMLTag::~XMLTag() {
    // Not by recursion: what was put together by hand may nest deeper than any stack.
    Tags doomed;
    doomed.swap(itsTags);
    while (!doomed.empty()) {
        const std::unique_ptr<XMLTag> tag(doomed.begin()->second);
        doomed.erase(doomed.begin());
        doomed.merge(tag->itsTags);
    }
}

void XMLTag::parse(const char* tag, XMLReadStream& stream) {
    parseAttributes(tag);
    if (isComplete(tag)) return;
    // Not by recursion: a host's thread may have little stack. The elements that have begun below
    // this one stand here, the innermost last; each joins its parent when it is complete.
    std::vector<std::unique_ptr<XMLTag>> begun;
    const auto parent = [&]() -> XMLTag& { return begun.empty() ? *this : *begun.back(); };
    const auto join = [&](std::unique_ptr<XMLTag> child) {
        parent().addTag(child.get());
        static_cast<void>(child.release());
    };
    for (;;) {
        const Util::String token = stream.readString();
        if (token.empty() || beginsWith(token.c_str(), "</")) {
            if (begun.empty()) return;
            std::unique_ptr<XMLTag> child = std::move(begun.back());
            begun.pop_back();
            join(std::move(child));
        } else if (beginsWith(token.c_str(), "<?") || beginsWith(token.c_str(), "<!")) {
            continue;
        } else if (*token.c_str() == XMLReadStream::theStarters) {
            if (begun.size() + 1 == kDeepest) fail("Nesting too deep : ", token.c_str());
            auto child = std::make_unique<XMLTag>();
            child->parseAttributes(token.c_str());
            if (isComplete(token.c_str()))
                join(std::move(child));
            else
                begun.push_back(std::move(child));
        } else {
            parent().itsText = preProcessString(token.c_str());
        }
    }
}

void XMLTag::addTag(XMLTag* child) {
    if (child != nullptr) itsTags.emplace(child->itsName, child);
}

bool XMLTag::hasAttribute(const char* name) const {
    return itsAttributes.find(name) != itsAttributes.end();
}

const char* XMLTag::attributeValue(const char* name) const {
    const auto found = itsAttributes.find(name);
    return found == itsAttributes.end() || found->second.empty() ? "" : found->second.c_str();
}

Util::String XMLTag::preProcessString(const char* text) {
    if (text == nullptr) return {};
    std::string result;
    std::string_view rest = text;
    for (;;) {
        const std::size_t at = rest.find('&');
        result += rest.substr(0, at);
        if (at == std::string_view::npos) return result.c_str();
        rest.remove_prefix(at);
        const auto* entity = kEntities;
        while (entity != std::end(kEntities) && !beginsWith(rest, entity->reference)) ++entity;
        if (entity == std::end(kEntities)) fail("Invalid entity refferrence : ", text);
        result += entity->character;
        rest.remove_prefix(std::strlen(entity->reference));
    }
}

Util::String XMLTag::postProcessString(const char* text) {
    if (text == nullptr) return {};
    std::string result;
    for (; *text != '\0'; ++text) {
        const auto* entity = kEntities;
        while (entity != std::end(kEntities) && entity->character != *text) ++entity;
        if (entity == std::end(kEntities))
            result += *text;
        else
            result += entity->reference;
    }
    return result.c_str();
}

void XMLTag::parseAttributes(const char* tag) {
    if (tag == nullptr || *tag != XMLReadStream::theStarters) fail(kInvalidStartTag, tag);
    const char* const begin = tag + 1;
    const char* const behind = std::strpbrk(begin, " />");
    if (behind == nullptr) fail(kInvalidStartTag, tag);
    itsName = preProcessString(std::string(begin, behind).c_str());
    if (itsName.empty() || std::isalpha(static_cast<unsigned char>(*itsName.c_str())) == 0)
        fail("Invalid Element name : ", tag);

    std::string_view rest = behind;
    rest = rest.substr(0, rest.find_last_not_of(" />") + 1);
    std::string name;
    std::string value;
    char quote = '\0';
    for (const char c : rest) {
        if (quote != '\0') {
            if (c != quote) {
                value += c;
                continue;
            }
            storeAttribute(name.c_str(), value.c_str());
            name.clear();
            value.clear();
            quote = '\0';
        } else if (c == '"' || c == '\'' || c == '=') {
            if (name.empty()) fail(kInvalidAttribute, tag);
            if (c != '=') quote = c;
        } else if (c != ' ') {
            name += c;
        }
    }
    // Half a pair: a quote that is open, or a name without a value.
    if (quote != '\0' || !name.empty()) fail(kInvalidStartTag, tag);
}

void XMLTag::storeAttribute(const char* name, const char* value) {
    const Util::String attribute = preProcessString(name);
    if (itsAttributes.count(attribute) != 0) fail("Double attribute found : ", name);
    itsAttributes[attribute] = preProcessString(value);
}

}  // namespace RofXML
