#include "config/InterceptorConfig.h"
#include "harness/values.h"
#include "helpers/Helpers.h"
#include "interaction/ClientInteraction.h"
#include "interaction/ServerInteraction.h"
#include "util/Clock.h"
#include "util/Socket.h"
#include "util/uri.h"

namespace Quenvale::Interceptor::SDK {
namespace {

using Util::String;

class Trust : public testing::Test {
protected:
    ~Trust() override { configure(""); }

    static void configure(const std::string& trust) {
        harness::TextReader reader(trust + "127.0.0.1\n1\n1\n0\n0\n0\n0\n0\n0\n");
        InterceptorConfig::itsCurrent.updateConfig(reader);
    }
    static std::string block(const std::string& key, const std::string& interval,
                             const std::string& checksAddress = "no") {
        return "trustKey=" + key + "\nassertsTrust=true\nchecksCallerAddress=" + checksAddress +
               "\ntrustInterval=" + interval + "\n";
    }
    static long long now() { return Util::Clock::_currentTimeMillis(); }
};

TEST_F(Trust, AnAssertionAddsItsKeysWithoutTheTime) {
    configure(block("key", "5"));
    ClientInteraction client;
    String header("Flow=f;");
    EXPECT_FALSE(Helpers::assertTrust(header, &client)) << "no interaction id";
    EXPECT_STREQ(header.c_str(), "Flow=f;");
    client.itsInteractionID = "id";
    client.setSecurityID("user");
    EXPECT_TRUE(Helpers::assertTrust(header, &client));
    const std::string text = header.c_str();
    EXPECT_EQ(text.rfind("Flow=f;TrustSignature=", 0), 0U);
    EXPECT_EQ(text.size(), std::strlen("Flow=f;TrustSignature=;SecurityID=user;") + 24);
    EXPECT_EQ(text.substr(text.size() - 19), "==;SecurityID=user;");

    client.itsGroupName = "g";
    client.itsLocalAddr = "me";
    client.setPeerAddr("peer");
    const std::string sent = Helpers::writeHeader(&client, true).c_str();
    EXPECT_NE(sent.find("CallerAddress=me;CalleeAddress=peer;"), std::string::npos);
    EXPECT_EQ(sent.find("Trust"), std::string::npos) << "the signature never leaves";
    EXPECT_EQ(sent.find("SecurityID"), std::string::npos);
    configure(block("", "5"));
    EXPECT_FALSE(Helpers::assertTrust(header, &client)) << "no key";
}

TEST_F(Trust, TheSignatureIsTheHashOfTheTextsJoined) {
    const auto sign = [](const char* key, const char* caller, bool noHash = false) {
        return harness::text(Helpers::buildTrustSig(key, caller, 12LL, "i", "s", noHash));
    };
    EXPECT_EQ(sign("a", "b"), Util::URI::md5hash("ab12is").c_str());
    EXPECT_EQ(sign(nullptr, "ab"), sign("a", "b"));
    EXPECT_EQ(sign("a", "b", true), "");
    const std::string longKey(5000, 'k');
    EXPECT_EQ(sign(longKey.c_str(), ""), Util::URI::md5hash((longKey + "12is").c_str()).c_str());
}

TEST_F(Trust, NoSignaturePassesAndNoBlockTrustsAll) {
    ServerInteraction server;
    // Whether the check comes as far as to record the id.
    const auto isRecorded = [&](const char* id) {
        server.itsUpstreamInteractionID = id;
        EXPECT_FALSE(Helpers::checkTrust(&server)) << id;
        return Helpers::intIDCache.hasKey(id);
    };
    server.itsUpstreamInteractionID = "trusted";
    EXPECT_TRUE(Helpers::checkTrust(&server));
    EXPECT_FALSE(Helpers::intIDCache.hasKey("trusted"));
    configure(block("k", "0"));
    EXPECT_FALSE(isRecorded("without an interval"));
    configure(block("k", "9"));
    EXPECT_TRUE(isRecorded("what never came is not blank"));
    server.itsCallerAddr = "c";
    server.itsTrustTimestamp = now();
    server.itsTrustSignature =
        Helpers::buildTrustSig("k", "c", server.itsTrustTimestamp, "right", String::NIL, false);
    EXPECT_TRUE(isRecorded("right")) << "but not trusted";
    server.itsCallerAddr = "";
    EXPECT_FALSE(isRecorded("a blank caller"));
}

TEST_F(Trust, AnIdATimeAndACallerAreEachChecked) {
    EXPECT_TRUE(Helpers::checkTrustID("once", 1000000));
    EXPECT_FALSE(Helpers::checkTrustID("once", 1000000));
    EXPECT_TRUE(Helpers::checkTrustID("once", -1)) << "strictly more than the window";
    for (int i = 0; i < 1000; ++i)
        Helpers::checkTrustID(("n" + std::to_string(i)).c_str(), 1000000);
    EXPECT_TRUE(Helpers::checkTrustID("once", 1000000)) << "the thousand and first pushed it out";
    EXPECT_TRUE(Helpers::checkTrustTS(now() + 5000, 0)) << "the future passes";
    EXPECT_FALSE(Helpers::checkTrustTS(now() - 5000, 4000));
    EXPECT_FALSE(Helpers::checkTrustTS(LLONG_MIN, LLONG_MAX - 1));
    EXPECT_TRUE(Helpers::checkCallerAddr("localhost", "localhost"));
    EXPECT_FALSE(Helpers::checkCallerAddr("elsewhere", "localhost"));
    EXPECT_FALSE(Helpers::checkCallerAddr("x", "no such host \xff"));
    EXPECT_TRUE(Util::Socket::ourHostAddrs.hasKey("no such host \xff")) << "a miss is kept too";
}

TEST_F(Trust, ConcurrentChecksDoNotMeet) {
    configure(block("k", "9", "true"));
    const auto check = [] {
        for (int i = 0; i < 300; ++i) {
            ServerInteraction server;
            server.itsUpstreamInteractionID = ("t" + std::to_string(i)).c_str();
            server.itsTrustTimestamp = now();
            EXPECT_FALSE(Helpers::checkTrust(&server));
            EXPECT_TRUE(Helpers::readHeader("Flow=a;FlowFields=a:1,b:2;name=n;CPTime=3;", &server));
            Helpers::checkCallerAddr("a", ("127.0.0." + std::to_string(i % 5)).c_str());
            ClientInteraction client;
            client.itsInteractionID = "id";
            String header;
            EXPECT_TRUE(Helpers::assertTrust(header, &client));
        }
    };
    harness::onThreads(check, check);
}

}  // namespace
}  // namespace Quenvale::Interceptor::SDK
