#include "harness/values.h"
#include "interaction/Interaction.h"
#include "util/identifiers.h"

namespace {

using namespace Quenvale::Interceptor::SDK;
using harness::text;

// Answers loadConfig() as the configuration would.
struct Configured : Interaction {
    EntryRef loadConfig() override {
        ++asked;
        return entry;
    }
    EntryRef entry;
    int asked = 0;
};

TEST(Stubs, GroupIDsAreShortPrintableTexts) {
    const auto set = [](const Util::String& id) {
        InteractionStub stub;
        stub.itsGroupID = "old";
        const std::string error = harness::thrown([&] { stub.setGroupID(id); });
        return error + "; " + text(stub.itsGroupID);
    };
    const std::string longest(32, 'g');
    EXPECT_EQ(set(longest.c_str()), "nothing; " + longest);
    EXPECT_EQ(set((longest + "g").c_str()), "Group ID is invalid: " + longest + "g; old");
    EXPECT_EQ(set(Util::String()), "Group ID is invalid: ; old");
    EXPECT_EQ(set("a\tb"), "Group ID is invalid: a\tb; old");
}

// The level is read once in a process, so each of these runs in one of its own.
TEST(StubsDeathTest, TheDebugLevelWarnsNotesAndRefuses) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    setenv("QUENVALE_LOG_LEVEL", "4", 1);
    const auto exits = testing::ExitedWithCode(0);
    const auto print = [](int state, auto act) {
        InteractionStub stub;
        stub.itsState = state;
        stub.itIsLoaded = state > 0;
        const std::string error = harness::thrown([&] { act(stub); });
        std::fprintf(stderr, "[%s %s %s]\n", text(stub.itsDebugInfo).c_str(), error.c_str(),
                     text(stub.itsServiceID + stub.itsUpstreamInteractionID).c_str());
        std::_Exit(0);
    };
    const std::string late =
        "Value cannot be set in this stage of processing. Thread: -?[0-9a-f]+\n";
    const std::string frozen =
        "WARNING: attempting to change the NGSO after it has been 'frozen'. Thread: -?[0-9a-f]+\n";
    EXPECT_EXIT(print(1, [](auto& stub) { stub.setServiceID("x"); }), exits,
                "^" + late + frozen + "\\[NIL nothing x\\]");
    EXPECT_EXIT(print(1, [](auto& stub) { stub.setUpstreamInteractionID("x"); }), exits,
                "^" + frozen + "\\[NIL nothing x\\]");
    EXPECT_EXIT(print(0, [](auto& stub) { stub.setGroupID("x"); }), exits, "^\\[NIL nothing NIL");
    EXPECT_EXIT(print(0,
                      [](auto& stub) {
                          stub.addDebugInfo("A", 7, 256, "got %d of %s; ", 3, "x");
                          stub.addDebugInfo("B", 8, 16, "0123456789");
                          stub.addDebugInfo("no room", 9, 4, "for the prefix");
                      }),
                exits, "\\[A, line 7: got 3 of x; B, line 8: 01234no r nothing");
    EXPECT_EXIT(print(0,
                      [](auto& stub) {
                          stub.itsGroupID = "g";
                          stub.loadFromCache();
                      }),
                exits,
                "\\[InteractionStub, line 96: loadFromCache after itIsLoaded check\n "
                "Unexpected call to loadConfig");
    EXPECT_EXIT(print(0, [](auto&) { Checkpoints().addIncomingCheckpoint("", 1); }), exits,
                "IllegalArgumentException: A checkpoint must have a name.");
    unsetenv("QUENVALE_LOG_LEVEL");
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
        source->itsPayload = new Util::ByteArray(new unsigned char[2]{'h', 'i'}, 2, true);
        auto* region =
            static_cast<Util::ByteArray::Region*>(std::malloc(sizeof *source->itsPayload->extra));
        *region = {1, 2, '*', nullptr};
        source->itsPayload->extra = region;
        source->itsRawBuffer1 = std::malloc(1);
        source->setEvaluators(new InteractionStub::Evaluators(0));
        source->getCheckpoints(true)->addIncomingCheckpoint("cp", 5);

        auto copy = std::make_unique<InteractionStub>();
        copy->itsPayload = new Util::ByteArray(new unsigned char[1], 1, true);
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

        (sourceGoesFirst ? source : copy).reset();
        InteractionStub& left = sourceGoesFirst ? *copy : *source;
        EXPECT_EQ(text(left.itsFlowID + left.itsInteractionID), "flowid");
        EXPECT_EQ(harness::fieldsOf(left.itsFlowFields) + harness::fieldsOf(left.itsMsgFields),
                  "name=1 name=2 ");
        EXPECT_TRUE(left.itsKeys->contains("key"));
        EXPECT_EQ(harness::textOf(left.itsPayload->data, left.itsPayload->length), "hi");
        EXPECT_EQ(left.itsPayload->extra->length, 2);
        EXPECT_EQ(left.itsEvaluators->size(), 0);
        EXPECT_EQ(harness::incoming(left.getCheckpoints(false)), "cp=5 ");
        EXPECT_TRUE(left.itIsLoaded);
    }
}

TEST(Stubs, GroupComesFromWhatIsGiven) {
    using Given = const char*;
    const auto load = [](bool isServer, Given url, Given name, Given id, Given service, Given op) {
        Configured call;
        call.itsClassName = isServer ? &Interaction::SINT_CLASSNAME : &Interaction::CINT_CLASSNAME;
        call.itsUrl = url;
        call.itsGroupName = name;
        call.itsGroupID = id;
        call.itsServiceName = service;
        call.itsOpName = op;
        call.loadFromCache();
        return text(call.itsGroupName) + " " + text(call.itsGroupID) + " " +
               std::to_string(call.itsAppType) + " " + std::to_string(call.itsSvcType);
    };
    const auto hash = [](Given name) { return text(Util::md5hash(name)); };
    EXPECT_EQ(load(true, "http://h/shop/cart", nullptr, nullptr, nullptr, "op"),
              "shop " + hash("shop") + " 8 0");
    EXPECT_EQ(load(false, "http://h/cart", nullptr, nullptr, "s", "op"),
              "(provider) " + hash("(provider)") + " 8 0");
    EXPECT_EQ(load(true, "http://h/a/b", "mine", nullptr, nullptr, "op"),
              "mine " + hash("mine") + " 0 0");
    EXPECT_EQ(load(true, "http://h/a/b", nullptr, "gid", nullptr, "op"), "a gid 8 0");
    EXPECT_EQ(load(true, nullptr, nullptr, "gid", nullptr, ""), "gid gid 8 -128")
        << "without url the id is the name";
}

TEST(Stubs, AnEntryReplacesTheIdentifiersAndANamelessCallHasNone) {
    Configured call;
    call.itsGroupName = "g";
    call.itsServiceID = "declared";
    call.itsState = 1;
    call.itsRqstNotified = true;
    call.entry = std::make_shared<const ConfigEntry>("G", "S", "O", nullptr, true, true);
    call.loadFromCache();
    call.loadFromCache();
    EXPECT_EQ(call.asked, 1) << "it acts once";
    EXPECT_EQ(text(call.itsGroupID + call.itsServiceID + call.itsOpID), "GSO");
    EXPECT_TRUE(call.itIncludesPayload && call.itComputesPath);
    EXPECT_EQ(call.itsSvcType, 0) << "left alone once the request is out";

    Configured nameless;
    EXPECT_THROW(nameless.loadFromCache(), const char*);
    EXPECT_NO_THROW(nameless.loadFromCache()) << "it acts once";
    EXPECT_THROW(nameless.computeDefaultGroupData(), const char*);
    EXPECT_EQ(nameless.asked, 0);
}

}  // namespace
