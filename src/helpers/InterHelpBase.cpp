#include <cstdlib>
#include <memory>

#include "helpers/HeaderText.h"
#include "helpers/Helpers.h"
#include "interaction/Checkpoints.h"
#include "interaction/ClientInteraction.h"
#include "interaction/ServerInteraction.h"
#include "util/identifiers.h"
#include "util/text.h"

namespace Quenvale::Interceptor::SDK {

namespace {

constexpr const char* kFile = "helpers/InterHelpBase";
constexpr int kDebugLength = 256;

bool isBlank(const char* text) {
    return text == nullptr || *text == '\0';
}

void writeCheckpoints(HeaderText& text, Checkpoints& checkpoints) {
    char time[kNumberText];
    const std::unique_ptr<Util::Map<long long>::Iterator> incoming(
        checkpoints.getIncomingCheckpoints());
    while (incoming != nullptr && incoming->hasNext()) {
        const auto* entry = incoming->next();
        lltoa(entry->value, time, 10);
        Helpers::writeKVPair(text, Helpers::kCPName.c_str(), entry->key.c_str());
        Helpers::writeKVPair(text, Helpers::kCPTime.c_str(), time);
    }
    Util::Vector<Util::String>* names = checkpoints.getNewCheckpoints();
    if (names == nullptr) return;
    lltoa(checkpoints.itsBaseline, time, 10);
    for (int i = 0; i < names->size(); ++i) {
        Helpers::writeKVPair(text, Helpers::kCPName.c_str(), names->at(i).c_str());
        Helpers::writeKVPair(text, Helpers::kCPTime.c_str(), time);
    }
}

// A terminated copy of a part of the header: on the stack for what is ordinary, else in a block.
template <std::size_t kRoom>
class Piece {
public:
    Piece(const char* begin, const char* end) {
        const auto length = static_cast<std::size_t>(end - begin);
        if (length >= kRoom) {
            itsBlock = Util::String(begin, static_cast<unsigned int>(length));
            itsText[0] = '\0';  // What is read where there was no memory for the block.
            return;
        }
        std::memcpy(itsText, begin, length);
        itsText[length] = '\0';
    }
    const char* text() const { return itsBlock.c_str() == nullptr ? itsText : itsBlock.c_str(); }

private:
    char itsText[kRoom];
    Util::String itsBlock;
};

void putItem(Util::Map<Util::String>& fields, const char* begin, const char* end) {
    const auto text = [](const char* from, const char* to) {
        return Util::String(from, static_cast<unsigned int>(to - from));
    };
    const auto* colon =
        static_cast<const char*>(std::memchr(begin, ':', static_cast<std::size_t>(end - begin)));
    if (colon == nullptr)
        fields.put(text(begin, end), text(begin, end));
    else
        fields.put(text(begin, colon), text(colon + 1, end));
}

void readFlowFields(const char* value, ServerInteraction* interaction) {
    std::unique_ptr<Util::Map<Util::String>> fields(Helpers::readMultiValueHeader(value));
    if (interaction->itsFlowFields == nullptr)
        interaction->itsFlowFields = fields.release();
    else
        interaction->itsFlowFields->putAll(fields.get());
}

}  // namespace

Util::String Helpers::writeHeader(ClientInteraction* interaction, bool trust) {
    Checkpoints* checkpoints = interaction->getCheckpoints(false);
    const int count = checkpoints == nullptr ? 0 : checkpoints->getTotalCheckpointsCount();
    HeaderText text(2 * (static_cast<std::size_t>(kHdrCount) * 18 +
                         static_cast<std::size_t>(count) * kCPLen + kHdrNamesLen));

    // The path is computed before the identifiers are loaded by this call.
    const Util::String& path = interaction->_getPathID(false);
    interaction->loadFromCache();
    writeKVPair(text, kInteractionName.c_str(), interaction->getInteractionID().c_str());
    writeKVPair(text, kLocusName.c_str(), interaction->itsLocus.c_str());
    writeKVPair(text, kFlowName.c_str(), interaction->getFlowID().c_str());
    writeKVPair(text, kUpstreamOpID.c_str(), interaction->itsOpID.c_str());
    writeKVPair(text, kPathName.c_str(), path.c_str());
    if (checkpoints != nullptr) writeCheckpoints(text, *checkpoints);

    bool isWorthSending = false;
    if (trust) {
        // Only the fact that it can be asserted goes on: the keys that the assertion appends never
        // leave the process.
        Util::String asserted = text.copy();
        if (assertTrust(asserted, interaction)) {
            const Util::String& address = interaction->itsLocalAddr.empty()
                                              ? Interaction::ourHostname
                                              : interaction->itsLocalAddr;
            writeKVPair(text, kCallerAddressName.c_str(), address.c_str());
            isWorthSending = true;
        }
    }
    const Util::String& peer = interaction->getPeerAddr();
    const Util::String callee =
        peer.empty() ? Util::getHostFromURL(interaction->getUrl().c_str()) : peer;
    if (!callee.empty()) {
        writeKVPair(text, kCalleeAddressName.c_str(), callee.c_str());
        isWorthSending = true;
    }
    const Util::String fields = buildFlowField(interaction);
    if (!fields.empty()) {
        writeKVPair(text, kFlowFieldName.c_str(), fields.c_str());
        isWorthSending = true;
    }
    return isWorthSending ? text.copy() : Util::String();
}

bool Helpers::readHeader(const Util::String& header, ServerInteraction* interaction) {
    if (header.empty()) return false;
    Util::String pending;  // The checkpoint name that waits for its time.
    const char* position = header.c_str();
    while (const char* equals = std::strchr(position, '=')) {
        const char* end = std::strchr(equals + 1, ';');
        const bool isLast = end == nullptr;
        if (isLast) end = equals + std::strlen(equals);
        const Piece<264> name(position, equals);
        const Piece<256> value(equals + 1, end);
        if (kCPName == name.text()) {
            pending = value.text();
        } else if (kCPTime == name.text()) {
            if (pending.c_str() != nullptr)
                processCheckpoint(pending.c_str(), value.text(), interaction);
            pending = Util::String();
        } else {
            processHeader(name.text(), value.text(), interaction);
        }
        if (isLast) break;
        position = end + 1;
    }
    return true;
}

void Helpers::processHeader(const char* name, const char* value, ServerInteraction* interaction) {
    if (isBlank(name) || isBlank(value)) return;
    if (kInteractionName == name) {
        interaction->setUpstreamInteractionID(value);
    } else if (kLocusName == name) {
        interaction->itsLocus = value;
    } else if (kFlowName == name) {
        interaction->setFlowID(value);
    } else if (kPathName == name) {
        interaction->setPathID(value);
    } else if (kUpstreamOpID == name) {
        interaction->itsUpstreamOpID = value;
    } else if (kCallerAddressName == name) {
        interaction->itsCallerAddr = value;
    } else if (kCalleeAddressName == name) {
        interaction->itsCalleeAddr = value;
    } else if (kTrustTimeHdr == name) {
        interaction->itsTrustTimestamp = std::strtoll(value, nullptr, 10);
    } else if (kTrustSigHdr == name) {
        interaction->itsTrustSignature = value;
    } else if (kTrustSecIDHdr == name) {
        interaction->setSecurityID(value);
    } else if (kFlowFieldName == name) {
        readFlowFields(value, interaction);
    }
}

void Helpers::processCheckpoint(const char* name, const char* elapsed, Interaction* interaction) {
    const long long time = std::strtoll(elapsed, nullptr, 10);
    if (time == 0) {
        interaction->addDebugInfo(kFile, 218, kDebugLength,
                                  "The checkpoint %s received a zero elapsed time.", name);
        return;
    }
    // A peer's header is no reason for the exception that a nameless checkpoint raises when
    // debugging.
    if (!isBlank(name)) interaction->getCheckpoints(true)->addIncomingCheckpoint(name, time);
}

Util::Map<Util::String>* Helpers::readMultiValueHeader(const char* value) {
    auto fields = std::make_unique<Util::Map<Util::String>>(2, 0, 0);
    while (*value != '\0') {
        const char* end = value + std::strcspn(value, ",");
        if (end != value) putItem(*fields, value, end);
        value = *end == '\0' ? end : end + 1;
    }
    return fields.release();
}

void Helpers::writeKVPair(HeaderText& text, const char* name, const char* value) {
    if (isBlank(name) || isBlank(value)) return;
    text.append(name);
    text.append(kHdrDelimEq.c_str(), 1);
    text.append(value);
    text.append(kHdrDelimSem.c_str(), 1);
}

Util::String Helpers::buildFlowField(ClientInteraction* interaction) {
    Util::Map<Util::String>* fields = interaction->itsFlowFields;
    if (fields == nullptr || fields->empty()) return Util::String::BLANK;
    HeaderText text(64);
    Util::Map<Util::String>::Iterator entries(fields);
    while (entries.hasNext()) {
        const auto* entry = entries.next();
        if (entry->value.empty()) continue;
        if (!text.empty()) text.append(",", 1);
        if (!entry->key.empty()) text.append(entry->key.c_str());
        text.append(":", 1);
        text.append(entry->value.c_str());
    }
    return text.copy();
}

}  // namespace Quenvale::Interceptor::SDK
