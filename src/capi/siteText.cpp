// The block of bytes in which a split travels to a carrier that takes no records: texts with their
// terminators and one fixed run of numbers in the middle, in the host's byte order, without head,
// version or length. One table of texts drives size, writing and reading.
#include <climits>
#include <cstdlib>

#include "capi/records.h"

namespace {

using SiteText = char* SiteStubStruct::*;
using FlowText = char* FlowStubStruct::*;

// The identifiers of operation, group and service stay behind: the receiver derives them.
constexpr SiteText kSiteTexts[] = {&SiteStubStruct::opName,      &SiteStubStruct::groupName,
                                   &SiteStubStruct::serviceName, &SiteStubStruct::url,
                                   &SiteStubStruct::siteAttr,    &SiteStubStruct::peerAddr,
                                   &SiteStubStruct::localAddr,   &SiteStubStruct::upstreamOpID};
constexpr FlowText kFlowTexts[] = {&FlowStubStruct::flowID,    &FlowStubStruct::parentID,
                                   &FlowStubStruct::flowAttr1, &FlowStubStruct::flowAttr2,
                                   &FlowStubStruct::subNode,   &FlowStubStruct::pathID,
                                   &FlowStubStruct::pPathID};

// The four types and the continuation stand in the record as in the block.
constexpr unsigned kNumbers = 12;
static_assert(offsetof(SiteStubStruct, appType) - offsetof(SiteStubStruct, peerType) == 2 &&
              offsetof(SiteStubStruct, svcType) - offsetof(SiteStubStruct, peerType) == 4 &&
              offsetof(SiteStubStruct, opType) - offsetof(SiteStubStruct, peerType) == 6 &&
              offsetof(SiteStubStruct, continuation) - offsetof(SiteStubStruct, peerType) == 8);

unsigned char* numbersOf(SiteStubStruct* record) {
    return reinterpret_cast<unsigned char*>(record) + offsetof(SiteStubStruct, peerType);
}

std::size_t lengthOf(const char* text) {
    return text == nullptr ? 0 : std::strlen(text);
}

std::size_t sizeOf(const SiteStubStruct* record) {
    std::size_t size = kNumbers;
    for (const SiteText text : kSiteTexts) size += lengthOf(record->*text) + 1;
    for (const FlowText text : kFlowTexts) size += lengthOf(record->flow->*text) + 1;
    return size;
}

char* readText(char** field, char* position) {
    *field = qz_strdup(position);
    return position + std::strlen(position) + 1;
}

}  // namespace

char* serializeSiteStub(SiteStubStruct* record, unsigned* size) {
    if (record == nullptr) return nullptr;
    const std::size_t bytes = sizeOf(record);
    if (bytes > UINT_MAX) return nullptr;
    auto* block = static_cast<char*>(std::malloc(bytes));
    if (block == nullptr) return nullptr;
    char* position = block;
    for (const SiteText text : kSiteTexts) position = addstring(record->*text, position);
    std::memcpy(position, numbersOf(record), kNumbers);
    position += kNumbers;
    for (const FlowText text : kFlowTexts) position = addstring(record->flow->*text, position);
    if (size != nullptr) *size = static_cast<unsigned>(bytes);
    return block;
}

char* addstring(const char* text, char* position) {
    const std::size_t length = lengthOf(text);
    if (length > 0) std::memcpy(position, text, length);
    position[length] = '\0';
    return position + length + 1;
}

SiteStubStruct* deserializeSiteStub(char* block, SiteStubStruct* record) {
    if (record == nullptr) record = newSiteStub();
    if (record == nullptr) return nullptr;
    char* position = block;
    for (const SiteText text : kSiteTexts) position = readText(&(record->*text), position);
    std::memcpy(numbersOf(record), position, kNumbers);
    position += kNumbers;
    for (const FlowText text : kFlowTexts) position = readText(&(record->flow->*text), position);
    return record;
}

unsigned strlencustom(char* text) {
    return static_cast<unsigned>(lengthOf(text));
}
