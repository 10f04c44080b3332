#include "util/FileStreamReader.h"

#include <cstring>

namespace Quenvale::Interceptor::SDK::Util {

// "e": a host that forks and executes meanwhile doesn't pass the descriptor on.
FileStreamReader::FileStreamReader(const char* path)
    : itsFile(path == nullptr ? nullptr : std::fopen(path, "re")) {}

void FileStreamReader::closeReader() {
    if (itsFile == nullptr || itIsClosed) return;
    itIsClosed = true;
    std::fclose(itsFile);
}

String FileStreamReader::ReadLine() {
    if (itsFile == nullptr || itIsClosed) return {};
    char line[256];
    line[0] = '\0';
    // After a failure the buffer may hold anything.
    if (std::fgets(line, sizeof line, itsFile) == nullptr) line[0] = '\0';
    const std::size_t length = std::strlen(line);
    if (length > 0 && line[length - 1] == '\n') line[length - 1] = '\0';
    return line;
}

}  // namespace Quenvale::Interceptor::SDK::Util
