#include <random>

#include "harness/values.h"
#include "helpers/Helpers.h"
#include "interaction/ClientInteraction.h"
#include "interaction/ServerInteraction.h"

namespace Quenvale::Interceptor::SDK {
namespace {

using Util::String;

using harness::fieldsOf;
using harness::incoming;
using harness::text;

TEST(Header, WhatEachTextSets) {
    // What for, the header, and what that sets: flow, path, locus, checkpoints, fields.
    const char* const rows[][3] = {
        {"nothing at all", nullptr, "NIL NIL NIL none none"},
        {"an empty text", "", "NIL NIL NIL none none"},
        {"no pair in it", "abc", "NIL NIL NIL none none"},
        {"the last one wins, if it is not empty", "Flow=a;Flow=b;Flow=;", "b NIL NIL none none"},
        {"a time without a name", "CPTime=5;", "NIL NIL NIL none none"},
        {"a time of zero", "name=a;CPTime=0;", "NIL NIL NIL none none"},
        {"a checkpoint without a name", "name=;CPTime=5;", "NIL NIL NIL none none"},
        {"a pair between name and time", "name=a;Path=p;CPTime=7;", "NIL p NIL a=7  none"},
        {"a name is used up", "name=a;CPTime=7;CPTime=8;", "NIL NIL NIL a=7  none"},
        {"a list and a second one", "FlowFields=a:1,,b:2,c;FlowFields=b:3,:x,y:;",
         "NIL NIL NIL none a=1 b=3 c=c =x y= "},
        {"a semicolon splits a value", "Locus=a;b=c;", "NIL NIL a none none"},
        {"a last pair without its end", "Locus=a", "NIL NIL a none none"},
        {"keys have a case", "flow=a;FLOW=b", "NIL NIL NIL none none"},
        {"a name may hold anything", "x;Flow=a;Locus=b;", "NIL NIL b none none"},
    };
    for (const auto& [why, header, set] : rows) {
        SCOPED_TRACE(why);
        ServerInteraction server;
        EXPECT_EQ(Helpers::readHeader(header, &server), !String(header).empty());
        EXPECT_EQ(text(server.itsFlowID) + " " + text(server.itsPathID) + " " +
                      text(server.itsLocus) + " " + incoming(server.getCheckpoints(false)) + " " +
                      fieldsOf(server.itsFlowFields),
                  set);
    }
    ServerInteraction server;
    Helpers::readHeader("CallerAddress=c;TrustTimestamp=12x;TrustSignature=s;SecurityID=u",
                        &server);
    EXPECT_EQ(text(server.itsCallerAddr + server.itsTrustSignature + server.itsSecurityID), "csu");
    EXPECT_EQ(server.itsTrustTimestamp, 12);
}

TEST(Header, IsWrittenInItsOrder) {
    ClientInteraction client;
    client.itsGroupName = "g";
    client.itsInteractionID = "i7Q";
    client.itsFlowID = "f3K";
    client.itsLocus = "A";
    client.setPathID("p9R");
    client.loadFromCache();
    client.itsOpID = "o2Z";
    EXPECT_EQ(text(Helpers::writeHeader(&client, false)), "NIL")
        << "no callee and no flow field: nothing is sent";
    client.getCheckpoints(true)->setNewCheckpoints(harness::Names{"start", ""}.list());
    client.getCheckpoints(true)->addIncomingCheckpoint("in", 4);
    client.getCheckpoints(true)->itsBaseline = 25;
    client.setPeerAddr("10.1.2.3");
    client.addFlowFieldToPropagate("customer", "42", true);
    client.addFlowFieldToPropagate("next", "x", true);
    EXPECT_EQ(text(Helpers::writeHeader(&client, true)),
              "Interaction=i7Q;Locus=A;Flow=f3K;UpstreamOpID=o2Z;Path=p9R;name=in;CPTime=4;"
              "name=start;CPTime=25;CPTime=25;CalleeAddress=10.1.2.3;"
              "FlowFields=customer:42,next:x;")
        << "trust is not asserted without a configuration";
}

// Whatever the client writes, the server stores; texts as long as a page too.
TEST(Header, ReadsWhatItWroteAndAnyBytesDoNoHarm) {
    std::mt19937 random(7);
    const auto value = [&](std::size_t longest) {
        static const std::string letters =
            "abcXYZ019=:-_.~+/ !\"#$%&'()*\xe4\xff";  // no ";" and no ","
        std::string result(1 + random() % longest, 'a');
        for (char& c : result) c = letters[random() % letters.size()];
        return String(result.c_str());
    };
    const auto all = [](const auto&... texts) { return std::vector<std::string>{text(texts)...}; };
    for (int i = 0; i < 300; ++i) {
        const std::size_t longest = i % 3 == 0 ? 3000 : 40;
        ClientInteraction client;
        client.itsGroupName = "g";
        client.loadFromCache();
        for (String* each :
             {&client.itsInteractionID, &client.itsFlowID, &client.itsLocus, &client.itsOpID})
            *each = value(longest);
        client.setPathID(value(longest));
        client.setPeerAddr(value(longest));
        client.addFlowFieldToPropagate("key", value(longest), true);
        ServerInteraction server;
        EXPECT_TRUE(Helpers::readHeader(Helpers::writeHeader(&client, false), &server));
        EXPECT_EQ(all(server.itsUpstreamInteractionID, server.itsFlowID, server.itsPathID,
                      server.itsLocus, server.itsUpstreamOpID, server.itsCalleeAddr),
                  all(client.itsInteractionID, client.itsFlowID, client.itsPathID, client.itsLocus,
                      client.itsOpID, client.itsPeerAddr));
        EXPECT_EQ(fieldsOf(server.itsFlowFields), fieldsOf(client.itsFlowFields));
    }
    const std::vector<std::string> parts = {"=",    ";",      ",",          ":",    "Flow",
                                            "name", "CPTime", "FlowFields", "\xff", "x"};
    for (const std::size_t size : {10, 1000, 1 << 20}) {
        std::string header;
        while (header.size() < size) header += parts[random() % parts.size()];
        ServerInteraction server;
        EXPECT_TRUE(Helpers::readHeader(header.c_str(), &server));
        EXPECT_TRUE(Helpers::readHeader(("FlowFields=" + std::string(size, ',')).c_str(), &server));
    }
}

}  // namespace
}  // namespace Quenvale::Interceptor::SDK
