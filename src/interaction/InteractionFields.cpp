// What an interaction carries beside its own values: message fields, flow fields, checkpoints.
#include <utility>

#include "config/InterceptorConfig.h"
#include "interaction/Interaction.h"

namespace Quenvale::Interceptor::SDK {

namespace {

using Fields = Util::Map<Util::String>;

bool hasNone(Fields* fields) {
    return fields == nullptr || fields->empty();
}

const Util::String& valueOf(Fields* fields, const Util::String& name) {
    return fields == nullptr ? Util::String::BLANK : fields->find(name);
}

void put(Fields*& fields, const Util::String& name, const Util::String& value) {
    if (fields == nullptr) fields = new Fields();
    fields->put(name, value);
}

void putField(Fields*& fields, const Util::String& name, const Util::String& value,
              bool overwrite) {
    if (name.empty() || value.empty()) return;
    if (overwrite || fields == nullptr || !fields->hasKey(name)) put(fields, name, value);
}

}  // namespace

void Interaction::setFailure(Util::APIException* exception) {
    if (exception == nullptr) return;
    const Util::String& message = exception->getMessage();
    if (message.empty())
        itsFailure = "Fault: exception (no message)";
    else
        itsFailure = message;
}

void Interaction::setMsgField(const Util::String& name, const Util::String& value, bool overwrite) {
    putField(itsMsgFields, name, value, overwrite);
}

void Interaction::addFlowFieldToPropagate(const Util::String& name, const Util::String& value,
                                          bool overwrite) {
    putField(itsFlowFields, name, value, overwrite);
}

void Interaction::addMsgFields(Fields* fields, bool overwrite) {
    if (hasNone(fields)) return;
    for (auto* node = fields->getEntryList()->getHead(); node != nullptr; node = node->next)
        setMsgField(node->data->key, node->data->value, overwrite);
}

void Interaction::addFlowFieldsToPropagate(Fields* fields) {
    if (hasNone(fields)) return;
    if (itsFlowFields == nullptr)
        itsFlowFields = fields->copy();
    else
        itsFlowFields->putAll(fields);
}

void Interaction::evalMsgField(const Util::String& name, const Util::String& text, bool propagate) {
    if (itsEvaluators != nullptr) {
        for (auto* node = itsEvaluators->getHead(); node != nullptr; node = node->next) {
            const Util::String result = node->data->evaluate(name, text);
            if (result.empty()) continue;
            setMsgField(name, result, true);
            if (propagate) addFlowFieldToPropagate(name, result, true);
            return;
        }
    }
    // A field that is there already needs no setting; only the flow may lack it.
    if (propagate && itsMsgFields != nullptr)
        addFlowFieldToPropagate(name, itsMsgFields->find(name), false);
}

void Interaction::mergeFlowFields() {
    if (hasNone(itsFlowFields) && hasNone(itsMsgFields)) return;
    const InterceptorConfig& config = InterceptorConfig::itsCurrent;
    if (!config.hasFlowFieldNames()) return;
    const auto names = config.flowFieldNames();
    if (names == nullptr) return;

    for (auto* node = names->getHead(); node != nullptr; node = node->next) {
        const Util::String& name = node->data;
        const Util::String& flowValue = valueOf(itsFlowFields, name);
        const Util::String& msgValue = valueOf(itsMsgFields, name);
        // Any name may be listed and come with a header, a blank one too.
        if (!flowValue.empty())
            put(itsMsgFields, name, flowValue);
        else if (!msgValue.empty())
            put(itsFlowFields, name, msgValue);
    }
}

Util::Vector<Util::String>* Interaction::getNewCheckpoints() {
    Checkpoints* checkpoints = getCheckpoints(false);
    return checkpoints == nullptr ? nullptr : checkpoints->getNewCheckpoints();
}

Util::Map<long long>::Iterator* Interaction::getIncomingCheckpoints() {
    Checkpoints* checkpoints = getCheckpoints(false);
    return checkpoints == nullptr ? nullptr : checkpoints->getIncomingCheckpoints();
}

}  // namespace Quenvale::Interceptor::SDK
