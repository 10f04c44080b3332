#include "harness/values.h"
#include "interaction/Interaction.h"
#include "util/identifiers.h"

namespace {

using namespace Quenvale::Interceptor::SDK;

using harness::text;

struct Evaluator final : IMsgFieldEvaluator {
    Util::String evaluate(const Util::String&, const Util::String&) override { return {}; }
};

Util::ByteArray* payloadOf(const std::string& content) {
    auto* data = new unsigned char[content.size()];
    content.copy(reinterpret_cast<char*>(data), content.size());
    return new Util::ByteArray(data, static_cast<int>(content.size()), true);
}

// Answers loadConfig() as the configuration would.
struct Configured : Interaction {
    EntryRef loadConfig() override {
        ++asked;
        return entry;
    }
    EntryRef entry;
    int asked = 0;
};

TEST(Stubs, GroupIDsAreShortPrintableTextsAndLateValuesAreStored) {
    const std::string longest(32, 'g');
    const struct {
        const char* why;
        Util::String id;
        std::string error;
    } rows[] = {
        {"32 characters fit", longest.c_str(), "nothing"},
        {"33 don't", (longest + "g").c_str(), "Group ID is invalid: " + longest + "g"},
        {"NIL is none", Util::String(), "Group ID is invalid: "},
        {"a tab can't be printed", "a\tb", "Group ID is invalid: a\tb"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        InteractionStub stub;
        stub.itsGroupID = "old";
        EXPECT_EQ(harness::thrown([&] { stub.setGroupID(row.id); }), row.error);
        EXPECT_EQ(text(stub.itsGroupID), row.error == "nothing" ? text(row.id) : "old");
    }
    InteractionStub late;
    late.itsState = 1;
    late.itIsLoaded = true;
    late.setUrl("u");
    late.setOpID("o");
    late.setUpstreamInteractionID("i");
    EXPECT_EQ(text(late.itsUrl + late.itsOpID + late.itsUpstreamInteractionID), "uoi")
        << "values are stored at any stage";
    EXPECT_EQ(text(late.itsDebugInfo), "NIL");
}

// The level is read once in a process, so each of these runs in one of its own.
class StubsDeathTest : public testing::Test {
protected:
    void SetUp() override {
        GTEST_FLAG_SET(death_test_style, "threadsafe");
        setenv("QUENVALE_LOG_LEVEL", "4", 1);
    }
    void TearDown() override { unsetenv("QUENVALE_LOG_LEVEL"); }

    template <class F>
    static void print(F&& act) {
        InteractionStub stub;
        act(stub);
        std::fprintf(stderr, "[%s]\n", text(stub.itsDebugInfo).c_str());
        std::_Exit(0);
    }
};

TEST_F(StubsDeathTest, WarnOfLateAndFrozenValues) {
    const std::string late =
        "Value cannot be set in this stage of processing. Thread: -?[0-9a-f]+\n";
    const std::string frozen =
        "WARNING: attempting to change the NGSO after it has been 'frozen'. Thread: -?[0-9a-f]+\n";
    const auto exits = testing::ExitedWithCode(0);
    const auto change = [](int state, bool isLoaded, auto set) {
        print([&](InteractionStub& stub) {
            stub.itsState = state;
            stub.itIsLoaded = isLoaded;
            set(stub);
        });
    };
    EXPECT_EXIT(change(1, true, [](auto& s) { s.setServiceID("x"); }), exits,
                "^" + late + frozen + "\\[NIL");
    EXPECT_EXIT(change(1, true, [](auto& s) { s.setUpstreamInteractionID("x"); }), exits,
                "^" + frozen + "\\[NIL");
    EXPECT_EXIT(change(0, false, [](auto& s) { s.setGroupID("x"); }), exits, "^\\[NIL");
}

TEST_F(StubsDeathTest, DebugInfoIsCutAndAppended) {
    const auto exits = testing::ExitedWithCode(0);
    EXPECT_EXIT(print([](InteractionStub& stub) {
                    stub.addDebugInfo("A", 7, 256, "got %d of %s; ", 3, "x");
                    stub.addDebugInfo("B", 8, 16, "0123456789");
                    stub.addDebugInfo("no room", 9, 4, "for the prefix");
                }),
                exits, "\\[A, line 7: got 3 of x; B, line 8: 01234no r\\]");
    EXPECT_EXIT(print([](InteractionStub& stub) {
                    stub.itsGroupID = "g";
                    try {
                        stub.loadFromCache();
                    } catch (Util::APIException*) {
                    }
                }),
                exits, "\\[InteractionStub, line 96: loadFromCache after itIsLoaded check\n\\]");
}

TEST(Stubs, CopyOutlivesItsSourceAndTheReverse) {
    for (const bool sourceGoesFirst : {true, false}) {
        auto source = std::make_unique<InteractionStub>();
        source->itsFlowID = "flow";
        source->itsInteractionID = "id";
        source->itIsLoaded = true;
        for (auto* map : {&source->itsFlowFields, &source->itsMsgFields}) {
            *map = new Util::Map<Util::String>();
            (*map)->put("name", map == &source->itsFlowFields ? "1" : "2");
        }
        source->itsKeys = new Util::List<Util::String>(0);
        source->itsKeys->add("key");
        source->itsPayload = payloadOf("body");
        auto* region =
            static_cast<Util::ByteArray::Region*>(std::malloc(sizeof *source->itsPayload->extra));
        *region = {1, 2, '*', nullptr};
        source->itsPayload->extra = region;
        source->itsRawBuffer1 = std::malloc(1);
        auto* evaluators = new InteractionStub::Evaluators(2);
        evaluators->add(new Evaluator);
        source->setEvaluators(evaluators);
        source->getCheckpoints(true)->addIncomingCheckpoint("cp", 5);

        auto copy = std::make_unique<InteractionStub>();
        copy->itsPayload = payloadOf("replaced");
        copy->getCheckpoints(true);
        for (InteractionStub* from : {source.get(), source.get(), copy.get()}) {
            copy->setFlowStubFields(from);
            copy->setSiteStubFields(from);
            copy->setInteractionStubFields(from);
        }
        EXPECT_EQ(copy->itsCheckpoints, source->itsCheckpoints);
        EXPECT_FALSE(copy->itOwnsShared);
        EXPECT_TRUE(source->itOwnsShared);
        EXPECT_EQ(copy->itsRawBuffer1, nullptr);
        EXPECT_EQ(text(*copy->itsClassName), "com.quenvale.qz.interceptor.sdk.InteractionStub");

        (sourceGoesFirst ? source : copy).reset();
        InteractionStub& left = sourceGoesFirst ? *copy : *source;
        EXPECT_EQ(text(left.itsFlowID + left.itsInteractionID), "flowid");
        EXPECT_EQ(harness::fieldsOf(left.itsFlowFields) + harness::fieldsOf(left.itsMsgFields),
                  "name=1 name=2 ");
        EXPECT_TRUE(left.itsKeys->contains("key"));
        EXPECT_EQ(std::string(reinterpret_cast<char*>(left.itsPayload->data), 4), "body");
        EXPECT_EQ(left.itsPayload->extra->length, 2);
        EXPECT_EQ(left.itsEvaluators->size(), 1);
        EXPECT_EQ(harness::incoming(left.getCheckpoints(false)), "cp=5 ");
        EXPECT_TRUE(left.itIsLoaded);
    }
}

TEST(Stubs, GroupComesFromWhatIsGiven) {
    const struct {
        const char* why;
        const Util::String* className;
        const char *url, *groupName, *groupID, *serviceName, *opName;
        const char *wantedName, *wantedID;
        int appType, svcType;
    } rows[] = {
        {"first segment of the url", &Interaction::SINT_CLASSNAME, "http://h/shop/cart", nullptr,
         nullptr, nullptr, "op", "shop", nullptr, 8, 0},
        {"default group of a client, with a service", &Interaction::CINT_CLASSNAME, "http://h/cart",
         nullptr, nullptr, "s", "op", "(provider)", nullptr, 8, 0},
        {"a given name stays and gives the id", &Interaction::SINT_CLASSNAME, "http://h/a/b",
         "mine", nullptr, nullptr, "op", "mine", nullptr, 0, 0},
        {"a given id stays", &Interaction::SINT_CLASSNAME, "http://h/a/b", nullptr, "gid", nullptr,
         "op", "a", "gid", 8, 0},
        {"without url the id is the name", &Interaction::SINT_CLASSNAME, nullptr, nullptr, "gid",
         nullptr, "", "gid", "gid", 8, -128},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        Configured call;
        call.itsClassName = row.className;
        call.itsUrl = row.url;
        call.itsGroupName = row.groupName;
        call.itsGroupID = row.groupID;
        call.itsServiceName = row.serviceName;
        call.itsOpName = row.opName;
        call.loadFromCache();
        call.loadFromCache();
        EXPECT_EQ(call.asked, 1) << "it acts once";
        EXPECT_EQ(text(call.itsGroupName), row.wantedName);
        EXPECT_EQ(text(call.itsGroupID),
                  row.wantedID != nullptr ? row.wantedID : text(Util::md5hash(row.wantedName)));
        EXPECT_EQ(call.itsAppType, row.appType);
        EXPECT_EQ(call.itsSvcType, row.svcType);
    }
}

TEST(Stubs, AnEntryReplacesTheIdentifiersAndANamelessCallHasNone) {
    Configured call;
    call.itsGroupName = "g";
    call.itsServiceID = "declared";
    call.itsState = 1;
    call.itsRqstNotified = true;
    call.entry = std::make_shared<const ConfigEntry>("G", "S", "O", nullptr, true, true);
    call.loadFromCache();
    EXPECT_EQ(text(call.itsGroupID + call.itsServiceID + call.itsOpID), "GSO");
    EXPECT_TRUE(call.itIncludesPayload && call.itComputesPath);
    EXPECT_EQ(call.itsSvcType, 0) << "left alone once the request is out";

    Configured nameless;
    EXPECT_THROW(nameless.loadFromCache(), const char*);
    EXPECT_TRUE(nameless.itIsLoaded);
    EXPECT_NO_THROW(nameless.loadFromCache()) << "it acts once";
    EXPECT_THROW(nameless.computeDefaultGroupData(), const char*);
    EXPECT_EQ(nameless.asked, 0);

    InteractionStub stub;
    stub.itsGroupName = "g";
    EXPECT_EQ(harness::thrown([&] { stub.loadFromCache(); }), "Unexpected call to loadConfig");
}

}  // namespace
