#include "Proxies.h"

#include <chrono>
#include <csignal>
#include <filesystem>
#include <stdexcept>
#include <thread>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace kv::test {
namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr char kSquid[] = "/usr/sbin/squid", kDanted[] = "/usr/sbin/danted";

class LoopbackSocket {
public:
    explicit LoopbackSocket(int port = 0) {
        address_.sin_family = AF_INET;
        address_.sin_port = htons(static_cast<std::uint16_t>(port));
        address_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    }
    ~LoopbackSocket() { ::close(fd_); }
    bool connects() { return ::connect(fd_, raw(), size_) == 0; }
    int bind() {
        ::bind(fd_, raw(), size_);
        ::getsockname(fd_, raw(), &size_);
        return ntohs(address_.sin_port);
    }

private:
    sockaddr* raw() { return reinterpret_cast<sockaddr*>(&address_); }
    int const fd_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address_{};
    socklen_t size_ = sizeof address_;
};

}  // namespace

int freePort() { return LoopbackSocket().bind(); }

void ProxyProgram::start() {
    process_ = std::make_unique<ChildProcess>(command_);
    for (auto const end = Clock::now() + 20s; !LoopbackSocket(port_).connects(); std::this_thread::sleep_for(5ms)) {
        if (Clock::now() > end || process_->wait(Clock::now()))
            throw std::runtime_error(command_[0] + " does not start");
    }
}

// Both clean up when they are asked to end: squid its shared memory, danted its children.
ProxyProgram::~ProxyProgram() {
    if (!process_) return;
    process_->kill(SIGTERM);
    process_->wait(Clock::now() + 10s);
}

bool Squid::isInstalled() { return fs::exists(kSquid); }

Squid::Squid(CertificateAuthority::Certificate const& certificate) {
    // Started by root it becomes somebody else, who must find these files too.
    fs::permissions(directory_.path(), fs::perms(0755));
    makeFile(directory_.path("hosts"), std::string("127.0.0.1 ") + kInnerName + ' ' + kForbiddenName + '\n');
    makeFile(directory_.path("login.sh"), std::string("while read -r line; do [ \"$line\" = \"alice ") +
                                              kProxyPassword + "\" ] && echo OK || echo ERR; done\n");
    makeFile(directory_.path("squid.conf"),
             "http_port " + open() + " name=open\nhttp_port " + locked() + "\nhttps_port " + secure() +
                 " tls-cert=" + certificate.certificateFile + " tls-key=" + certificate.keyFile + "\nhosts_file " +
                 directory_.path("hosts") + "\nauth_param basic program /bin/sh " + directory_.path("login.sh") +
                 "\nauth_param basic children 1\nauth_param basic realm test\nacl open myportname open\n"
                 "acl known proxy_auth REQUIRED\nacl forbidden dstdomain " +
                 kForbiddenName +
                 "\nhttp_access deny forbidden\nhttp_access allow open\nhttp_access allow known\n"
                 "http_access deny all\nvisible_hostname proxy.test\npid_filename none\ncache deny all\n"
                 "cache_mem 1 MB\ncache_log /dev/null\naccess_log none\ncache_store_log none\ncoredump_dir none\n"
                 "pinger_enable off\nnetdb_filename none\nshutdown_lifetime 0 seconds\n");
    command_ = {kSquid, "-N", "-n", "kvpimtest" + std::to_string(port_), "-f", directory_.path("squid.conf")};
}

bool Danted::isInstalled() { return fs::exists(kDanted); }

Danted::Danted() {
    makeFile(directory_.path("danted.conf"),
             "logoutput: /dev/null\ninternal: 127.0.0.1 port = " + std::to_string(port_) +
                 "\nexternal: lo\nsocksmethod: none\nclientmethod: none\n"
                 "client pass { from: 127.0.0.0/8 to: 0.0.0.0/0 }\nsocks block { from: 0.0.0.0/0 to: " +
                 kForbiddenAddress + "/32 }\nsocks pass { from: 127.0.0.0/8 to: 0.0.0.0/0 }\n");
    command_ = {kDanted, "-N", "1", "-f", directory_.path("danted.conf")};
}

SocksServer::SocksServer()
    : process_({"/usr/bin/python3", KV_SOCKS_SERVER, "alice", "s3cret word"}), port_(nextHost()) {}

std::string SocksServer::nextHost() { return process_.readLine(Clock::now() + 20s).value_or("nothing"); }

}  // namespace kv::test
