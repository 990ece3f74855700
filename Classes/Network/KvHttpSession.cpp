#include "Classes/Network/KvHttpSession.h"

#include "Net/Trust.h"
#include "Platform/KvFiles.h"
#include "Platform/KvThread.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <thread>
#include <unordered_map>
#include <utility>

#include <curl/curl.h>
#include <fcntl.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kv {
namespace {

using Clock = std::chrono::steady_clock;

constexpr long kMostRedirects = 16;
constexpr std::chrono::milliseconds kLongestSleep{60'000};
constexpr std::chrono::milliseconds kShortSleep{10};
constexpr std::chrono::seconds kLongestExit{3};  // a handshake on a busy machine takes long

// A line break would end the request line or a header and begin something else; a zero byte would end the URL.
bool hasControlCharacter(std::string_view url) {
    return std::ranges::any_of(url, [](unsigned char c) { return c < 0x20 || c == 0x7f; });
}

bool hasAlternativeNameOfHost(X509* certificate) {
    auto* const names =
        static_cast<GENERAL_NAMES*>(X509_get_ext_d2i(certificate, NID_subject_alt_name, nullptr, nullptr));
    bool isFound = false;
    for (int i = 0; i < sk_GENERAL_NAME_num(names) && !isFound; ++i) {
        auto const type = sk_GENERAL_NAME_value(names, i)->type;
        isFound = type == GEN_DNS || type == GEN_IPADD;
    }
    GENERAL_NAMES_free(names);
    return isFound;
}

// Where there is no alternative name to look at, curl looks at the common name, which authorities do not check alike.
int verifyCertificate(int isGood, X509_STORE_CTX* chain) {
    if (isGood != 1 || X509_STORE_CTX_get_error_depth(chain) > 0) return isGood;
    if (hasAlternativeNameOfHost(X509_STORE_CTX_get_current_cert(chain))) return 1;
    X509_STORE_CTX_set_error(chain, X509_V_ERR_HOSTNAME_MISMATCH);
    return 0;
}

CURLcode onTlsContext(CURL*, void* context, void* caFile) {
    std::string error;
    auto const trusted = net::trustedAuthorities(*static_cast<std::string const*>(caFile), error);
    if (!trusted) return CURLE_SSL_CACERT_BADFILE;
    SSL_CTX_set1_cert_store(static_cast<SSL_CTX*>(context), trusted.get());
    SSL_CTX_set_verify(static_cast<SSL_CTX*>(context), SSL_VERIFY_PEER, &verifyCertificate);
    return CURLE_OK;
}

// Other libraries have contexts of another kind, and OpenSSL's descendants may.
bool curlHasOpenSsl() {
    char const* const library = curl_version_info(CURLVERSION_NOW)->ssl_version;
    return library != nullptr && std::string_view(library).starts_with("OpenSSL/");
}

CURLM* makeMulti() {
    curl_global_init(CURL_GLOBAL_DEFAULT);
    return curl_multi_init();
}

}  // namespace

// One request with its answer, on the session's thread from the moment that it is taken.
class KvHttpSession::Transfer {
public:
    Transfer(KvHttpTask task, Completion completion) : task_(std::move(task)), completion_(std::move(completion)) {}
    Transfer(Transfer const&) = delete;
    Transfer& operator=(Transfer const&) = delete;
    ~Transfer() {
        curl_easy_cleanup(easy_);
        curl_slist_free_all(headers_);
    }

    /// False, with the reason in the answer, when there is nothing to begin with.
    bool prepare() {
        if (hasControlCharacter(task_.url)) return refuse("control character in the URL");
        if (!task_.uploadPath.empty() && !openFile()) return refuse("no file to upload");
        easy_ = curl_easy_init();
        if (easy_ == nullptr) return refuse("out of memory");
        started_ = lastActivity_ = Clock::now();
        setOptions();
        return true;
    }

    Clock::time_point deadline() const {
        auto const idleEnd = lastActivity_ + task_.requestTimeout;
        return task_.resourceTimeout.count() == 0 ? idleEnd : std::min(idleEnd, started_ + task_.resourceTimeout);
    }

    /// The last call. `error` is empty when the exchange came to its end.
    void conclude(std::string_view error) {
        if (easy_ != nullptr) curl_easy_getinfo(easy_, CURLINFO_RESPONSE_CODE, &answer_.status);
        if (!error.empty()) refuse(error);
        completion_(std::move(answer_));
    }

    CURL* easy() const { return easy_; }
    /// What curl says of this transfer's failure; empty when it says nothing.
    std::string_view errorText() const { return errorText_.data(); }

private:
    bool refuse(std::string_view error) {
        answer_.error = error;
        answer_.body.clear();
        return false;
    }

    bool openFile() {
        file_ = KvFileDescriptor(::open(task_.uploadPath.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
        struct stat status {};
        if (!file_ || ::fstat(file_.get(), &status) != 0 || !S_ISREG(status.st_mode)) return false;
        fileSize_ = status.st_size;
        return true;
    }

    template <class Value>
    void set(CURLoption option, Value value) {
        curl_easy_setopt(easy_, option, value);
    }

    void setOptions() {
        set(CURLOPT_URL, task_.url.c_str());
        set(CURLOPT_PRIVATE, this);
        set(CURLOPT_PROTOCOLS_STR, "http,https");
        set(CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
        set(CURLOPT_ERRORBUFFER, errorText_.data());
        set(CURLOPT_SSLVERSION, CURL_SSLVERSION_TLSv1_2);  // or later
        set(CURLOPT_FOLLOWLOCATION, 1L);
        set(CURLOPT_MAXREDIRS, kMostRedirects);
        set(CURLOPT_NOSIGNAL, 1L);
        set(CURLOPT_PROXY, "");  // the environment's would be used for this road only, not for the connection
        set(CURLOPT_DNS_CACHE_TIMEOUT, 0L);  // a server that has moved is found at once
        set(CURLOPT_FORBID_REUSE, 1L);       // a kept connection may have died without a word, and requests are rare
        set(CURLOPT_QUICK_EXIT, 1L);  // a host name that nobody resolves must not hold up the thread when given up
        if (curlHasOpenSsl()) {
            // Left to itself, curl reads all of the system's authorities for each connection.
            set(CURLOPT_CAINFO, static_cast<char const*>(nullptr));
            set(CURLOPT_CAPATH, static_cast<char const*>(nullptr));
            set(CURLOPT_SSL_CTX_FUNCTION, &onTlsContext);
            set(CURLOPT_SSL_CTX_DATA, &task_.caFile);
            // What curl keeps, it finds again by what it was told to trust, which is the same for everyone now.
            set(CURLOPT_SSL_SESSIONID_CACHE, 0L);
            set(CURLOPT_CA_CACHE_TIMEOUT, 0L);
        } else if (!task_.caFile.empty()) {
            // The directory of the system's authorities, which curl knows by itself, stays in force beside this file.
            set(CURLOPT_CAINFO, task_.caFile.c_str());
        }
        set(CURLOPT_ACCEPT_ENCODING, "");  // all that curl can decode
        set(CURLOPT_HEADERFUNCTION, &onHeader);
        set(CURLOPT_HEADERDATA, this);
        set(CURLOPT_WRITEFUNCTION, &onBody);
        set(CURLOPT_WRITEDATA, this);
        if (file_) {
            set(CURLOPT_POST, 1L);
            set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(fileSize_));
            set(CURLOPT_READFUNCTION, &onRead);
            set(CURLOPT_READDATA, this);
            set(CURLOPT_SEEKFUNCTION, &onSeek);
            set(CURLOPT_SEEKDATA, this);
            headers_ = curl_slist_append(headers_, "Expect:");
        }
        for (auto const& header : task_.headers) headers_ = curl_slist_append(headers_, header.c_str());
        set(CURLOPT_HTTPHEADER, headers_);
    }

    static Transfer& touched(void* transfer) {
        auto& self = *static_cast<Transfer*>(transfer);
        self.lastActivity_ = Clock::now();
        return self;
    }

    static std::size_t onHeader(char*, std::size_t, std::size_t size, void* transfer) {
        touched(transfer);
        return size;
    }

    static std::size_t onBody(char* bytes, std::size_t, std::size_t size, void* transfer) {
        auto& self = touched(transfer);
        if (self.answer_.body.size() + size > self.task_.largestBody) return 0;
        self.answer_.body.append(bytes, size);
        return size;
    }

    static std::size_t onRead(char* bytes, std::size_t, std::size_t size, void* transfer) {
        auto& self = touched(transfer);
        // A file that has grown meanwhile is sent as long as it was; one that has shrunk cannot be.
        auto const wanted = std::min(static_cast<off_t>(size), self.fileSize_ - self.fileSent_);
        ssize_t const count = ::read(self.file_.get(), bytes, static_cast<std::size_t>(wanted));
        if (count < 0 || (count == 0 && wanted > 0)) return CURL_READFUNC_ABORT;
        self.fileSent_ += count;
        return static_cast<std::size_t>(count);
    }

    static int onSeek(void* transfer, curl_off_t offset, int origin) {
        auto& self = touched(transfer);
        if (origin != SEEK_SET || ::lseek(self.file_.get(), offset, SEEK_SET) != offset) return CURL_SEEKFUNC_FAIL;
        self.fileSent_ = offset;
        return CURL_SEEKFUNC_OK;
    }

    KvHttpTask const task_;
    Completion const completion_;
    KvHttpAnswer answer_;
    KvFileDescriptor file_;
    off_t fileSize_ = 0;
    off_t fileSent_ = 0;
    Clock::time_point started_;
    Clock::time_point lastActivity_;
    std::array<char, CURL_ERROR_SIZE> errorText_{};
    CURL* easy_ = nullptr;
    curl_slist* headers_ = nullptr;
};

// What the session's thread does, and all that it needs for it.
class KvHttpSession::Loop {
public:
    explicit Loop(KvHttpSession& session) : session_(session) {}

    void run() {
        while (!session_.stopping_) {
            begin();
            int running = 0;
            curl_multi_perform(session_.multi_, &running);
            concludeFinished();
            concludeExpired();
            curl_multi_poll(session_.multi_, nullptr, 0, static_cast<int>(untilNextDeadline().count()), nullptr);
        }
        session_.stopped_ = true;
    }

private:
    void begin() {
        std::vector<std::unique_ptr<Transfer>> started;
        {
            std::lock_guard lock(session_.mutex_);
            if (!session_.canWake_ && transfers_.empty()) session_.remake();
            started.swap(session_.started_);
        }
        for (auto& transfer : started) {
            if (!transfer->prepare()) {
                transfer->conclude({});
                continue;
            }
            CURL* const easy = transfer->easy();
            transfers_.emplace(easy, std::move(transfer));
            curl_multi_add_handle(session_.multi_, easy);
        }
    }

    void concludeFinished() {
        int left = 0;
        while (CURLMsg const* const message = curl_multi_info_read(session_.multi_, &left)) {
            if (message->msg != CURLMSG_DONE) continue;
            auto const result = message->data.result;
            std::string_view const said = transfers_.at(message->easy_handle)->errorText();
            std::string_view const failure = said.empty() ? curl_easy_strerror(result) : said;
            conclude(message->easy_handle, result == CURLE_OK ? "" : failure);
        }
    }

    void concludeExpired() {
        auto const now = Clock::now();
        std::vector<CURL*> expired;
        for (auto const& [easy, transfer] : transfers_) {
            if (transfer->deadline() <= now) expired.push_back(easy);
        }
        for (CURL* const easy : expired) conclude(easy, "timed out");
    }

    void conclude(CURL* easy, std::string_view error) {
        auto const transfer = std::move(transfers_.extract(easy).mapped());
        curl_multi_remove_handle(session_.multi_, easy);
        transfer->conclude(error);
    }

    std::chrono::milliseconds untilNextDeadline() const {
        auto next = Clock::now() + (session_.canWake_ ? kLongestSleep : kShortSleep);
        for (auto const& [easy, transfer] : transfers_) next = std::min(next, transfer->deadline());
        return std::max(std::chrono::ceil<std::chrono::milliseconds>(next - Clock::now()),
                        std::chrono::milliseconds(0));
    }

    KvHttpSession& session_;
    std::unordered_map<CURL*, std::unique_ptr<Transfer>> transfers_;
};

KvHttpSession& KvHttpSession::shared() {
    static auto& session = *new KvHttpSession;  // never destroyed: its thread runs until the very end of the process
    return session;
}

KvHttpSession::KvHttpSession() : multi_(makeMulti()), canWake_(curl_multi_wakeup(multi_) == CURLM_OK) {
    // OpenSSL, which curl has set up by now, cleans up behind this and must find nobody using it.
    static pid_t const process = ::getpid();
    std::atexit([] {
        if (::getpid() == process) shared().stopAtExit();
    });
}

// Without a free descriptor curl makes do without what wakes its thread up, and never tries again.
void KvHttpSession::remake() {
    curl_multi_cleanup(multi_);
    multi_ = makeMulti();
    canWake_ = curl_multi_wakeup(multi_) == CURLM_OK;
}

void KvHttpSession::stopAtExit() {
    stopping_ = true;
    {
        std::lock_guard lock(mutex_);
        if (!hasThread_) return;
        curl_multi_wakeup(multi_);
    }
    auto const end = Clock::now() + kLongestExit;
    while (!stopped_ && Clock::now() < end) std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

void KvHttpSession::start(KvHttpTask task, Completion completion) {
    auto transfer = std::make_unique<Transfer>(std::move(task), std::move(completion));
    {
        std::lock_guard lock(mutex_);
        if (!hasThread_) hasThread_ = startThread("kv.http", [this] { Loop(*this).run(); });
        if (hasThread_) {
            started_.push_back(std::move(transfer));
            curl_multi_wakeup(multi_);
            return;
        }
    }
    transfer->conclude("no thread is left for it");
}

}  // namespace kv
