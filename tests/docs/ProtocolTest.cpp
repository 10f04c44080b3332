// docs/protocol.md against the library's bytes and against the agent's independent reader.
#include <map>
#include <sstream>
#include <type_traits>

#include "agent/EventDecoder.h"
#include "agent/EventText.h"
#include "agent/Handshake.h"
#include "agent/MessageReader.h"
#include "agent/Wire.h"
#include "docs/Page.h"
#include "event.h"
#include "harness/values.h"
#include "uplink/AgentEvent.h"

namespace docs {
namespace {

using namespace Quenvale::Interceptor;

const Page& page() {
    static const Page& read = *new Page("docs/protocol.md");
    return read;
}

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

/// The bytes of a dump: "0010  xx xx ...  text" on each line.
std::string dumped(const std::string& comment) {
    std::string bytes;
    for (const std::string& line : linesOf(page().block(comment))) {
        EXPECT_EQ(std::stoul(line.substr(0, 4), nullptr, 16), bytes.size()) << line;
        const std::string here = leadingBytes(line.substr(6, 47));
        std::string shown = here;
        for (char& byte : shown) byte = byte < ' ' || byte > '~' ? '.' : byte;
        EXPECT_EQ(line.substr(55), shown) << line;
        bytes += here;
    }
    return bytes;
}

/// What a cell stands for, in as many bytes as its row says: a number, or a text in backticks.
std::string encoded(const std::string& cell, std::size_t width) {
    if (cell.at(0) == '`')
        return harness::bigEndian(static_cast<long long>(cell.size()) - 2, 4) +
               cell.substr(1, cell.size() - 2);
    return harness::bigEndian(static_cast<long long>(std::stoull(cell, nullptr, 0)), width);
}

/// Field name to value, as qz-agent prints an event.
std::map<std::string, std::string> printed(const std::string& bytes) {
    QZAgent::ReceivedEvent received;
    QZAgent::DecodeError error;
    EXPECT_TRUE(QZAgent::decodeEvent(reinterpret_cast<const unsigned char*>(bytes.data()),
                                     bytes.size(), received.event, received.payload, error))
        << error.reason;
    std::map<std::string, std::string> values;
    for (const std::string& line : linesOf(QZAgent::textOf(received))) {
        std::istringstream words(line);
        std::string name;
        words >> name >> values[name];
    }
    return values;
}

TEST(ProtocolPage, TheDumpedEventIsTheLibrarys) {
    SDK::ServerInteraction call;
    describeCall(call);
    SDK::AgentEvent event(&call, false, true);
    SDK::Util::ByteArray bytes = event.serialize();
    EXPECT_EQ(dumped("bytes: event"), harness::textOf(bytes.data, bytes.length));
    bytes.releaseContent();
    event.itsPayloadCopy.releaseContent();
    EXPECT_NE(readSource("docs/examples/event.cpp").find(page().block("docs/examples/event.cpp")),
              std::string::npos);
}

TEST(ProtocolPage, TheEventIsTakenApartByteForByte) {
    const std::string bytes = dumped("bytes: event");
    auto values = printed(bytes);
    std::size_t at = 0;
    for (const Row& row : page().table("fields: event")) {
        SCOPED_TRACE(row.at(2));
        const std::size_t width = std::stoul(row.at(1));
        ASSERT_EQ(std::stoul(row.at(0)), at);
        ASSERT_LE(at + width, bytes.size());
        EXPECT_EQ(bytes.substr(at, width), encoded(row.at(3), width));
        const std::string shown =
            row.at(3).at(0) == '`' ? row.at(3).substr(1, row.at(3).size() - 2) : row.at(3);
        const auto decoded = values.find(row.at(2));
        if (decoded != values.end()) {
            EXPECT_EQ(decoded->second, shown);
        }
        at += width;
    }
    EXPECT_EQ(at, bytes.size());
    const std::string smallest = leadingBytes(linesOf(page().block("bytes: smallest")).at(0));
    EXPECT_EQ(smallest.size(), 22U);
    EXPECT_EQ(printed(smallest)["formatMark"], "1");
}

const char* formOf(const QZAgent::Field& field) {
    return std::visit(
        [](auto member) {
            using Value =
                typename std::decay_t<decltype(std::declval<QZAgent::Event>().*member)>::value_type;
            if constexpr (std::is_same_v<Value, std::string>)
                return "text";
            else if constexpr (std::is_same_v<Value, std::uint8_t>)
                return "u8";
            else if constexpr (std::is_same_v<Value, std::int16_t>)
                return "i16";
            else if constexpr (std::is_same_v<Value, std::int32_t>)
                return "i32";
            else
                return "i64";
        },
        field.member);
}

TEST(ProtocolPage, TheTableOfFieldsIsTheFormat) {
    const std::map<QZAgent::FieldScope, std::string> scopes = {
        {QZAgent::FieldScope::Always, "all"},
        {QZAgent::FieldScope::Request, "request"},
        {QZAgent::FieldScope::ServerRequest, "request, server"},
        {QZAgent::FieldScope::Reply, "reply"},
        {QZAgent::FieldScope::WholeOnly, "whole"}};
    std::vector<Row> expected;
    for (const QZAgent::Field& field : QZAgent::eventFields()) {
        expected.push_back(
            {std::to_string(field.bit), formOf(field), scopes.at(field.scope), field.name});
    }
    using std::to_string;
    expected.push_back({to_string(QZAgent::kMsgFieldsBit), "count, pairs", "all", "msgFields"});
    expected.push_back(
        {to_string(QZAgent::kIncomingBit), "count, entries", "request", "incomingCheckpoints"});
    expected.push_back({to_string(QZAgent::kNewBit), "count, texts", "request", "newCheckpoints"});
    expected.push_back({to_string(QZAgent::kPayloadBit), "bytes", "all", "payload"});
    std::vector<Row> told = page().table("fields: all");
    for (Row& row : told) row.resize(4);
    EXPECT_EQ(told, expected);
}

TEST(ProtocolPage, TheMessageCarriesTheEventAndItsPayload) {
    std::string bytes;
    for (const std::string& line : linesOf(page().block("bytes: message")))
        bytes += line.at(0) == '(' ? dumped("bytes: event") : leadingBytes(line);
    QZAgent::MessageReader reader(0, 1 << 20);
    std::vector<QZAgent::Message> messages;
    EXPECT_TRUE(reader.feed(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(),
                            [&](QZAgent::Message& message) { messages.push_back(message); }))
        << reader.malformed().reason;
    EXPECT_FALSE(reader.isInsideMessage());
    ASSERT_EQ(messages.size(), 1U);
    EXPECT_EQ(messages[0].event.flowID, "flow-1");
    EXPECT_EQ(messages[0].payload, "article=7");
    EXPECT_EQ(messages[0].contentType, "text/xml");
}

/// The bytes that one side sends in a conversation, its lines led by "L" and "A".
std::string saidBy(char side, const std::string& comment) {
    std::string bytes;
    for (const std::string& line : linesOf(page().block(comment)))
        if (line.at(0) == side) bytes += leadingBytes(line.substr(3));
    return bytes;
}

TEST(ProtocolPage, TheConversationsAreThoseOfTheAgent) {
    const std::string library = saidBy('L', "bytes: handshake");
    QZAgent::Bytes left{reinterpret_cast<const unsigned char*>(library.data()), library.size()};
    QZAgent::Handshake handshake;
    EXPECT_EQ(handshake.feed(left), QZAgent::Handshake::Step::Hello) << handshake.reason();
    EXPECT_EQ(handshake.feed(left), QZAgent::Handshake::Step::Complete) << handshake.reason();
    EXPECT_EQ(left.size, 0U);
    EXPECT_EQ(handshake.echo(), "agent");
    std::string agent;
    QZAgent::appendBlock(agent, "agent");
    EXPECT_EQ(saidBy('A', "bytes: handshake"), agent + "\1");

    std::string pushed = "\4";
    QZAgent::appendBlock(pushed, "127.0.0.1\n4849\n1\n0\n0\n0\n0\n0\n0\n");
    pushed += "\6\2";
    QZAgent::appendText(pushed, "a");
    QZAgent::appendText(pushed, "b");
    pushed += "\7\1";
    QZAgent::appendText(pushed, "c");
    pushed += "\1";
    QZAgent::appendText(pushed, "a");
    EXPECT_EQ(saidBy('A', "bytes: control"), pushed);
    EXPECT_EQ(saidBy('L', "bytes: control"), std::string("\5\3\0\0", 4));
}

}  // namespace
}  // namespace docs
