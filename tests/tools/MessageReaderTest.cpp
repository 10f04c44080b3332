#include "agent/MessageReader.h"

#include "Bytes.h"

namespace {

using namespace QZAgent;

struct Taken {
    bool good = true;
    std::vector<Message> messages;
};

Taken feed(MessageReader& reader, const std::string& data, std::size_t portion) {
    Taken taken;
    for (std::size_t at = 0; at < data.size(); at += portion) {
        const std::string piece = data.substr(at, portion);
        const std::vector<unsigned char> exact(piece.begin(), piece.end());
        taken.good = reader.feed(exact.data(), exact.size(), [&](Message& message) {
            taken.messages.push_back(std::move(message));
        });
    }
    return taken;
}

std::string withPayload() {
    return eventBytes(0x01, kMark | 1u << 19, bytes("01"), 3);
}

// A plain event, one with a payload, and one whose blocks come in pieces.
std::string threeMessages() {
    return bytes("01 17") + smallestEvent() + bytes("00 00") +  //
           bytes("01 17") + withPayload() +
           bytes("00 01 00 09 'text/xml' 00 00 04 '<a>' 00 00") +  //
           bytes("01 0B") + withPayload().substr(0, 10) + bytes("01") +
           withPayload().substr(10, 1) + bytes("0B") +  //
           withPayload().substr(11) +
           bytes("00 01 00 09 'text/xml' 00 00 02 '<' 01 'b' 01 '>' 00 00");
}

TEST(MessageReader, TakesMessagesInWhateverPortionsTheyCome) {
    const std::string data = threeMessages();
    for (std::size_t portion = 1; portion <= data.size(); ++portion) {
        SCOPED_TRACE(portion);
        MessageReader reader(0, 1000);
        const Taken taken = feed(reader, data, portion);
        ASSERT_TRUE(taken.good) << reader.malformed().offset << ": " << reader.malformed().reason;
        ASSERT_EQ(taken.messages.size(), 3u);
        EXPECT_FALSE(reader.isInsideMessage());
        const auto& raw = taken.messages[0].raw;
        EXPECT_EQ(std::string(raw.begin(), raw.end()), smallestEvent());
        EXPECT_EQ(taken.messages[0].contentType, "");
        EXPECT_EQ(taken.messages[1].payload, "<a>");
        EXPECT_EQ(taken.messages[1].contentType, "text/xml");
        EXPECT_EQ(taken.messages[2].payload, "<b>");
        EXPECT_EQ(taken.messages[2].raw, taken.messages[1].raw);
    }
}

TEST(MessageReader, KnowsThatAMessageIsCutAndGoesOn) {
    const std::string data = threeMessages();
    MessageReader reader(0, 1000);
    const Taken taken = feed(reader, data.substr(0, data.size() - 1), data.size());
    EXPECT_TRUE(taken.good);
    EXPECT_EQ(taken.messages.size(), 2u);
    EXPECT_TRUE(reader.isInsideMessage());
    EXPECT_EQ(reader.held(), 22u + 3u);
    const Taken inside = feed(reader, bytes("00 01 1A") + withPayload() + bytes("'abc' 00 00"), 7);
    ASSERT_EQ(inside.messages.size(), 2u) << reader.malformed().reason;
    EXPECT_EQ(inside.messages[1].payload, "abc") << "an event may carry its payload";
}

TEST(MessageReader, SaysWhereAStreamGoesWrong) {
    const std::string plain = bytes("01 17") + smallestEvent() + bytes("00");
    const std::string paid = bytes("01 17") + withPayload() + bytes("00");
    const struct {
        std::string data;
        std::uint64_t offset;
        const char* reason;
    } rows[] = {
        {plain + bytes("00 02"), 126, "message type: 2 in place of 1"},
        {bytes("01 00"), 101, "head: 21 bytes wanted, 0 are left"},
        {bytes("01 17 81 00*21 00"), 101, "event tag is 0"},
        {bytes("01 EA 07"), 101, "a block of 1001 bytes or more"},
        {plain.substr(0, 24) + bytes("E8 07"), 101, "a block of 1022 bytes or more"},
        {bytes("01 FF FF FF FF FF"), 101, "an unsigned integer of more than 31 bits"},
        {bytes("01 FF FF FF FF 08"), 101, "an unsigned integer of more than 31 bits"},
        {plain + bytes("03"), 125, "behind the event: 3 in place of 0 or 1"},
        {plain + bytes("01"), 125, "a payload that the event doesn't speak of"},
        {paid + bytes("00"), 125, "the payload of 3 bytes is missing"},
        {paid + bytes("01 01"), 126, "second number of the payload: 1 in place of 0"},
        {paid + bytes("01 00 01 01"), 128, "a text of the payload that should be null"},
        {paid + bytes("01 00 82 20"), 127, "a text of 4097 bytes"},
        {paid + bytes("01 00 01 00 00 03'ab'00"), 130,
         "a payload of 2 bytes where the event says 3"},
        {paid + bytes("01 00 01 00 00 04'abc'00 01"), 135, "end of the message: 1 in place of 0"},
    };
    for (const auto& row : rows) {
        for (const std::size_t portion : {std::size_t{1}, row.data.size()}) {
            SCOPED_TRACE(row.reason);
            MessageReader reader(100, 1000);
            EXPECT_FALSE(feed(reader, row.data, portion).good);
            EXPECT_EQ(reader.malformed().offset, row.offset);
            EXPECT_EQ(reader.malformed().reason, row.reason);
            const bool isInEvent = row.reason == std::string("event tag is 0");
            EXPECT_EQ(reader.malformed().inEvent.value_or(0), isInEvent ? 1u : 0u);
            EXPECT_TRUE(feed(reader, plain + bytes("00"), 1000).messages.empty());
        }
    }
}

}  // namespace
