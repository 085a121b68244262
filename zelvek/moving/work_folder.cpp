#include "zelvek/moving/work_folder.h"

#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "vek/str.h"
#include "zelvek/base/error.h"
#include "zelvek/base/log.h"

namespace zelvek::moving {

namespace {

constexpr const char* kPrefix = ".moving-";

bool Lock(const Folder& folder) { return ::flock(folder.descriptor(), LOCK_EX | LOCK_NB) == 0; }

/// A folder that nobody has locked is a dead process's.
void RemoveLeftovers(const Folder& parent) {
    for (const std::string& name : parent.Names()) {
        const struct stat status = parent.Status(name);
        if (!name.starts_with(kPrefix) || !S_ISDIR(status.st_mode) || status.st_uid != ::geteuid()) continue;
        if (Lock(parent.Open(name))) parent.Remove(name);
    }
}

std::string MakeFolder(const Folder& parent) {
    RemoveLeftovers(parent);
    std::string name = kPrefix + str::hex::Encode(str::Random(8));
    if (!parent.Make(name, 0700)) throw Error(Code::kIo, name + " is in the way");
    return name;
}

}  // namespace

WorkFolder::WorkFolder(const std::filesystem::path& parent)
    : parent_(Folder::At(parent)), name_(MakeFolder(parent_)), folder_(parent_.Open(name_)) {
    if (!Lock(folder_)) throw Error(Code::kBusy, folder_.path().string() + " is locked by somebody else");
}

WorkFolder::~WorkFolder() {
    try {
        parent_.Remove(name_);
    } catch (const Error& error) {
        Log(std::string("left behind: ") + error.what());  // the next one removes it
    }
}

}  // namespace zelvek::moving
