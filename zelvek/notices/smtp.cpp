// The channel that is a mail server.
#include <curl/curl.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <exception>
#include <memory>
#include <new>
#include <regex>

#include "vek/str.h"
#include "zelvek/base/text.h"
#include "zelvek/notices/channels.h"

namespace zelvek::notices {

namespace {

using Easy = std::unique_ptr<CURL, decltype(&curl_easy_cleanup)>;
using List = std::unique_ptr<curl_slist, decltype(&curl_slist_free_all)>;
using Outcome = Handover::Outcome;

/// The message as libcurl asks for it.
struct Source {
    const std::string& data;
    const Handing& handing;
    std::size_t at = 0;
    bool whole = false;  // the server may have all of it
    std::exception_ptr failure = {};
};

// No exception may cross libcurl. The end of the message is sent when there is nothing left to be read.
std::size_t GiveData(char* buffer, std::size_t one, std::size_t count, void* from) {
    auto& source = *static_cast<Source*>(from);
    const std::size_t length = std::min(one * count, source.data.size() - source.at);
    source.data.copy(buffer, length, source.at);
    source.at += length;
    if (length != 0 || source.whole) return length;
    try {
        source.handing();
    } catch (const std::exception&) {
        source.failure = std::current_exception();
        return CURL_READFUNC_ABORT;
    }
    source.whole = true;
    return 0;
}

void SetUp(CURL* curl, const std::string& url, std::chrono::seconds limit) {
    curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "smtp,smtps");
    curl_easy_setopt(curl, CURLOPT_PROXY, "");
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_QUICK_EXIT, 1L);
    curl_easy_setopt(curl, CURLOPT_TIMEOUT, static_cast<long>(limit.count()));
    if (const char* roots = std::getenv("VEK_CA_FILE"); roots != nullptr && *roots != '\0')
        curl_easy_setopt(curl, CURLOPT_CAINFO, roots);
}

Handover OutcomeOf(CURL* curl, CURLcode code, const Source& source, const char* detail) {
    if (code == CURLE_OK) return {Outcome::kAccepted};
    long status = 0;
    curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
    constexpr long kFirstRefusal = 400;
    const std::string why = *detail != '\0' ? detail : curl_easy_strerror(code);
    const std::string reason = LastLines(why) + ", the server's last word was " + str::Str(status);
    // The word before the end of the message was 354; another one after it is an answer.
    const bool unknown = source.whole && status < kFirstRefusal;
    return {unknown ? Outcome::kUnknown : Outcome::kRefused, reason};
}

Handover Send(const std::string& url, std::chrono::seconds limit, const Message& message,
              const Handing& handing) {
    const Easy curl(curl_easy_init(), &curl_easy_cleanup);
    const List recipients(curl_slist_append(nullptr, ("<" + message.to + ">").c_str()), &curl_slist_free_all);
    if (!curl || !recipients) throw std::bad_alloc();
    std::array<char, CURL_ERROR_SIZE> detail{};
    Source source{message.data, handing};
    const std::string from = "<" + message.from + ">";
    SetUp(curl.get(), url, limit);
    curl_easy_setopt(curl.get(), CURLOPT_ERRORBUFFER, detail.data());
    curl_easy_setopt(curl.get(), CURLOPT_MAIL_FROM, from.c_str());
    curl_easy_setopt(curl.get(), CURLOPT_MAIL_RCPT, recipients.get());
    curl_easy_setopt(curl.get(), CURLOPT_UPLOAD, 1L);
    curl_easy_setopt(curl.get(), CURLOPT_READFUNCTION, &GiveData);
    curl_easy_setopt(curl.get(), CURLOPT_READDATA, &source);
    const CURLcode code = curl_easy_perform(curl.get());
    if (source.failure) std::rethrow_exception(source.failure);
    return OutcomeOf(curl.get(), code, source, detail.data());
}

}  // namespace

Channel SmtpChannel(const std::string& url, std::chrono::seconds limit) {
    // libcurl wants this before threads use it; what it needs stays until the process ends.
    static const CURLcode prepared = curl_global_init(CURL_GLOBAL_DEFAULT);
    return [=](const Message& message, const Handing& handing) {
        if (prepared != CURLE_OK) return Handover{Outcome::kRefused, curl_easy_strerror(prepared)};
        return Send(url, limit, message, handing);
    };
}

std::string WhyNotReached(const std::string& url, std::chrono::seconds limit) {
    const Easy curl(curl_easy_init(), &curl_easy_cleanup);
    if (!curl) throw std::bad_alloc();
    std::array<char, CURL_ERROR_SIZE> detail{};
    SetUp(curl.get(), url, limit);
    curl_easy_setopt(curl.get(), CURLOPT_ERRORBUFFER, detail.data());
    curl_easy_setopt(curl.get(), CURLOPT_CUSTOMREQUEST, "NOOP");
    curl_easy_setopt(curl.get(), CURLOPT_NOBODY, 1L);
    const CURLcode code = curl_easy_perform(curl.get());
    if (code == CURLE_OK) return "";
    return detail.front() != '\0' ? detail.data() : curl_easy_strerror(code);
}

bool IsSmtpUrl(const std::string& url) {
    static const std::regex form(R"(smtps?://([A-Za-z0-9.-]+|\[[0-9A-Fa-f:.]+\])(:[0-9]{1,5})?/?)");
    return std::regex_match(url, form);
}

}  // namespace zelvek::notices
