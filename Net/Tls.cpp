#include "Net/Tls.h"

#include "Net/Base64.h"
#include "Net/Certificate.h"
#include "Platform/KvEngineThread.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string_view>
#include <utility>

#include <boost/asio/ip/address.hpp>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>
#include <sys/stat.h>

namespace kv::net {
namespace {

namespace fs = std::filesystem;

// A common name is a name for people: authorities do not check it as they do alternative names.
constexpr unsigned kHostFlags = X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS | X509_CHECK_FLAG_NEVER_CHECK_SUBJECT;
constexpr std::size_t kMostUnused = 16;             // contexts that nobody uses at the moment
constexpr std::size_t kMostServers = 256;           // of which sessions are remembered
constexpr std::size_t kMostSessionsOfServer = 256;  // many clients may lose their connections at once

struct FreeBio {
    void operator()(BIO* bio) const { BIO_free(bio); }
};
using Bio = std::unique_ptr<BIO, FreeBio>;
struct FreeCertificate {
    void operator()(X509* certificate) const { X509_free(certificate); }
};
using Certificate = std::unique_ptr<X509, FreeCertificate>;

// What tells a file, or what a directory holds, from what it was before.
std::string versionOf(std::string const& path) {
    struct stat status {};
    if (path.empty() || ::stat(path.c_str(), &status) != 0) return path;
    return path + ' ' + std::to_string(status.st_dev) + ' ' + std::to_string(status.st_ino) + ' ' +
           std::to_string(status.st_size) + ' ' + std::to_string(status.st_mtim.tv_sec) + ' ' +
           std::to_string(status.st_mtim.tv_nsec);
}

// Options with the same text are the same. A function is like no other.
std::string identityOf(KvTlsOptions const& options) {
    std::string identity;
    auto const add = [&](std::string const& text) { identity.append(text).append(1, '\0'); };
    if (options.trustsSystem) add(versionOf(X509_get_default_cert_dir()) + versionOf(X509_get_default_cert_file()));
    for (auto const* file : {&options.caFile, &options.caDirectory, &options.certificateFile, &options.keyFile})
        add(versionOf(*file));
    for (auto const* text : {&options.caPem, &options.certificatePem, &options.keyPem, &options.serverName}) add(*text);
    for (auto const& pin : options.pins) add(pin);
    add(std::to_string(static_cast<int>(options.minimumVersion)));
    bool const hasFunction = options.keyPassword || options.accepts;
    if (hasFunction) add(std::to_string(reinterpret_cast<std::uintptr_t>(&options)));
    return identity;
}

// A directory in which each authority is found by the hash of its name: nothing is read before it is asked for.
bool isHashed(char const* directory) {
    std::error_code error;
    for (fs::directory_iterator entry(directory, error), end; !error && entry != end; entry.increment(error)) {
        auto const name = entry->path().filename().string();
        bool const isHash = name.size() == 10 && name.ends_with(".0") &&
                            std::all_of(name.begin(), name.begin() + 8, [](char c) { return std::isxdigit(c) != 0; });
        if (isHash) return true;
    }
    return false;
}

std::string openSslText() {
    char const* const reason = ERR_reason_error_string(ERR_peek_last_error());
    ERR_clear_error();
    return std::string("TLS: ") + (reason == nullptr ? "cannot be read" : reason);
}

Bio bioOf(std::string const& text) { return Bio(BIO_new_mem_buf(text.data(), static_cast<int>(text.size()))); }

std::vector<Certificate> certificatesIn(std::string const& pem) {
    std::vector<Certificate> certificates;
    auto const bio = bioOf(pem);
    while (auto* const certificate = PEM_read_bio_X509_AUX(bio.get(), nullptr, nullptr, nullptr))
        certificates.emplace_back(certificate);
    bool const isRead = ERR_GET_REASON(ERR_peek_last_error()) == PEM_R_NO_START_LINE;
    if (isRead)
        ERR_clear_error();
    else
        certificates.clear();
    return certificates;
}

// The text itself, or else that of the file.
std::string textOf(std::string const& text, std::string const& file) {
    if (!text.empty() || file.empty()) return text;
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

int onPassword(char* buffer, int size, int, void* options) {
    auto const& ask = static_cast<KvTlsOptions const*>(options)->keyPassword;
    auto const password = ask ? ask() : std::string();
    if (password.empty() || password.size() > static_cast<std::size_t>(size)) return 0;
    std::ranges::copy(password, buffer);
    return static_cast<int>(password.size());
}

}  // namespace

std::string problemOfTls(KvTlsOptions const& options) {
    constexpr std::string_view kStart = "sha256//";
    constexpr std::size_t kDigest = 44;  // characters of Base64
    for (auto const& pin : options.pins) {
        auto const digest = std::string_view(pin).substr(std::min(kStart.size(), pin.size()));
        bool const isPin = pin.starts_with(kStart) && digest.size() == kDigest && digest.back() == '=' &&
                           std::ranges::all_of(digest.substr(0, kDigest - 1), [](unsigned char c) {
                               return std::isalnum(c) != 0 || c == '+' || c == '/';
                           });
        if (!isPin) return "a pin is \"sha256//\" and the Base64 form of a digest, and not \"" + pin + '"';
    }
    bool const isOdd = std::ranges::any_of(options.serverName, [](unsigned char c) { return c <= ' ' || c >= 0x7F; });
    return isOdd ? "the name of the server is none: \"" + options.serverName + '"' : "";
}

// What this side knows of the other one; the session owns it.
struct TlsContext::Peer {
    std::shared_ptr<TlsContext> context;
    std::string host, address;
    std::string refusal{};  // why its certificate was not taken
};

std::shared_ptr<TlsContext> TlsContext::of(std::shared_ptr<KvTlsOptions const> const& options, std::string& error) {
    static std::mutex mutex;
    static auto& contexts = *new std::map<std::string, std::shared_ptr<TlsContext>>;
    std::lock_guard const lock(mutex);
    auto const identity = identityOf(*options);
    if (auto const found = contexts.find(identity); found != contexts.end()) return found->second;
    std::shared_ptr<TlsContext> made(new TlsContext(options));
    error = made->make();
    if (!error.empty()) return nullptr;
    auto const isUnused = [](auto const& known) { return known.second.use_count() == 1; };
    if (static_cast<std::size_t>(std::ranges::count_if(contexts, isUnused)) >= kMostUnused)
        std::erase_if(contexts, isUnused);
    return contexts.emplace(identity, std::move(made)).first->second;
}

TlsContext::~TlsContext() { SSL_CTX_free(context_); }

std::string TlsContext::make() {
    OPENSSL_init_ssl(0, nullptr);
    stopEngineThreadAtExit();  // before OpenSSL, which is set up by now, cleans up
    context_ = SSL_CTX_new(TLS_client_method());
    if (context_ == nullptr) return openSslText();
    SSL_CTX_set_app_data(context_, this);
    SSL_CTX_set_min_proto_version(context_,
                                  options_->minimumVersion == KvTlsVersion::tls13 ? TLS1_3_VERSION : TLS1_2_VERSION);
    // Not every server says goodbye in TLS. What was cut short shows in the frames.
    SSL_CTX_set_options(context_, SSL_OP_IGNORE_UNEXPECTED_EOF);
    SSL_CTX_set_verify(context_, SSL_VERIFY_PEER, &onVerified);
    SSL_CTX_set_mode(context_,
                     SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER | SSL_MODE_RELEASE_BUFFERS);
    SSL_CTX_set_session_cache_mode(context_, SSL_SESS_CACHE_OFF);
    if (auto error = trust(); !error.empty()) return error;
    return identify();
}

std::string TlsContext::trust() {
    auto* const store = SSL_CTX_get_cert_store(context_);
    auto const& options = *options_;
    if (options.trustsSystem) {
        char const* const directory = X509_get_default_cert_dir();
        bool const isRead = isHashed(directory) ? X509_STORE_load_path(store, directory) == 1
                                                : X509_STORE_load_file(store, X509_get_default_cert_file()) == 1;
        if (!isRead) ERR_clear_error();  // a system without authorities trusts those that are named alone
    }
    if (!options.caFile.empty() && X509_STORE_load_file(store, options.caFile.c_str()) != 1)
        return openSslText() + ", CA file " + options.caFile;
    if (!options.caDirectory.empty() &&
        (!fs::is_directory(options.caDirectory) || X509_STORE_load_path(store, options.caDirectory.c_str()) != 1))
        return "TLS: cannot be read, CA directory " + options.caDirectory;
    auto const authorities = certificatesIn(options.caPem);
    if (authorities.empty() && !options.caPem.empty()) return "TLS: no certificate can be read in the PEM text of CAs";
    for (auto const& authority : authorities) X509_STORE_add_cert(store, authority.get());
    return {};
}

std::string TlsContext::identify() {
    auto const& options = *options_;
    auto const certificate = textOf(options.certificatePem, options.certificateFile);
    auto const from = options.certificateFile.empty() ? std::string("the PEM text") : options.certificateFile;
    if (certificate.empty() && options.certificateFile.empty()) return {};
    auto const chain = certificatesIn(certificate);
    if (chain.empty()) return "TLS: no client certificate can be read in " + from;
    SSL_CTX_use_certificate(context_, chain.front().get());
    for (std::size_t i = 1; i < chain.size(); ++i) SSL_CTX_add1_chain_cert(context_, chain[i].get());
    auto key = textOf(options.keyPem, options.keyFile);
    if (key.empty() && options.keyFile.empty()) key = certificate;
    auto const bio = bioOf(key);
    std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> const read(
        PEM_read_bio_PrivateKey(bio.get(), nullptr, &onPassword, const_cast<KvTlsOptions*>(options_.get())),
        &EVP_PKEY_free);
    ERR_clear_error();
    if (!read) return "TLS: the key of the client certificate cannot be read, or its password is wrong";
    if (SSL_CTX_use_PrivateKey(context_, read.get()) != 1) {
        ERR_clear_error();
        return "TLS: the key is not that of the client certificate in " + from;
    }
    return {};
}

SSL* TlsContext::begin(std::string const& host, std::string const& address, BIO* transport, std::string& error) {
    std::unique_ptr<SSL, decltype(&SSL_free)> ssl(SSL_new(context_), &SSL_free);
    if (!ssl) {
        BIO_free_all(transport);
        error = openSslText();
        return nullptr;
    }
    SSL_set_bio(ssl.get(), transport, transport);
    auto const& name = options_->serverName.empty() ? host : options_->serverName;
    SSL_set_ex_data(ssl.get(), peerIndex(), new Peer{shared_from_this(), name, address});
    SSL_set_hostflags(ssl.get(), kHostFlags);
    boost::system::error_code noAddress;
    boost::asio::ip::make_address(name, noAddress);
    bool const isSet = noAddress ? SSL_set1_host(ssl.get(), name.c_str()) == 1 &&
                                       SSL_set_tlsext_host_name(ssl.get(), name.c_str()) == 1
                                 : X509_VERIFY_PARAM_set1_ip_asc(SSL_get0_param(ssl.get()), name.c_str()) == 1;
    if (!isSet) {
        error = openSslText();
        return nullptr;
    }
    if (auto const session = takeSession(address)) SSL_set_session(ssl.get(), session.get());
    SSL_set_connect_state(ssl.get());
    return ssl.release();
}

// Since TLS 1.3 a session is good for one connection, so each connection hands its own on.
void TlsContext::end(SSL* ssl) {
    SSL_set_shutdown(ssl, SSL_SENT_SHUTDOWN | SSL_RECEIVED_SHUTDOWN);  // else OpenSSL would not have it resumed
    auto const& peer = peerOf(ssl);
    Session session(SSL_get1_session(ssl));
    if (session && SSL_SESSION_is_resumable(session.get()) == 1)
        peer.context->keepSession(peer.address, std::move(session));
    SSL_free(ssl);
}

std::string TlsContext::judge(SSL const* ssl) {
    auto const& peer = peerOf(ssl);
    // A session that is taken up again remembers both.
    return peer.context->examine(SSL_get0_peer_certificate(ssl), SSL_get_peer_cert_chain(ssl), peer.host);
}

std::string TlsContext::examine(X509* certificate, STACK_OF(X509) * chain, std::string const& host) const {
    if (options_->pins.empty() && !options_->accepts) return {};
    if (certificate == nullptr) return "TLS: " + host + " has shown no certificate";
    if (!options_->pins.empty() && std::ranges::find(options_->pins, pinOf(certificate)) == options_->pins.end())
        return "TLS: the public key is none of those that are pinned: " + pinOf(certificate) + " of the certificate " +
               describe(certificate, host);
    if (options_->accepts && !options_->accepts(peerCertificate(certificate, chain, host)))
        return "TLS: the application does not accept the certificate " + describe(certificate, host);
    return {};
}

std::string TlsContext::refusal(SSL const* ssl) { return peerOf(ssl).refusal; }

int TlsContext::onVerified(int isGood, X509_STORE_CTX* verifying) {
    if (isGood == 1) return 1;
    auto const* ssl = static_cast<SSL*>(X509_STORE_CTX_get_ex_data(verifying, SSL_get_ex_data_X509_STORE_CTX_idx()));
    auto& peer = peerOf(ssl);
    peer.refusal = std::string("TLS: ") + X509_verify_cert_error_string(X509_STORE_CTX_get_error(verifying));
    if (auto* const certificate = X509_STORE_CTX_get_current_cert(verifying))
        peer.refusal += ": certificate " + describe(certificate, peer.host);
    return 0;
}

TlsContext::Session TlsContext::takeSession(std::string const& address) {
    std::lock_guard const lock(mutex_);
    auto const found = sessions_.find(address);
    if (found == sessions_.end()) return nullptr;
    auto session = std::move(found->second.back());
    found->second.pop_back();
    if (found->second.empty()) sessions_.erase(found);
    return session;
}

void TlsContext::keepSession(std::string const& address, Session session) {
    std::lock_guard const lock(mutex_);
    if (sessions_.size() >= kMostServers && !sessions_.contains(address)) sessions_.clear();
    auto& known = sessions_[address];
    if (known.size() >= kMostSessionsOfServer) known.erase(known.begin());
    known.push_back(std::move(session));
}

int TlsContext::peerIndex() {
    static int const index = SSL_get_ex_new_index(
        0, nullptr, nullptr, nullptr,
        [](void*, void* peer, CRYPTO_EX_DATA*, int, long, void*) { delete static_cast<Peer*>(peer); });
    return index;
}

TlsContext::Peer& TlsContext::peerOf(SSL const* ssl) { return *static_cast<Peer*>(SSL_get_ex_data(ssl, peerIndex())); }

}  // namespace kv::net
