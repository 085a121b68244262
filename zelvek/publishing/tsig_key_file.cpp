#include "zelvek/publishing/tsig_key_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <sstream>
#include <string_view>
#include <system_error>
#include <vector>

#include "zelvek/base/descriptor.h"
#include "zelvek/base/error.h"

namespace zelvek::dns {
namespace {

constexpr off_t kLargestFile = 4096;

[[noreturn]] void Refuse(const std::string& file, const std::string& why) {
    throw Error(Code::kValue, "the DNS key file " + file + " " + why);
}

[[noreturn]] void RefuseUnreadable(const std::string& file) {
    Refuse(file, "cannot be read: " + std::generic_category().message(errno));
}

/// The content of a file that belongs to this service's user alone and is no larger than a key.
std::string ReadOwn(const std::string& file) {
    // A pipe in its place must not make us wait.
    const Descriptor opened(open(file.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    struct stat status {};
    if (!opened || fstat(opened.get(), &status) != 0) RefuseUnreadable(file);
    if (!S_ISREG(status.st_mode) || status.st_size > kLargestFile) Refuse(file, "is no file with a key");
    if (status.st_uid != geteuid()) Refuse(file, "does not belong to the service's user");
    if ((status.st_mode & 077) != 0) Refuse(file, "must be readable by its owner alone (chmod 600)");

    std::string content(kLargestFile, '\0');
    const ssize_t size = read(opened.get(), content.data(), content.size());
    if (size < 0) RefuseUnreadable(file);
    content.resize(static_cast<std::size_t>(size));
    return content;
}

/// The file's words; braces and semicolons are words of their own.
std::vector<std::string> Words(const std::string& content) {
    std::string spaced;
    for (const char c : content) {
        const bool separator = c == '{' || c == '}' || c == ';';
        spaced += separator ? std::string{' ', c, ' '} : std::string(1, c);
    }
    std::istringstream in(spaced);
    return {std::istream_iterator<std::string>(in), {}};
}

/// A name or a value in base64, in double quotes or without.
bool IsValue(std::string word) {
    if (word.size() > 2 && word.front() == '"' && word.back() == '"') word = word.substr(1, word.size() - 2);
    return std::all_of(word.begin(), word.end(), [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               std::string_view("+/=.-_").find(c) != std::string_view::npos;
    });
}

bool IsKeyStatement(const std::vector<std::string>& words) {
    const std::vector<std::string> form{"key", "", "{", "algorithm", "", ";", "secret", "", ";", "}", ";"};
    return std::equal(words.begin(), words.end(), form.begin(), form.end(),
                      [](const std::string& word, const std::string& wanted) {
                          return wanted.empty() ? IsValue(word) : word == wanted;
                      });
}

}  // namespace

void CheckTsigKeyFile(const std::string& file) {
    if (file.empty()) throw Error(Code::kValue, "the DNS server needs a key file");
    if (!IsKeyStatement(Words(ReadOwn(file)))) Refuse(file, "is not as tsig-keygen writes it");
}

}  // namespace zelvek::dns
