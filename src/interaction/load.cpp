// The load order of everything that is process-wide, from first to last. Whatever is defined here
// is built when the library loads, may use what stands above it, and is never destroyed: a thread
// of ours, or another module's destructor, can still touch it while the process exits. So all
// objects live on the heap behind a reference, and no function of ours runs at exit.
#include <sys/auxv.h>

#include <cstring>

#include "config/InterceptorConfig.h"
#include "helpers/Helpers.h"
#include "interaction/ClientInteraction.h"
#include "interaction/IntCorrelator.h"
#include "interaction/IntCorrelatorImp.h"
#include "interaction/Interaction.h"
#include "interaction/OwnCorrelator.h"
#include "interaction/ServerInteraction.h"
#include "uplink/AgentEvent.h"
#include "uplink/AsyncBinaryUplink.h"
#include "uplink/SocketUplink.h"
#include "util/Clock.h"
#include "util/Socket.h"
#include "util/blockCache.h"
#include "util/guid.h"
#include "util/hashSeed.h"
#include "util/identifiers.h"
#include "xml/XMLReadStream.h"

// The memory of all that follows.
[[maybe_unused]] static const bool ourBlocksAreReady =
    Quenvale::Interceptor::SDK::Util::prepareBlocks();

// The XML reader's, which needs nothing of what follows.
const RofXML::Util::String& RofXML::XMLReadStream::theSeparators =
    *new RofXML::Util::String(" \t\n\r");

namespace Quenvale::Interceptor::SDK {

namespace {

unsigned char ourHello[] = "Quenvale-v2";

// The kernel gives each process random bytes at its start.
std::uint64_t drawSeed() {
    std::uint64_t seed = 0x9e3779b97f4a7c15UL;
    if (const auto* random = reinterpret_cast<const void*>(getauxval(AT_RANDOM)))
        std::memcpy(&seed, random, sizeof seed);
    return seed | 1;
}

}  // namespace

const std::uint64_t Util::ourHashSeed = drawSeed();

// Every map asks for the seed above, and every container for BLANK.
const Util::String& Util::String::NIL = *new String();
const Util::String& Util::String::BLANK = *new String("");

// The constants of the model.
const Util::String& Util::CONSUMER_GROUP = *new String("(consumer)");
const Util::String& Util::PROVIDER_GROUP = *new String("(provider)");
const Util::String& InteractionStub::CONSUMER_GROUP = Util::CONSUMER_GROUP;
const Util::String& InteractionStub::PROVIDER_GROUP = Util::PROVIDER_GROUP;
const Util::String& InteractionStub::UNKNOWN_SERVICE = *new Util::String("(unknown)");
const Util::String& InteractionStub::DEFAULT_SERVICE = *new Util::String("(root)");
const Util::String& InteractionStub::UNKNOWN_OPERATION = *new Util::String("(unknown)");
const Util::String& FlowStub::FSTB_CLASSNAME =
    *new Util::String("com.quenvale.qz.interceptor.sdk.FlowStub");
const Util::String& SiteStub::SSTB_CLASSNAME =
    *new Util::String("com.quenvale.qz.interceptor.sdk.SiteStub");
const Util::String& InteractionStub::ISTB_CLASSNAME =
    *new Util::String("com.quenvale.qz.interceptor.sdk.InteractionStub");
const Util::String& Interaction::INT_CLASSNAME =
    *new Util::String("com.quenvale.qz.interceptor.sdk.Interaction");
const Util::String& Interaction::SINT_CLASSNAME =
    *new Util::String("com.quenvale.qz.interceptor.sdk.ServerInteraction");
const Util::String& Interaction::CINT_CLASSNAME =
    *new Util::String("com.quenvale.qz.interceptor.sdk.ClientInteraction");
const Util::String& Interaction::SERVER_INSTANCE =
    *new Util::String("com.quenvale.qz.interceptor.sdk.ServerInstance");
const Util::String& Interaction::PLATFORM_TYPE =
    *new Util::String("com.quenvale.qz.interceptor.sdk.PlatformType");
const Util::String& Interaction::INTERACTION_NOT_ENDED =
    *new Util::String("Error: interaction finalized with no reply received");

// Identifiers: the caches, then the base of the GUIDs, which asks the clock.
Util::Map<const char*>& Util::ourMD5HashCache = *new Map<const char*>(1, 1, 256);
Util::qzmutex& Util::ourMD5HashCacheLock = *new qzmutex;
Util::Map<const char*>& Util::ourPathCache = *new Map<const char*>(1, 1, 256);
Util::qzmutex& Util::ourPathCacheLock = *new qzmutex;
Util::Map<const char*>& Util::ourUrlHostCache = *new Map<const char*>(1, 1, 256);
Util::qzmutex& Util::ourUrlHostCacheLock = *new qzmutex;
Util::Map<const char*>& Util::ourUrlPathCache = *new Map<const char*>(1, 1, 256);
Util::qzmutex& Util::ourUrlPathCacheLock = *new qzmutex;
Util::Clock* Util::Clock::TheClock = (Util::Clock::init(), Util::Clock::TheClock);
Util::qzmutex& Util::itsLock = *new qzmutex;
Util::SerialCounter Util::counter{0};
unsigned char* Util::__base = _getBase();
const char* Util::baseText = textOfBase(__base);

// The address of this host and the names of its peers, both filled on demand.
std::atomic<char*> Util::Socket::ourLocalHostAddr{nullptr};
Util::Map<Util::Socket::DNSList*>& Util::Socket::ourHostAddrs = *new Map<DNSList*>(2, 1, 1000);
Util::qzmutex& Util::Socket::ourHostAddrsLock = *new qzmutex;

// The uplink's parameters, from the environment.
const UplinkParameters::Values& AsyncBinaryUplink::itsParams =
    *new UplinkParameters::Values(UplinkParameters::Values::read());
const SocketUplink::Params& SocketUplink::itsParams =
    *new Params(Params::of(AsyncBinaryUplink::itsParams));

// The bytes that open each connection to the agent, with their terminating zero.
Util::ByteArray& AsyncBinaryUplink::itsProtocolHandshaking =
    *new Util::ByteArray(ourHello, sizeof ourHello, false);

// The one content type that events are sent with.
const Util::String& AgentEvent::DEFAULT_PAYLOAD_CONTENT_TYPE = *new Util::String("text/xml");

// The configuration, without tables until the agent pushes one.
Util::qzmutex& InterceptorConfig::itsClassMutex = *new Util::qzmutex;
Util::String& InterceptorConfig::itsConfigFilename = *new Util::String;
const Util::String& InterceptorConfig::kTrustKey = *new Util::String("trustKey=");
const Util::String& InterceptorConfig::kTrustAssert = *new Util::String("assertsTrust=");
const Util::String& InterceptorConfig::kTrustCheckAddr = *new Util::String("checksCallerAddress=");
const Util::String& InterceptorConfig::kTrustInterval = *new Util::String("trustInterval=");
InterceptorConfig& InterceptorConfig::itsCurrent = *new InterceptorConfig;

// The header's words and the cache of the trust check.
const Util::String& Helpers::kQZTransport = *new Util::String("QZ_Header");
const Util::String& Helpers::kHdrDelimEq = *new Util::String("=");
const Util::String& Helpers::kHdrDelimSem = *new Util::String(";");
const Util::String& Helpers::kInteractionName = *new Util::String("Interaction");
const Util::String& Helpers::kLocusName = *new Util::String("Locus");
const Util::String& Helpers::kFlowName = *new Util::String("Flow");
const Util::String& Helpers::kUpstreamOpID = *new Util::String("UpstreamOpID");
const Util::String& Helpers::kPathName = *new Util::String("Path");
const Util::String& Helpers::kCPName = *new Util::String("name");
const Util::String& Helpers::kCPTime = *new Util::String("CPTime");
const Util::String& Helpers::kCallerAddressName = *new Util::String("CallerAddress");
const Util::String& Helpers::kCalleeAddressName = *new Util::String("CalleeAddress");
const Util::String& Helpers::kTrustTimeHdr = *new Util::String("TrustTimestamp");
const Util::String& Helpers::kTrustSigHdr = *new Util::String("TrustSignature");
const Util::String& Helpers::kTrustSecIDHdr = *new Util::String("SecurityID");
const Util::String& Helpers::kFlowFieldName = *new Util::String("FlowFields");
Util::Map<long long>& Helpers::intIDCache = *new Util::Map<long long>(2, 1, 1000);
Util::qzmutex& Helpers::intIDCacheLock = *new Util::qzmutex;

// The model's own state, and last the start-up, which makes the uplink and its threads.
Util::qzmutex& IntCorrelator::ourLock = *new Util::qzmutex;
std::atomic<IIntCorrelator*> IntCorrelator::ourBaseImpl{nullptr};
IIntCorrelator* IntCorrelatorImp::ourKeyMap = nullptr;
IIntCorrelator* IntCorrelatorImp::ourTlsMap = nullptr;
const IIntCorrelator* OwnCorrelator::ourCorrelator = nullptr;
IntCorrTlsStack* OwnCorrelator::ourStacks = nullptr;
Util::String& Interaction::ourServerInstance = *new Util::String;
Util::String& Interaction::ourHostname = *new Util::String;
Uplink* Interaction::ourUplink = nullptr;
short Interaction::itsDefaultPlatformType = 0;
std::atomic<int> InteractionStub::itsGlobalSequenceNumber{0};
std::atomic<signed char> InteractionStub::ourDebugInfo{kDebugUnknown};
Interaction::StaticInit Interaction::ourStaticInit;

}  // namespace Quenvale::Interceptor::SDK
