#pragma once

#include <filesystem>
#include <memory>

#include "zelvek/publishing/dns_backend.h"

namespace zelvek::dns {

/// Records as lines "zone name value" of a file, which is replaced as a whole at each change. Serves every
/// zone. Errors: code kValue where the file's folder is missing.
std::unique_ptr<Backend> MakeRecordsFile(const std::filesystem::path& file);

/// Dynamic updates (RFC 2136) of a server's zones, signed with a TSIG key (RFC 8945), by the tools `dig` and
/// `nsupdate`. Each call asks the server; nothing is remembered. Errors: code kValue for unusable settings.
std::unique_ptr<Backend> MakeUpdateClient(const Settings& settings);

}  // namespace zelvek::dns
