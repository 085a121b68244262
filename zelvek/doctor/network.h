#pragma once

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

#include "zelvek/doctor/check.h"
#include "zelvek/publishing/dns_backend.h"

/// What the service reaches outside, and what reaches it.
namespace zelvek::doctor {

/// The directory of an authority: reached, trusted, usable, and with a clock that agrees with this machine's.
Checks Authority(const std::string& name, const std::string& directory);

/// What the clocks of an authority and of this machine say, `ahead` seconds apart.
Check Clock(const std::string& authority, long long ahead);

/// Whether each of the public name servers finds addresses of a host.
Checks Resolvers(const std::vector<std::string>& resolvers, const std::string& host);

/// Whether the name server takes a TXT record of this zone, and takes it away again. The record's name is one
/// that no certificate asks for.
Check Records(dns::Backend& backend, const std::string& zone);

/// Whether a file of the folder with answers is there at http://name/.well-known/acme-challenge/ for each
/// address of each name. Only public addresses are connected to, and this machine's own. Nothing stays in the
/// folder.
Checks Answers(const std::filesystem::path& folder, const std::vector<std::string>& names,
               const std::vector<std::string>& resolvers);

/// Whether a mail server (`smtp`, a URL) or else the program `sendmail` can be used. Nothing is sent.
Check Mail(const std::string& smtp, const std::filesystem::path& sendmail);

}  // namespace zelvek::doctor
