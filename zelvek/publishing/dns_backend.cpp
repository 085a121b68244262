#include "zelvek/publishing/dns_backend.h"

#include "zelvek/base/error.h"
#include "zelvek/publishing/dns_backends.h"

namespace zelvek::dns {

std::unique_ptr<Backend> MakeBackend(const Settings& settings) {
    if (!settings.server.empty() && !settings.records_file.empty()) {
        throw Error(Code::kValue, "a DNS server and a file of records exclude each other");
    }
    if (!settings.records_file.empty()) return MakeRecordsFile(settings.records_file);
    if (!settings.server.empty()) return MakeUpdateClient(settings);
    return nullptr;
}

}  // namespace zelvek::dns
