#include "support/Certificates.h"

#include "support/Listener.h"

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

std::shared_ptr<X509> makeCertificate(EVP_PKEY* key, X509* issuer, char const* name, int days, int since = -2) {
    std::shared_ptr<X509> made(X509_new(), X509_free);
    static long serial = 1;
    X509_set_version(made.get(), X509_VERSION_3);
    ASN1_INTEGER_set(X509_get_serialNumber(made.get()), serial++);
    X509_gmtime_adj(X509_getm_notBefore(made.get()), since * kDay);
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

bool hasIpv6() {
    try {
        Listener const listener([](auto&) {}, {"::1"});
        return true;
    } catch (boost::system::system_error const&) {
        return false;
    }
}

}  // namespace

CertificateAuthority::CertificateAuthority(char const* name) : key_(makeKey()) {
    certificate_ = makeCertificate(key_.get(), nullptr, name, 1);
    X509_sign(certificate_.get(), key_.get(), EVP_sha256());
    caFile_ = directory_.path("authority.pem");
    write(caFile_, [this](FILE* out) { PEM_write_X509(out, certificate_.get()); });
}

CertificateAuthority::Certificate CertificateAuthority::issue(std::string const& names, int days, int since,
                                                              char const* commonName) const {
    auto const key = makeKey();
    auto const made = makeCertificate(key.get(), certificate_.get(), commonName, days, since);
    return sign(made.get(), key.get(), certificate_.get(), key_.get(), names);
}

CertificateAuthority::Certificate CertificateAuthority::selfSigned(std::string const& names) const {
    auto const key = makeKey();
    auto const made = makeCertificate(key.get(), nullptr, "Test server", 1);
    return sign(made.get(), key.get(), made.get(), key.get(), names);
}

CertificateAuthority::Certificate CertificateAuthority::sign(X509* made, EVP_PKEY* key, X509* issuer,
                                                             EVP_PKEY* issuersKey, std::string const& names) const {
    if (!names.empty()) addExtension(made, issuer, NID_subject_alt_name, names.c_str());
    X509_sign(made, issuersKey, EVP_sha256());
    auto const base = directory_.path("server" + std::to_string(count_++));
    write(base + ".pem", [&](FILE* out) { PEM_write_X509(out, made); });
    write(base + ".key", [&](FILE* out) { PEM_write_PrivateKey(out, key, nullptr, nullptr, 0, nullptr, nullptr); });
    return {base + ".pem", base + ".key"};
}

std::vector<TlsCase> tlsCases(CertificateAuthority const& authority, CertificateAuthority const& stranger) {
    auto const with = [](CertificateAuthority::Certificate const& certificate, char const* address = "127.0.0.1",
                         int onlyTls = 0) {
        return ScriptedServer::Options{address, certificate.certificateFile, certificate.keyFile, onlyTls};
    };
    auto const name = authority.issue("DNS:localhost");
    auto const ipv6 = authority.issue("IP:::1");
    ScriptedServer::Options plain;
    plain.greeting = "220 mail.example ready\r\n";
    std::vector<TlsCase> cases{
        {"a name", with(name), "localhost", ""},
        {"an address", with(authority.issue("IP:127.0.0.1")), "127.0.0.1", ""},
        {"an address of IPv6", with(ipv6, "::1"), "[::1]", ""},
        {"another name", with(authority.issue("DNS:example.org")), "localhost", "TLS: hostname mismatch"},
        {"a common name alone", with(authority.issue("", 1, -2, "localhost")), "localhost", "TLS: hostname mismatch"},
        {"a common name beside another name", with(authority.issue("email:a@b.example", 1, -2, "localhost")),
         "localhost", "TLS: hostname mismatch"},
        {"a name for an address", with(name), "127.0.0.1", "TLS: IP address mismatch"},
        {"another address of IPv6", with(authority.issue("IP:::2"), "::1"), "[::1]", "TLS: IP address mismatch"},
        {"too old", with(authority.issue("DNS:localhost", -1)), "localhost", "TLS: certificate has expired"},
        {"too young", with(authority.issue("DNS:localhost", 2, 1)), "localhost", "TLS: certificate is not yet valid"},
        {"a stranger's", with(stranger.issue("DNS:localhost")), "localhost",
         "TLS: unable to get local issuer certificate"},
        {"its own", with(authority.selfSigned("DNS:localhost")), "localhost", "TLS: self-signed certificate"},
        {"TLS 1.1", with(name, "127.0.0.1", TLS1_1_VERSION), "localhost",
         "TLS: the server speaks none of the versions of TLS that are wanted"},
        {"plain text", plain, "localhost", "TLS: the server does not speak TLS"},
    };
    if (!hasIpv6()) std::erase_if(cases, [](auto const& c) { return c.server.address == "::1"; });
    return cases;
}

}  // namespace kv::test
