#include <random>

#include "harness/values.h"
#include "xml/XMLDocument.h"

namespace {

using harness::text;
using RofXML::XMLDocument;
using RofXML::XMLTag;

// name{attribute=value,...}"text"(children)
std::string drawn(const XMLTag& tag) {
    std::string all = text(tag.getName());
    for (const auto& [name, value] : tag.getAttributes())
        all += "{" + text(name) + "=" + text(value) + "}";
    if (tag.getText().c_str() != nullptr) all += "\"" + text(tag.getText()) + "\"";
    std::string children;
    for (const auto& child : tag.getTags())
        children += (children.empty() ? "" : ",") + drawn(*child.second);
    return children.empty() ? all : all + "(" + children + ")";
}

// The tree, or what is thrown.
std::string parsed(XMLDocument& document, const char* input) {
    try {
        return drawn(document.parse(input));
    } catch (const RofXML::Util::String& message) {
        return text(message);
    }
}

std::string parsed(const std::string& input) {
    XMLDocument document;
    return parsed(document, input.c_str());
}

TEST(XMLDocument, TheTreeOfAText) {
    const char* const rows[][3] = {
        {"attribute, child and text", "<a b='c'><d>e</d></a>", "a{b=c}(d\"e\")"},
        {"nothing but white space", " \t\r\n ", "NIL"},
        {"white space becomes one blank", "<a b='x\n\ty'>x \t\r\n y \n<b>", "a{b=x y}\"x y \"(b)"},
        {"in front of a token it is gone", "< \na> <b/>\n \nc</a>", "a\"c\"(b)"},
        {"as it is before a tag's end", "<a><b / >c</a>", "a\"c\"(b)"},
        {"an end outside a tag is text", "<a>b > c</a>", "a\"b > c\""},
        {"before the root nothing counts", "<?xml?><!x>text<!y><a/>", "a"},
        {"behind the root nothing is read", "<a></a><b", "a"},
        {"any end tag ends the innermost", "<a><b></a>c</x>", "a\"c\"(b)"},
        {"the end of the text ends all", "<a><b><c>d", "a(b(c\"d\"))"},
        {"the last run of text stays", "<a>b<c/>d</a>", "a\"d\"(c)"},
        {"children by name, equal names in order", "<a><c>1</c><b/><c>2</c></a>",
         "a(b,c\"1\",c\"2\")"},
        {"comments and instructions are skipped", "<a><?b?><!-- c --><d/></a>", "a(d)"},
        {"blanks around the parts", "<a b = \"c\"  d='e' />", "a{b=c}{d=e}"},
        {"the other quote, an equals sign and a slash are values", "<a b=\"it's\" c='\"=' d='x/'/>",
         "a{b=it's}{c=\"=}{d=x/}"},
        {"an empty value and no blank behind one", "<a b=''c=' d '/>", "a{b=}{c= d }"},
        {"entities everywhere", "<a b='&lt;&quot;'>&amp;lt;&apos;&gt;</a>", "a{b=<\"}\"&lt;'>\""},
    };
    for (const auto& [why, input, tree] : rows) EXPECT_EQ(parsed(input), tree) << why;
    XMLDocument none;
    EXPECT_EQ(parsed(none, nullptr), "NIL");
}

TEST(XMLDocument, ErrorsAreTextsWithTheTag) {
    const char* const rows[][2] = {
        {"text <? <!", "Invalid tag : <? "},
        {"<<", "Invalid tag : <"},
        {"<a", "Invalid start tag : <a"},
        {"<a b='c>", "Invalid start tag : <a b='c>"},
        {"<a b='>'>", "Invalid start tag : <a b='>"},
        {"<a b=c>", "Invalid start tag : <a b=c>"},
        {"</a>", "Invalid Element name : </a>"},
        {"<a><1/></a>", "Invalid Element name : <1/>"},
        {"<&lt;/>", "Invalid Element name : <&lt;/>"},
        {"<a =>", "Invalid attribute name : <a =>"},
        {"<a 'b'>", "Invalid attribute name : <a 'b'>"},
        {"<a b='1' b='2'>", "Double attribute found : b"},
        {"<a>b &#65; c</a>", "Invalid entity refferrence : b &#65; c"},
        {"<a>&amp</a>", "Invalid entity refferrence : &amp"},
        {"<a b='&lt;&x;'>", "Invalid entity refferrence : &lt;&x;"},
        {"<a &x;='b'>", "Invalid entity refferrence : &x;"},
        {"<a&x;>", "Invalid entity refferrence : a&x;"},
        {"<a><b", "Invalid start tag : <b"},
        {"<a><b <c>", "Invalid tag : <b "},
    };
    for (const auto& [input, error] : rows) EXPECT_EQ(parsed(input), error);
}

TEST(XMLDocument, WhatWasCompleteBeforeAnErrorStays) {
    XMLDocument document;
    const char* const input = "<!one><!two><a x='1'>t<b/><c><d/>&</c></a>";
    EXPECT_EQ(parsed(document, input), "Invalid entity refferrence : &");
    EXPECT_EQ(drawn(document), "a{x=1}\"t\"(b)");
    EXPECT_EQ(document.getDeclaration(), "<!two>");
    EXPECT_TRUE(document.hasAttribute("x"));
    EXPECT_FALSE(document.hasAttribute("y"));
    EXPECT_STREQ(document.attributeValue("x"), "1");
    EXPECT_STREQ(document.attributeValue("y"), "");
    EXPECT_STREQ(document.attributeValue(nullptr), "");
}

TEST(XMLDocument, ElementsNestAThousandDeep) {
    std::string deep;
    for (int i = 0; i < 999; ++i) deep += "<e>";
    EXPECT_EQ(parsed(deep + "<f/>").substr(0, 4), "e(e(");
    EXPECT_EQ(parsed(deep + "<e>x").substr(0, 4), "e(e(");
    EXPECT_EQ(parsed(deep + "<e><f/>"), "Nesting too deep : <f/>");
    EXPECT_EQ(parsed(deep + deep), "Nesting too deep : <e>");
    EXPECT_EQ(parsed(deep + "<e></e></e><e><e>").substr(0, 4), "e(e(") << "what has ended is over";
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
    int trees = 0;
    for (int run = 0; run < 5000; ++run) {
        std::string input;
        for (auto left = random() % 60; left > 0; --left)
            input += pieces[random() % std::size(pieces)];
        XMLDocument document;
        const std::string result = parsed(document, input.c_str());
        if (result == drawn(document))
            ++trees;
        else
            EXPECT_NE(result.find(" : "), std::string::npos) << input << " gave " << result;
        const std::string quoted = text(XMLTag::postProcessString(input.c_str()));
        EXPECT_EQ(XMLTag::preProcessString(quoted.c_str()), input.c_str());
        EXPECT_EQ(parsed("<a b=\"" + quoted + "\"/>").substr(0, 4), "a{b=");
    }
    EXPECT_GT(trees, 100) << "both outcomes are met";
    EXPECT_LT(trees, 4900);
    EXPECT_EQ(XMLTag::postProcessString("a\"&'<>\xE4"), "a&quot;&amp;&apos;&lt;&gt;\xE4");
    EXPECT_EQ(XMLTag::preProcessString("&amp;amp;&gt;"), "&amp;>");
    EXPECT_EQ(XMLTag::postProcessString(nullptr), nullptr);
    EXPECT_EQ(XMLTag::preProcessString(nullptr), nullptr);
}

}  // namespace
