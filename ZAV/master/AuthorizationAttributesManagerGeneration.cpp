// Issuing: a one-day attribute certificate for one holder, from the rule set.
#include "AuthorizationAttributesManager.h"

#include "frame/DebugPrint.h"

#include <openssl/objects.h>
#include <openssl/pem.h>

#include <ctime>

namespace Velmora {

static char const MODULE[] = "AuthorizationAttributesManager";

namespace {

using AttributeCertificateV2FormPtr =
    std::unique_ptr<ATTRIBUTE_CERTIFICATE_V2FORM, OpenSSLDeleter<ATTRIBUTE_CERTIFICATE_V2FORM_free>>;

// A directoryName whose only entry is the commonName `text`.
GeneralNamePtr directoryName(std::string const& text)
{
    X509NamePtr name(X509_NAME_new());
    if (!name ||
        X509_NAME_add_entry_by_txt(name.get(), "CN", MBSTRING_ASC, reinterpret_cast<unsigned char const*>(text.c_str()),
                                   -1, -1, 0) != 1) {
        VLOG(DebugLevelError, "X509_NAME_add_entry_by_txt failed.\n");
        return nullptr;
    }
    GeneralNamePtr general(GENERAL_NAME_new());
    if (general)
        GENERAL_NAME_set0_value(general.get(), GEN_DIRNAME, name.release());
    return general;
}

bool pushName(GENERAL_NAMES* names, GeneralNamePtr name)
{
    if (!name)
        return false;
    if (sk_GENERAL_NAME_push(names, name.get()) <= 0) {
        VLOG(DebugLevelError, "sk_GENERAL_NAME_push failed.\n");
        return false;
    }
    name.release();
    return true;
}

// One value of the attribute: the interface and its functions; flags are not carried.
AllowedInterfacePtr allowedInterface(std::string const& interface, MapObject<int> const& functions)
{
    AllowedInterfacePtr value(AllowedInterface_new());
    if (!value)
        return nullptr;
    GeneralNamePtr interfaceName = directoryName(interface);
    if (!interfaceName)
        return nullptr;
    GENERAL_NAME_free(value->interfaceName);
    value->interfaceName = interfaceName.release();
    value->functionNames = GENERAL_NAMES_new();
    if (value->functionNames == nullptr)
        return nullptr;
    for (auto const& function : functions) {
        if (!pushName(value->functionNames, directoryName(function.first)))
            return nullptr;
    }
    return value;
}

// The authorization attribute: one AllowedInterface per interface, in key order.
X509AttributePtr authorizationAttribute(AuthorizationAttributesManager::Rights const& allowed)
{
    X509AttributePtr attribute(X509_ATTRIBUTE_new());
    if (!attribute || X509_ATTRIBUTE_set1_object(attribute.get(), OBJ_nid2obj(NID_info_access)) != 1) {
        VLOG(DebugLevelError, "X509_ATTRIBUTE_new failed.\n");
        return nullptr;
    }
    for (auto const& [interface, functions] : allowed) {
        AllowedInterfacePtr value = allowedInterface(interface, functions);
        if (!value || !AuthorizationAttributesManager::AllowedInterfaceAddValue(attribute.get(), value.get())) {
            VLOG(DebugLevelError, "X509AuthAttr_AllowedInterface_add_value failed.\n");
            return nullptr;
        }
    }
    return attribute;
}

bool setValidity(ATTRIBUTE_CERTIFICATE* certificate, unsigned int seconds)
{
    // GeneralizedTime on purpose: the encoding's tag says so, whatever the year.
    ATTRIBUTE_CERTIFICATE_VALIDITY* validity = certificate->acinfo->attrCertValidityPeriod;
    time_t now = std::time(nullptr);
    bool ok = true;
    if (ASN1_GENERALIZEDTIME_adj(validity->notBeforeTime, now, 0, 0) == nullptr) {
        VLOG(DebugLevelError, "Error setting the notBefore information.\n");
        ok = false;
    }
    if (ASN1_GENERALIZEDTIME_adj(validity->notAfterTime, now, 0, static_cast<long>(seconds)) == nullptr) {
        VLOG(DebugLevelError, "Error setting the notAfter information.\n");
        ok = false;
    }
    return ok;
}

bool writeCertificate(ATTRIBUTE_CERTIFICATE const* certificate, std::string const& path)
{
    FilePtr file = openFile(path.c_str(), "w");
    if (!file) {
        VLOG(DebugLevelError, "cannot open AC certificate for writting. Path:%s.\n", path.c_str());
        return false;
    }
    bool written = PEM_write_ATTRIBUTE_CERTIFICATE(file.get(), certificate) == 1;
    return std::fclose(file.release()) == 0 && written;
}

// Logs a holder whose issuer has no rule.
bool ruleFound(bool found)
{
    if (!found)
        VLOG(DebugLevelError, "getInterfaceInfoAccessFromRulesSet failed.\n");
    return found;
}

// Makes the issuer choice hold `type`, freeing a member of the other kind.
void selectIssuerForm(ATTRIBUTE_CERTIFICATE_ISSUER* issuer, int type)
{
    if (issuer->type == type)
        return;
    if (issuer->type == 0)
        GENERAL_NAMES_free(issuer->d.v1Form);
    else if (issuer->type == 1)
        ATTRIBUTE_CERTIFICATE_V2FORM_free(issuer->d.v2Form);
    issuer->d.v1Form = nullptr;
    issuer->d.v2Form = nullptr;
    issuer->type = type;
}

bool ensureInteger(ASN1_INTEGER** integer)
{
    if (*integer == nullptr)
        *integer = ASN1_STRING_type_new(V_ASN1_INTEGER);
    if (*integer == nullptr) {
        VLOG(DebugLevelError, "M_ASN1_INTEGER_new failed.\n");
        return false;
    }
    return true;
}

} // namespace

// The texts are read in memory: the certificate that is issued never passes
// through a file.
std::string AuthorizationAttributesManager::retreiveAttributeCertificate(std::string holderText)
{
    Mutex::ScopedLock lock(&mutex);
    X509Ptr holder = readX509Text(holderText, "the holder's certificate text");
    Rights allowed;
    if (!holder || !ruleFound(rightsOfIssuer(holder.get(), &allowed)))
        return std::string();
    AttributeCertificatePtr certificate = signedCertificate(holder.get(), acIssuerCertificatePath, allowed);
    if (!certificate) {
        VLOG(DebugLevelError, "generateX509AuthAttr failed.\n");
        return std::string();
    }
    BIOPtr text(BIO_new(BIO_s_mem()));
    char* bytes = nullptr;
    if (!text || PEM_write_bio_ATTRIBUTE_CERTIFICATE(text.get(), certificate.get()) != 1)
        return std::string();
    long const length = BIO_get_mem_data(text.get(), &bytes);
    return std::string(bytes, static_cast<size_t>(length));
}

std::string AuthorizationAttributesManager::retreiveAttributeCertificateUsingFileName(std::string holderFile,
                                                                                      std::string outputFile)
{
    Mutex::ScopedLock lock(&mutex);
    Rights allowed;
    if (!ruleFound(getInterfaceInfoAccessFromRulesSet(holderFile, &allowed)))
        return std::string();
    if (!generateX509AuthAttr(holderFile, acIssuerCertificatePath, allowed, outputFile)) {
        VLOG(DebugLevelError, "generateX509AuthAttr failed.\n");
        return std::string();
    }
    return CertificateFileToBuffer(outputFile);
}

bool AuthorizationAttributesManager::generateX509AuthAttr(std::string const& holderFile, std::string const& issuerFile,
                                                          Rights allowed, std::string const& outputFile)
{
    FilePtr holderStream = openLogged(holderFile, "cannot open holder PKI certificate. Path:%s.\n");
    if (!holderStream)
        return false;
    X509Ptr holder = readX509(holderStream.get(), holderFile);
    if (!holder)
        return false;
    holderStream.reset();
    AttributeCertificatePtr certificate = signedCertificate(holder.get(), issuerFile, allowed);
    return certificate && writeCertificate(certificate.get(), outputFile);
}

AttributeCertificatePtr AuthorizationAttributesManager::signedCertificate(X509* holder, std::string const& issuerFile,
                                                                         Rights const& allowed)
{
    FilePtr issuerStream = openLogged(issuerFile, "cannot open AC issuer PKI certificate. Path:%s.\n");
    X509Ptr issuer = readX509(issuerStream.get(), issuerFile);
    issuerStream.reset();
    AttributeCertificatePtr certificate(ATTRIBUTE_CERTIFICATE_new());
    if (!certificate)
        VLOG(DebugLevelError, "ATTRIBUTE_CERTIFICATE_new failed.\n");
    bool ok = issuer && certificate;

    if (ok) {
        bool version = updateAttributeVersion(certificate.get(), CERTIFICATE_VERSION);
        if (!version)
            VLOG(DebugLevelError, "updateAttributeVersion failed.\n");
        bool serial = updateAttributeSerialNumber(certificate.get(), 0);
        if (!serial)
            VLOG(DebugLevelError, "updateAttributeSerialNumber failed.\n");
        ok = version && serial;
    }
    if (ok) {
        AttributeCertificateIssuerSerialPtr id = dupBaseCertificateIDFromIssuer(holder);
        if (!id)
            VLOG(DebugLevelError, "dupBaseCertificateIDFromIssuer failed.\n");
        ok = setHolderBaseCertificateIDNoDuplicate(certificate.get(), std::move(id));
        if (!ok)
            VLOG(DebugLevelError, "setHolderBaseCertificateIDNoDuplicate failed.\n");
    }
    if (ok) {
        ok = updateIssuerName(certificate.get(), X509_get_subject_name(issuer.get()));
        if (!ok)
            VLOG(DebugLevelError, "updateIssuerName failed.\n");
    }
    ok = ok && setValidity(certificate.get(), VALIDITY_SECONDS);
    X509AttributePtr attribute;
    if (ok) {
        attribute = authorizationAttribute(allowed);
        ok = attribute != nullptr;
    }
    if (ok) {
        ok = insertAttribute(certificate.get(), std::move(attribute));
        if (!ok)
            VLOG(DebugLevelError, "insertAttribute failed.\n");
    }
    if (ok) {
        ok = signKey(certificate.get(), acIssuerPrivateKey.get(), EVP_sha1()) > 0;
        if (!ok)
            VLOG(DebugLevelError, "signKey failed.\n");
    }
    if (!ok)
        certificate.reset();
    return certificate;
}

bool AuthorizationAttributesManager::updateAttributeVersion(ATTRIBUTE_CERTIFICATE* certificate, unsigned int version)
{
    if (certificate == nullptr) {
        VLOG(DebugLevelError, "acCertificate is NULL.\n");
        return false;
    }
    ATTRIBUTE_CERTIFICATE_INFO* info = certificate->acinfo;
    if (info == nullptr || info->issuer == nullptr) {
        VLOG(DebugLevelError, "acCertificate is invalid.\n");
        return false;
    }
    if (!ensureInteger(&info->version))
        return false;
    // Version 1 goes with the v1 issuer form, 2 with the v2 form; others change nothing.
    if (version != 1 && version != 2)
        return true;
    selectIssuerForm(info->issuer, static_cast<int>(version) - 1);
    return ASN1_INTEGER_set(info->version, version) == 1;
}

bool AuthorizationAttributesManager::updateAttributeSerialNumber(ATTRIBUTE_CERTIFICATE* certificate,
                                                                 unsigned int serial)
{
    if (certificate == nullptr) {
        VLOG(DebugLevelError, "Attribute is NULL.\n");
        return false;
    }
    if (certificate->acinfo == nullptr) {
        VLOG(DebugLevelError, "Attribute is invalid.\n");
        return false;
    }
    return ensureInteger(&certificate->acinfo->serialNumber) &&
           ASN1_INTEGER_set(certificate->acinfo->serialNumber, serial) == 1;
}

AttributeCertificateIssuerSerialPtr AuthorizationAttributesManager::dupBaseCertificateIDFromIssuer(X509* certificate)
{
    if (certificate == nullptr) {
        VLOG(DebugLevelError, "x509Certificate is NULL.\n");
        return nullptr;
    }
    AttributeCertificateIssuerSerialPtr id(ATTRIBUTE_CERTIFICATE_ISSUER_SERIAL_new());
    if (!id)
        return nullptr;
    // A failed insertion is logged there; the comparison on reading fails later.
    generalNameInsert(id->issuer, X509_get_issuer_name(certificate));
    ASN1_INTEGER* serial = ASN1_INTEGER_dup(X509_get0_serialNumber(certificate));
    if (serial == nullptr)
        return nullptr;
    ASN1_INTEGER_free(id->serial);
    id->serial = serial;
    ASN1_BIT_STRING const* issuerUID = nullptr;
    X509_get0_uids(certificate, &issuerUID, nullptr);
    if (issuerUID != nullptr) {
        id->issuerUID = ASN1_STRING_dup(issuerUID);
        if (id->issuerUID == nullptr)
            return nullptr;
    }
    return id;
}

bool AuthorizationAttributesManager::setHolderBaseCertificateIDNoDuplicate(ATTRIBUTE_CERTIFICATE* certificate,
                                                                           AttributeCertificateIssuerSerialPtr id)
{
    if (certificate == nullptr) {
        VLOG(DebugLevelError, "acCertificate is NULL.\n");
        return false;
    }
    if (!id) {
        VLOG(DebugLevelError, "holderPKIBaseCertificateID is NULL.\n");
        return false;
    }
    if (certificate->acinfo == nullptr || certificate->acinfo->holder == nullptr) {
        VLOG(DebugLevelError, "acCertificate is invalid.\n");
        return false;
    }
    ATTRIBUTE_CERTIFICATE_HOLDER* holder = certificate->acinfo->holder;
    ATTRIBUTE_CERTIFICATE_ISSUER_SERIAL_free(holder->baseCertificateID);
    holder->baseCertificateID = id.release();
    return true;
}

bool AuthorizationAttributesManager::updateIssuerName(ATTRIBUTE_CERTIFICATE* certificate, X509_NAME const* name)
{
    if (certificate == nullptr) {
        VLOG(DebugLevelError, "acCertificate is NULL.\n");
        return false;
    }
    if (name == nullptr) {
        VLOG(DebugLevelError, "name is NULL.\n");
        return false;
    }
    if (certificate->acinfo == nullptr || certificate->acinfo->issuer == nullptr) {
        VLOG(DebugLevelError, "issuer is NULL.\n");
        return false;
    }
    ATTRIBUTE_CERTIFICATE_ISSUER* issuer = certificate->acinfo->issuer;
    long version = ASN1_INTEGER_get(certificate->acinfo->version);
    if (version == 1) {
        if (issuer->type != 0 || issuer->d.v1Form == nullptr) {
            VLOG(DebugLevelError, "issuer v1 form is invalid.\n");
            return false;
        }
        return generalNameInsert(issuer->d.v1Form, name);
    }
    if (version != 2)
        return true;
    selectIssuerForm(issuer, 1);
    if (issuer->d.v2Form == nullptr)
        issuer->d.v2Form = ATTRIBUTE_CERTIFICATE_V2FORM_new();
    if (issuer->d.v2Form == nullptr)
        return false;
    if (issuer->d.v2Form->issuerName == nullptr)
        issuer->d.v2Form->issuerName = GENERAL_NAMES_new();
    return issuer->d.v2Form->issuerName != nullptr && generalNameInsert(issuer->d.v2Form->issuerName, name);
}

bool AuthorizationAttributesManager::generalNameInsert(GENERAL_NAMES* names, X509_NAME const* name)
{
    if (names == nullptr) {
        VLOG(DebugLevelError, "generalNames is NULL.\n");
        return false;
    }
    if (name == nullptr) {
        VLOG(DebugLevelError, "x509Name is NULL.\n");
        return false;
    }
    X509_NAME* copy = X509_NAME_new();
    if (copy == nullptr || !x509NameDuplicateAndFree(&copy, name)) {
        X509_NAME_free(copy);
        return false;
    }
    GeneralNamePtr general(GENERAL_NAME_new());
    if (!general) {
        X509_NAME_free(copy);
        return false;
    }
    GENERAL_NAME_set0_value(general.get(), GEN_DIRNAME, copy);
    return pushName(names, std::move(general));
}

bool AuthorizationAttributesManager::x509NameDuplicateAndFree(X509_NAME** destination, X509_NAME const* source)
{
    if (destination == nullptr) {
        VLOG(DebugLevelError, "x509NameDest is NULL.\n");
        return false;
    }
    if (source == nullptr) {
        VLOG(DebugLevelError, "x509NameSrc is NULL.\n");
        return false;
    }
    if (*destination == source)
        return true;
    X509_NAME* copy = X509_NAME_dup(source);
    if (copy == nullptr) {
        VLOG(DebugLevelError, "X509_NAME_dup failed.\n");
        return false;
    }
    X509_NAME_free(*destination);
    *destination = copy;
    return true;
}

bool AuthorizationAttributesManager::insertAttribute(ATTRIBUTE_CERTIFICATE* certificate, X509AttributePtr attribute)
{
    if (certificate == nullptr || certificate->acinfo == nullptr) {
        VLOG(DebugLevelError, "acCertificate is NULL.\n");
        return false;
    }
    if (!attribute) {
        VLOG(DebugLevelError, "x509Attribute is NULL.\n");
        return false;
    }
    STACK_OF(X509_ATTRIBUTE)*& attributes = certificate->acinfo->attributes;
    if (attributes == nullptr)
        attributes = sk_X509_ATTRIBUTE_new_null();
    if (attributes == nullptr)
        return false;
    // One attribute per type: a new one replaces the old.
    int nid = OBJ_obj2nid(X509_ATTRIBUTE_get0_object(attribute.get()));
    for (int i = 0; i < sk_X509_ATTRIBUTE_num(attributes); ++i) {
        X509_ATTRIBUTE* old = sk_X509_ATTRIBUTE_value(attributes, i);
        if (OBJ_obj2nid(X509_ATTRIBUTE_get0_object(old)) == nid) {
            X509_ATTRIBUTE_free(old);
            sk_X509_ATTRIBUTE_set(attributes, i, attribute.release());
            return true;
        }
    }
    if (sk_X509_ATTRIBUTE_push(attributes, attribute.get()) <= 0)
        return false;
    attribute.release();
    return true;
}

int AuthorizationAttributesManager::signKey(ATTRIBUTE_CERTIFICATE* certificate, EVP_PKEY* key, EVP_MD const* digest)
{
    if (certificate == nullptr || certificate->acinfo == nullptr) {
        VLOG(DebugLevelError, "acCertificate is NULL.\n");
        return 0;
    }
    if (key == nullptr) {
        VLOG(DebugLevelError, "pkey is NULL.\n");
        return 0;
    }
    if (digest == nullptr) {
        VLOG(DebugLevelError, "md is NULL.\n");
        return 0;
    }
    // Fills both algorithm identifiers, the one inside acinfo and the outer one.
    return ASN1_item_sign(ASN1_ITEM_rptr(ATTRIBUTE_CERTIFICATE_INFO), certificate->acinfo->signature,
                          certificate->signatureAlgorithm, certificate->signatureValue, certificate->acinfo, key,
                          digest);
}

bool AuthorizationAttributesManager::AllowedInterfaceAddValue(X509_ATTRIBUTE* attribute,
                                                              AllowedInterface const* value)
{
    if (attribute == nullptr) {
        VLOG(DebugLevelError, "attr is NULL.\n");
        return false;
    }
    if (value == nullptr) {
        VLOG(DebugLevelError, "val is NULL.\n");
        return false;
    }
    int length = i2d_AllowedInterface(value, nullptr);
    if (length <= 0) {
        VLOG(DebugLevelError, "i2d_AllowedInterface failed.\n");
        return false;
    }
    OpenSSLMemoryPtr bytes(static_cast<unsigned char*>(OPENSSL_malloc(length)));
    if (!bytes) {
        VLOG(DebugLevelError, "OPENSSL_malloc failed.\n");
        return false;
    }
    unsigned char* cursor = bytes.get();
    if (i2d_AllowedInterface(value, &cursor) != length) {
        VLOG(DebugLevelError, "i2d_AllowedInterface failed.\n");
        return false;
    }
    // The value is a SEQUENCE whose encoding is the whole AllowedInterface.
    return AttributeAddValue(attribute, V_ASN1_SEQUENCE, bytes.get(), length);
}

bool AuthorizationAttributesManager::AttributeAddValue(X509_ATTRIBUTE* attribute, int type,
                                                       unsigned char const* bytes, int length)
{
    ASN1StringPtr string;
    if (type & MBSTRING_FLAG) {
        string.reset(ASN1_STRING_set_by_NID(nullptr, bytes, length, type, NID_info_access));
        if (!string) {
            VLOG(DebugLevelError, "ASN1_STRING_set_by_NID failed.\n");
            return false;
        }
    } else {
        string.reset(ASN1_STRING_type_new(type));
        if (!string) {
            VLOG(DebugLevelError, "ASN1_STRING_type_new failed.\n");
            return false;
        }
        if (ASN1_STRING_set(string.get(), bytes, length) != 1) {
            VLOG(DebugLevelError, "ASN1_STRING_set failed.\n");
            return false;
        }
    }
    // Appends a copy to the attribute's value set.
    if (X509_ATTRIBUTE_set1_data(attribute, ASN1_STRING_type(string.get()), string.get(), -1) != 1) {
        VLOG(DebugLevelError, "sk_ASN1_TYPE_push failed.\n");
        return false;
    }
    return true;
}

} // namespace Velmora
