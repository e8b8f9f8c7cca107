// Owning handles for the OpenSSL objects and C streams of the authorization
// code: each is a std::unique_ptr whose deleter is the object's own free
// function, so that every early return releases what was made before it.
// A handle is a value: used by one thread at a time.
#pragma once

#include <openssl/asn1.h>
#include <openssl/bio.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <cstdio>
#include <memory>

namespace Velmora {

template <auto Free>
struct OpenSSLDeleter {
    template <class T>
    void operator()(T* object) const
    {
        Free(object);
    }
};

// OPENSSL_free is a macro, so it needs a function of its own.
inline void openSSLFree(void* memory)
{
    OPENSSL_free(memory);
}

inline void closeFile(FILE* file)
{
    std::fclose(file);
}

using FilePtr = std::unique_ptr<FILE, OpenSSLDeleter<closeFile>>;
using OpenSSLMemoryPtr = std::unique_ptr<unsigned char, OpenSSLDeleter<openSSLFree>>;
using BIOPtr = std::unique_ptr<BIO, OpenSSLDeleter<BIO_free_all>>;
using X509Ptr = std::unique_ptr<X509, OpenSSLDeleter<X509_free>>;
using X509NamePtr = std::unique_ptr<X509_NAME, OpenSSLDeleter<X509_NAME_free>>;
using X509AttributePtr = std::unique_ptr<X509_ATTRIBUTE, OpenSSLDeleter<X509_ATTRIBUTE_free>>;
using EVPKeyPtr = std::unique_ptr<EVP_PKEY, OpenSSLDeleter<EVP_PKEY_free>>;
using GeneralNamePtr = std::unique_ptr<GENERAL_NAME, OpenSSLDeleter<GENERAL_NAME_free>>;
using GeneralNamesPtr = std::unique_ptr<GENERAL_NAMES, OpenSSLDeleter<GENERAL_NAMES_free>>;
using ASN1StringPtr = std::unique_ptr<ASN1_STRING, OpenSSLDeleter<ASN1_STRING_free>>;

// fopen() wrapped in a handle; null when the file can't be opened.
inline FilePtr openFile(char const* path, char const* mode)
{
    return FilePtr(std::fopen(path, mode));
}

} // namespace Velmora
