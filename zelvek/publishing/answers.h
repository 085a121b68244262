#pragma once

#include <filesystem>
#include <string>

/// The http-01 answer files, one per token, in a directory that a web server serves under
/// /.well-known/acme-challenge/.
namespace zelvek::answers {

/// Whether a text may become a file name here: 1 to 255 characters of `[A-Za-z0-9_-]` (RFC 8555 section 8.3),
/// so no path.
bool IsToken(const std::string& token);

/// Writes the file so that a reader sees either nothing or the whole content; mode 0644.
/// Errors: Error of code kValue (not a token), kIo.
void Create(const std::filesystem::path& directory, const std::string& token, const std::string& content);

/// Removes the file; one that is not there is no error. Errors: as `Create`.
void Remove(const std::filesystem::path& directory, const std::string& token);

}  // namespace zelvek::answers
