#include "zelvek/tsig_key_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <regex>
#include <sstream>
#include <system_error>

#include "vek/err.h"

namespace zelvek::dns {
namespace {

constexpr off_t kLargestFile = 4096;

[[noreturn]] void Refuse(const std::string& file, const std::string& why) {
    throw vek_err::Error::Reported("value", "the DNS key file " + file + " " + why);
}

std::string Read(const std::string& file) {
    std::ifstream in(file);
    std::ostringstream content;
    content << in.rdbuf();
    if (!in) Refuse(file, "cannot be read");
    return content.str();
}

}  // namespace

void CheckTsigKeyFile(const std::string& file) {
    if (file.empty()) throw vek_err::Error::Reported("value", "the DNS server needs a key file");
    struct stat status {};
    if (stat(file.c_str(), &status) != 0) {
        Refuse(file, "cannot be read: " + std::generic_category().message(errno));
    }
    if (!S_ISREG(status.st_mode) || status.st_size > kLargestFile) Refuse(file, "is no file with a key");
    if (status.st_uid != geteuid()) Refuse(file, "does not belong to the service's user");
    if ((status.st_mode & 077) != 0) Refuse(file, "must be readable by its owner alone (chmod 600)");

    static const std::regex form(R"(\s*key\s+"?[A-Za-z0-9._-]+"?\s*\{\s*algorithm\s+"?[A-Za-z0-9.-]+"?\s*;)"
                                 R"(\s*secret\s+"?[A-Za-z0-9+/=]+"?\s*;\s*\}\s*;\s*)");
    if (!std::regex_match(Read(file), form)) Refuse(file, "is not as tsig-keygen writes it");
}

}  // namespace zelvek::dns
