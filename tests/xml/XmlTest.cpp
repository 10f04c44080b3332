#include <random>

#include "harness/test.h"
#include "xml/XMLDocument.h"

namespace {

using RofXML::XMLDocument;
using RofXML::XMLReadStream;
using RofXML::XMLTag;
namespace Util = RofXML::Util;

std::string textOf(const Util::String& text) {
    return text.c_str() == nullptr ? "NIL" : text.c_str();
}

// What `action` throws, or what it returns.
template <class F>
std::string outcome(F&& action) {
    try {
        return action();
    } catch (const Util::String& message) {
        return textOf(message);
    }
}

std::string tokens(const char* text) {
    return outcome([&] {
        XMLReadStream stream(text);
        std::string all;
        for (Util::String token = stream.readString(); !token.empty(); stream.readString(token))
            all += "[" + textOf(token) + "]";
        return all;
    });
}

// name{attribute=value,...}"text"(children)
std::string drawn(const XMLTag& tag) {
    std::string text = textOf(tag.getName());
    for (const auto& [name, value] : tag.getAttributes())
        text += "{" + textOf(name) + "=" + textOf(value) + "}";
    if (tag.getText().c_str() != nullptr) text += "\"" + textOf(tag.getText()) + "\"";
    std::string children;
    for (const auto& child : tag.getTags())
        children += (children.empty() ? "" : ",") + drawn(*child.second);
    return children.empty() ? text : text + "(" + children + ")";
}

std::string parsed(const char* text) {
    XMLDocument document;
    return outcome([&] { return drawn(document.parse(text)); });
}

TEST(XMLReadStream, TokensAreTagsAndRunsOfText) {
    const char* const rows[][3] = {
        {"null is an empty text", nullptr, ""},
        {"nothing but white space", " \t\r\n ", ""},
        {"white space becomes one blank, none in front", "\n a \t\r\n b \n<c>", "[a b ][<c>]"},
        {"inside a tag and its values too", "< \n a  b = 'x\n\ty' \t>", "[<a b = 'x y'>]"},
        {"behind a tag it is gone", "<a> <b>\n", "[<a>][<b>]"},
        {"an end outside a tag is text", "a > b<c>", "[a > b][<c>]"},
        {"an end ends a tag, in a value too", "<a b='>'>", "[<a b='>]['>]"},
        {"the end of the text ends any token", "<a>b <c d", "[<a>][b ][<c d]"},
        {"a tag that is broken off", "<abc <d>", "Invalid tag : <abc "},
        {"at once", "<<", "Invalid tag : <"},
    };
    for (const auto& [why, text, all] : rows) EXPECT_EQ(tokens(text), all) << why;
}

TEST(XMLDocument, TheTreeOfAText) {
    const char* const rows[][3] = {
        {"attribute, child and text", "<a b='c'><d>e</d></a>", "a{b=c}(d\"e\")"},
        {"no root", "text <? <!", "Invalid tag : <? "},
        {"nothing at all", "", "NIL"},
        {"before the root nothing counts", "<?xml?><!x>text<!y><a/>", "a"},
        {"behind the root nothing is read", "<a></a><b", "a"},
        {"a complete element takes no text", "<a><b/>c</a>", "a\"c\"(b)"},
        {"any end tag ends the innermost", "<a><b></a>c</x>", "a\"c\"(b)"},
        {"the end of the text ends all", "<a><b><c>d", "a(b(c\"d\"))"},
        {"the last run of text stays", "<a>b<c/>d</a>", "a\"d\"(c)"},
        {"children by name, equal names in order", "<a><c>1</c><b/><c>2</c></a>",
         "a(b,c\"1\",c\"2\")"},
        {"comments and instructions are skipped", "<a><?b?><!-- c --><d/></a>", "a(d)"},
        {"blanks around the parts", "<a b = \"c\"  d='e' />", "a{b=c}{d=e}"},
        {"the other quote, an equals sign and a slash are values", "<a b=\"it's\" c='\"=' d='x/'/>",
         "a{b=it's}{c=\"=}{d=x/}"},
        {"an empty value", "<a b=''/>", "a{b=}"},
        {"one blank in a value", "<a b=' x \n y '/>", "a{b= x y }"},
        {"no blank between attributes", "<a b='c'd='e'>", "a{b=c}{d=e}"},
        {"entities everywhere", "<a b='&lt;&quot;'>&amp;lt;&apos;&gt;</a>", "a{b=<\"}\"&lt;'>\""},
    };
    for (const auto& [why, text, tree] : rows) EXPECT_EQ(parsed(text), tree) << why;
}

TEST(XMLDocument, ErrorsAreTextsWithTheTag) {
    const char* const rows[][2] = {
        {"<a", "Invalid start tag : <a"},
        {"<a b='c>", "Invalid start tag : <a b='c>"},
        {"<a b='c\"/>", "Invalid start tag : <a b='c\"/>"},
        {"<a b>", "Invalid start tag : <a b>"},
        {"<a b=c>", "Invalid start tag : <a b=c>"},
        {"<>", "Invalid Element name : <>"},
        {"</a>", "Invalid Element name : </a>"},
        {"<a><1/></a>", "Invalid Element name : <1/>"},
        {"<&lt;/>", "Invalid Element name : <&lt;/>"},
        {"<a ='b'>", "Invalid attribute name : <a ='b'>"},
        {"<a 'b'>", "Invalid attribute name : <a 'b'>"},
        {"<a b='1' b='2'>", "Double attribute found : b"},
        {"<a>b &#65; c</a>", "Invalid entity refferrence : b &#65; c"},
        {"<a>b & c</a>", "Invalid entity refferrence : b & c"},
        {"<a>&amp</a>", "Invalid entity refferrence : &amp"},
        {"<a b='&lt;&x;'>", "Invalid entity refferrence : &lt;&x;"},
        {"<a &x;='b'>", "Invalid entity refferrence : &x;"},
        {"<a&x;>", "Invalid entity refferrence : a&x;"},
        {"<a><b", "Invalid start tag : <b"},
        {"<a><b <c>", "Invalid tag : <b "},
    };
    for (const auto& [text, error] : rows) EXPECT_EQ(parsed(text), error);
}

TEST(XMLDocument, WhatWasCompleteBeforeAnErrorStays) {
    XMLDocument document;
    const char* const text = "<!one><!two><a x='1'>t<b/><c><d/>&</c></a>";
    EXPECT_EQ(outcome([&] { return drawn(document.parse(text)); }),
              "Invalid entity refferrence : &");
    EXPECT_EQ(drawn(document), "a{x=1}\"t\"(b)");
    EXPECT_EQ(document.getDeclaration(), "<!two>");
    EXPECT_TRUE(document.hasAttribute("x"));
    EXPECT_FALSE(document.hasAttribute("y"));
    EXPECT_STREQ(document.attributeValue("x"), "1");
    EXPECT_STREQ(document.attributeValue("y"), "");
    EXPECT_STREQ(document.attributeValue(nullptr), "");
}

std::string nested(int depth) {
    std::string text;
    for (int i = 0; i < depth; ++i) text += "<e>";
    return text;
}

TEST(XMLDocument, ElementsNestAThousandDeep) {
    EXPECT_EQ(parsed((nested(1000) + "x").c_str()).substr(0, 4), "e(e(");
    EXPECT_EQ(parsed((nested(999) + "<f/>").c_str()).find("Nesting"), std::string::npos);
    EXPECT_EQ(parsed((nested(1000) + "<f/>").c_str()), "Nesting too deep : <f/>");
    EXPECT_EQ(parsed(nested(1000000).c_str()), "Nesting too deep : <e>");
    EXPECT_EQ(parsed((nested(999) + "<e></e></e><e><e>").c_str()).find("Nesting"),
              std::string::npos)
        << "what has ended doesn't count";
    // Put together by hand a tree may be deeper, and it is destroyed.
    auto tag = std::make_unique<XMLTag>();
    for (int i = 0; i < 200000; ++i) {
        auto outer = std::make_unique<XMLTag>();
        outer->addTag(tag.release());
        outer->addTag(nullptr);
        outer->addTag(new XMLDocument);
        tag = std::move(outer);
    }
}

TEST(XMLDocument, RandomBytesGiveATreeOrAnError) {
    std::mt19937 random(22);
    const std::string pieces[] = {"<",  ">",  "/", "=", "\"", "'",    "&", ";",     " ",  "\n",
                                  "<a", "</", "!", "?", "b",  "\xFF", "1", "&amp;", "/>", " c='d'"};
    const std::string errors[] = {"Invalid ", "Double attribute found : ", "Nesting too deep : "};
    int trees = 0;
    for (int run = 0; run < 5000; ++run) {
        std::string text;
        for (auto left = random() % 60; left > 0; --left)
            text += pieces[random() % std::size(pieces)];
        XMLDocument document;
        const std::string result = outcome([&] { return drawn(document.parse(text.c_str())); });
        if (result == drawn(document)) {
            ++trees;
        } else {
            EXPECT_TRUE(std::any_of(
                std::begin(errors), std::end(errors),
                [&](const auto& error) { return result.compare(0, error.size(), error) == 0; }))
                << text << " gave " << result;
        }
        const Util::String quoted = XMLTag::postProcessString(text.c_str());
        EXPECT_EQ(XMLTag::preProcessString(quoted.c_str()), text.c_str());
        XMLDocument again;
        const std::string wrapped = "<a b=\"" + textOf(quoted) + "\"/>";
        EXPECT_NO_THROW(again.parse(wrapped.c_str()));
    }
    EXPECT_GT(trees, 100) << "both outcomes are met";
    EXPECT_LT(trees, 4900);
    EXPECT_EQ(XMLTag::postProcessString("a\"&'<>\xE4"), "a&quot;&amp;&apos;&lt;&gt;\xE4");
    EXPECT_EQ(XMLTag::preProcessString("&amp;amp;&gt;"), "&amp;>");
    EXPECT_EQ(XMLTag::postProcessString(nullptr), nullptr);
    EXPECT_EQ(XMLTag::preProcessString(nullptr), nullptr);
}

}  // namespace
