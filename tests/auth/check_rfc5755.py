#!/usr/bin/python3
"""usage: check_rfc5755.py AC_DER ISSUER_CERT_PEM

Checks an attribute certificate with a decoder that owes nothing to ours: DER
that re-encodes to itself, version 2, 15-character times, SHA-1/RSA signed by
the issuer, SEQUENCE values in the authorization attribute. Prints the
interface names and exits 0 when all holds."""
import sys

from cryptography import x509
from cryptography.hazmat.primitives import hashes
from cryptography.hazmat.primitives.asymmetric import padding
from pyasn1.codec.der import decoder, encoder
from pyasn1.type import univ
from pyasn1_modules import rfc5280, rfc5755

AUTHORITY_INFO_ACCESS = univ.ObjectIdentifier("1.3.6.1.5.5.7.1.1")
SHA1_WITH_RSA = univ.ObjectIdentifier("1.2.840.113549.1.1.5")


def expect(holds, message):
    if not holds:
        print("check_rfc5755: " + message, file=sys.stderr)
        sys.exit(1)


def main(der_path, issuer_path):
    der = open(der_path, "rb").read()
    certificate, rest = decoder.decode(der, asn1Spec=rfc5755.AttributeCertificate())
    expect(not rest, "trailing bytes")
    expect(encoder.encode(certificate) == der, "not DER")
    info = certificate["acinfo"]
    expect(int(info["version"]) == 2, "version %d" % int(info["version"]))
    for field in ("notBeforeTime", "notAfterTime"):
        text = str(info["attrCertValidityPeriod"][field])
        expect(len(text) == 15 and text.endswith("Z"), "%s is %r" % (field, text))
    for algorithm in (certificate["signatureAlgorithm"], info["signature"]):
        expect(algorithm["algorithm"] == SHA1_WITH_RSA, "signature algorithm")
    names = []
    for attribute in info["attributes"]:
        if attribute["type"] != AUTHORITY_INFO_ACCESS:
            continue
        for value in attribute["values"]:
            allowed, rest = decoder.decode(bytes(value))
            expect(not rest and isinstance(allowed, univ.Sequence), "attribute value is no SEQUENCE")
            interface, _ = decoder.decode(encoder.encode(allowed[0]), asn1Spec=rfc5280.GeneralName())
            names.append(interface.getName())
    issuer = x509.load_pem_x509_certificate(open(issuer_path, "rb").read())
    signature = certificate["signatureValue"].asOctets()
    issuer.public_key().verify(signature, encoder.encode(info), padding.PKCS1v15(), hashes.SHA1())
    print(" ".join(names))


if __name__ == "__main__":
    expect(len(sys.argv) == 3, "usage: check_rfc5755.py AC_DER ISSUER_CERT_PEM")
    main(sys.argv[1], sys.argv[2])
