#include "uplink/AgentEvent.h"

#include <set>

#include "config/InterceptorConfig.h"
#include "harness/values.h"
#include "interaction/ClientInteraction.h"
#include "interaction/ServerInteraction.h"

namespace {

using namespace Quenvale::Interceptor::SDK;

constexpr auto number = harness::bigEndian;

std::string text(const std::string& value) {
    return number(static_cast<long long>(value.size()), 4) + value;
}

std::string taken(Util::ByteArray array) {
    const std::string bytes = harness::textOf(array.data, array.length);
    array.releaseContent();
    return bytes;
}

// A call of either kind in a given stage. Its destructor reports nothing.
template <class Kind>
struct Call : Kind {
    explicit Call(int state = 0, bool wasNotified = false) {
        this->itIsLoaded = true;
        this->itsStartTime = 0;
        this->itsSubNode = Util::String();
        this->itsState = state;
        this->itsRqstNotified = wasNotified;
    }
    ~Call() override { this->itsState = 0; }

    std::string event(bool separatePayload = true) {
        AgentEvent event(this, false, separatePayload);
        const std::string bytes = taken(event.serialize());
        event.itsPayloadCopy.releaseContent();
        return bytes;
    }
    void setPayload(const char* bytes) {
        const auto length = static_cast<int>(std::strlen(bytes));
        auto* copy = new unsigned char[static_cast<std::size_t>(length)];
        std::memcpy(copy, bytes, static_cast<std::size_t>(length));
        this->itsPayload = new Util::ByteArray(copy, length, true);
        this->itIncludesPayload = true;
    }
};
using Client = Call<ClientInteraction>;
using Server = Call<ServerInteraction>;

enum When { kAlways, kRequest, kServer, kReply, kWhole };
constexpr int kNoBit = -1;

struct Field {
    When when;
    int bit;
    std::string bytes;
    Util::String Interaction::*text = nullptr;
};

Field textField(When when, int bit, Util::String Interaction::*field) {
    return {when, bit, text("text" + std::to_string(bit)), field};
}

// What the kind of call may not tell is set all the same.
void fill(Interaction& call, const std::vector<Field>& fields) {
    for (const Field& field : fields)
        if (field.text != nullptr) call.*field.text = field.bytes.c_str() + 4;
    call.itsStartTime = 1000;
    call.itsRtTime = 50;
    call.itsCoTime = 51;
    call.itsMsgSize = 1LL << 40;
    call.itsSizeB = -2;
    call.itsSizeC = 3;
    call.itsSizeD = 4;
    call.itsSequenceNumber = 5;
    call.itsPeerType = -252;
    call.itsPlatformType = 6;
    call.itsAppType = 8;
    call.itsSvcType = -128;
    call.itsOpType = 9;
    call.itIsFailed = true;
    call.itsSecurityAttr2 = "never told";
    call.itsMsgFields = new Util::Map<Util::String>;
    call.itsMsgFields->put("field", "value");
    call.itsMsgFields->put("empty", "");
    Checkpoints* checkpoints = call.getCheckpoints(true);
    checkpoints->addIncomingCheckpoint("twice", 10);
    checkpoints->addIncomingCheckpoint("once", 11);
    checkpoints->addIncomingCheckpoint("twice", 12);
    checkpoints->setNewCheckpoints(harness::Names{"new", ""}.list());
}

TEST(AgentEvent, FieldsStandInOrderInTheVariantsTheyBelongTo) {
    using I = Interaction;
    const std::vector<Field> fields = {
        textField(kAlways, 2, &I::itsFlowID),
        {kAlways, 43, "\1"},
        textField(kAlways, 5, &I::itsInteractionID),
        textField(kServer, 46, &I::itsUpstreamInteractionID),
        {kAlways, 0, "time"},
        {kAlways, 25, number(1LL << 40, 8)},
        {kAlways, 26, number(-2, 8)},
        {kAlways, 27, number(3, 8)},
        {kAlways, 28, number(4, 8)},
        textField(kAlways, 20, &I::itsDebugInfo),
        {kWhole, 1, number(50, 4)},
        textField(kRequest, 3, &I::itsParentID),
        textField(kRequest, 4, &I::itsFlowAttr1),
        textField(kRequest, 6, &I::itsLocus),
        {kRequest, 7, number(5, 4)},
        textField(kRequest, 14, &I::itsUrl),
        textField(kRequest, 8, &I::itsSecurityID),
        textField(kRequest, 9, &I::itsSecurityAttr1),
        textField(kRequest, 10, &I::itsGroupName),
        textField(kRequest, 11, &I::itsServiceName),
        textField(kRequest, 12, &I::itsOpName),
        textField(kRequest, 13, &I::itsGroupID),
        textField(kRequest, 44, &I::itsServiceID),
        textField(kRequest, 15, &I::itsSiteAttr),
        textField(kRequest, 16, &I::itsOpID),
        textField(kServer, 42, &I::itsUpstreamOpID),
        textField(kRequest, 38, &I::itsLocalAddr),
        textField(kRequest, 17, &I::itsPeerAddr),
        textField(kServer, 48, &I::itsCalleeAddr),
        textField(kServer, 49, &I::itsCallerAddr),
        {kRequest, 21, number(-252, 2)},
        {kRequest, 45, number(6, 2)},
        {kRequest, 22, number(8, 2)},
        {kRequest, 23, number(-128, 2)},
        {kRequest, 24, number(9, 2)},
        textField(kRequest, 32, &I::itsPathID),
        textField(kRequest, 41, &I::itsPPathID),
        textField(kRequest, 34, &I::itsFlowAttr2),
        {kReply, 30, number(51, 4)},
        textField(kReply, 18, &I::itsFailure),
        {kReply, 37, "\1"},
        textField(kRequest, 33, &I::itsSubNode),
        {kAlways, 36, number(2, 4)},
        {kAlways, kNoBit, text("field") + text("value") + text("empty") + text("")},
        {kRequest, 39, number(3, 4)},
        {kRequest, kNoBit, text("twice") + number(12, 8) + text("once") + number(11, 8)},
        {kRequest, 40, number(2, 4)},
        {kRequest, kNoBit, text("new") + text("")},
    };
    const struct {
        const char* why;
        int state;
        bool wasNotified;
        int flags;
        std::set<When> parts;  // of what both kinds tell
    } variants[] = {
        {"request", 0, true, 0x00, {kAlways, kRequest}},
        {"reply", 1, true, 0x09, {kAlways, kReply}},
        {"whole", 2, false, 0x89, {kAlways, kRequest, kReply, kWhole}},
    };
    for (const auto& variant : variants) {
        for (const bool isServer : {true, false}) {
            SCOPED_TRACE(std::string(variant.why) + (isServer ? " of a server" : " of a client"));
            std::string body;
            unsigned long long mask = 0;
            for (const Field& field : fields) {
                const When when = field.when == kServer && isServer ? kRequest : field.when;
                if (variant.parts.count(when) == 0) continue;
                if (field.bit != kNoBit) mask |= 1ULL << field.bit;
                body += field.bit == 0 ? number(variant.state > 0 ? 1050 : 1000, 8) : field.bytes;
            }
            const auto size = static_cast<long long>(21 + body.size());
            const std::string head = number(variant.flags | (isServer ? 0 : 2), 1) + number(1, 4) +
                                     number(size, 4) + number(size, 4) +
                                     number(static_cast<long long>(mask), 8);
            Server server(variant.state, variant.wasNotified);
            Client client(variant.state, variant.wasNotified);
            client.itsPathComputed = true;
            fill(isServer ? static_cast<Interaction&>(server) : client, fields);
            EXPECT_EQ(isServer ? server.event() : client.event(), head + body);
        }
    }
}

TEST(AgentEvent, TheSmallestIsAHeadAndTheFormatMark) {
    const std::string head = number(1, 4) + number(22, 4) + number(22, 4) + number(1LL << 43, 8);
    EXPECT_EQ(Client(1, true).event(), "\x03" + head + "\1");
    Client timeless(1, true);
    timeless.itsMsgFields = new Util::Map<Util::String>;
    timeless.itsStartTime = 1000;
    EXPECT_EQ(timeless.event().size(), 22U) << "no duration, so no end; and a count of nothing";
    timeless.itsStartTime = LLONG_MAX;
    timeless.itsRtTime = 2;
    EXPECT_EQ(timeless.event().substr(22), number(LLONG_MIN + 1, 8)) << "any start may be set";
    EXPECT_EQ(AgentEvent(nullptr, false, true).serialize().data, nullptr);
    Client call;
    const std::size_t bare = call.event().size();
    call.getCheckpoints(true)->setNewCheckpoints(harness::Names{"n"}.list());
    EXPECT_EQ(call.event().substr(bare), number(1, 4) + text("n")) << "without incoming ones";
}

TEST(AgentEvent, FlagsAreThoseOfTheInteractionAndTheTagThatOfTheConfiguration) {
    const std::pair<bool Interaction::*, int> flags[] = {{&Interaction::itIsLowPriority, 0x04},
                                                         {&Interaction::itIsOneWay, 0x10},
                                                         {&Interaction::itsCreateFlag, 0x20},
                                                         {&Interaction::itsEventFlag, 0x40}};
    for (const auto& [field, flag] : flags) {
        Client call;
        call.itsFailure = "counts only in a reply";
        call.*field = true;
        EXPECT_EQ(call.event()[0], flag | 0x02);
    }
    auto& tag = InterceptorConfig::itsCurrent.itsEventTag;
    const int before = tag.exchange(0x01020304);
    EXPECT_EQ(Client().event().substr(1, 4), "\1\2\3\4");
    tag = before;
}

bool hasBit(Interaction& call, int bit) {
    AgentEvent event(&call, false, true);
    event.computeSize(!call.isServer());
    return (event.itsOptionalMask >> bit & 1) == 1;
}

TEST(AgentEvent, TheUpstreamOperationShowsOnlyWhereItIsAnother) {
    const auto shows = [](const char* upstream, const char* own) {
        Server call;
        call.itsUpstreamOpID = upstream;
        call.itsOpID = own;
        return hasBit(call, 42);
    };
    EXPECT_TRUE(shows("a", "b"));
    EXPECT_FALSE(shows("a", "a"));
    EXPECT_FALSE(shows(nullptr, nullptr));
    EXPECT_FALSE(shows("", "b"));
}

// Also where it is a class that somebody else derived.
TEST(AgentEvent, AnInteractionIsAskedForWhatItCanAnswerInItsOwnWay) {
    struct Answering : Server {
        Util::String& getFlowID() override { return itsAnswers[0]; }
        Util::String& getInteractionID() override { return itsAnswers[1]; }
        const Util::String& getUpstreamInteractionID() override { return itsAnswers[2]; }
        Util::String& getUrl() override { return itsAnswers[3]; }
        Util::String& getOpName() override { return itsAnswers[4]; }
        Util::String& getPeerAddr() override { return itsAnswers[5]; }
        Util::String& _getPathID(bool) override { return itsAnswers[6]; }
        Util::String& _getPPathID() override { return itsAnswers[7]; }
        Util::String itsAnswers[8] = {"flow", "id", "up", "url", "op", "peer", "path", "pPath"};
    };
    Answering call;
    call.itsFlowID = call.itsUrl = "not asked for";
    const std::string event = call.event();
    std::size_t at = 0;
    for (const Util::String& answer : call.itsAnswers)
        EXPECT_NE(at = event.find(text(answer.c_str()), at), std::string::npos) << answer.c_str();
    EXPECT_EQ(event.find("not asked for"), std::string::npos);

    ServerInteraction plain;
    plain.itIsLoaded = true;
    AgentEvent(&plain, false, true).serialize().releaseContent();
    EXPECT_FALSE(plain.itsFlowID.empty() || plain.itsInteractionID.empty()) << "made for the event";
}

TEST(AgentEvent, OnlyAClientMakesAPathForItsEvent) {
    Server server;
    Client client;
    for (Interaction* call :
         {static_cast<Interaction*>(&server), static_cast<Interaction*>(&client)}) {
        call->itComputesPath = true;
        call->itsPPathID = "parent";
        call->itsUrl = "http://h/a";
        call->itsOpID = "op";
        EXPECT_EQ(hasBit(*call, 32), call == &client);
    }
}

TEST(AgentEvent, ThePayloadTravelsInsideOrBeside) {
    Client call;
    const std::string bare = call.event();
    call.setPayload("payload");
    const std::string mask = number(1LL << 43 | 1LL << 19, 8);
    const std::string sizes = number(static_cast<long long>(bare.size()) + 7, 4) +
                              number(static_cast<long long>(bare.size()), 4);
    const std::string head = bare.substr(0, 5) + sizes + mask + bare.substr(21);
    EXPECT_EQ(call.event(false), head + "payload");

    AgentEvent beside(&call, false, true);
    EXPECT_EQ(taken(beside.serialize()), head);
    EXPECT_EQ(taken(beside.itsPayloadCopy), "payload");
    EXPECT_NE(beside.itsPayloadCopy.data, call.itsPayload->data);

    call.itIncludesPayload = false;
    EXPECT_EQ(call.event(false), bare);

    unsigned char room[4] = {};
    unsigned char bytes[] = "abc";
    Util::ByteArray out(room, 4, false);
    Util::ByteArray content(bytes, 3, false);
    EXPECT_EQ(AgentEvent::addOptionalDataOnly(out, &content, 2), 2) << "only where it fits";
    EXPECT_EQ(AgentEvent::addOptionalDataOnly(out, &content, 1), 4);
}

TEST(AgentEvent, FillRegionsHideBytesAndKeepTheLength) {
    // With regions at those positions and of those lengths, filled with "a", "b" and so on.
    const auto hidden = [](const std::vector<std::pair<int, int>>& regions) {
        Client call;
        call.setPayload("0123456789");
        Util::ByteArray::Region** link = &call.itsPayload->extra;
        char fill = 'a';
        for (const auto& [position, length] : regions) {
            *link = static_cast<Util::ByteArray::Region*>(std::malloc(sizeof **link));
            **link = {position, length, fill++, nullptr};
            link = &(*link)->extra;
        }
        const std::string event = call.event(false);
        return event.substr(event.size() - 10);
    };
    EXPECT_EQ(hidden({{1, 2}, {5, 1}}), "0aa34b6789");
    EXPECT_EQ(hidden({{0, 9}}), "aaaaaaaaa9") << "up to the last byte";
    EXPECT_EQ(hidden({{3, 0}}), "0123456789") << "an empty one";
    EXPECT_EQ(hidden({{-2, 4}, {5, -3}}), "aa23456789") << "before the start, and of no length";
    EXPECT_EQ(hidden({{2, 4}, {3, 1}}), "01aaaa6789") << "overlapping";
    const char* const assertion = "AgentEvent:420.*msgPos < message->length";
    EXPECT_DEATH(hidden({{2147483647, 2147483647}}), assertion);
    EXPECT_DEATH(hidden({{9, 1}}), assertion);
}

TEST(AgentEvent, RoomOfTheCallersIsUsedWhereItIsEnough) {
    for (const bool isSeparate : {true, false}) {
        Client call;
        call.itsUrl = "http://host/shop/cart";
        call.setPayload("<payload/>");
        const std::string expected = call.event(isSeparate);
        const auto size = static_cast<int>(expected.size());
        for (const int given : {1, size - 1, size, size + 1}) {
            SCOPED_TRACE(given);
            std::string room(static_cast<std::size_t>(size) + 2, '*');
            AgentEvent event(&call, false, isSeparate);
            Util::ByteArray bytes = event.serialize(harness::bytesOf(room), given);
            EXPECT_EQ(bytes.owned, given < size);
            EXPECT_EQ(bytes.data == harness::bytesOf(room), given >= size);
            EXPECT_EQ(taken(bytes), expected);
            const std::string behind = room.substr(static_cast<std::size_t>(given));
            EXPECT_EQ(behind, std::string(behind.size(), '*'));
            event.itsPayloadCopy.releaseContent();
        }
    }
}

TEST(AgentEvent, AValueThatChangesBetweenTheWalksLeavesAWholeEvent) {
    struct Restless : Call<ClientInteraction> {
        Util::String& getFlowID() override {
            if (++itsReads == 2) {
                setMsgField("late", "value", true);
                itsSizeB = 1;
                itsUrl = "late";
            }
            return itsFlowID;
        }
        int itsReads = 0;
    };
    const std::string event = Restless().event();
    EXPECT_EQ(event.substr(9, 4), number(static_cast<long long>(event.size()), 4));
    EXPECT_NE(event.find(text("value")), std::string::npos);
}

}  // namespace
