#pragma once

#include <curl/curl.h>

#include <optional>
#include <string>

/// Stands between the framework and libcurl.
namespace vek_test {

/// The number that an option of a transfer was set to last: for limits that no test can wait for, and for
/// what shows only with servers that are no test's.
std::optional<long> LastSetting(CURLoption option);
void ForgetSettings();

/// The folder of roots that libcurl gives as the system's from now on.
void SetSystemFolder(const char* folder);

/// How many transfers have been given back since `ForgetSettings`, and whether this list was.
int CountOfEnded();
bool IsFreed(long list);

/// Whether the transfers' common share has this setting.
bool IsShared(CURLSHoption option, long value);
bool IsCommon(CURLSHoption option);

/// The next call of this function of libcurl's fails ("curl_easy_init", ...), and no other one.
void FailOnce(const std::string& function);

}  // namespace vek_test
