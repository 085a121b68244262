#pragma once

#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <string>

#include "zelvek/moving/bytes.h"

struct archive;
struct archive_entry;

/// Files with names in one stream, which tar(1) reads, too.
namespace zelvek::moving {

struct FreeArchive {
    void operator()(archive* object) const;
};

class ArchiveWriter {
public:
    explicit ArchiveWriter(Sink sink);
    ~ArchiveWriter();
    ArchiveWriter(const ArchiveWriter&) = delete;
    ArchiveWriter& operator=(const ArchiveWriter&) = delete;

    /// A file of just so many bytes, which `content` gives. Errors: Error of code kIo, and what sink and
    /// content throw.
    void Add(const std::string& name, std::uint64_t size, const Source& content);
    void Add(const std::string& name, const std::string& content);

    void Finish();

private:
    static long Take(archive* writer, void* self, const void* buffer, std::size_t size);
    void Check(long result);
    void Write(std::string_view piece);

    Sink sink_;
    std::exception_ptr thrown_;  // by the sink: exceptions do not pass through the library
    bool over_ = false;
    std::unique_ptr<archive, FreeArchive> archive_;  // goes first: it may have something to write
};

/// Reads what anybody may have made: files with a size alone, no links, no folders, no holes.
class ArchiveReader {
public:
    explicit ArchiveReader(Source source);
    ArchiveReader(const ArchiveReader&) = delete;
    ArchiveReader& operator=(const ArchiveReader&) = delete;

    struct Entry {
        std::string name;  // whatever stands there
        std::uint64_t size = 0;
    };

    /// The next file; nothing at the end, when the source has been read to its end, too. Errors: Error of
    /// code kValue for something else than such an archive, and what the source throws.
    std::optional<Entry> Next();

    /// The content of the file that `Next` has given, once.
    void Read(const Sink& sink);

private:
    static long Give(archive* reader, void* self, const void** buffer);
    void Check(long result);

    Source source_;
    std::string piece_;
    std::exception_ptr thrown_;  // by the source
    std::unique_ptr<archive, FreeArchive> archive_;
};

}  // namespace zelvek::moving
