#include "zelvek/moving/output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "vek/str.h"
#include "zelvek/base/error.h"
#include "zelvek/base/log.h"

namespace zelvek::moving {

namespace fs = std::filesystem;

OutputFile::OutputFile(const fs::path& file, Present present)
    : folder_(Folder::At(fs::absolute(file).parent_path())),
      name_(file.filename()),
      present_(present),
      part_(name_ + ".part-" + str::hex::Encode(str::Random(4))) {
    CheckIsFree();
    folder_.WriteNew(part_, "", 0600);
    opened_ = Descriptor(::openat(folder_.descriptor(), part_.c_str(), O_WRONLY | O_NOFOLLOW | O_CLOEXEC));
    if (!opened_) throw IoError("cannot open", file, errno);
}

OutputFile::~OutputFile() {
    if (part_.empty()) return;
    try {
        folder_.Remove(part_);
    } catch (const Error& error) {
        Log(std::string("left behind: ") + error.what());
    }
}

void OutputFile::CheckIsFree() const {
    const mode_t there = folder_.Status(name_).st_mode;
    if (name_.empty() || S_ISDIR(there)) throw Error(Code::kIo, "a folder is no place for a file's content");
    if (there != 0 && present_ == Present::kRefused) {
        throw Error(Code::kExists,
                    (folder_.path() / name_).string() + " is there already; --force replaces it");
    }
}

void OutputFile::PutInPlace() {
    if (::fsync(opened_.get()) != 0) throw IoError("cannot write", folder_.path() / name_, errno);
    CheckIsFree();
    folder_.Rename(part_, name_);
    part_.clear();
    folder_.Sync();
}

}  // namespace zelvek::moving
