#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace zelvek {

class Connection;
class StatementUse;

/// A text as the store keeps it: UTF-8 (RFC 3629) without zero bytes. Every byte that belongs to no such
/// character becomes U+FFFD.
std::string StoredText(const std::string& text);

/// One use of a prepared statement: first the values for its places in their order, then the variables for
/// its columns in their order, then `Next` or `Run`. For the files of this folder alone. Errors: Error of
/// code kInternal; its sentence holds neither the statement nor a value, which may be a key.
class Statement {
public:
    Statement(Connection& connection, const std::string& sql);
    ~Statement();
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    /// The engine gets `StoredText(value)`.
    Statement& With(const std::string& value);
    Statement& With(long long value);
    Statement& With(int value) { return With(static_cast<long long>(value)); }
    Statement& With(bool value) { return With(value ? 1LL : 0LL); }
    Statement& With(const char* value) { return With(std::string(value)); }

    /// NULL for nothing.
    Statement& WithOptional(const std::optional<std::string>& value);

    /// `Next` writes each row into the same variables; after the last row they keep what they have.
    Statement& Into(std::string& column);
    Statement& Into(long long& column);
    Statement& Into(int& column);
    Statement& Into(bool& column);
    Statement& IntoOptional(std::optional<std::string>& column);

    /// Fetches the next row; false after the last one.
    bool Next();

    /// The first column of every row.
    std::vector<int> Numbers();

    /// For statements without columns: carries it out and returns how many rows it has changed.
    long long Run();

private:
    std::unique_ptr<StatementUse> use_;
};

}  // namespace zelvek
