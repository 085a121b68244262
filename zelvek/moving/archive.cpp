#include "zelvek/moving/archive.h"

#include <archive.h>
#include <archive_entry.h>

#include <array>
#include <ctime>
#include <utility>

#include "zelvek/base/error.h"
#include "zelvek/base/text.h"
#include "zelvek/certificates/openssl.h"

namespace zelvek::moving {

namespace {

using Entry = std::unique_ptr<archive_entry, openssl::Deleter<archive_entry_free>>;

constexpr mode_t kFileMode = 0600;

[[noreturn]] void Refuse(const std::string& why) {
    throw Error(Code::kValue, "the backup is refused: " + why);
}

}  // namespace

void FreeArchive::operator()(archive* object) const { ::archive_free(object); }

ArchiveWriter::ArchiveWriter(Sink sink) : sink_(std::move(sink)), archive_(::archive_write_new()) {
    openssl::Must(archive_ != nullptr);
    // Names as they are, and sizes without an end.
    Check(::archive_write_set_format_gnutar(archive_.get()));
    Check(::archive_write_open(archive_.get(), this, nullptr, &ArchiveWriter::Take, nullptr));
}

ArchiveWriter::~ArchiveWriter() {
    over_ = true;  // what was not finished goes nowhere
}

long ArchiveWriter::Take(archive*, void* self, const void* buffer, std::size_t size) {
    auto* writer = static_cast<ArchiveWriter*>(self);
    if (writer->over_ || writer->thrown_) return -1;
    try {
        writer->sink_({static_cast<const char*>(buffer), size});
    } catch (...) {
        writer->thrown_ = std::current_exception();
        return -1;
    }
    return static_cast<long>(size);
}

void ArchiveWriter::Check(long result) {
    if (thrown_) std::rethrow_exception(thrown_);
    if (result >= ARCHIVE_OK) return;
    const char* reason = ::archive_error_string(archive_.get());
    throw Error(Code::kIo, std::string("cannot write the backup: ") + (reason == nullptr ? "" : reason));
}

void ArchiveWriter::Write(std::string_view piece) {
    while (!piece.empty()) {
        const long written = ::archive_write_data(archive_.get(), piece.data(), piece.size());
        Check(written);
        if (written == 0) throw Error(Code::kIo, "cannot write the backup: a file has grown meanwhile");
        piece.remove_prefix(static_cast<std::size_t>(written));
    }
}

void ArchiveWriter::Add(const std::string& name, std::uint64_t size, const Source& content) {
    const Entry entry(::archive_entry_new());
    openssl::Must(entry != nullptr);
    ::archive_entry_copy_pathname(entry.get(), name.c_str());
    ::archive_entry_set_filetype(entry.get(), AE_IFREG);
    ::archive_entry_set_perm(entry.get(), kFileMode);
    ::archive_entry_set_size(entry.get(), static_cast<la_int64_t>(size));
    ::archive_entry_set_mtime(entry.get(), std::time(nullptr), 0);
    Check(::archive_write_header(archive_.get(), entry.get()));
    std::uint64_t done = 0;
    for (std::string piece = content(); !piece.empty(); piece = content()) {
        done += piece.size();
        Write(piece);
    }
    if (done != size) throw Error(Code::kIo, "cannot write the backup: " + name + " has changed meanwhile");
    Check(::archive_write_finish_entry(archive_.get()));
}

void ArchiveWriter::Add(const std::string& name, const std::string& content) {
    std::string rest = content;
    Add(name, content.size(), [&rest] { return std::exchange(rest, ""); });
}

void ArchiveWriter::Finish() { Check(::archive_write_close(archive_.get())); }

ArchiveReader::ArchiveReader(Source source) : source_(std::move(source)), archive_(::archive_read_new()) {
    openssl::Must(archive_ != nullptr);
    Check(::archive_read_support_format_tar(archive_.get()));
    Check(::archive_read_open(archive_.get(), this, nullptr, &ArchiveReader::Give, nullptr));
}

long ArchiveReader::Give(archive*, void* self, const void** buffer) {
    auto* reader = static_cast<ArchiveReader*>(self);
    if (reader->thrown_) return -1;
    try {
        reader->piece_ = reader->source_();
    } catch (...) {
        reader->thrown_ = std::current_exception();
        return -1;
    }
    *buffer = reader->piece_.data();
    return static_cast<long>(reader->piece_.size());
}

void ArchiveReader::Check(long result) {
    if (thrown_) std::rethrow_exception(thrown_);
    if (result >= ARCHIVE_OK) return;
    const char* reason = ::archive_error_string(archive_.get());
    Refuse(std::string("it is no archive, or damaged: ") + Printable(reason == nullptr ? "" : reason));
}

std::optional<ArchiveReader::Entry> ArchiveReader::Next() {
    archive_entry* entry = nullptr;
    const int result = ::archive_read_next_header(archive_.get(), &entry);
    Check(result);
    if (result == ARCHIVE_EOF) {
        // What stands behind the last file has to be proved, too.
        while (!source_().empty()) continue;
        return std::nullopt;
    }
    const char* name = ::archive_entry_pathname(entry);
    if (name == nullptr) Refuse("a name in it cannot be read");
    const std::string named = "\"" + Printable(name) + "\" in it ";
    if (::archive_entry_filetype(entry) != AE_IFREG || ::archive_entry_hardlink(entry) != nullptr ||
        ::archive_entry_symlink(entry) != nullptr) {
        Refuse(named + "is no file");
    }
    if (::archive_entry_size_is_set(entry) == 0 || ::archive_entry_size(entry) < 0 ||
        ::archive_entry_sparse_count(entry) > 0) {
        Refuse(named + "has no plain size");
    }
    return Entry{name, static_cast<std::uint64_t>(::archive_entry_size(entry))};
}

void ArchiveReader::Read(const Sink& sink) {
    std::array<char, 16384> buffer{};
    for (;;) {
        const long got = ::archive_read_data(archive_.get(), buffer.data(), buffer.size());
        Check(got);
        if (got == 0) return;
        sink({buffer.data(), static_cast<std::size_t>(got)});
    }
}

}  // namespace zelvek::moving
