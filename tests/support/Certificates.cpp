#include "Certificates.h"

#include <cstdio>

#include <openssl/pem.h>
#include <openssl/x509v3.h>

namespace kv::test {
namespace {

constexpr long kDay = 24L * 3600;

void addExtension(X509* certificate, X509* issuer, int id, char const* value) {
    X509V3_CTX context;
    X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
    X509_EXTENSION* const extension = X509V3_EXT_conf_nid(nullptr, &context, id, value);
    X509_add_ext(certificate, extension, -1);
    X509_EXTENSION_free(extension);
}

std::shared_ptr<EVP_PKEY> makeKey() { return {EVP_EC_gen("P-256"), EVP_PKEY_free}; }

std::shared_ptr<X509> makeCertificate(EVP_PKEY* key, X509* issuer, char const* name, int days) {
    std::shared_ptr<X509> made(X509_new(), X509_free);
    static long serial = 1;
    X509_set_version(made.get(), X509_VERSION_3);
    ASN1_INTEGER_set(X509_get_serialNumber(made.get()), serial++);
    X509_gmtime_adj(X509_getm_notBefore(made.get()), -2 * kDay);
    X509_gmtime_adj(X509_getm_notAfter(made.get()), days * kDay);
    X509_NAME_add_entry_by_txt(X509_get_subject_name(made.get()), "CN", MBSTRING_ASC,
                               reinterpret_cast<unsigned char const*>(name), -1, -1, 0);
    X509_set_issuer_name(made.get(), X509_get_subject_name(issuer ? issuer : made.get()));
    X509_set_pubkey(made.get(), key);
    addExtension(made.get(), issuer ? issuer : made.get(), NID_basic_constraints,
                 issuer ? "CA:FALSE" : "critical,CA:TRUE");
    return made;
}

void write(std::string const& file, auto const& writer) {
    FILE* const out = std::fopen(file.c_str(), "w");
    writer(out);
    std::fclose(out);
}

}  // namespace

CertificateAuthority::CertificateAuthority(char const* name) : key_(makeKey()) {
    certificate_ = makeCertificate(key_.get(), nullptr, name, 1);
    X509_sign(certificate_.get(), key_.get(), EVP_sha256());
    caFile_ = directory_.path("authority.pem");
    write(caFile_, [this](FILE* out) { PEM_write_X509(out, certificate_.get()); });
}

CertificateAuthority::Certificate CertificateAuthority::issue(std::string const& names, int days) const {
    auto const key = makeKey();
    auto const made = makeCertificate(key.get(), certificate_.get(), "Test server", days);
    addExtension(made.get(), certificate_.get(), NID_subject_alt_name, names.c_str());
    X509_sign(made.get(), key_.get(), EVP_sha256());
    auto const base = directory_.path("server" + std::to_string(count_++));
    write(base + ".pem", [&](FILE* out) { PEM_write_X509(out, made.get()); });
    write(base + ".key",
          [&](FILE* out) { PEM_write_PrivateKey(out, key.get(), nullptr, nullptr, 0, nullptr, nullptr); });
    return {base + ".pem", base + ".key"};
}

}  // namespace kv::test
