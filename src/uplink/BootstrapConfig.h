#pragma once

#include <cstdio>

#include "uplink/AsyncBinaryUplink.h"
#include "util/String.h"

namespace Quenvale::Interceptor::SDK {

/// Where the agent's control connection goes: the first of four sources that answers, or
/// 127.0.0.1, port 4848. docs/operating.md has the sources.
///
/// The search runs while the library loads, which must wait for nothing. So a host whose name has
/// to be looked up is left, and the search with it, until settle() takes both up on the watcher.
/// The sources are read at construction, since the environment has no lock.
///
/// Threads:   one at a time. From settle() on, any thread may read.
/// Errors:    a source that can't be used is passed over. Some faults end the process by a trap: a
///            url with another scheme, a "user.home" without the file and, with diagnostics on, a
///            name that is not known.
class QZ_LOCAL AsyncBinaryUplink::BootstrapConfig {
public:
    /// Reads the environment.
    BootstrapConfig();

    /// Fills the object. Runs on: the thread that loads the library.
    void search();

    /// Looks up what search() left, and goes on with the search when the name is not known. Does
    /// nothing a second time. Runs on: watcher.
    void settle();

    // The sources in order. Each is true when it filled the object.
    bool bootstrapSysPropFromUrl();
    bool bootstrapSysPropFromFile();
    bool bootstrapEnvVarFromUrl();
    bool bootstrapFromUserHomeFile();

    bool bootstrapFromUrl(const Util::String& url);

    /// The properties come from the file that is named by the address of `file` in hexadecimal, in
    /// the working directory; what stands in the opened file is not read. So a file that opens
    /// ends the search with no address, and the port as it was.
    bool bootstrapFromFile(std::FILE* file);

    Util::String itsAddr;  // NIL from a file without one; connects to 127.0.0.1 then.
    int itsPort;
    // No source stores these two, so that the handshake goes without credentials.
    Util::String itsUsername;
    Util::String itsPassword;

private:
    bool takeHost(const Util::String& host);

    Util::String itsSystemUrl;
    Util::String itsSystemFile;
    Util::String itsEnvironmentUrl;
    Util::String itsUserHome;
    int itsNextSource = 0;
    bool itMayLookUp = false;
    Util::String itsUnresolved;  // A host that settle() has to look up; else NIL.
};

}  // namespace Quenvale::Interceptor::SDK
