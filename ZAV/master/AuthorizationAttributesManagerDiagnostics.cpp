// A developer's view of an attribute certificate, printed to standard output.
#include "AuthorizationAttributesManager.h"

#include "frame/DebugPrint.h"

#include <openssl/objects.h>

#include <cstdio>
#include <string>

namespace Velmora {

static char const MODULE[] = "AuthorizationAttributesManager";

namespace {

int const ONELINE_BUFFER_SIZE = 128;
int const BYTES_PER_LINE = 128;
int const CLOSING_LINE_WIDTH = 86;

std::string oneline(X509_NAME const* name)
{
    char buffer[ONELINE_BUFFER_SIZE];
    return X509_NAME_oneline(name, buffer, sizeof buffer) == nullptr ? std::string() : std::string(buffer);
}

// Bytes as "xx:", a line feed before each byte at a multiple of BYTES_PER_LINE
// (from `firstBreak` on).
void printBytes(ASN1_STRING const* value, int firstBreak)
{
    unsigned char const* bytes = ASN1_STRING_get0_data(value);
    for (int i = 0; i < ASN1_STRING_length(value); ++i) {
        if (i >= firstBreak && i % BYTES_PER_LINE == 0)
            std::printf("\n");
        std::printf("%.2x:", bytes[i]);
    }
}

void printTime(char const* label, ASN1_GENERALIZEDTIME const* time)
{
    std::printf("%s", label);
    if (time != nullptr)
        std::fwrite(ASN1_STRING_get0_data(time), 1, static_cast<size_t>(ASN1_STRING_length(time)), stdout);
    std::printf("\n");
}

void printIssuer(ATTRIBUTE_CERTIFICATE const* certificate, long version)
{
    std::printf("Issuer:\n");
    ATTRIBUTE_CERTIFICATE_ISSUER const* issuer = certificate->acinfo->issuer;
    bool named = issuer->type == 0 ||
                 (issuer->type == 1 && issuer->d.v2Form != nullptr && issuer->d.v2Form->issuerName != nullptr);
    if (named) {
        if (version == 2)
            std::printf("Issuer is of the v2 form:\n");
        else if (version == 1)
            std::printf("Issuer is of the v1 form:\n");
        X509_NAME const* name = AuthorizationAttributesManager::getACCertificateIssuerName(certificate);
        if (name != nullptr)
            std::printf("Issuer is: %s:\n", oneline(name).c_str());
        else
            std::printf("getACCertificateIssuerName failed:\n");
    }
    if (issuer->type == 1 && issuer->d.v2Form != nullptr && issuer->d.v2Form->baseCertificateID != nullptr)
        AuthorizationAttributesManager::PrintIssuerSerial(issuer->d.v2Form->baseCertificateID);
}

void printHolder(ATTRIBUTE_CERTIFICATE const* certificate)
{
    std::printf("Holder:\n");
    ATTRIBUTE_CERTIFICATE_HOLDER const* holder = certificate->acinfo->holder;
    if (holder->entityName != nullptr) {
        X509_NAME const* name = AuthorizationAttributesManager::retreiveHolderEntityName(certificate);
        if (name != nullptr)
            std::printf("Holder is: %s.\n", oneline(name).c_str());
        else
            std::printf("retreiveHolderEntityName failed:\n");
    }
    if (holder->baseCertificateID != nullptr) {
        std::printf("Holder base cert ID:\n");
        AuthorizationAttributesManager::PrintIssuerSerial(holder->baseCertificateID);
    }
}

void printAllowedInterface(ASN1_TYPE const* value)
{
    int type = ASN1_TYPE_get(value);
    bool hasBytes = type != 0 && type != V_ASN1_BOOLEAN && type != V_ASN1_NULL && type != V_ASN1_OBJECT;
    unsigned char const* cursor = hasBytes ? ASN1_STRING_get0_data(value->value.asn1_string) : nullptr;
    AllowedInterfacePtr allowed(
        cursor == nullptr ? nullptr
                          : d2i_AllowedInterface(nullptr, &cursor, ASN1_STRING_length(value->value.asn1_string)));
    if (!allowed) {
        std::printf("d2i_AllowedInterface failed.\n");
        return;
    }
    std::printf("Interface Name details:");
    if (allowed->interfaceName != nullptr) {
        AuthorizationAttributesManager::traceGeneralName(stdout, allowed->interfaceName);
        std::printf("\n");
    } else {
        std::printf("Not found.\n");
    }
    std::printf("Function Names:\n");
    if (allowed->functionNames != nullptr) {
        AuthorizationAttributesManager::traceGeneralNames(stdout, allowed->functionNames);
        std::printf("\n");
    } else {
        std::printf("Not found.\n");
    }
}

void printAttributes(STACK_OF(X509_ATTRIBUTE) const* attributes)
{
    std::printf("Attributes: \n");
    int count = X509at_get_attr_count(attributes);
    if (count < 1) {
        std::printf("No attribute found.\n:");
        return;
    }
    std::printf("Attributes count: %d.\n:", count);
    for (int i = 0; i < count; ++i) {
        X509_ATTRIBUTE* attribute = X509at_get_attr(attributes, i);
        int nid = OBJ_obj2nid(X509_ATTRIBUTE_get0_object(attribute));
        std::printf("Attribute index: %d.\n:", i);
        std::printf("Attribute nid:%d is %s.\n:", nid, OBJ_nid2ln(nid));
        if (nid != NID_info_access)
            continue;
        std::printf("Authorization Attributes Information.\n:");
        std::printf("AllowedInterface.\n:");
        int values = X509_ATTRIBUTE_count(attribute);
        std::printf("Values count:%d.\n:", values);
        for (int v = 0; v < values; ++v) {
            std::printf("Value:%d.\n:", v);
            printAllowedInterface(X509_ATTRIBUTE_get0_type(attribute, v));
        }
    }
}

void printSignature(ATTRIBUTE_CERTIFICATE const* certificate)
{
    std::printf("Signature.\n");
    std::fflush(stdout);
    BIOPtr out(BIO_new_fp(stdout, BIO_NOCLOSE));
    if (!out || X509_signature_print(out.get(), certificate->signatureAlgorithm, certificate->signatureValue) != 1)
        std::printf("X509_signature_print failed:\n");
    if (out)
        BIO_flush(out.get());
}

} // namespace

void AuthorizationAttributesManager::PrintAttributeCertificate(ATTRIBUTE_CERTIFICATE const* certificate)
{
    if (certificate == nullptr || certificate->acinfo == nullptr) {
        VLOG(DebugLevelError, "acCertificate is NULL.\n");
        return;
    }
    ATTRIBUTE_CERTIFICATE_INFO const* info = certificate->acinfo;
    long version = ASN1_INTEGER_get(info->version);
    std::printf("Version %ld.\n", version);
    printIssuer(certificate, version);
    printHolder(certificate);
    std::printf("Not before not after information.\n");
    printTime("Not before:", info->attrCertValidityPeriod->notBeforeTime);
    printTime("Not after:", info->attrCertValidityPeriod->notAfterTime);
    printAttributes(info->attributes);
    std::printf("Extensions details:\n");
    std::printf("Extensions count:%d\n", info->extensions == nullptr ? 0 : sk_X509_EXTENSION_num(info->extensions));
    printSignature(certificate);
    std::printf("%s:\n", std::string(CLOSING_LINE_WIDTH, '=').c_str());
    std::fflush(stdout);
}

void AuthorizationAttributesManager::PrintIssuerSerial(ATTRIBUTE_CERTIFICATE_ISSUER_SERIAL const* value)
{
    std::printf("\n\t->name(GNs):");
    traceGeneralNames(stdout, value->issuer);
    std::printf("\n\t->serial(INT):");
    if (value->serial != nullptr)
        printBytes(value->serial, 1);
    std::printf("\n\t->issuerUniqueID(INT):");
    if (value->issuerUID != nullptr)
        printBytes(value->issuerUID, 0);
    else
        std::printf("IS EMPTY\n");
}

void AuthorizationAttributesManager::traceGeneralNames(FILE* out, GENERAL_NAMES const* names)
{
    if (out == nullptr) {
        VLOG(DebugLevelError, "out is NULL.\n");
        return;
    }
    if (names == nullptr) {
        VLOG(DebugLevelError, "generalNames is NULL.\n");
        return;
    }
    for (int i = 0; i < sk_GENERAL_NAME_num(names); ++i)
        traceGeneralName(out, sk_GENERAL_NAME_value(names, i));
}

void AuthorizationAttributesManager::traceGeneralName(FILE* out, GENERAL_NAME const* name)
{
    int type = -1;
    void* value = GENERAL_NAME_get0_value(name, &type);
    auto const* string = static_cast<ASN1_STRING const*>(value);
    switch (type) {
    case GEN_OTHERNAME:
        std::fprintf(out, "GEN_OTHERNAME>");
        break;
    case GEN_EMAIL:
        std::fprintf(out, "GEN_EMAIL:%.*s", ASN1_STRING_length(string), ASN1_STRING_get0_data(string));
        break;
    case GEN_DNS:
        std::fprintf(out, "GEN_DNS:%.*s", ASN1_STRING_length(string), ASN1_STRING_get0_data(string));
        break;
    case GEN_X400:
        std::fprintf(out, "GEN_X400>");
        break;
    case GEN_DIRNAME:
        // The name's text goes to standard output whatever `out` is; it is data,
        // never a format.
        std::fprintf(out, "GEN_DIRNAME: ");
        std::fflush(out);
        std::printf("%s", oneline(static_cast<X509_NAME const*>(value)).c_str());
        break;
    case GEN_EDIPARTY:
        std::fprintf(out, "GEN_EDIPARTY>");
        break;
    case GEN_URI:
        std::fprintf(out, "GEN_URI:%.*s", ASN1_STRING_length(string), ASN1_STRING_get0_data(string));
        break;
    case GEN_IPADD:
        std::fprintf(out, "GEN_IPADD");
        break;
    case GEN_RID: {
        std::fprintf(out, "GEN_RID");
        std::fflush(out);
        BIOPtr bio(BIO_new_fp(out, BIO_NOCLOSE));
        if (bio) {
            i2a_ASN1_OBJECT(bio.get(), static_cast<ASN1_OBJECT const*>(value));
            BIO_flush(bio.get());
        }
        break;
    }
    default:
        break;
    }
}

} // namespace Velmora
