#pragma once

#include "harness/test.h"
#include "interaction/Interaction.h"
#include "uplink/Uplink.h"

namespace harness {

namespace SDK = Quenvale::Interceptor::SDK;

/// What an agent event would say of an interaction, taken at the notification.
struct Report {
    int state = 0;
    bool rqstNotified = false;
    bool isClient = false;
    std::string failure, interactionID, opName, url, payload;
    int rtTime = 0;
    long long msgSize = 0;
    int queue = 0;

    /// "request", "reply", or "whole" for both sides in one.
    std::string kind() const {
        if (state <= 0) return "request";
        return rqstNotified ? "reply" : "whole";
    }
};

/// An uplink that keeps its reports and has no threads and no agent. Like the real one it
/// attaches a queue to an interaction at its first report and takes it off at its last one; the
/// queues are numbers.
///
/// Threads: any. The one of the process lives as long as that does.
class RecordingUplink final : public SDK::Uplink {
    using String = SDK::Util::String;
    using Guard = SDK::Util::MutexGuard;

public:
    struct Attachment final : SDK::UplinkData {
        explicit Attachment(int number) : queue(number) { ++alive; }
        ~Attachment() override { --alive; }
        Attachment(const Attachment&) = delete;
        Attachment& operator=(const Attachment&) = delete;
        UplinkData* copy() override { return new Attachment(queue); }

        static inline std::atomic<int> alive{0};
        int queue;
    };

    static RecordingUplink& instance() {
        static auto* const uplink = new RecordingUplink;
        return *uplink;
    }

    bool getAlive() override { return true; }
    void notifyAgent(SDK::Interaction* interaction) override {
        Report report = read(interaction);
        if (interaction->itsUplinkData == nullptr)
            interaction->itsUplinkData = new Attachment(++itsLastQueue);
        report.queue = static_cast<Attachment*>(interaction->itsUplinkData)->queue;
        if (interaction->itsState > 0) {
            delete interaction->itsUplinkData;
            interaction->itsUplinkData = nullptr;
        }
        const Guard guard(itsReportsLock);
        itsReports.push_back(std::move(report));
    }
    void flushAllQueues() override { ++flushes; }
    void shutdown() override {}

    /// All reports since the last call, in the order they came.
    std::vector<Report> take() {
        const Guard guard(itsReportsLock);
        return std::exchange(itsReports, {});
    }

    /// The kinds of those reports, each with a blank behind it.
    std::string kinds() {
        std::string text;
        for (const Report& report : take()) text += report.kind() + " ";
        return text;
    }

    std::atomic<int> flushes{0};

private:
    static std::string text(const String& value) {
        return value.c_str() == nullptr ? "" : value.c_str();
    }

    static Report read(SDK::Interaction* interaction) {
        Report report;
        report.state = interaction->itsState;
        report.rqstNotified = interaction->itsRqstNotified;
        report.isClient = !interaction->isServer();
        report.failure = text(interaction->itsFailure);
        // An event asks for both ids, so that a server's are made by now.
        interaction->getFlowID();
        report.interactionID = text(interaction->getInteractionID());
        report.opName = text(interaction->getOpName());
        report.url = text(interaction->getUrl());
        if (const auto* payload = interaction->itsPayload)
            report.payload.assign(reinterpret_cast<const char*>(payload->data),
                                  static_cast<unsigned>(payload->length));
        report.rtTime = interaction->itsRtTime;
        report.msgSize = interaction->itsMsgSize;
        return report;
    }

    SDK::Util::qzmutex itsReportsLock;
    std::vector<Report> itsReports QZ_GUARDED_BY(itsReportsLock);
    std::atomic<int> itsLastQueue{0};
};

}  // namespace harness
