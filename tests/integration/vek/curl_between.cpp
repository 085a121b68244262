// The executable's symbols hide libcurl's own functions.
#include "integration/vek/curl_between.h"

#include <dlfcn.h>

#include <algorithm>
#include <cstdarg>
#include <map>
#include <mutex>
#include <optional>
#include <set>

#undef curl_easy_setopt
#undef curl_share_setopt

namespace {

std::mutex mutex;
std::map<CURLoption, long> settings;
std::set<std::pair<CURLSHoption, long>> share_settings;
std::set<long> freed;
int ended = 0;
std::string failing;
std::optional<curl_version_info_data> version;
std::string system_folder;  // of `version`

bool Fails(const std::string& function) {
    const std::lock_guard lock(mutex);
    if (failing != function) return false;
    failing.clear();
    return true;
}

template <class Result, class... Values>
Result Pass(const char* function, Result failure, Values... values) {
    if (Fails(function)) return failure;
    return reinterpret_cast<Result (*)(Values...)>(dlsym(RTLD_NEXT, function))(values...);
}

}  // namespace

extern "C" {

// Every option's value is a long or as wide as one.
CURLcode curl_easy_setopt(CURL* handle, CURLoption option, ...) {  // NOLINT(cert-dcl50-cpp)
    std::va_list values;
    va_start(values, option);
    const long value = va_arg(values, long);
    va_end(values);
    if (Fails("curl_easy_setopt")) return CURLE_UNKNOWN_OPTION;
    {
        const std::lock_guard lock(mutex);
        settings[option] = value;
    }
    static auto* const original =
        reinterpret_cast<CURLcode (*)(CURL*, CURLoption, ...)>(dlsym(RTLD_NEXT, "curl_easy_setopt"));
    return original(handle, option, value);
}

CURLSHcode curl_share_setopt(CURLSH* share, CURLSHoption option, ...) {  // NOLINT(cert-dcl50-cpp)
    std::va_list values;
    va_start(values, option);
    const long value = va_arg(values, long);
    va_end(values);
    {
        const std::lock_guard lock(mutex);
        share_settings.emplace(option, value);
    }
    static auto* const original =
        reinterpret_cast<CURLSHcode (*)(CURLSH*, CURLSHoption, ...)>(dlsym(RTLD_NEXT, "curl_share_setopt"));
    return original(share, option, value);
}

void curl_easy_cleanup(CURL* handle) {
    {
        const std::lock_guard lock(mutex);
        ++ended;
    }
    reinterpret_cast<void (*)(CURL*)>(dlsym(RTLD_NEXT, "curl_easy_cleanup"))(handle);
}

void curl_slist_free_all(curl_slist* list) {
    {
        const std::lock_guard lock(mutex);
        freed.insert(reinterpret_cast<long>(list));
    }
    reinterpret_cast<void (*)(curl_slist*)>(dlsym(RTLD_NEXT, "curl_slist_free_all"))(list);
}

CURLcode curl_global_init(long flags) { return Pass("curl_global_init", CURLE_FAILED_INIT, flags); }
CURL* curl_easy_init() { return Pass<CURL*>("curl_easy_init", nullptr); }
CURLM* curl_multi_init() { return Pass<CURLM*>("curl_multi_init", nullptr); }
CURLSH* curl_share_init() { return Pass<CURLSH*>("curl_share_init", nullptr); }

curl_slist* curl_slist_append(curl_slist* list, const char* line) {
    return Pass<curl_slist*>("curl_slist_append", nullptr, list, line);
}

CURLMcode curl_multi_add_handle(CURLM* multi, CURL* easy) {
    return Pass("curl_multi_add_handle", CURLM_BAD_HANDLE, multi, easy);
}

CURLMcode curl_multi_perform(CURLM* multi, int* running) {
    return Pass("curl_multi_perform", CURLM_INTERNAL_ERROR, multi, running);
}

CURLMcode curl_multi_poll(CURLM* multi, curl_waitfd* more, unsigned count, int most, int* ready) {
    return Pass("curl_multi_poll", CURLM_OUT_OF_MEMORY, multi, more, count, most, ready);
}

curl_version_info_data* curl_version_info(CURLversion age) {
    if (version) return &*version;
    return Pass<curl_version_info_data*>("curl_version_info", nullptr, age);
}

CURLMsg* curl_multi_info_read(CURLM* multi, int* left) {
    return Pass<CURLMsg*>("curl_multi_info_read", nullptr, multi, left);
}
}

namespace vek_test {

std::optional<long> LastSetting(CURLoption option) {
    const std::lock_guard lock(mutex);
    const auto setting = settings.find(option);
    if (setting == settings.end()) return std::nullopt;
    return setting->second;
}

void ForgetSettings() {
    const std::lock_guard lock(mutex);
    settings.clear();
    freed.clear();
    ended = 0;
}

void SetSystemFolder(const char* folder) {
    auto changed = *curl_version_info(CURLVERSION_NOW);
    system_folder = folder != nullptr ? folder : "";
    changed.capath = folder != nullptr ? system_folder.c_str() : nullptr;
    version = changed;
}

int CountOfEnded() {
    const std::lock_guard lock(mutex);
    return ended;
}

bool IsFreed(long list) {
    const std::lock_guard lock(mutex);
    return freed.contains(list);
}

bool IsShared(CURLSHoption option, long value) {
    const std::lock_guard lock(mutex);
    return share_settings.contains({option, value});
}

bool IsCommon(CURLSHoption option) {
    const std::lock_guard lock(mutex);
    return std::any_of(share_settings.begin(), share_settings.end(),
                       [option](const auto& setting) { return setting.first == option; });
}

void FailOnce(const std::string& function) {
    const std::lock_guard lock(mutex);
    failing = function;
}

}  // namespace vek_test
