#pragma once

#include <filesystem>
#include <string>

#include "zelvek/base/descriptor.h"
#include "zelvek/base/folder.h"

namespace zelvek::moving {

/// A file that is there when it is whole, mode 0600: until then it stands beside its place as
/// "<name>.part-<8 digits>", and it goes unless it is put in place. Errors of everything here: Error of code
/// kIo, of code kExists where another file is there that may not be replaced.
class OutputFile {
public:
    enum class Present { kRefused, kReplaced };

    OutputFile(const std::filesystem::path& file, Present present);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    int descriptor() const { return opened_.get(); }

    void PutInPlace();

private:
    void CheckIsFree() const;

    Folder folder_;
    std::string name_;
    Present present_;
    std::string part_;
    Descriptor opened_;
};

}  // namespace zelvek::moving
