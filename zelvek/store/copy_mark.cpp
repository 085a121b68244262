#include "zelvek/store/copy_mark.h"

#include "zelvek/base/error.h"
#include "zelvek/store/statement.h"

namespace zelvek::copy_mark {

namespace {

constexpr const char* kSelect = "SELECT value FROM setting WHERE name = :name";

}  // namespace

std::string Of(Connection& connection) {
    std::string source;
    Statement(connection, kSelect).With(kName).Into(source).Next();
    return source;
}

void Set(Connection& connection, const std::string& source) {
    Statement(connection, "INSERT INTO setting (name, value) VALUES (:name, :value)")
        .With(kName)
        .With(source)
        .Run();
}

void Remove(Connection& connection) {
    Statement(connection, "DELETE FROM setting WHERE name = :name").With(kName).Run();
}

void CheckIsNone(Store& store) {
    Transaction transaction(store);
    std::string source;
    if (!transaction.Prepare(kSelect).With(kName).Into(source).Next()) return;
    throw Error(Code::kIo, "the database is being copied from " + source +
                               ": \"zelvek store copy\" has not come to its end; once more, it goes on");
}

}  // namespace zelvek::copy_mark
