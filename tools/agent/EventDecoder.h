#pragma once

#include <cstddef>
#include <string>

#include "agent/Event.h"

namespace QZAgent {

struct DecodeError {
    std::size_t offset = 0;  // byte of the event
    std::string reason;
};

/// Bytes to event: the independent reader of the format that the library writes.
///
/// Strict, since it serves to find faults of a writer. Refused are a mask bit that has no field or
/// no place in this kind of event, a field that is present though empty or 0, a text with a zero
/// byte in it, flags that contradict the fields, lengths that run past the end, and bytes left
/// over.
///
/// The bytes are an event whose payload travels apart (`size` is the event size) or one that
/// carries it (`size` is the total size). In the second case `payload` is set, else it is cleared.
///
/// False, with `error` set, when they are no event; `event` is then unspecified. Memory taken is in
/// proportion to `size`.
bool decodeEvent(const unsigned char* data, std::size_t size, Event& event, std::string& payload,
                 DecodeError& error);

}  // namespace QZAgent
