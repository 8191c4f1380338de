// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// A self-signed certificate for a test's server.
#include "certificate.h"

#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <memory>

namespace {

constexpr long HourSeconds = 3600;

using BioPtr = std::unique_ptr<BIO, decltype(&BIO_free_all)>;

QByteArray hlpText(const BioPtr &bio)
{
    char *bytes = nullptr;
    const long size = BIO_get_mem_data(bio.get(), &bytes);
    return QByteArray(bytes, static_cast<int>(size));
}

} // namespace

Certificate makeSelfSigned()
{
    const std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key(EVP_EC_gen("P-256"),
                                                                  &EVP_PKEY_free);
    const std::unique_ptr<X509, decltype(&X509_free)> x509(X509_new(), &X509_free);
    X509_set_version(x509.get(), X509_VERSION_3);
    ASN1_INTEGER_set(X509_get_serialNumber(x509.get()), 1);
    X509_gmtime_adj(X509_getm_notBefore(x509.get()), 0);
    X509_gmtime_adj(X509_getm_notAfter(x509.get()), HourSeconds);
    X509_set_pubkey(x509.get(), key.get());
    X509_NAME *name = X509_get_subject_name(x509.get());
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC,
                               reinterpret_cast<const unsigned char *>("localhost"), -1, -1, 0);
    X509_set_issuer_name(x509.get(), name);
    X509_sign(x509.get(), key.get(), EVP_sha256());
    const BioPtr certificateText(BIO_new(BIO_s_mem()), &BIO_free_all);
    const BioPtr keyText(BIO_new(BIO_s_mem()), &BIO_free_all);
    PEM_write_bio_X509(certificateText.get(), x509.get());
    PEM_write_bio_PrivateKey(keyText.get(), key.get(), nullptr, nullptr, 0, nullptr, nullptr);
    return {hlpText(certificateText), hlpText(keyText)};
}
