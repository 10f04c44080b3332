#pragma once

#include <climits>
#include <sstream>
#include <string>

#include "util/StreamReader.h"
#include "util/exceptions.h"

namespace harness {

/// The lines of a text; behind `goodLines` of them every read fails.
class TextReader final : public Quenvale::Interceptor::SDK::Util::StreamReader {
    using String = Quenvale::Interceptor::SDK::Util::String;

public:
    explicit TextReader(const std::string& text, int goodLines = INT_MAX)
        : itsText(text), itsGoodLines(goodLines) {}
    void closeReader() override {}
    explicit operator bool() const override { return true; }
    String ReadLine() override {
        using namespace Quenvale::Interceptor::SDK;
        if (--itsGoodLines < 0) Util::raise<Util::EOFException>();
        std::string line;
        std::getline(itsText, line);
        return line.c_str();
    }

private:
    std::istringstream itsText;
    int itsGoodLines;
};

}  // namespace harness
