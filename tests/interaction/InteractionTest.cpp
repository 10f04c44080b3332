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
    // By 'a' analysed, 'c' complete and 'e' end: the reports and the stage.
    const auto pass = [](Kind kind, bool isContinuation, const std::string& steps) {
        auto call = make(kind);
        call->itIsContinuation = isContinuation;
        for (const char step : steps) {
            if (step == 'a') call->requestAnalyzed();
            if (step == 'c') call->complete();
            if (step == 'e') call->end();
        }
        return reports() + std::to_string(call->itsState);
    };
    EXPECT_EQ(pass(kServer, false, "aaccaeec"), "request reply 3");
    EXPECT_EQ(pass(kServer, false, "ca"), "whole 2") << "a completed call is not analysed";
    EXPECT_EQ(pass(kServer, true, "ae"), "3") << "a server that continues a split is silent";
    EXPECT_EQ(pass(kClient, true, "ae"), "request reply 3") << "a client is not";
}

TEST_F(InteractionTest, RequestContentIsGoneAtTheReply) {
    auto call = make(kServer);
    call->itsPayload = new Util::ByteArray(new unsigned char[2]{'h', 'i'}, 2, true);
    call->itsMsgSize = call->itsSizeB = call->itsSizeC = call->itsSizeD = 2;
    call->itsCoTime = 9;
    call->requestAnalyzed();
    EXPECT_EQ(call->itsSizeB + call->itsSizeC + call->itsSizeD, 4);
    EXPECT_EQ(text(call->itsPayloadContentType), "") << "BLANK, not NIL";
    EXPECT_EQ(call->getCheckpoints(true)->itsBaseline, call->itsStartTime);
    call->itsStartTime -= 70;
    call->end();
    EXPECT_EQ(call->itsCoTime, 0);
    const auto told = itsUplink.take();
    ASSERT_EQ(told.size(), 2U);
    EXPECT_EQ(told[0].payload + "," + told[1].payload, "hi,");
    EXPECT_EQ(told[0].msgSize - told[1].msgSize, 2);
    EXPECT_GE(told[1].rtTime, 70);
}

TEST_F(InteractionTest, ElapsedTimeIsAtLeastAMillisecondAndKept) {
    const auto elapsed = [](int given, long long startsIn) {
        auto call = newClient();
        call->itsRtTime = given;
        call->itsStartTime += startsIn;
        call->end();
        return call->itsRtTime;
    };
    EXPECT_EQ(elapsed(0, 5000), 1) << "a clock that was set back";
    EXPECT_EQ(elapsed(7, -5000), 7) << "a time that was given";
    EXPECT_EQ(elapsed(0, LLONG_MIN), 1) << "a start before all time";
}

TEST_F(InteractionTest, UnfinishedCallIsReportedByItsDestructor) {
    const auto told = [&](Kind kind, int state, const char* failure, bool isContinuation,
                          int holders) {
        auto call = make(kind, "key");
        call->storeLocalKey("other");
        call->itIsContinuation = isContinuation;
        call->itsRefCount = holders;
        if (state >= 1) call->requestAnalyzed();
        if (state >= 2) call->complete();
        itsUplink.take();
        call->itsFailure = failure;
        call->itsStartTime -= 100000;
        call.reset();
        std::string result;
        for (const auto& report : itsUplink.take()) {
            result += report.kind() + " " + report.failure;
            EXPECT_TRUE(report.isClient) << "it is no server any more";
            EXPECT_EQ(report.rtTime, 1);
        }
        for (const char* key : {"", "key", "other"})
            for (const bool isClient : {true, false})
                EXPECT_EQ(Interaction::get(key, isClient), nullptr) << key;
        return result;
    };
    const std::string error = "Error: interaction finalized with no reply received";
    EXPECT_EQ(told(kServer, 0, nullptr, false, 1), "");
    EXPECT_EQ(told(kServer, 1, nullptr, false, 1), "reply " + error);
    EXPECT_EQ(told(kServer, 1, "x", false, 1), "reply x\n\n" + error);
    EXPECT_EQ(told(kServer, 1, "", false, 1), "reply \n\n" + error) << "blank is a text";
    EXPECT_EQ(told(kServer, 2, nullptr, false, 1), "") << "the reply is out";
    EXPECT_EQ(told(kServer, 1, nullptr, true, 1), "") << "a server that continues a split";
    EXPECT_EQ(told(kClient, 1, nullptr, true, 1), "reply " + error);
    EXPECT_EQ(told(kServer, 1, nullptr, false, 2), "") << "held by a second begin";
    auto nameless = make(kServer);
    nameless->itsGroupName = Util::String();
    nameless->itsState = 1;  // As a record may say that was never analysed.
    nameless.reset();
    EXPECT_EQ(reports(), "") << "and nothing leaves a destructor";
}

TEST_F(InteractionTest, WithoutUplinkReportsAreDropped) {
    Uplink* const former = std::exchange(Interaction::ourUplink, nullptr);
    auto call = make(kServer);
    make(kClient)->copyUplink(call.get());
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
        EXPECT_EQ(Interaction::get("k", false), nullptr);
        call.reset();
        harness::onThreads([&] {
            const std::unique_ptr<Interaction> attached(Interaction::attach(stub.get()));
            ASSERT_NE(attached, nullptr);
            EXPECT_EQ(attached->isServer(), kind == kServer);
            EXPECT_EQ(onThread(kind == kClient), attached.get());
            EXPECT_EQ(Interaction::get("k", kind == kClient), attached.get());
            attached->end();
            EXPECT_EQ(Interaction::get("k", kind == kClient), nullptr);
        });
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
    using Names = std::vector<const char*>;
    const auto merge = [](const Names& msgNames, const Names& flowNames) {
        Interaction call;
        for (const char* name : msgNames) call.setMsgField(name, "M", true);
        for (const char* name : flowNames) call.addFlowFieldToPropagate(name, "F", true);
        const ConfigEntry entry("g", "s", "o", nullptr, false, false);
        call.loadFromCacheData(&entry);
        return fieldsOf(call.itsMsgFields) + "| " + fieldsOf(call.itsFlowFields);
    };
    configure("4\nboth\nflow\nmsg\n\n");
    EXPECT_EQ(merge({"both", "msg", "other"}, {"both", "flow", "other"}),
              "both=F msg=M other=M flow=F | both=F flow=F other=F msg=M ")
        << "the flow wins, the message fills";
    EXPECT_EQ(merge({}, {"flow"}), "flow=F | flow=F ") << "a map is made where it gets an entry";
    EXPECT_EQ(merge({"other"}, {}), "other=M | none") << "and not otherwise";
    Interaction nameless;
    nameless.itsFlowFields = new Util::Map<Util::String>();
    nameless.itsFlowFields->put("", "F");
    nameless.mergeFlowFields();
    EXPECT_EQ(fieldsOf(nameless.itsMsgFields), "=F ") << "a blank name is a name";
    configure("0\n");
}

}  // namespace
