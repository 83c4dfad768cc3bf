#include "prometheus.h"

#include <algorithm>
#include <cstdio>

#include <curl/curl.h>

#include "failure.h"
#include "fleetOptions.h"
#include "text.h"
#include "units.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr std::size_t kLargestAnswer = 16 << 20;  // bytes: figures of some 10,000 engines

// What a server may send that is not answering as it should ends here.
std::size_t takePart(const char* part, std::size_t, std::size_t size, void* text) {
    auto* const answer = static_cast<std::string*>(text);
    if (answer->size() + size > kLargestAnswer) return 0;
    answer->append(part, size);
    return size;
}

bool isSecure(const std::string& url) { return url[4] == 's' || url[4] == 'S'; }

std::string formField(CURL* curl, const char* name, const std::string& value) {
    const std::unique_ptr<char, decltype(&curl_free)> escaped(
        curl_easy_escape(curl, value.data(), static_cast<int>(value.size())), curl_free);
    if (!escaped) throw Failure("cannot ask: no memory left");
    return std::string(name) + "=" + escaped.get();
}

// "1795309835.123"
std::string secondsSince1970(Moment moment) {
    const long long count = moment.time_since_epoch().count();
    char text[32];
    std::snprintf(text, sizeof text, "%lld.%03lld", count / 1000, count % 1000);
    return text;
}

}  // namespace

class Prometheus::Transfer {
public:
    Transfer(const std::string& url, double timeout);

    Answer ask(const std::string& form);
    CURL* curl() const { return curl_.get(); }

private:
    template <class Value>
    void set(CURLoption option, Value value);
    milliseconds timeLeft() const;
    [[noreturn]] void fail(CURLcode code) const;

    std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> curl_;
    double timeout_;
    steady_clock::time_point end_;
    std::string answer_;
    char error_[CURL_ERROR_SIZE] = "";
};

// An option that is refused would leave a protection out.
template <class Value>
void Prometheus::Transfer::set(CURLoption option, Value value) {
    if (curl_easy_setopt(curl_.get(), option, value) == CURLE_OK) return;
    throw Failure(std::string("cannot ask a server: libcurl ") + curl_version_info(CURLVERSION_NOW)->version +
                  " is too old, or there is no memory left");
}

// A server that is asked without protection may lead to a protected one, but not the other way round. What is asked goes
// with the redirection.
Prometheus::Transfer::Transfer(const std::string& url, double timeout)
    : curl_(curl_easy_init(), curl_easy_cleanup),
      timeout_(timeout),
      end_(steady_clock::now() + std::chrono::duration_cast<milliseconds>(std::chrono::duration<double>(timeout))) {
    constexpr long kMostRedirections = 3;
    if (!curl_) throw Failure("cannot ask a server: libcurl does not start");
    set(CURLOPT_URL, (url + "/api/v1/query").c_str());
    set(CURLOPT_PROTOCOLS_STR, "http,https");
    set(CURLOPT_REDIR_PROTOCOLS_STR, isSecure(url) ? "https" : "http,https");
    set(CURLOPT_FOLLOWLOCATION, 1L);
    set(CURLOPT_MAXREDIRS, kMostRedirections);
    set(CURLOPT_POSTREDIR, static_cast<long>(CURL_REDIR_POST_ALL));
    set(CURLOPT_NOSIGNAL, 1L);
    set(CURLOPT_QUICK_EXIT, 1L);  // do not wait for a name server that keeps silent
    set(CURLOPT_ERRORBUFFER, static_cast<char*>(error_));
    set(CURLOPT_WRITEFUNCTION, takePart);
    set(CURLOPT_WRITEDATA, &answer_);
}

milliseconds Prometheus::Transfer::timeLeft() const {
    return std::chrono::duration_cast<milliseconds>(end_ - steady_clock::now());
}

// A time of 0 would be no limit.
Answer Prometheus::Transfer::ask(const std::string& form) {
    answer_.clear();
    set(CURLOPT_TIMEOUT_MS, std::max<long>(1, timeLeft().count()));
    set(CURLOPT_POSTFIELDS, form.c_str());
    const CURLcode code = curl_easy_perform(curl());
    if (code != CURLE_OK) fail(code);
    long status = 0;
    curl_easy_getinfo(curl(), CURLINFO_RESPONSE_CODE, &status);
    return readAnswer(answer_, status);
}

void Prometheus::Transfer::fail(CURLcode code) const {
    const std::string told = printable(error_[0] != '\0' ? error_ : curl_easy_strerror(code));
    switch (code) {
        case CURLE_OPERATION_TIMEDOUT:
            throw Failure("it has not answered within " + secondsText(timeout_) +
                          "; give it more time with --timeout, or ask for a shorter run");
        case CURLE_WRITE_ERROR:
            throw Failure("its answer is larger than " + bytesText(kLargestAnswer) + "; is it a Prometheus?");
        case CURLE_COULDNT_RESOLVE_HOST:
        case CURLE_COULDNT_CONNECT:
            throw Failure(told + "; is the URL right, and does the server run?");
        case CURLE_PEER_FAILED_VERIFICATION:
        case CURLE_SSL_CONNECT_ERROR:
        case CURLE_SSL_CACERT_BADFILE:
            throw Failure("no protected connection: " + told +
                          "; this machine must know who signed the server's certificate");
        case CURLE_TOO_MANY_REDIRECTS:
        case CURLE_UNSUPPORTED_PROTOCOL:
            throw Failure("it is no Prometheus or leads elsewhere: " + told + "; use the URL of the server itself");
        default:
            throw Failure("no complete answer: " + told + "; try again, and look into the server's log");
    }
}

Prometheus::Prometheus(const std::string& url, double timeout)
    : shown_(shownUrl(url)), transfer_(std::make_unique<Transfer>(url, timeout)) {}
Prometheus::~Prometheus() = default;

Answer Prometheus::query(const std::string& expression, Moment moment) {
    try {
        CURL* const curl = transfer_->curl();
        return transfer_->ask(formField(curl, "query", expression) + "&" +
                              formField(curl, "time", secondsSince1970(moment)));
    } catch (const Failure& failure) {
        throw Failure(shown_ + ": " + failure.what());
    }
}
