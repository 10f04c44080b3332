#include "uplink/AgentEvent.h"

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
        bool wasNotified, isRequest, isReply;
        int flags;
    } variants[] = {
        {"request", 0, true, true, false, 0x00},
        {"reply", 1, true, false, true, 0x09},
        {"whole", 2, false, true, true, 0x89},
    };
    for (const auto& variant : variants) {
        for (const bool isServer : {true, false}) {
            SCOPED_TRACE(std::string(variant.why) + (isServer ? " of a server" : " of a client"));
            std::string body;
            unsigned long long mask = 0;
            for (const Field& field : fields) {
                if (field.when == kReply && !variant.isReply) continue;
                if (field.when == kWhole && !(variant.isRequest && variant.isReply)) continue;
                if ((field.when == kRequest || field.when == kServer) && !variant.isRequest)
                    continue;
                if (field.when == kServer && !isServer) continue;
                if (field.bit != kNoBit) mask |= 1ULL << field.bit;
                body += field.bit == 0 ? number(variant.isReply ? 1050 : 1000, 8) : field.bytes;
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
    EXPECT_TRUE(AgentEvent(nullptr, false, true).itsIsClient);
    EXPECT_EQ(AgentEvent(nullptr, false, true).serialize().data, nullptr);
    Client call;
    const std::size_t bare = call.event().size();
    call.getCheckpoints(true)->setNewCheckpoints(harness::Names{"n"}.list());
    EXPECT_EQ(call.event().substr(bare), number(1, 4) + text("n")) << "without incoming ones";
}

TEST(AgentEvent, FlagsAreThoseOfTheInteractionAndTheTagThatOfTheConfiguration) {
    const struct {
        bool Interaction::*field;
        int flag;
    } rows[] = {{&Interaction::itIsLowPriority, 0x04},
                {&Interaction::itIsOneWay, 0x10},
                {&Interaction::itsCreateFlag, 0x20},
                {&Interaction::itsEventFlag, 0x40}};
    for (const auto& row : rows) {
        Client call;
        call.itsFailure = "counts only in a reply";
        call.*row.field = true;
        EXPECT_EQ(call.event()[0], row.flag | 0x02);
    }
    auto& tag = InterceptorConfig::itsCurrent.itsEventTag;
    const int before = tag.exchange(0x01020304);
    EXPECT_EQ(Client().event().substr(1, 4), "\1\2\3\4");
    tag = 0;
    EXPECT_EQ(Client().event().substr(1, 4), number(1, 4));
    tag = before;
}

TEST(AgentEvent, TheUpstreamOperationShowsOnlyWhereItIsAnother) {
    const struct {
        const char *upstream, *own;
        bool differs, shows;
    } rows[] = {{"a", "b", true, true},
                {"a", "a", false, false},
                {nullptr, nullptr, false, false},
                {"", "b", true, false}};
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.upstream));
        Server call;
        call.itsUpstreamOpID = row.upstream;
        call.itsOpID = row.own;
        AgentEvent event(&call, false, true);
        event.computeSize(false);
        EXPECT_EQ(event.itsOtherOpID != nullptr, row.differs);
        EXPECT_EQ((event.itsOptionalMask >> 42 & 1) == 1, row.shows);
    }
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
    const std::initializer_list<Interaction*> calls = {&server, &client};
    for (Interaction* call : calls) {
        call->itComputesPath = true;
        call->itsPPathID = "parent";
        call->itsUrl = "http://h/a";
        call->itsOpID = "op";
        AgentEvent event(call, false, true);
        event.computeSize(!call->isServer());
        EXPECT_EQ((event.itsOptionalMask >> 32 & 1) == 1, call == &client);
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

// A chain of regions in the form {position, length}.
void hide(Util::ByteArray& payload, const std::vector<std::pair<int, int>>& regions) {
    Util::ByteArray::Region** link = &payload.extra;
    for (const auto& region : regions) {
        *link = static_cast<Util::ByteArray::Region*>(std::malloc(sizeof **link));
        **link = {region.first, region.second, '*', nullptr};
        link = &(*link)->extra;
    }
}

TEST(AgentEvent, FillRegionsHideBytesAndKeepTheLength) {
    const struct {
        const char* why;
        std::vector<std::pair<int, int>> regions;
        const char* out;
    } rows[] = {
        {"two", {{1, 2}, {5, 1}}, "0**34*6789"},
        {"up to the last byte", {{0, 9}}, "*********9"},
        {"an empty one", {{3, 0}}, "0123456789"},
        {"before the start, and of no length", {{-2, 4}, {5, -3}}, "**23456789"},
        {"overlapping", {{2, 4}, {3, 1}}, "01****6789"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        Client call;
        call.setPayload("0123456789");
        hide(*call.itsPayload, row.regions);
        const std::string event = call.event(false);
        EXPECT_EQ(event.substr(event.size() - 10), row.out);
    }
    const char* const assertion = "AgentEvent:420.*msgPos < message->length";
    Client call;
    call.setPayload("0123456789");
    hide(*call.itsPayload, {{2147483647, 2147483647}});
    EXPECT_DEATH(call.event(), assertion);
    *call.itsPayload->extra = {9, 1, '*', nullptr};
    EXPECT_DEATH(call.event(), assertion);
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
            std::vector<unsigned char> room(static_cast<std::size_t>(size) + 2, 0xee);
            AgentEvent event(&call, false, isSeparate);
            Util::ByteArray bytes = event.serialize(room.data(), given);
            EXPECT_EQ(bytes.owned, given < size);
            EXPECT_EQ(bytes.data == room.data(), given >= size);
            EXPECT_EQ(taken(bytes), expected);
            for (auto i = static_cast<std::size_t>(given); i < room.size(); ++i)
                EXPECT_TRUE(room[i] == 0xee || i < expected.size()) << i;
            EXPECT_EQ(room.back(), 0xee);
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
