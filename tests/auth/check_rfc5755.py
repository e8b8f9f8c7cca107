#!/usr/bin/python3
"""Checks an attribute certificate with a decoder that owes nothing to ours.

usage: check_rfc5755.py AC_DER ISSUER_CERT_PEM
Decodes the DER as an RFC 5755 AttributeCertificate, checks that it encodes
back to the same bytes, that the times are 15-character GeneralizedTime, that
the authorization attribute's values are SEQUENCEs, and verifies the
RSA/SHA-1 signature over the DER of acinfo with the issuer's public key.
Prints the interface names and exits 0 when all holds.
"""
import sys

from cryptography import x509
from cryptography.hazmat.primitives import hashes
from cryptography.hazmat.primitives.asymmetric import padding
from pyasn1.codec.der import decoder, encoder
from pyasn1.type import univ
from pyasn1_modules import rfc5280, rfc5755

AUTHORITY_INFO_ACCESS = univ.ObjectIdentifier("1.3.6.1.5.5.7.1.1")
SHA1_WITH_RSA = univ.ObjectIdentifier("1.2.840.113549.1.1.5")


def fail(message):
    print("check_rfc5755: " + message, file=sys.stderr)
    sys.exit(1)


def main(der_path, issuer_path):
    der = open(der_path, "rb").read()
    certificate, rest = decoder.decode(der, asn1Spec=rfc5755.AttributeCertificate())
    if rest:
        fail("trailing bytes")
    if encoder.encode(certificate) != der:
        fail("not DER")
    info = certificate["acinfo"]
    if int(info["version"]) != 2:
        fail("version %d" % int(info["version"]))
    for field in ("notBeforeTime", "notAfterTime"):
        text = str(info["attrCertValidityPeriod"][field])
        if len(text) != 15 or not text.endswith("Z"):
            fail("%s is %r" % (field, text))
    if certificate["signatureAlgorithm"]["algorithm"] != SHA1_WITH_RSA:
        fail("signature algorithm")
    if info["signature"]["algorithm"] != SHA1_WITH_RSA:
        fail("inner signature algorithm")
    names = []
    for attribute in info["attributes"]:
        if attribute["type"] != AUTHORITY_INFO_ACCESS:
            continue
        for value in attribute["values"]:
            allowed, rest = decoder.decode(bytes(value))
            if rest or not isinstance(allowed, univ.Sequence):
                fail("attribute value is no SEQUENCE")
            interface, _ = decoder.decode(encoder.encode(allowed[0]), asn1Spec=rfc5280.GeneralName())
            names.append(interface.getName())
    issuer = x509.load_pem_x509_certificate(open(issuer_path, "rb").read())
    signature = certificate["signatureValue"].asOctets()
    issuer.public_key().verify(signature, encoder.encode(info), padding.PKCS1v15(), hashes.SHA1())
    print(" ".join(names))


if __name__ == "__main__":
    if len(sys.argv) != 3:
        fail("usage: check_rfc5755.py AC_DER ISSUER_CERT_PEM")
    main(sys.argv[1], sys.argv[2])
