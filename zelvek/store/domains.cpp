#include "zelvek/store/domains.h"

#include "vek/str.h"
#include "zelvek/base/error.h"

namespace zelvek::domains {

namespace {

std::vector<Domain> Read(Statement& select) {
    std::vector<Domain> found;
    Domain domain;
    select.Into(domain.id).Into(domain.name).Into(domain.ascii).Into(domain.user_name);
    while (select.Next()) found.push_back(domain);
    return found;
}

}  // namespace

void Add(Transaction& transaction, const Domain& domain) {
    Statement insert = transaction.Prepare(
        "INSERT INTO domain (name, ascii, parent, user_name) VALUES (:name, :ascii, :parent, :user)"
        " ON CONFLICT DO NOTHING");
    std::string parent = domain.ascii;
    str::GetWord(parent, '.');
    if (insert.With(domain.name).With(domain.ascii).With(parent).With(domain.user_name).Run() == 0) {
        throw Error(Code::kExists, "domain", domain.name,
                    "the domain \"" + domain.name + "\" is there already");
    }
}

void Remove(Transaction& transaction, int id) {
    transaction.Prepare("DELETE FROM domain WHERE id = :id").With(id).Run();
}

std::optional<Domain> Find(Transaction& transaction, const std::string& ascii) {
    Statement select =
        transaction.Prepare("SELECT id, name, ascii, user_name FROM domain WHERE ascii = :ascii");
    const std::vector<Domain> found = Read(select.With(ascii));
    return found.empty() ? std::nullopt : std::optional(found.front());
}

std::optional<Domain> Holding(Transaction& transaction, const std::string& name) {
    for (std::string above = name; !above.empty(); str::GetWord(above, '.')) {
        if (auto found = Find(transaction, above)) return found;
    }
    return std::nullopt;
}

std::optional<Domain> OfAnotherBelow(Transaction& transaction, const std::string& parent,
                                     const std::string& user) {
    Statement select = transaction.Prepare(
        "SELECT id, name, ascii, user_name FROM domain"
        " WHERE parent = :parent AND (user_name < :less OR user_name > :more) LIMIT 1");
    const std::vector<Domain> found = Read(select.With(parent).With(user).With(user));
    return found.empty() ? std::nullopt : std::optional(found.front());
}

std::vector<Domain> Of(Transaction& transaction, const std::string& user) {
    Statement select = transaction.Prepare(
        "SELECT id, name, ascii, user_name FROM domain WHERE user_name = :user ORDER BY id");
    return Read(select.With(user));
}

std::vector<Domain> List(Transaction& transaction, int after, int limit) {
    Statement select = transaction.Prepare(
        "SELECT id, name, ascii, user_name FROM domain WHERE id > :after ORDER BY id LIMIT :most");
    return Read(select.With(after).With(limit));
}

}  // namespace zelvek::domains
