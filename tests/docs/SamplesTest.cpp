// The samples, run against qz-agent as a reader would: what the agent shows is what the guide says.
#include <nlohmann/json.hpp>

#include "harness/Child.h"
#include "harness/test.h"

namespace {

using harness::Child;
using Json = nlohmann::json;

class Samples : public testing::Test {
protected:
    Samples() : itsAgent(QZ_AGENT, {"--listen", "127.0.0.1:0", "--events", "0", "--json"}, {}) {
        const std::string line = itsAgent.readLine();
        const std::string lead = "listening control ";
        EXPECT_EQ(line.compare(0, lead.size(), lead), 0) << line;
        itsUrl = "tcp://" + line.substr(0, line.find(" events ")).substr(lead.size());
    }

    /// Runs a sample to its end and waits for the events that it reports.
    void run(const char* program, std::size_t events) {
        Child sample(program, {}, {{"QUENVALE_BOOTSTRAP_URL", itsUrl}});
        itsOutput = sample.readAll();
        EXPECT_EQ(sample.wait(), 0);
        itsEvents.clear();
        while (itsEvents.size() < events) {
            const std::string line = itsAgent.readLine();
            ASSERT_NE(line, "") << itsEvents.size() << " events have come";
            Json json = Json::parse(line);
            EXPECT_NE(json["type"], "malformed") << line;
            if (json["type"] == "event") itsEvents.push_back(std::move(json));
        }
    }
    /// The event of a kind and side in which a field has the value.
    Json event(const char* kind, const char* side, const char* field, const Json& value) const {
        for (const Json& each : itsEvents)
            if (each["kind"] == kind && each["side"] == side && each.value(field, Json()) == value)
                return each;
        ADD_FAILURE() << "no " << side << " " << kind << " with " << field << " " << value;
        return Json::object();
    }
    Json replyTo(const Json& request) const {
        return event("reply", request["side"].get<std::string>().c_str(), "interactionID",
                     request["interactionID"]);
    }
    /// A null stands for a field that is not there.
    static void expect(const Json& event, const char* fields) {
        const Json expected = Json::parse(fields);
        for (const auto& field : expected.items())
            EXPECT_EQ(event.value(field.key(), Json()), field.value()) << field.key();
    }
    static void expectUnder(const Json& server, const Json& client) {
        EXPECT_EQ(client["parentID"], server["interactionID"]);
        EXPECT_EQ(client["flowID"], server["flowID"]);
        EXPECT_EQ(client["locus"], server["opID"]);
    }
    void expectHeader(const Json& client, const std::string& rest) const {
        const std::string lead =
            "QZ_Header: Interaction=" + client["interactionID"].get<std::string>() + ";";
        const std::size_t at = itsOutput.find(lead);
        ASSERT_NE(at, std::string::npos) << lead << " is not in\n" << itsOutput;
        const std::string line = itsOutput.substr(at, itsOutput.find('\n', at) - at);
        EXPECT_NE(line.find(";Path=" + client["pathID"].get<std::string>() + ";" + rest),
                  std::string::npos)
            << line;
    }

    Child itsAgent;
    std::string itsUrl;
    std::string itsOutput;
    std::vector<Json> itsEvents;
};

TEST_F(Samples, TheInterceptorInCAndTheOneWithTheClasses) {
    const struct {
        const char *program, *flow, *headerEnd, *request, *reply, *askedFor, *answer;
    } rows[] = {
        {QZ_SAMPLE_C, "f-1", "CalleeAddress=10.0.0.3;FlowFields=customer:42;",
         R"({"upstreamInteractionID": "i-1", "url": "http://shop.example/cart/add",
             "opName": "POST", "groupName": "cart", "peerAddr": "10.0.0.1",
             "payload": "article=7"})",
         R"({"payload": "sold out", "failure": null})",
         R"({"payload": "7", "sequenceNumber": 2})",  // The second one of the process.
         R"({"failure": "the stock service could not answer"})"},
        {QZ_SAMPLE_CPP, "f-2", "CalleeAddress=price.example;FlowFields=customer:42;",
         R"({"upstreamInteractionID": "i-2", "opName": "place", "groupName": "orders",
             "payload": "article=7"})",
         R"({"payload": "thanks", "failure": "the price is above the limit"})", "{}",
         R"({"payload": "19.90"})"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.program);
        run(row.program, 8);
        const Json server = event("request", "server", "flowID", row.flow);
        const Json client = event("request", "client", "flowID", row.flow);
        expect(server, row.request);
        expect(replyTo(server), row.reply);
        expectUnder(server, client);
        expect(client, row.askedFor);
        expect(replyTo(client), row.answer);
        expectHeader(client, row.headerEnd);
    }
}

TEST_F(Samples, CallsThatDoNotGoOneToOneWithThreads) {
    run(QZ_SAMPLE_THREADS, 20);
    for (const Json& each : itsEvents)
        EXPECT_NE(each.value("url", ""), "http://shop.example/health/check");

    const auto server = [&](const char* url) { return event("request", "server", "url", url); };
    const auto client = [&](const char* url) { return event("request", "client", "url", url); };
    expectUnder(server("http://loop.example/loop/first"), client("http://db.example/db/first"));

    const Json worked = server("http://shop.example/work/start");
    expectUnder(worked, client("http://db.example/db/work"));
    const Json after = client("http://db.example/db/after");
    expectUnder(worked, after);
    expectHeader(after, "CalleeAddress=db.example;FlowFields=worker:yes;");

    const Json inner = event("request", "client", "opName", "render");
    expectUnder(event("request", "server", "interactionID", inner["parentID"]), inner);
    EXPECT_EQ(event("request", "server", "opName", "render")["upstreamInteractionID"],
              inner["interactionID"]);
    EXPECT_EQ(replyTo(server("http://shop.example/wanted/body"))["payload"], "made for the agent");
}

}  // namespace
