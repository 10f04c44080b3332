#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <string>
#include <thread>

#include "harness/RecordingUplink.h"
#include "helpers/Helpers.h"
#include "interaction/ClientInteraction.h"
#include "interaction/ServerInteraction.h"

namespace Quenvale::Interceptor::SDK {
namespace {

using Util::String;

std::string text(const String& value) {
    return value.c_str() == nullptr ? "(nil)" : value.c_str();
}

std::string fieldsOf(Interaction& interaction) {
    std::string all;
    if (interaction.itsFlowFields == nullptr) return all;
    Util::Map<String>::Iterator entries(interaction.itsFlowFields);
    while (entries.hasNext()) {
        const auto* entry = entries.next();
        all += text(entry->key) + ":" + text(entry->value) + " ";
    }
    return all;
}

std::string checkpointsOf(Interaction& interaction) {
    std::string all;
    Checkpoints* checkpoints = interaction.getCheckpoints(false);
    if (checkpoints == nullptr) return all;
    const std::unique_ptr<Util::Map<long long>::Iterator> entries(
        checkpoints->getIncomingCheckpoints());
    while (entries != nullptr && entries->hasNext()) {
        const auto* entry = entries->next();
        all += text(entry->key) + ":" + std::to_string(entry->value) + " ";
    }
    return all;
}

TEST(Header, WhatEachTextSets) {
    const struct {
        const char* why;
        const char* header;
        bool result;
        const char* flow;
        const char* path;
        const char* locus;
        const char* checkpoints;
        const char* fields;
    } rows[] = {
        {"nothing at all", nullptr, false, "(nil)", "(nil)", "(nil)", "", ""},
        {"an empty text", "", false, "(nil)", "(nil)", "(nil)", "", ""},
        {"no pair in it", "abc", true, "(nil)", "(nil)", "(nil)", "", ""},
        {"an empty value is ignored", "Flow=;", true, "(nil)", "(nil)", "(nil)", "", ""},
        {"the last one wins", "Flow=a;Flow=b;", true, "b", "(nil)", "(nil)", "", ""},
        {"a time without a name", "CPTime=5;", true, "(nil)", "(nil)", "(nil)", "", ""},
        {"a time of zero", "name=a;CPTime=0;", true, "(nil)", "(nil)", "(nil)", "", ""},
        {"a checkpoint without a name", "name=;CPTime=5;", true, "(nil)", "(nil)", "(nil)", "", ""},
        {"a pair between name and time", "name=a;Path=p;CPTime=7;", true, "(nil)", "p", "(nil)",
         "a:7 ", ""},
        {"a name is used up", "name=a;CPTime=7;CPTime=8;", true, "(nil)", "(nil)", "(nil)", "a:7 ",
         ""},
        {"a list and a second one", "FlowFields=a:1,,b:2,c;FlowFields=b:3,:x,y:;", true, "(nil)",
         "(nil)", "(nil)", "", "a:1 b:3 c:c :x y: "},
        {"commas alone", "FlowFields=,,,;", true, "(nil)", "(nil)", "(nil)", "", ""},
        {"a semicolon splits a value", "Locus=a;b=c;", true, "(nil)", "(nil)", "a", "", ""},
        {"a last pair without its end", "Locus=a", true, "(nil)", "(nil)", "a", "", ""},
        {"equals signs belong to the value", "Path=abc==;", true, "(nil)", "abc==", "(nil)", "",
         ""},
        {"keys have a case", "flow=a;FLOW=b", true, "(nil)", "(nil)", "(nil)", "", ""},
        {"a name may hold anything", "x;Flow=a;Locus=b;", true, "(nil)", "(nil)", "b", "", ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        ServerInteraction server;
        EXPECT_EQ(Helpers::readHeader(row.header, &server), row.result);
        EXPECT_EQ(text(server.itsFlowID), row.flow);
        EXPECT_EQ(text(server.itsPathID), row.path);
        EXPECT_EQ(text(server.itsLocus), row.locus);
        EXPECT_EQ(checkpointsOf(server), row.checkpoints);
        EXPECT_EQ(fieldsOf(server), row.fields);
    }
}

TEST(Header, TheKeysOfTrustAreRead) {
    ServerInteraction server;
    Helpers::readHeader(
        "Interaction=i;UpstreamOpID=o;CallerAddress=c;CalleeAddress=d;TrustTimestamp=12x;"
        "TrustSignature=s;SecurityID=u",
        &server);
    EXPECT_EQ(text(server.getUpstreamInteractionID()), "i");
    EXPECT_EQ(text(server.itsUpstreamOpID), "o");
    EXPECT_EQ(text(server.itsCallerAddr), "c");
    EXPECT_EQ(text(server.itsCalleeAddr), "d");
    EXPECT_EQ(server.itsTrustTimestamp, 12);
    EXPECT_EQ(text(server.itsTrustSignature), "s");
    EXPECT_EQ(text(server.itsSecurityID), "u");
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
    EXPECT_EQ(text(Helpers::writeHeader(&client, false)), "(nil)")
        << "no callee and no flow field: nothing is sent";
    Util::Vector<String> names(0, 2);
    names.add("start");
    names.add("");
    client.getCheckpoints(true)->setNewCheckpoints(&names);
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
    client.setPeerAddr("");
    client.setUrl("http://back.example:80/x");
    EXPECT_NE(text(Helpers::writeHeader(&client, false)).find("CalleeAddress=back.example;"),
              std::string::npos);
}

// Whatever the client writes, the server stores; texts as long as a page too.
TEST(Header, ReadsWhatItWrote) {
    std::mt19937 random(7);
    const auto value = [&](std::size_t longest) {
        static const std::string letters =
            "abcXYZ019=:-_.~+/ !\"#$%&'()*\xe4\xff";  // no ";" and no ","
        std::string result(1 + random() % longest, 'a');
        for (char& c : result) c = letters[random() % letters.size()];
        return result;
    };
    for (int i = 0; i < 300; ++i) {
        const std::size_t longest = i % 3 == 0 ? 3000 : 40;
        ClientInteraction client;
        client.itsGroupName = "g";
        client.loadFromCache();
        const std::string id = value(longest), flow = value(longest), path = value(longest),
                          locus = value(longest), op = value(longest), peer = value(longest),
                          field = value(longest);
        client.itsInteractionID = id.c_str();
        client.itsFlowID = flow.c_str();
        client.setPathID(path.c_str());
        client.itsLocus = locus.c_str();
        client.itsOpID = op.c_str();
        client.setPeerAddr(peer.c_str());
        client.addFlowFieldToPropagate("key", field.c_str(), true);
        ServerInteraction server;
        EXPECT_TRUE(Helpers::readHeader(Helpers::writeHeader(&client, false), &server));
        EXPECT_EQ(text(server.itsUpstreamInteractionID), id);
        EXPECT_EQ(text(server.itsFlowID), flow);
        EXPECT_EQ(text(server.itsPathID), path);
        EXPECT_EQ(text(server.itsLocus), locus);
        EXPECT_EQ(text(server.itsUpstreamOpID), op);
        EXPECT_EQ(text(server.itsCalleeAddr), peer);
        EXPECT_EQ(text(server.itsFlowFields->find("key")), field);
    }
}

TEST(Header, AnyBytesDoNoHarm) {
    std::mt19937 random(11);
    for (const std::size_t size : {std::size_t{10}, std::size_t{1000}, std::size_t{1} << 20}) {
        static const std::string parts[] = {"=",    ";",      ",",          ":",    "Flow",
                                            "name", "CPTime", "FlowFields", "\xff", "x"};
        std::string header;
        while (header.size() < size) header += parts[random() % 10];
        ServerInteraction server;
        EXPECT_TRUE(Helpers::readHeader(header.c_str(), &server));
        const std::string list = "FlowFields=" + std::string(size, ',') + "a:b";
        EXPECT_TRUE(Helpers::readHeader(list.c_str(), &server));
    }
}

TEST(Header, ConcurrentReadersDoNotMeet) {
    const auto read = [] {
        for (int i = 0; i < 500; ++i) {
            ServerInteraction server;
            Helpers::readHeader("Flow=a;FlowFields=a:1,b:2;name=n;CPTime=3;", &server);
            ASSERT_EQ(fieldsOf(server), "a:1 b:2 ");
        }
    };
    std::thread other(read);
    read();
    other.join();
}

}  // namespace
}  // namespace Quenvale::Interceptor::SDK
