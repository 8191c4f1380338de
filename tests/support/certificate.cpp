// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Certificates for the servers, the clients and the authorities of the tests.
#include "tests/support/certificate.h"

#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <memory>

namespace {

using BioPtr = std::unique_ptr<BIO, decltype(&BIO_free_all)>;
using KeyPtr = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;
using X509Ptr = std::unique_ptr<X509, decltype(&X509_free)>;

KeyPtr hlpNewKey()
{
    return KeyPtr(EVP_EC_gen("P-256"), &EVP_PKEY_free);
}

X509Ptr hlpDraft(const CertificateTerms &terms, EVP_PKEY *key)
{
    X509Ptr x509(X509_new(), &X509_free);
    X509_set_version(x509.get(), X509_VERSION_3);
    ASN1_INTEGER_set(X509_get_serialNumber(x509.get()), 1);
    X509_gmtime_adj(X509_getm_notBefore(x509.get()), terms.fromSeconds);
    X509_gmtime_adj(X509_getm_notAfter(x509.get()), terms.toSeconds);
    X509_set_pubkey(x509.get(), key);
    X509_NAME_add_entry_by_txt(X509_get_subject_name(x509.get()), "CN", MBSTRING_ASC,
                               reinterpret_cast<const unsigned char *>(terms.name.constData()), -1,
                               -1, 0);
    return x509;
}

void hlpLetSign(X509 *x509)
{
    const std::unique_ptr<X509_EXTENSION, decltype(&X509_EXTENSION_free)> extension(
        X509V3_EXT_conf_nid(nullptr, nullptr, NID_basic_constraints, "critical,CA:TRUE"),
        &X509_EXTENSION_free);
    X509_add_ext(x509, extension.get(), -1);
}

QByteArray hlpText(const BioPtr &bio)
{
    char *bytes = nullptr;
    const long size = BIO_get_mem_data(bio.get(), &bytes);
    return QByteArray(bytes, static_cast<int>(size));
}

Certificate hlpSign(X509 *x509, EVP_PKEY *key, const X509_NAME *issuer, EVP_PKEY *issuerKey)
{
    X509_set_issuer_name(x509, issuer);
    X509_sign(x509, issuerKey, EVP_sha256());
    const BioPtr certificateText(BIO_new(BIO_s_mem()), &BIO_free_all);
    const BioPtr keyText(BIO_new(BIO_s_mem()), &BIO_free_all);
    PEM_write_bio_X509(certificateText.get(), x509);
    PEM_write_bio_PrivateKey(keyText.get(), key, nullptr, nullptr, 0, nullptr, nullptr);
    return {hlpText(certificateText), hlpText(keyText)};
}

BioPtr hlpReader(const QByteArray &text)
{
    return BioPtr(BIO_new_mem_buf(text.constData(), text.size()), &BIO_free_all);
}

} // namespace

Certificate makeSelfSigned(const CertificateTerms &terms)
{
    const KeyPtr key = hlpNewKey();
    const X509Ptr x509 = hlpDraft(terms, key.get());
    hlpLetSign(x509.get());
    return hlpSign(x509.get(), key.get(), X509_get_subject_name(x509.get()), key.get());
}

Certificate makeSigned(const Certificate &authority, const CertificateTerms &terms)
{
    const X509Ptr issuer(
        PEM_read_bio_X509(hlpReader(authority.certificate).get(), nullptr, nullptr, nullptr),
        &X509_free);
    const KeyPtr issuerKey(
        PEM_read_bio_PrivateKey(hlpReader(authority.key).get(), nullptr, nullptr, nullptr),
        &EVP_PKEY_free);
    const KeyPtr key = hlpNewKey();
    const X509Ptr x509 = hlpDraft(terms, key.get());
    return hlpSign(x509.get(), key.get(), X509_get_subject_name(issuer.get()), issuerKey.get());
}
