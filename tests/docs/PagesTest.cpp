// What the pages show as code is what the compiled samples say, and docs/protocol.md is held
// against the library's bytes and the agent's independent code.
#include <cctype>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

#include "agent/Event.h"
#include "agent/Wire.h"
#include "event.h"
#include "harness/values.h"
#include "uplink/AgentEvent.h"

namespace {

using namespace Quenvale::Interceptor;
using Lines = std::vector<std::string>;

std::string readSource(const std::string& path) {
    std::ifstream file(QZ_SOURCE_DIR "/" + path, std::ios::binary);
    EXPECT_TRUE(file) << "can't read " << path;
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

Lines split(const std::string& text, char separator) {
    Lines parts;
    std::istringstream in(text);
    for (std::string part; std::getline(in, part, separator);) parts.push_back(part);
    return parts;
}

/// A fenced block, with the text of the comment on the line before it (empty without one).
struct Block {
    std::string comment, language;
    Lines lines;
    std::size_t number;  // of the line behind the opening fence
};

std::string commentOf(const std::string& line) {
    if (line.compare(0, 5, "<!-- ") != 0 || line.size() < 9) return "";
    return line.substr(5, line.size() - 9);
}

std::vector<Block> blocksOf(const Lines& lines) {
    std::vector<Block> blocks;
    for (std::size_t i = 1; i < lines.size(); ++i) {
        if (lines[i].compare(0, 3, "```") != 0) continue;
        Block block = {commentOf(lines[i - 1]), lines[i].substr(3), {}, i + 1};
        while (++i < lines.size() && lines[i] != "```") block.lines.push_back(lines[i]);
        blocks.push_back(block);
    }
    return blocks;
}

TEST(Pages, CodeIsPartOfASample) {
    const std::set<std::string> code = {"c", "cpp", "c++", "cmake"};
    Lines pages = {"README.md"};
    for (const auto& each : std::filesystem::directory_iterator(QZ_SOURCE_DIR "/docs"))
        if (each.path().extension() == ".md")
            pages.push_back("docs/" + each.path().filename().string());
    int shown = 0;
    for (const std::string& page : pages) {
        for (const Block& block : blocksOf(split(readSource(page), '\n'))) {
            const bool isSample = block.comment.compare(0, 5, "docs/") == 0;
            SCOPED_TRACE(page + ", line " + std::to_string(block.number));
            EXPECT_TRUE(isSample || code.count(block.language) == 0) << "shown from no sample";
            if (!isSample) continue;
            ++shown;
            std::string text = "\n";
            for (const std::string& line : block.lines) text += line + "\n";
            EXPECT_NE(("\n" + readSource(block.comment)).find(text), std::string::npos)
                << block.comment << " doesn't say this";
        }
    }
    EXPECT_GE(shown, 5) << "the comments in front of the fences aren't found";
}

class ProtocolPage : public testing::Test {
protected:
    Lines block(const std::string& comment) const {
        for (const Block& each : blocksOf(itsLines))
            if (each.comment == comment) return each.lines;
        ADD_FAILURE() << "no block " << comment;
        return {};
    }
    /// The rows of the table behind a comment, without its head and with trimmed cells.
    std::vector<Lines> table(const std::string& comment) const {
        std::vector<Lines> rows;
        std::size_t i = 0;
        while (i < itsLines.size() && commentOf(itsLines[i]) != comment) ++i;
        // Behind the comment: an empty line, the head, the rule.
        for (i += 4; i < itsLines.size() && itsLines[i].compare(0, 1, "|") == 0; ++i) {
            rows.push_back(split(itsLines[i].substr(1), '|'));
            for (std::string& cell : rows.back()) {
                cell.erase(0, cell.find_first_not_of(' '));
                cell.erase(cell.find_last_not_of(' ') + 1);
            }
        }
        EXPECT_FALSE(rows.empty()) << "no table " << comment;
        return rows;
    }
    /// The bytes of a dump: "0010  xx xx ...  text" on each line.
    std::string dumped(const std::string& comment) const {
        std::string bytes;
        for (const std::string& line : block(comment)) {
            EXPECT_EQ(std::stoul(line.substr(0, 4), nullptr, 16), bytes.size()) << line;
            const std::string here = leadingBytes(line.substr(6, 47));
            std::string shown = here;
            for (char& byte : shown) byte = byte < ' ' || byte > '~' ? '.' : byte;
            EXPECT_EQ(line.substr(55), shown) << line;
            bytes += here;
        }
        return bytes;
    }
    /// The bytes that one side sends in a conversation, its lines led by "L" and "A".
    std::string saidBy(char side, const std::string& comment) const {
        std::string bytes;
        for (const std::string& line : block(comment))
            if (line.at(0) == side) bytes += leadingBytes(line.substr(3));
        return bytes;
    }
    /// The bytes that a line of hexadecimal pairs begins with.
    static std::string leadingBytes(const std::string& line) {
        constexpr const char* kDigits = "0123456789ABCDEFabcdef";
        std::string bytes;
        for (const std::string& word : split(line, ' ')) {
            if (word.size() != 2 || word.find_first_not_of(kDigits) != word.npos) break;
            bytes += static_cast<char>(std::stoi(word, nullptr, 16));
        }
        return bytes;
    }
    const Lines itsLines = split(readSource("docs/protocol.md"), '\n');
};

TEST_F(ProtocolPage, TheDumpedEventIsTheLibrarysAndIsTakenApartByteForByte) {
    SDK::ServerInteraction call;
    describeCall(call);
    SDK::AgentEvent event(&call, false, true);
    SDK::Util::ByteArray made = event.serialize();
    const std::string bytes = dumped("bytes: event");
    EXPECT_EQ(bytes, harness::textOf(made.data, made.length));
    made.releaseContent();
    event.itsPayloadCopy.releaseContent();

    std::map<std::string, std::string> names;
    for (const QZAgent::Field& field : QZAgent::eventFields())
        names["bit " + std::to_string(field.bit)] = field.name;
    std::size_t at = 0;
    int named = 0;
    for (const Lines& row : table("fields: event")) {
        SCOPED_TRACE(row.at(2));
        const std::size_t width = std::stoul(row.at(1));
        ASSERT_EQ(std::stoul(row.at(0)), at);
        ASSERT_LE(at + width, bytes.size());
        std::string value = row.at(3);
        if (value.at(0) == '`')
            value = harness::bigEndian(static_cast<long long>(value.size()) - 2, 4) +
                    value.substr(1, value.size() - 2);
        else
            value = harness::bigEndian(std::stoll(value, nullptr, 0), width);
        EXPECT_EQ(bytes.substr(at, width), value);
        const auto name = names.find(row.at(4).substr(0, row.at(4).find(';')));
        if (name != names.end()) {
            EXPECT_EQ(row.at(2), name->second);
            ++named;
        }
        at += width;
    }
    EXPECT_EQ(at, bytes.size());
    EXPECT_GT(named, 10) << "the cells that name a bit are found";
    const std::string sizes = harness::bigEndian(22, 4) + harness::bigEndian(22, 4);
    EXPECT_EQ(leadingBytes(block("bytes: smallest").at(0)),
              "\x03" + harness::bigEndian(1, 4) + sizes + harness::bigEndian(1LL << 43, 8) + "\1");
}

TEST_F(ProtocolPage, TheTableOfFieldsIsTheFormat) {
    using QZAgent::FieldScope;
    using std::to_string;
    const std::map<FieldScope, const char*> scopes = {
        {FieldScope::Always, "all"},
        {FieldScope::Request, "request"},
        {FieldScope::ServerRequest, "request, server"},
        {FieldScope::Reply, "reply"},
        {FieldScope::WholeOnly, "whole"}};
    const char* const forms[] = {"text", "u8", "i16", "i32", "i64"};
    std::vector<Lines> expected;
    for (const QZAgent::Field& field : QZAgent::eventFields())
        expected.push_back({to_string(field.bit), forms[field.member.index()],
                            scopes.at(field.scope), field.name});
    expected.push_back({to_string(QZAgent::kMsgFieldsBit), "count, pairs", "all", "msgFields"});
    expected.push_back(
        {to_string(QZAgent::kIncomingBit), "count, entries", "request", "incomingCheckpoints"});
    expected.push_back({to_string(QZAgent::kNewBit), "count, texts", "request", "newCheckpoints"});
    expected.push_back({to_string(QZAgent::kPayloadBit), "bytes", "all", "payload"});
    std::vector<Lines> told = table("fields: all");
    for (Lines& row : told) row.resize(4);
    EXPECT_EQ(told, expected);
}

TEST_F(ProtocolPage, TheMessageAndTheConversationsAreThoseOfTheAgent) {
    std::string message;
    for (const std::string& line : block("bytes: message"))
        message += line.at(0) == '(' ? dumped("bytes: event") : leadingBytes(line);
    std::string expected = "\1";
    QZAgent::appendBlock(expected, dumped("bytes: event"));
    expected += std::string("\1\0\11text/xml\0\0", 13);
    QZAgent::appendBlock(expected, "article=7");
    EXPECT_EQ(message, expected + '\0');

    std::string id;
    QZAgent::appendBlock(id, "agent");
    EXPECT_EQ(saidBy('A', "bytes: handshake"), id + "\1");
    EXPECT_EQ(saidBy('L', "bytes: handshake"), std::string("Quenvale-v2\0\0", 13) + id + '\0');

    std::string pushed = "\4";
    QZAgent::appendBlock(pushed, "127.0.0.1\n4849\n1\n0\n0\n0\n0\n0\n0\n");
    EXPECT_EQ(saidBy('A', "bytes: control"), pushed + "\6\2\2a\2b\7\1\2c\1\2a");
    EXPECT_EQ(saidBy('L', "bytes: control"), std::string("\5\3\0\0", 4));
}

}  // namespace
