#include "Net/Certificate.h"

#include "Net/Base64.h"

#include <array>
#include <ctime>
#include <string_view>

#include <boost/asio/ip/address.hpp>
#include <openssl/x509v3.h>

namespace kv::net {
namespace {

using TimePoint = std::chrono::system_clock::time_point;

std::string textOf(X509_NAME* name) {
    std::unique_ptr<BIO, decltype(&BIO_free)> const out(BIO_new(BIO_s_mem()), &BIO_free);
    X509_NAME_print_ex(out.get(), name, 0, (XN_FLAG_RFC2253 | ASN1_STRFLGS_UTF8_CONVERT) & ~ASN1_STRFLGS_ESC_MSB);
    char* text = nullptr;
    auto const size = BIO_get_mem_data(out.get(), &text);
    return {text, static_cast<std::size_t>(size)};
}

TimePoint timeOf(ASN1_TIME const* time) {
    std::tm parts{};
    if (ASN1_TIME_to_tm(time, &parts) != 1) return {};
    return std::chrono::system_clock::from_time_t(::timegm(&parts));
}

std::string dateOf(ASN1_TIME const* time) {
    std::tm parts{};
    if (ASN1_TIME_to_tm(time, &parts) != 1) return "?";
    std::array<char, 32> text{};
    return {text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M UTC", &parts)};
}

std::string_view bytesOf(ASN1_STRING const* text) {
    return {reinterpret_cast<char const*>(ASN1_STRING_get0_data(text)),
            static_cast<std::size_t>(ASN1_STRING_length(text))};
}

std::string addressOf(std::string_view bytes) {
    namespace ip = boost::asio::ip;
    ip::address_v4::bytes_type v4;
    ip::address_v6::bytes_type v6;
    if (bytes.size() == v4.size()) {
        std::copy(bytes.begin(), bytes.end(), v4.begin());
        return ip::address_v4(v4).to_string();
    }
    if (bytes.size() != v6.size()) return {};
    std::copy(bytes.begin(), bytes.end(), v6.begin());
    return ip::address_v6(v6).to_string();
}

std::vector<std::string> namesOf(X509* certificate) {
    std::vector<std::string> found;
    auto* const names =
        static_cast<GENERAL_NAMES*>(X509_get_ext_d2i(certificate, NID_subject_alt_name, nullptr, nullptr));
    for (int i = 0; i < sk_GENERAL_NAME_num(names); ++i) {
        auto const* name = sk_GENERAL_NAME_value(names, i);
        if (name->type == GEN_DNS) found.emplace_back(bytesOf(name->d.dNSName));
        if (name->type == GEN_IPADD) found.push_back(addressOf(bytesOf(name->d.iPAddress)));
    }
    GENERAL_NAMES_free(names);
    return found;
}

std::vector<std::uint8_t> derOf(X509* certificate) {
    std::vector<std::uint8_t> der(static_cast<std::size_t>(std::max(i2d_X509(certificate, nullptr), 0)));
    if (auto* out = der.data(); !der.empty()) i2d_X509(certificate, &out);
    return der;
}

}  // namespace

std::string describe(X509* certificate, std::string const& host) {
    constexpr std::size_t kMostNames = 5;
    std::string names;
    auto const all = namesOf(certificate);
    for (std::size_t i = 0; i < all.size() && i < kMostNames; ++i) names += (i == 0 ? " for " : ", ") + all[i];
    if (all.size() > kMostNames) names += " and others";
    return "\"" + textOf(X509_get_subject_name(certificate)) + "\"" + names + ", shown by " + host + ", issued by \"" +
           textOf(X509_get_issuer_name(certificate)) + "\", valid from " + dateOf(X509_get0_notBefore(certificate)) +
           " until " + dateOf(X509_get0_notAfter(certificate));
}

std::string pinOf(X509* certificate) {
    std::array<std::uint8_t, EVP_MAX_MD_SIZE> digest{};
    unsigned size = 0;
    unsigned char* key = nullptr;
    int const keySize = i2d_X509_PUBKEY(X509_get_X509_PUBKEY(certificate), &key);
    if (keySize > 0) EVP_Digest(key, static_cast<std::size_t>(keySize), digest.data(), &size, EVP_sha256(), nullptr);
    OPENSSL_free(key);
    return "sha256//" + base64({digest.data(), size});
}

KvPeerCertificate peerCertificate(X509* certificate, STACK_OF(X509) * chain, std::string const& host) {
    KvPeerCertificate peer;
    peer.host = host;
    peer.subject = textOf(X509_get_subject_name(certificate));
    peer.issuer = textOf(X509_get_issuer_name(certificate));
    peer.names = namesOf(certificate);
    peer.validFrom = timeOf(X509_get0_notBefore(certificate));
    peer.validUntil = timeOf(X509_get0_notAfter(certificate));
    for (int i = 0; i < sk_X509_num(chain); ++i) peer.chain.push_back(derOf(sk_X509_value(chain, i)));
    if (peer.chain.empty()) peer.chain.push_back(derOf(certificate));
    return peer;
}

}  // namespace kv::net
