#include "io/TestStreams.h"

#include <cxxabi.h>

#include <algorithm>
#include <climits>
#include <memory>

#include "io/BufferedInputStream.h"
#include "io/BufferedOutputStream.h"
#include "io/ByteArrayInputStream.h"
#include "io/ByteInputStream.h"
#include "io/ByteOutputStream.h"
#include "io/ChunkedByteArrayOutputStream.h"
#include "io/DataInputStream.h"
#include "io/DataOutputStream.h"
#include "util/exceptions.h"

namespace Quenvale::Interceptor::SDK::IO {

namespace {

constexpr int kLongest = 64;       // bytes in portions of one size
constexpr int kLongestAnyhow = 5;  // bytes that are cut in every way
constexpr int kMostDifferences = 8;
constexpr unsigned char kGuard = 0xEE;

using Sizes = std::vector<int>;
using Reader = std::function<void(InputStream&)>;
using Writer = std::function<void(OutputStream&)>;
using InputMaker = TestStreams::InputMaker;
using OutputMaker = TestStreams::OutputMaker;

// Bytes that all differ, none of them zero.
std::string content(int length) {
    std::string bytes(static_cast<unsigned>(length), '\0');
    for (int i = 0; i < length; ++i) bytes[static_cast<unsigned>(i)] = static_cast<char>(0xC1 - i);
    return bytes;
}

// `bytes` in portions of these sizes, used in turn.
std::vector<std::string> cutUp(const std::string& bytes, const Sizes& sizes) {
    std::vector<std::string> portions;
    for (std::size_t offset = 0; offset < bytes.size(); offset += portions.back().size()) {
        const int size = sizes[portions.size() % sizes.size()];
        portions.push_back(bytes.substr(offset, static_cast<unsigned>(size)));
    }
    return portions;
}

unsigned char* bytesOf(std::string& text) {
    return reinterpret_cast<unsigned char*>(text.data());
}

std::string textOf(const Util::ByteArray& content) {
    return {reinterpret_cast<char*>(content.data), static_cast<unsigned>(content.length)};
}

// How `length` bytes go in and come out: in portions of these sizes, used in turn.
struct Portioning {
    int length;
    Sizes given;
    Sizes asked;

    std::string describe() const {
        return std::to_string(length) + " bytes, " + list(given) + " given, " + list(asked) +
               " asked";
    }

private:
    static std::string list(const Sizes& sizes) {
        std::string text;
        for (const int size : sizes) text += (text.empty() ? "" : "+") + std::to_string(size);
        return text;
    }
};

// The cuts of `length` bytes: a set bit is a cut behind that byte.
Sizes cut(int length, unsigned int bits) {
    Sizes sizes{1};
    for (int i = 1; i < length; ++i, bits >>= 1)
        if ((bits & 1) != 0)
            sizes.push_back(1);
        else
            ++sizes.back();
    return sizes;
}

void forEachPortioning(const std::function<void(const Portioning&)>& visit) {
    visit({0, {1}, {1}});
    for (int length = 1; length <= kLongestAnyhow; ++length)
        for (unsigned int i = 0; i < 1U << (length - 1); ++i)
            for (unsigned int j = 0; j < 1U << (length - 1); ++j)
                visit({length, cut(length, i), cut(length, j)});
    for (int given = 1; given <= kLongest; ++given)
        for (int asked = 1; asked <= kLongest; ++asked) visit({kLongest, {given}, {asked}});
}

// With a failure at each byte. Throwing is dear, so the sizes double.
void forEachFailure(const std::function<void(const Portioning&, int failAt)>& visit) {
    for (int size = 1; size <= kLongest; size *= 2)
        for (int failAt = 0; failAt < kLongest; ++failAt) visit({kLongest, {size}, {size}}, failAt);
}

// The lines of one check.
class Report {
public:
    explicit Report(const char* name) : itsName(name) {}

    void add(const Portioning& portioning, const std::string& what) {
        if (++itsCount > kMostDifferences) return;
        itsLines += itsName + ": " + portioning.describe() + ": " + what + "\n";
    }

    void compare(const Portioning& portioning, const std::string& came, const std::string& sent) {
        if (came == sent) return;
        const auto same = std::mismatch(came.begin(), came.end(), sent.begin(), sent.end());
        add(portioning, std::to_string(came.size()) + " of " + std::to_string(sent.size()) +
                            " bytes came, wrong from byte " +
                            std::to_string(same.first - came.begin()) + " on");
    }

    // A failure below comes through, and no byte goes astray before it. A stream in memory never
    // meets it.
    void compareFailed(const Portioning& portioning, int failAt, bool isMet, bool hasFailed,
                       const std::string& came, const std::string& sent) {
        const std::string at = " at byte " + std::to_string(failAt);
        if (isMet != hasFailed) add(portioning, "the failure" + at + " did not come through");
        if (!isMet)
            compare(portioning, came, sent);
        else if (sent.compare(0, came.size(), came) != 0 || static_cast<int>(came.size()) > failAt)
            add(portioning, "wrong bytes before the failure" + at);
    }

    Util::String text() const { return itsLines.empty() ? Util::String() : itsLines.c_str(); }

private:
    std::string itsName;
    std::string itsLines;
    int itsCount = 0;
};

// Whether it throws. What our own sources throw is deleted: a check would leave thousands.
bool fails(const std::function<void()>& action) {
    try {
        action();
    } catch (Util::IOException* e) {
        delete e;
        return true;
    } catch (Util::EOFException* e) {
        delete e;
        return true;
    } catch (abi::__forced_unwind&) {
        throw;
    } catch (...) {
        return true;
    }
    return false;
}

// Reads no more than is due, as every reader of a protocol does.
void readAll(InputStream& in, int due, const Sizes& sizes, std::string& came) {
    std::size_t next = 0;
    while (due > 0) {
        const int asked = std::min(due, sizes[next++ % sizes.size()]);
        std::vector<unsigned char> buffer(static_cast<unsigned>(asked) + 2, kGuard);
        const int given = in.read(buffer.data(), 1, asked);
        if (given <= 0) return;
        if (given > asked || buffer.front() != kGuard || buffer.back() != kGuard) {
            came += "<beyond the buffer>";
            return;
        }
        came.append(reinterpret_cast<char*>(buffer.data()) + 1, static_cast<unsigned>(given));
        due -= given;
    }
    if (in.read() >= 0) came += "<more>";
}

// The sizes of both sides in turn; a portion of one byte is written as a byte.
void writeAll(OutputStream& out, const Portioning& portioning) {
    Sizes sizes = portioning.given;
    sizes.insert(sizes.end(), portioning.asked.begin(), portioning.asked.end());
    for (const std::string& portion : cutUp(content(portioning.length), sizes)) {
        std::string buffer = "?" + portion;
        if (portion.size() == 1)
            out.writeByte(bytesOf(buffer)[1] | 0x100);
        else
            out.write(bytesOf(buffer), 1, static_cast<int>(portion.size()));
    }
}

using Blocks = std::unique_ptr<unsigned char[]>;

// What writeData() puts on the wire, put together without the streams.
std::string wireOf(const std::string& text, const Portioning& portioning) {
    const auto size = static_cast<char>(text.size() + 1);
    std::string wire = "\x7F\x80\x01\xFF\xFF\xFF\xFF\x07";
    wire += '\0';
    wire += size + text;
    wire += size + text;
    if (!text.empty()) wire += '\0';
    unsigned int more = 1;
    for (const std::string& piece : cutUp(text, portioning.given)) {
        wire += static_cast<char>(piece.size() + more) + piece;
        more = 0;
    }
    return wire + '\0';
}

void writeData(OutputStream& out, std::string text, const Portioning& portioning) {
    DataOutputStream data(&out);
    for (const int number : {127, 128, INT_MAX}) data.writeUnsignedInt(number);
    data.writeUTF(nullptr);
    data.writeUTF(text.c_str());
    data.writeBytes(bytesOf(text), static_cast<int>(text.size()));
    const std::unique_ptr<DataOutputStream::Chunk> chunk(data.writeBytes());
    for (std::string& piece : cutUp(text, portioning.given)) {
        chunk->write(bytesOf(piece), 0, static_cast<int>(piece.size()));
        chunk->flush();
    }
    chunk->closeStream();
}

// What was read, in one text.
std::string readData(InputStream& in) {
    DataInputStream data(&in);
    std::string came;
    for (int i = 0; i < 3; ++i) came += std::to_string(data.readUnsignedInt()) + " ";
    for (int i = 0; i < 2; ++i) {
        const Util::String text = data.readUTF();
        came += text.c_str() == nullptr ? "<nil> " : text.c_str();
    }
    for (int i = 0; i < 2; ++i) {
        int size = 0;
        const Blocks block(data.readBytes(size));
        came += " " + textOf({block.get(), size, false});
    }
    return came;
}

void keep(TestOutputStream& sink, const Util::ByteArray& all) {
    const Blocks owned(all.data);
    if (all.length > 0) sink.write(all.data, 0, all.length);
}

InputMaker bufferedInput(int size) {
    return [size](TestInputStream& source, const Reader& use) {
        BufferedInputStream in(&source, size);
        use(in);
    };
}

OutputMaker bufferedOutput(int size) {
    return [size](TestOutputStream& sink, const Writer& use) {
        BufferedOutputStream out(&sink, size);
        use(out);
        out.flush();
    };
}

void useArray(TestInputStream& source, const Reader& use) {
    ByteArrayInputStream in(
        {bytesOf(source.itsBytes), static_cast<int>(source.itsBytes.size()), false});
    use(in);
}

void useBytes(TestInputStream& source, const Reader& use) {
    const int length = static_cast<int>(source.itsBytes.size());
    if (length == 0) return;  // It takes no empty block.
    auto* block = new unsigned char[source.itsBytes.size()];
    std::copy_n(source.itsBytes.begin(), length, block);
    ByteInputStream in(block, length);
    use(in);
}

void useByteOutput(TestOutputStream& sink, const Writer& use) {
    ByteOutputStream out(1);
    use(out);
    // The interface takes no const; no stream writes into what it is given.
    sink.write(const_cast<unsigned char*>(out.getBuffer()), 0, out.getCount());
}

OutputMaker chunkedOutput(int size) {
    return [size](TestOutputStream& sink, const Writer& use) {
        ChunkedByteArrayOutputStream out(size);
        use(out);
        keep(sink, out.toByteArray());
    };
}

// From a first buffer of one byte, so that none but a full buffer stands alone.
void useTransferred(TestOutputStream& sink, const Writer& use) {
    ChunkedByteArrayOutputStream out(1);
    use(out);
    keep(sink, out.transferContent());
}

}  // namespace

Util::String TestStreams::checkAll() {
    const InputMaker plainInput = [](TestInputStream& source, const Reader& use) { use(source); };
    const OutputMaker plainOutput = [](TestOutputStream& sink, const Writer& use) { use(sink); };
    Util::String lines;
    lines.append(checkInput("TestInputStream", plainInput));
    lines.append(checkOutput("TestOutputStream", plainOutput));
    lines.append(checkInput("BufferedInputStream of 1", bufferedInput(1)));
    lines.append(checkInput("BufferedInputStream of 16", bufferedInput(16)));
    lines.append(checkOutput("BufferedOutputStream of 1", bufferedOutput(1)));
    lines.append(checkOutput("BufferedOutputStream of 16", bufferedOutput(16)));
    lines.append(checkInput("ByteArrayInputStream", useArray));
    lines.append(checkInput("ByteInputStream", useBytes));
    lines.append(checkOutput("ByteOutputStream", useByteOutput));
    lines.append(checkOutput("ChunkedByteArrayOutputStream of 0", chunkedOutput(0)));
    lines.append(checkOutput("ChunkedByteArrayOutputStream of 16", chunkedOutput(16)));
    lines.append(checkOutput("ChunkedByteArrayOutputStream, transferred", useTransferred));
    lines.append(checkData("data streams", plainInput, plainOutput));
    lines.append(checkData("buffered data streams", bufferedInput(16), bufferedOutput(16)));
    return lines;
}

Util::String TestStreams::checkInput(const char* name, const InputMaker& make) {
    Report report(name);
    const auto pass = [&](TestInputStream& source, const Portioning& portioning,
                          std::string& came) {
        source.itsPortions = portioning.given;
        return fails([&] {
            make(source,
                 [&](InputStream& in) { readAll(in, portioning.length, portioning.asked, came); });
        });
    };
    forEachPortioning([&](const Portioning& portioning) {
        TestInputStream source(content(portioning.length));
        std::string came;
        if (pass(source, portioning, came)) report.add(portioning, "a failure of its own");
        report.compare(portioning, came, content(portioning.length));
    });
    forEachFailure([&](const Portioning& portioning, int failAt) {
        TestInputStream source(content(portioning.length));
        source.itsFailAt = failAt;
        std::string came;
        const bool hasFailed = pass(source, portioning, came);
        report.compareFailed(portioning, failAt, source.itHasFailed, hasFailed, came,
                             content(portioning.length));
    });
    return report.text();
}

Util::String TestStreams::checkOutput(const char* name, const OutputMaker& make) {
    Report report(name);
    const auto pass = [&](TestOutputStream& sink, const Portioning& portioning) {
        return fails([&] { make(sink, [&](OutputStream& out) { writeAll(out, portioning); }); });
    };
    forEachPortioning([&](const Portioning& portioning) {
        TestOutputStream sink;
        if (pass(sink, portioning)) report.add(portioning, "a failure of its own");
        report.compare(portioning, sink.itsBytes, content(portioning.length));
    });
    forEachFailure([&](const Portioning& portioning, int failAt) {
        TestOutputStream sink;
        sink.itsFailAt = failAt;
        const bool hasFailed = pass(sink, portioning);
        report.compareFailed(portioning, failAt, sink.itHasFailed, hasFailed, sink.itsBytes,
                             content(portioning.length));
    });
    return report.text();
}

Util::String TestStreams::checkData(const char* name, const InputMaker& makeInput,
                                    const OutputMaker& makeOutput) {
    Report report(name);
    const auto read = [&](TestInputStream& source, std::string& came) {
        return fails([&] { makeInput(source, [&](InputStream& in) { came = readData(in); }); });
    };
    forEachPortioning([&](const Portioning& portioning) {
        const std::string text = content(portioning.length);
        const std::string wire = wireOf(text, portioning);
        TestOutputStream sink;
        if (fails([&] {
                makeOutput(sink, [&](OutputStream& out) { writeData(out, text, portioning); });
            }))
            report.add(portioning, "a failure of its own in writing");
        report.compare(portioning, sink.itsBytes, wire);
        TestInputStream source(wire);
        source.itsPortions = portioning.asked;
        std::string came;
        if (read(source, came)) report.add(portioning, "a failure of its own in reading");
        report.compare(portioning, came,
                       "127 128 2147483647 <nil> " + text + " " + text + " " + text);
    });
    forEachFailure([&](const Portioning& portioning, int length) {
        TestInputStream source(wireOf(content(portioning.length), portioning));
        source.itsBytes.resize(static_cast<unsigned>(length));
        source.itsPortions = portioning.given;
        std::string came;
        if (!read(source, came))
            report.add(portioning, "no failure where " + std::to_string(length) + " bytes end");
    });
    return report.text();
}

}  // namespace Quenvale::Interceptor::SDK::IO
