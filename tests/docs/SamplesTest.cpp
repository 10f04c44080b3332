// The samples, run against qz-agent as a reader would: what the agent shows is what the guide says.
#include <nlohmann/json.hpp>
#include <set>

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
        const std::size_t end = line.find(" events ");
        if (end != std::string::npos)
            itsUrl = "tcp://" + line.substr(lead.size(), end - lead.size());
    }

    /// Runs a sample to its end and waits for the events that it reports.
    void run(const char* program, std::size_t events) {
        Child sample(program, {}, {{"QUENVALE_BOOTSTRAP_URL", itsUrl}});
        itsOutput = sample.readAll();
        EXPECT_EQ(sample.wait(), 0);
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
        for (const Json& each : itsEvents) {
            if (each["kind"] == kind && each["side"] == side && each.value(field, Json()) == value)
                return each;
        }
        ADD_FAILURE() << "no " << side << " " << kind << " with " << field << " " << value;
        return Json::object();
    }
    Json replyTo(const Json& request) const {
        return event("reply", request["side"].get<std::string>().c_str(), "interactionID",
                     request["interactionID"]);
    }
    static void expect(const Json& event, const std::map<std::string, Json>& fields) {
        for (const auto& [name, value] : fields)
            EXPECT_EQ(event.value(name, Json()), value) << name;
    }
    static void expectUnder(const Json& server, const Json& client) {
        EXPECT_EQ(client["parentID"], server["interactionID"]);
        EXPECT_EQ(client["flowID"], server["flowID"]);
        EXPECT_EQ(client["locus"], server["opID"]);
    }
    static std::string headerOf(const Json& client, const std::string& rest) {
        const auto text = [&](const char* field) { return client[field].get<std::string>(); };
        return "QZ_Header: Interaction=" + text("interactionID") + ";Locus=" + text("locus") +
               ";Flow=" + text("flowID") + ";UpstreamOpID=" + text("opID") +
               ";Path=" + text("pathID") + ";" + rest + "\n";
    }
    void expectPrinted(const std::string& line) const {
        EXPECT_NE(itsOutput.find(line), std::string::npos) << line << " is not in\n" << itsOutput;
    }
    std::set<std::string> urls() const {
        std::set<std::string> all;
        for (const Json& each : itsEvents) all.insert(each.value("url", ""));
        return all;
    }

    Child itsAgent;
    std::string itsUrl;
    std::string itsOutput;
    std::vector<Json> itsEvents;
};

TEST_F(Samples, TheInterceptorInC) {
    run(QZ_SAMPLE_C, 8);
    const Json server = event("request", "server", "upstreamInteractionID", "i-1");
    expect(server, {{"flowID", "f-1"},
                    {"url", "http://shop.example/cart/add"},
                    {"opName", "POST"},
                    {"groupName", "cart"},
                    {"peerAddr", "10.0.0.1"},
                    {"payload", "article=7"}});
    expect(replyTo(server), {{"payload", "sold out"}});
    EXPECT_FALSE(replyTo(server).contains("failure"));

    // The second one of the process.
    const Json client = event("request", "client", "flowID", "f-1");
    expectUnder(server, client);
    expect(client, {{"payload", "7"}, {"sequenceNumber", 2}});
    EXPECT_EQ(client["pPathID"].get<std::string>().front(), '~') << "a root's";
    EXPECT_EQ(client["pathID"].get<std::string>().size(), 24U) << "below another there is no ~";
    expect(replyTo(client), {{"failure", "the stock service could not answer"}});
    expectPrinted(headerOf(client, "CalleeAddress=10.0.0.3;FlowFields=customer:42;"));
}

TEST_F(Samples, TheInterceptorWithTheClasses) {
    run(QZ_SAMPLE_CPP, 8);
    const Json server = event("request", "server", "upstreamInteractionID", "i-2");
    expect(server, {{"flowID", "f-2"},
                    {"opName", "place"},
                    {"groupName", "orders"},
                    {"payload", "article=7"}});
    expect(replyTo(server), {{"payload", "thanks"}, {"failure", "the price is above the limit"}});

    const Json client = event("request", "client", "flowID", "f-2");
    expectUnder(server, client);
    expect(replyTo(client), {{"payload", "19.90"}});
    expectPrinted(headerOf(client, "CalleeAddress=price.example;FlowFields=customer:42;"));
}

TEST_F(Samples, CallsThatDoNotGoOneToOneWithThreads) {
    run(QZ_SAMPLE_THREADS, 20);
    EXPECT_EQ(urls().count("http://shop.example/health/check"), 0U);

    const auto server = [&](const char* url) { return event("request", "server", "url", url); };
    const auto client = [&](const char* url) { return event("request", "client", "url", url); };
    expectUnder(server("http://loop.example/loop/first"), client("http://db.example/db/first"));

    const Json worked = server("http://shop.example/work/start");
    expectUnder(worked, client("http://db.example/db/work"));
    const Json after = client("http://db.example/db/after");
    expectUnder(worked, after);
    expectPrinted(headerOf(after, "CalleeAddress=db.example;FlowFields=worker:yes;"));

    const Json inner = event("request", "client", "opName", "render");
    expectUnder(event("request", "server", "interactionID", inner["parentID"]), inner);
    EXPECT_EQ(event("request", "server", "opName", "render")["upstreamInteractionID"],
              inner["interactionID"]);
    EXPECT_EQ(replyTo(server("http://shop.example/wanted/body"))["payload"], "made for the agent");
}

}  // namespace
