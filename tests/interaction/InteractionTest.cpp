#include "interaction/Interaction.h"

#include "config/InterceptorConfig.h"
#include "harness/CallTest.h"

namespace {

using namespace Quenvale::Interceptor::SDK;
using harness::fieldsOf;
using harness::text;
using Kind = bool;
constexpr Kind kServer = true;
constexpr Kind kClient = false;

const std::string kNotEnded = "Error: interaction finalized with no reply received";

class InteractionTest : public harness::CallTest {
protected:
    ~InteractionTest() override {
        EXPECT_EQ(harness::RecordingUplink::Attachment::alive, 0);
        EXPECT_EQ(onThread(), nullptr) << "left on the thread";
        EXPECT_EQ(onThread(true), nullptr) << "left on the thread";
    }

    static std::unique_ptr<Interaction> make(Kind kind, const char* key = nullptr) {
        if (kind == kServer) return newServer(key);
        return newClient(key);
    }

    harness::RecordingUplink& itsUplink = harness::RecordingUplink::instance();
};

TEST_F(InteractionTest, StagesReportOnce) {
    const struct {
        const char* why;
        const char* steps;  // a analysed, c complete, e end
        const char* reports;
        int state;
        Kind kind;
        bool isContinuation, isInternal;
    } rows[] = {
        {"request and reply", "ac", "request reply ", 2, kServer, false, false},
        {"one event for both sides", "c", "whole ", 2, kServer, false, false},
        {"no stage is passed twice", "aaccaeec", "request reply ", 3, kServer, false, false},
        {"a completed call is not analysed", "ca", "whole ", 2, kServer, false, false},
        {"a server that continues a split is silent", "ae", "", 3, kServer, true, false},
        {"a client is not", "ae", "request reply ", 3, kClient, true, false},
        {"internal calls are silent", "ae", "", 3, kClient, false, true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        auto call = make(row.kind);
        call->itIsContinuation = row.isContinuation;
        call->itIsInternal = row.isInternal;
        for (const char* step = row.steps; *step != '\0'; ++step) {
            if (*step == 'a') call->requestAnalyzed();
            if (*step == 'c') call->complete();
            if (*step == 'e') call->end();
        }
        EXPECT_EQ(reports(), row.reports);
        EXPECT_EQ(call->itsState, row.state);
        call->itsState = 3;
    }
}

TEST_F(InteractionTest, RequestContentIsGoneAtTheReply) {
    auto call = make(kServer);
    call->itsPayload = new Util::ByteArray(new unsigned char[2]{'h', 'i'}, 2, true);
    call->itsMsgSize = call->itsSizeB = call->itsSizeC = call->itsSizeD = 2;
    call->itsCoTime = 9;
    call->requestAnalyzed();
    EXPECT_EQ(call->itsSizeB + call->itsSizeD, 4);
    EXPECT_EQ(call->itsSizeC, 0);
    EXPECT_EQ(text(call->itsPayloadContentType), "") << "BLANK, not NIL";
    call->itsStartTime -= 70;
    call->end();
    EXPECT_EQ(call->itsCoTime, 0);
    const auto told = itsUplink.take();
    ASSERT_EQ(told.size(), 2U);
    EXPECT_EQ(told[0].payload, "hi");
    EXPECT_EQ(told[0].msgSize, 2);
    EXPECT_EQ(told[1].payload, "");
    EXPECT_EQ(told[1].msgSize, 0);
    EXPECT_GE(told[1].rtTime, 70);
}

TEST_F(InteractionTest, ElapsedTimeIsAtLeastAMillisecondAndKept) {
    const struct {
        const char* why;
        int given;
        long long startsIn;
        int wanted;
    } rows[] = {{"a clock that was set back", 0, 5000, 1},
                {"a time that was given", 7, -5000, 7},
                {"a start before all time", 0, LLONG_MIN, 1}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        auto call = make(kClient);
        call->itsRtTime = row.given;
        call->itsStartTime += row.startsIn;
        call->end();
        EXPECT_EQ(call->itsRtTime, row.wanted);
    }
}

TEST_F(InteractionTest, UnfinishedCallIsReportedByItsDestructor) {
    const struct {
        const char* why;
        Kind kind;
        int state;
        const char* failure;
        bool isContinuation;
        int holders;
        std::string reported;
    } rows[] = {
        {"never analysed", kServer, 0, nullptr, false, 1, ""},
        {"analysed", kServer, 1, nullptr, false, 1, "reply " + kNotEnded},
        {"with a failure of its own", kServer, 1, "x", false, 1, "reply x\n\n" + kNotEnded},
        {"blank is a failure text", kServer, 1, "", false, 1, "reply \n\n" + kNotEnded},
        {"completed: the reply is out", kServer, 2, nullptr, false, 1, ""},
        {"continuation", kServer, 1, nullptr, true, 1, ""},
        {"continuing client", kClient, 1, nullptr, true, 1, "reply " + kNotEnded},
        {"held by a second begin", kServer, 1, nullptr, false, 2, ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        auto call = make(row.kind, "key");
        call->storeLocalKey("other");
        call->itIsContinuation = row.isContinuation;
        call->itsRefCount = row.holders;
        if (row.state >= 1) call->requestAnalyzed();
        if (row.state >= 2) call->complete();
        itsUplink.take();
        call->itsFailure = row.failure;
        call->itsStartTime -= 100000;
        call.reset();
        std::string reported;
        for (const auto& report : itsUplink.take()) {
            reported += report.kind() + " " + report.failure;
            EXPECT_TRUE(report.isClient) << "it is no server any more";
            EXPECT_EQ(report.rtTime, 1);
        }
        EXPECT_EQ(reported, row.reported);
        for (const char* key : {"", "key", "other"})
            for (const bool isClient : {true, false})
                EXPECT_EQ(Interaction::get(key, isClient), nullptr) << key;
    }
    auto nameless = make(kServer);
    nameless->itsGroupName = Util::String();
    nameless->itsState = 1;  // As a record may say that was never analysed.
    nameless.reset();
    EXPECT_EQ(reports(), "") << "and nothing leaves a destructor";
}

TEST_F(InteractionTest, WithoutUplinkReportsAreDropped) {
    Uplink* const former = std::exchange(Interaction::ourUplink, nullptr);
    auto call = make(kServer);
    auto client = make(kClient);
    client->copyUplink(call.get());
    client->end();
    call->requestAnalyzed();
    call->end();
    Interaction::ourUplink = former;
    EXPECT_EQ(reports(), "");
}

TEST_F(InteractionTest, DetachedCallGoesOnOnAnotherThread) {
    for (const Kind kind : {kServer, kClient}) {
        auto call = make(kind);
        call->storeLocalKey("k");
        const std::string id = text(call->getInteractionID());
        call->itsMsgSize = 3;
        const std::unique_ptr<InteractionStub> stub(call->detach());
        EXPECT_EQ(Interaction::get("k", false), nullptr) << "the key was dropped";
        call.reset();
        std::thread([&] {
            const std::unique_ptr<Interaction> attached(Interaction::attach(stub.get()));
            ASSERT_NE(attached, nullptr);
            EXPECT_EQ(attached->isServer(), kind == kServer);
            EXPECT_EQ(onThread(kind == kClient), attached.get());
            EXPECT_EQ(Interaction::get("k", kind == kClient), attached.get());
            attached->end();
            EXPECT_EQ(Interaction::get("k", kind == kClient), nullptr);
        }).join();
        const auto told = itsUplink.take();
        ASSERT_EQ(told.size(), 1U);
        EXPECT_EQ(told[0].interactionID, id);
        EXPECT_EQ(told[0].msgSize, 3);
    }
    InteractionStub noCall;
    EXPECT_EQ(Interaction::attach(&noCall), nullptr);
}

TEST_F(InteractionTest, FieldsNeedNameAndValueAndAFailureATextOrNone) {
    Interaction call;
    call.setFailure(nullptr);
    EXPECT_EQ(text(call.itsFailure), "NIL");
    Util::APIException none{""}, some{"broken"};
    call.setFailure(&some);
    EXPECT_EQ(text(call.itsFailure), "broken");
    call.setFailure(&none);
    EXPECT_EQ(text(call.itsFailure), "Fault: exception (no message)");
    call.setMsgField("", "v", true);
    call.setMsgField("n", "", true);
    call.addFlowFieldsToPropagate(nullptr);
    EXPECT_EQ(fieldsOf(call.itsMsgFields), "none");
    call.setMsgField("n", "1", false);
    call.setMsgField("n", "2", false);
    call.setMsgField("n", "", true);
    EXPECT_EQ(fieldsOf(call.itsMsgFields), "n=1 ");
    call.addFlowFieldsToPropagate(call.itsMsgFields);
    EXPECT_NE(call.itsFlowFields, call.itsMsgFields);
    call.setMsgField("n", "2", true);
    call.setMsgField("m", "3", true);
    call.addMsgFields(call.itsFlowFields, false);
    EXPECT_EQ(fieldsOf(call.itsMsgFields), "n=2 m=3 ");
    call.addFlowFieldsToPropagate(call.itsMsgFields);
    EXPECT_EQ(fieldsOf(call.itsFlowFields), "n=2 m=3 ");
}

// Knows one field.
struct Evaluator final : IMsgFieldEvaluator {
    explicit Evaluator(const char* name) : known(name) {}
    Util::String evaluate(const Util::String& name, const Util::String& from) override {
        return name == known ? from + "!" : Util::String();
    }
    Util::String known;
};

TEST_F(InteractionTest, FirstEvaluatorWithAResultDecides) {
    Interaction call;
    call.evalMsgField("a", "text", true);
    EXPECT_EQ(fieldsOf(call.itsMsgFields) + fieldsOf(call.itsFlowFields), "nonenone");
    auto* evaluators = new InteractionStub::Evaluators(2);
    for (const char* name : {"a", "b"}) evaluators->add(new Evaluator(name));
    call.setEvaluators(evaluators);
    call.setMsgField("b", "old", true);
    call.setMsgField("c", "kept", true);
    call.evalMsgField("a", "1", false);
    call.evalMsgField("b", "2", true);
    call.evalMsgField("c", "3", true);
    call.evalMsgField("d", "4", true);
    EXPECT_EQ(fieldsOf(call.itsMsgFields), "b=2! c=kept a=1! ");
    EXPECT_EQ(fieldsOf(call.itsFlowFields), "b=2! c=kept ");
}

TEST_F(InteractionTest, ConfiguredFieldsAreMerged) {
    const auto configure = [](const std::string& names) {
        harness::TextReader reader("host\n1\n1\n0\n0\n0\n0\n0\n" + names);
        InterceptorConfig::itsCurrent.updateConfig(reader);
    };
    configure("3\nboth\nflow\nmsg\n");
    const struct {
        const char* why;
        std::vector<const char*> msgNames, flowNames;
        const char *msgFields, *flowFields;
    } rows[] = {
        {"the flow wins, the message fills",
         {"both", "msg", "other"},
         {"both", "flow", "other"},
         "both=F msg=M other=M flow=F ",
         "both=F flow=F other=F msg=M "},
        {"a map is made where it gets an entry", {}, {"flow"}, "flow=F ", "flow=F "},
        {"and not otherwise", {"other"}, {}, "other=M ", "none"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        Interaction call;
        for (const char* name : row.msgNames) call.setMsgField(name, "M", true);
        for (const char* name : row.flowNames) call.addFlowFieldToPropagate(name, "F", true);
        const ConfigEntry entry("g", "s", "o", nullptr, false, false);
        call.loadFromCacheData(&entry);
        EXPECT_EQ(fieldsOf(call.itsMsgFields), row.msgFields);
        EXPECT_EQ(fieldsOf(call.itsFlowFields), row.flowFields);
    }
    configure("1\n\n");
    Interaction nameless;
    nameless.itsFlowFields = new Util::Map<Util::String>();
    nameless.itsFlowFields->put("", "F");
    nameless.mergeFlowFields();
    EXPECT_EQ(fieldsOf(nameless.itsMsgFields), "=F ") << "a blank name is a name";
    configure("0\n");
}

}  // namespace
