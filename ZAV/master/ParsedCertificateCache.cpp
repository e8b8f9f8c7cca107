#include "ParsedCertificateCache.h"

#include <openssl/pem.h>

#include <sys/stat.h>


namespace Velmora {

namespace {

// Certificates are a few kilobytes; a larger file is no certificate worth keeping.
off_t const LARGEST_CACHED_FILE = 64 * 1024;

X509Ptr newReference(X509* certificate)
{
    X509_up_ref(certificate);
    return X509Ptr(certificate);
}

} // namespace

ParsedCertificateCache::ParsedCertificateCache(size_t capacity) : capacity(capacity) {}

X509Ptr ParsedCertificateCache::read(FILE* file)
{
    std::optional<std::string> text = contents(file);
    if (!text)
        return X509Ptr(PEM_read_X509(file, nullptr, nullptr, nullptr));
    return readText(std::move(*text));
}

X509Ptr ParsedCertificateCache::readText(std::string text)
{
    if (X509Ptr known = find(text))
        return known;
    X509Ptr certificate = parse(text);
    if (certificate && text.size() <= static_cast<size_t>(LARGEST_CACHED_FILE))
        remember(std::move(text), certificate.get());
    return certificate;
}

std::optional<std::string> ParsedCertificateCache::contents(FILE* file)
{
    struct stat status {};
    if (fstat(fileno(file), &status) != 0 || !S_ISREG(status.st_mode) || status.st_size <= 0 ||
        status.st_size > LARGEST_CACHED_FILE)
        return std::nullopt;
    // One byte more than the size: a file that grew since is read as it comes.
    std::string text(static_cast<size_t>(status.st_size) + 1, '\0');
    size_t length = std::fread(text.data(), 1, text.size(), file);
    bool whole = length == static_cast<size_t>(status.st_size) && std::ferror(file) == 0;
    std::clearerr(file);
    if (std::fseek(file, 0, SEEK_SET) != 0 || !whole)
        return std::nullopt;
    text.resize(length);
    return text;
}

X509Ptr ParsedCertificateCache::parse(std::string& text)
{
    // A memory stream, so that lines are cut as the file reader cuts them
    // (at a zero byte too) and the bytes parsed are the bytes remembered.
    FilePtr stream(fmemopen(text.data(), text.size(), "r"));
    return X509Ptr(stream ? PEM_read_X509(stream.get(), nullptr, nullptr, nullptr) : nullptr);
}

X509Ptr ParsedCertificateCache::find(std::string const& text)
{
    for (auto entry = entries.begin(); entry != entries.end(); ++entry) {
        if (entry->text != text)
            continue;
        entries.splice(entries.begin(), entries, entry);
        return newReference(entry->certificate.get());
    }
    return nullptr;
}

void ParsedCertificateCache::remember(std::string text, X509* certificate)
{
    if (capacity == 0)
        return;
    if (entries.size() == capacity)
        entries.pop_back();
    entries.push_front(Entry{std::move(text), newReference(certificate)});
}

} // namespace Velmora
