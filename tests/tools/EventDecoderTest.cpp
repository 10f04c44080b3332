// An event's bytes, and what is shown of it.
#include "agent/EventDecoder.h"

#include <nlohmann/json.hpp>

#include "Bytes.h"
#include "agent/EventJson.h"
#include "agent/EventText.h"

namespace {

using namespace QZAgent;

struct Decoded : ReceivedEvent {
    bool good = false;
    DecodeError error;
};

Decoded decode(const std::string& data) {
    Decoded result;
    // A copy of exactly that size, so that a sanitizer sees a read past the end.
    const std::vector<unsigned char> exact(data.begin(), data.end());
    result.good =
        decodeEvent(exact.data(), exact.size(), result.event, result.payload, result.error);
    return result;
}

unsigned long long mask(std::initializer_list<int> bits) {
    unsigned long long sum = kMark;
    for (const int bit : bits) sum |= 1ull << bit;
    return sum;
}

std::string event(int flags, std::initializer_list<int> bits, const std::string& fields) {
    return eventBytes(flags, mask(bits), bytes(fields));
}

// Every field of a server's request, in the order of the bytes, which is not the order of the bits.
TEST(EventDecoder, TakesEachFieldOfARequestInItsPlaceAndShowsIt) {
    const std::string data = eventBytes(
        0x74,
        mask({2,  5,  46, 0,  25, 26, 27, 28, 20, 3,  4,  6,  7,  14, 8,  9,  10, 11, 12, 13, 19,
              44, 15, 16, 42, 38, 17, 48, 49, 21, 45, 22, 23, 24, 32, 41, 34, 33, 36, 39, 40}),
        bytes("00000001'f' 01 00000001'i' 00000001'u' 0000000000000102 0000000000000003 "
              "FFFFFFFFFFFFFFFF 7FFFFFFFFFFFFFFF 8000000000000000 00000001'd' 00000001'p' "
              "00000002'a1' 00000001'l' FFFFFFFE 00000002'/'e9 00000001's' 00000002's1' "
              "00000002'gn' 00000002'sn' 00000002'on' 00000002'gi' 00000002'si' 00000002'sa' "
              "00000002'oi' 00000002'oo' 00000002'la' 00000002'pa' 00000002'ce' 00000002'cr' "
              "FF04 0102 0008 FF80 0001 00000003'pid' 00000004'ppid' 00000002'a2' 00000003'sub' "
              "00000002 00000001'k' 00000001'v' 00000000 00000000 "
              "00000002 00000002'c1' 0000000000000007 00000002 00000002'n1' 00000000"),
        2);
    Decoded got = decode(data);
    ASSERT_TRUE(got.good) << got.error.offset << ": " << got.error.reason;
    EXPECT_TRUE(*got.event.msgField("k") == "v" && *got.event.msgField("") == "");
    EXPECT_TRUE(got.event.upstreamInteractionID == "u" && got.event.parentID == "p");
    EXPECT_TRUE(got.event.opName == "on" && got.event.opID == "oi" && got.event.otherOpID == "oo");
    EXPECT_TRUE(got.event.peerAddr == "pa" && got.event.calleeAddr == "ce");
    got.arrival = 3;
    got.connection = 2;
    got.contentType = "text/xml";
    got.payload = "<\n";
    const std::string line = jsonOf(got);
    EXPECT_EQ(line.find('\n'), std::string::npos);
    const auto wanted = nlohmann::json::parse(
        R"({ "type": "event", "arrival": 3, "connection": 2, "kind": "request", "side": "server",
        "flagsByte": 116, "flags": {"reply": false, "client": false, "lowPriority": true,
        "failure": false, "oneWay": true, "create": true, "event": true, "whole": false},
        "eventTag": 1, "totalSize": 285, "eventSize": 283, "mask": "0x37fd71ffbfffd",
        "flowID": "f", "formatMark": 1, "interactionID": "i", "upstreamInteractionID": "u",
        "time": 258, "msgSize": 3, "sizeB": -1, "sizeC": 9223372036854775807,
        "sizeD": -9223372036854775808, "debugInfo": "d", "parentID": "p", "flowAttr1": "a1",
        "locus": "l", "sequenceNumber": -2, "url": "/é", "securityID": "s", "securityAttr1": "s1",
        "groupName": "gn", "serviceName": "sn", "opName": "on", "groupID": "gi", "serviceID": "si",
        "siteAttr": "sa", "opID": "oi", "otherOpID": "oo", "localAddr": "la", "peerAddr": "pa",
        "calleeAddr": "ce", "callerAddr": "cr", "peerType": -252, "platformType": 258,
        "appType": 8, "svcType": -128, "opType": 1, "pathID": "pid", "pPathID": "ppid",
        "flowAttr2": "a2", "subNode": "sub", "msgFields": {"k": "v", "": ""}, "incomingCount": 2,
        "incomingCheckpoints": [{"name": "c1", "elapsed": 7}], "newCheckpoints": ["n1", ""],
        "payload": "<\n", "payloadEncoding": "text", "contentType": "text/xml",
        "latin1": ["url"]})");
    EXPECT_EQ(nlohmann::json::parse(line), wanted) << line;
    got.payload = bytes("00 01");
    const auto binary = nlohmann::json::parse(jsonOf(got));
    EXPECT_EQ(binary["payload"], "AAE=");
    EXPECT_EQ(binary["payloadEncoding"], "base64");

    const std::string text = textOf(got);
    for (const char* const part :
         {"#3 server request on /\\xe9 low-priority one-way create event  (connection 2, tag 1, ",
          "283 of 285 bytes, mask 0x37fd71ffbfffd)\n    flowID                f\n",
          "\n    url                   /\\xe9\n", "\n    sizeB                 -1\n",
          "\n    msgField              k = v\n", "\n    msgField               = \n",
          "\n    incomingCheckpoint    c1 7\n", "\n    incomingCount         2\n",
          "\n    newCheckpoint         n1\n", "\n    newCheckpoint         \n",
          "\n    payload               2 bytes, text/xml: \\x00\\x01\n"})
        EXPECT_NE(text.find(part), std::string::npos) << part << " is not in\n" << text;
    EXPECT_EQ(textOf(MalformedReport{4, 120, 21, "why"}),
              "malformed: connection 4, byte 120, byte 21 of its event: why\n");
}

TEST(EventDecoder, TakesTheSmallestEventAndAWholeOneWithAFailureAndAPayload) {
    const Decoded smallest = decode(smallestEvent());
    ASSERT_TRUE(smallest.good) << smallest.error.reason;
    EXPECT_EQ(smallest.event.kind(), EventKind::Reply);
    EXPECT_EQ(smallest.event.totalSize, 22u);
    EXPECT_FALSE(smallest.event.flowID || smallest.event.time || smallest.event.hasPayload());

    const Decoded got =
        decode(event(0x8B, {1, 30, 18, 37}, "01 0000000A 00000004 00000002'no' 01"));
    ASSERT_TRUE(got.good) << got.error.reason;
    EXPECT_EQ(got.event.kind(), EventKind::Whole);
    EXPECT_TRUE(got.event.isClient());
    EXPECT_TRUE(got.event.rtTime == 10 && got.event.coTime == 4 && got.event.failed == 1);
    EXPECT_EQ(got.event.failure, "no");

    for (const std::string& payload : {std::string(), bytes("'a' 00 'b'")}) {
        const Decoded paid = decode(eventBytes(0x01, mask({19}), bytes("01"), 3) + payload);
        EXPECT_TRUE(paid.good) << paid.error.reason;
        EXPECT_EQ(paid.event.payloadSize(), 3u);
        EXPECT_EQ(paid.payload, payload);
    }
}

// Two arrivals of a name count as two and are listed once.
TEST(EventDecoder, FindsTheEndOfAShortListOfIncomingCheckpoints) {
    const std::string one = "00000001'c' 0000000000000007";
    const std::string newOnes = " 00000002 00000001'n' 00000000";
    const struct {
        std::initializer_list<int> bits;
        std::string tail;
        std::size_t incoming, fresh;
    } rows[] = {
        {{39}, "00000002 " + one, 1, 0},
        {{39, 40}, "00000003 " + one + newOnes, 1, 2},  // The count of the new is no name.
        {{39, 40}, "00000002 " + one + one + newOnes, 2, 2},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.tail);
        const Decoded got = decode(event(0, row.bits, "01 " + row.tail));
        ASSERT_TRUE(got.good) << got.error.reason;
        EXPECT_EQ(got.event.incomingCheckpoints.size(), row.incoming);
        EXPECT_EQ(got.event.newCheckpoints.size(), row.fresh);
    }
}

TEST(EventDecoder, RefusesWhatNoWriterMayWrite) {
    const std::string small = smallestEvent();
    const auto patched = [&](std::size_t at, const char* with) {
        std::string copy = small;
        copy.replace(at, bytes(with).size(), bytes(with));
        return copy;
    };
    const struct {
        std::string data;
        std::size_t offset;
        const char* reason;
    } rows[] = {
        {"", 0, "head: 21 bytes wanted, 0 are left"},
        {patched(1, "00000000"), 1, "event tag is 0"},
        {patched(5, "80000000"), 5, "total size is negative"},
        {patched(9, "00000017"), 9, "event size 23 exceeds total size 22"},
        {small + "x", 9, "sizes 22 and 22 in 23 bytes"},
        {eventBytes(1, kMark, bytes("01"), 4), 5, "sizes speak of a payload, the mask doesn't"},
        {event(1, {47}, "01 01"), 13, "unknown mask bits 0x800000000000"},
        {eventBytes(1, 0, ""), 13, "format mark is missing"},
        {event(1, {}, "02"), 0, "format mark is 2"},
        {event(0x80, {}, "01"), 0, "whole event without a reply"},
        {event(9, {}, "01"), 0, "failure flag and failure text disagree"},
        {event(1, {14}, "01 00000001'/'"), 13, "url has no place in a server's reply event"},
        {event(1, {40}, "01 00000001 00000000"), 13, "checkpoints have no place in a reply event"},
        {event(1, {2}, "00000000 01"), 21, "flowID is present but empty"},
        {event(1, {5}, "01 00000002'a'"), 22, "interactionID: length 2, but 1 bytes are left"},
        {event(1, {5}, "01 00000002'a'00"), 22, "interactionID holds a zero byte"},
        {event(1, {36}, "01 00000001 00000000"), 30,
         "value of a message field: 4 bytes wanted, 0 are left"},
        {event(0, {39}, "01 00000002"), 26, "incoming checkpoints don't fit their count of 2"},
        {patched(9, "00000014"), 9, "event size is below that of the head"},
        {event(1, {37}, "01 02"), 0, "failed is 2"},
        {event(2, {48}, "01 00000001'c'"), 13,
         "calleeAddr has no place in a client's request event"},
        {event(1, {0}, "01 0000000000000000"), 22, "time is present but 0"},
        {event(1, {0}, "01 00000001"), 22, "time: 8 bytes wanted, 4 are left"},
        {event(1, {36}, "01 00000000"), 22, "number of message fields is 0"},
        {event(1, {}, "01 00"), 22, "1 bytes are left over behind the last field"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.reason);
        const Decoded got = decode(row.data);
        EXPECT_FALSE(got.good);
        EXPECT_EQ(got.error.offset, row.offset);
        EXPECT_EQ(got.error.reason, row.reason);
    }
}

}  // namespace
