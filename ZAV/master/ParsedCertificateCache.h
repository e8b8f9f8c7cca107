// Parsed X.509 certificates, keyed by the exact contents of the PEM files they
// were read from.
//
// With OpenSSL 3 every certificate read sets up a public-key decoder, which
// costs about a third of an RSA-2048 signature; issuing and applying read the
// issuer's certificate, and mostly the same holder's, again and again. A file
// whose bytes equal an entry's gives that entry's certificate unparsed; any
// change of the bytes is a miss. Failed reads are not remembered, so that they
// fail again the same way. Only small regular files are remembered: others
// are read as they come.
//
// Threads: not thread-safe; the owner serialises the calls. The certificates
// handed out are new references owned by the caller, shared with the cache:
// read them, never change them.
#pragma once

#include "OpenSSLPtr.h"

#include <cstddef>
#include <cstdio>
#include <list>
#include <optional>
#include <string>

namespace Velmora {

class ParsedCertificateCache {
public:
    explicit ParsedCertificateCache(size_t capacity);

    // PEM_read_X509 on `file`, open for reading at its start; null when it
    // holds no certificate.
    X509Ptr read(FILE* file);
    // The same on the bytes of a PEM text, read as a file holding them would be.
    X509Ptr readText(std::string text);

private:
    struct Entry {
        std::string text;
        X509Ptr certificate;
    };

    // The whole of a small regular file, or nothing for any other file.
    static std::optional<std::string> contents(FILE* file);
    // PEM_read_X509 on the bytes, read exactly as from a file.
    static X509Ptr parse(std::string& text);
    X509Ptr find(std::string const& text);
    void remember(std::string text, X509* certificate);

    size_t capacity;
    std::list<Entry> entries; // the most recently used first
};

} // namespace Velmora
