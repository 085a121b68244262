#include "zelvek/store/accounts.h"

#include "zelvek/base/authority.h"

namespace zelvek::accounts {

namespace {

struct Kept {
    long long id = 0;  // 0: none
    Account account;
};

Kept OfJob(Transaction& transaction, int job) {
    Kept kept;
    Statement select = transaction.Prepare(
        "SELECT account.id, kid, acmekey, modulus FROM job JOIN account ON account.id = job.account WHERE "
        "job.id = :job");
    Account& account = kept.account;
    select.With(job).Into(kept.id).Into(account.kid).Into(account.acmekey).Into(account.modulus).Next();
    return kept;
}

/// Empty where there is no such job.
std::string AuthorityOfJob(Transaction& transaction, int job) {
    std::string authority;
    transaction.Prepare("SELECT authority FROM job WHERE id = :job").With(job).Into(authority).Next();
    return authority;
}

/// Its entry, made where there is none yet.
long long Keep(Transaction& transaction, const std::string& authority, const Account& account) {
    long long id = 0;
    {
        Statement select = transaction.Prepare(
            "SELECT id FROM account WHERE kid = :kid AND modulus = :modulus AND acmekey = :acmekey"
            " AND authority = :authority");
        select.With(account.kid).With(account.modulus).With(account.acmekey).With(authority);
        if (select.Into(id).Next()) return id;
    }
    Statement insert = transaction.Prepare(
        "INSERT INTO account (kid, acmekey, modulus, authority) VALUES (:kid, :acmekey, :modulus, :authority)"
        " RETURNING id");
    insert.With(account.kid).With(account.acmekey).With(account.modulus).With(authority).Into(id).Next();
    return id;
}

/// The setting with the id of an authority's panel-wide account. Older versions had the first one's alone.
std::string SettingOf(const std::string& authority) {
    const std::string setting = "default_account";
    return authority == authorities::kFirst ? setting : setting + " " + authority;
}

/// The id of an authority's panel-wide account as the settings hold it; empty for none.
std::string DefaultId(Transaction& transaction, const std::string& authority) {
    std::string id;
    Statement select = transaction.Prepare("SELECT value FROM setting WHERE name = :name");
    select.With(SettingOf(authority)).Into(id).Next();
    return id;
}

std::string AuthorityOf(Transaction& transaction, long long id) {
    std::string authority;
    transaction.Prepare("SELECT authority FROM account WHERE id = :id").With(id).Into(authority).Next();
    return authority;
}

void RemoveUnlessUsed(Transaction& transaction, long long id) {
    if (id == 0 || DefaultId(transaction, AuthorityOf(transaction, id)) == std::to_string(id)) return;
    const long long removed =
        transaction
            .Prepare(
                "DELETE FROM account WHERE id = :id AND NOT EXISTS (SELECT 1 FROM job WHERE job.account = "
                "account.id)")
            .With(id)
            .Run();
    if (removed > 0) transaction.NoteDeletedKey();
}

}  // namespace

void SetOfJob(Transaction& transaction, int job, const Account& account) {
    const Kept before = OfJob(transaction, job);
    if (before.account == account) return;
    if (account == Account{}) {
        transaction.Prepare("UPDATE job SET account = NULL WHERE id = :job").With(job).Run();
    } else {
        const long long id = Keep(transaction, AuthorityOfJob(transaction, job), account);
        transaction.Prepare("UPDATE job SET account = :account WHERE id = :job").With(id).With(job).Run();
    }
    RemoveUnlessUsed(transaction, before.id);
}

Account Default(Transaction& transaction, const std::string& authority) {
    Account account;
    Statement select = transaction.Prepare(
        "SELECT kid, acmekey, modulus FROM setting JOIN account ON account.id = CAST (setting.value AS "
        "INTEGER)"
        " WHERE setting.name = :name");
    select.With(SettingOf(authority));
    select.Into(account.kid).Into(account.acmekey).Into(account.modulus).Next();
    return account;
}

void MakeDefault(Transaction& transaction, int job) {
    const std::string authority = AuthorityOfJob(transaction, job);
    const std::string before = DefaultId(transaction, authority);
    const Kept kept = OfJob(transaction, job);
    transaction
        .Prepare(
            "INSERT INTO setting (name, value) VALUES (:name, :id)"
            " ON CONFLICT (name) DO UPDATE SET value = excluded.value")
        .With(SettingOf(authority))
        .With(std::to_string(kept.id))
        .Run();
    if (!before.empty()) RemoveUnlessUsed(transaction, std::stoll(before));
}

}  // namespace zelvek::accounts
