#include "zelvek/publishing/answers.h"

#include <unistd.h>

#include <cerrno>
#include <string_view>

#include "zelvek/base/durable.h"
#include "zelvek/base/error.h"
#include "zelvek/base/folder.h"

namespace zelvek::answers {
namespace {

constexpr std::string_view kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
constexpr std::size_t kLongestName = 255;  // of a file, on every file system in use

/// The file's path. What can be a token is checked here, so that no caller can forget it.
std::filesystem::path Place(const std::filesystem::path& directory, const std::string& token) {
    if (!IsToken(token)) throw Error(Code::kValue, "the name of an answer file is no token");
    return directory / token;
}

}  // namespace

bool IsToken(const std::string& token) {
    return !token.empty() && token.size() <= kLongestName &&
           token.find_first_not_of(kAlphabet) == std::string::npos;
}

void Create(const std::filesystem::path& directory, const std::string& token, const std::string& content) {
    // The name under which the new file is written begins with a dot: it is no token, so it is never served.
    durable::Replace(Place(directory, token), content, 0644);
}

void Remove(const std::filesystem::path& directory, const std::string& token) {
    const std::filesystem::path file = Place(directory, token);
    if (unlink(file.c_str()) == 0) {
        Folder::At(directory).Sync();
    } else if (errno != ENOENT) {
        throw IoError("cannot remove", file, errno);
    }
}

}  // namespace zelvek::answers
