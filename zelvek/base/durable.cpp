#include "zelvek/base/durable.h"

#include "vek/str.h"
#include "zelvek/base/error.h"
#include "zelvek/base/folder.h"

namespace zelvek::durable {

namespace {

constexpr const char* kFreshPrefix = ".new-";
constexpr std::size_t kMarkBytes = 8;  // random, written as twice as many digits

bool IsFresh(const std::string& name) {
    const std::string prefix = kFreshPrefix;
    return name.starts_with(prefix) && name.size() == prefix.size() + 2 * kMarkBytes &&
           name.find_first_not_of("0123456789abcdef", prefix.size()) == std::string::npos;
}

}  // namespace

void Replace(const std::filesystem::path& file, const std::string& content, mode_t mode) {
    const Folder folder = Folder::At(file.parent_path());
    const std::string fresh = kFreshPrefix + str::hex::Encode(str::Random(kMarkBytes));
    try {
        folder.WriteNew(fresh, content, mode);
        folder.Rename(fresh, file.filename());
    } catch (const Error&) {
        folder.Remove(fresh);
        throw;
    }
    folder.Sync();
}

void RemoveLeftovers(const std::filesystem::path& folder) {
    const Folder opened = Folder::At(folder);
    for (const std::string& name : opened.Names()) {
        if (IsFresh(name)) opened.Remove(name);
    }
}

}  // namespace zelvek::durable
