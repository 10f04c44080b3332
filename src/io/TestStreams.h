#pragma once

#include <functional>

#include "io/TestInputStream.h"
#include "io/TestOutputStream.h"
#include "util/String.h"

namespace Quenvale::Interceptor::SDK::IO {

/// The streams' check of themselves: bytes are pushed through a stream in every portioning, and
/// what arrives is compared with what was sent. A portioning is a way to cut 64 bytes into portions
/// of one size on one side and of one size on the other, and each way at all to cut up to 5 bytes
/// on either side. Then a failure below is put at each of the bytes: it must reach the caller, and
/// what came before it must be right.
///
/// Each check gives a line for a difference, the first few of them, and NIL when nothing differs.
///
/// Threads: any, each call for itself.
class QZ_API TestStreams {
public:
    /// Builds the stream under test over the source, or from its bytes, and hands it to `use`.
    using InputMaker =
        std::function<void(TestInputStream& source, const std::function<void(InputStream&)>& use)>;
    /// Builds the stream under test over the sink and hands it to `use`; then sees to it that all
    /// that was written is in the sink.
    using OutputMaker =
        std::function<void(TestOutputStream& sink, const std::function<void(OutputStream&)>& use)>;

    /// All stream classes that need no socket. Takes about a second of processor time.
    static Util::String checkAll();
    /// One reading stream; `name` begins the lines.
    static Util::String checkInput(const char* name, const InputMaker& make);
    /// One writing stream.
    static Util::String checkOutput(const char* name, const OutputMaker& make);
    /// The data streams, and what carries them: numbers, texts and blocks, whole and in pieces.
    static Util::String checkData(const char* name, const InputMaker& makeInput,
                                  const OutputMaker& makeOutput);
};

}  // namespace Quenvale::Interceptor::SDK::IO
