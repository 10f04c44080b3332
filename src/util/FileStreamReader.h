#pragma once

#include <cstdio>

#include "util/StreamReader.h"

namespace Quenvale::Interceptor::SDK::Util {

/// The lines of a file. closeReader() closes it, destruction alone does not.
class QZ_API FileStreamReader final : public StreamReader {
public:
    /// Null gives a reader without a file.
    explicit FileStreamReader(std::FILE* file) : itsFile(file) {}
    /// A null path, or one that can't be opened, gives a reader without a file.
    explicit FileStreamReader(const char* path);

    /// Does nothing a second time.
    void closeReader() override;
    /// True when there is a file, and still so after closeReader().
    explicit operator bool() const override { return itsFile != nullptr; }
    /// NIL also after closeReader(); a failure to read counts as the end.
    String ReadLine() override;

private:
    std::FILE* itsFile;
    bool itIsClosed = false;  // itsFile stays set, so this keeps it from being used again.
};

}  // namespace Quenvale::Interceptor::SDK::Util
