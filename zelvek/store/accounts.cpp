#include "zelvek/store/accounts.h"

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

/// Its entry, made where there is none yet.
long long Keep(Transaction& transaction, const Account& account) {
    long long id = 0;
    {
        Statement select = transaction.Prepare(
            "SELECT id FROM account WHERE kid = :kid AND modulus = :modulus AND acmekey = :acmekey");
        if (select.With(account.kid).With(account.modulus).With(account.acmekey).Into(id).Next()) return id;
    }
    Statement insert = transaction.Prepare(
        "INSERT INTO account (kid, acmekey, modulus) VALUES (:kid, :acmekey, :modulus) RETURNING id");
    insert.With(account.kid).With(account.acmekey).With(account.modulus).Into(id).Next();
    return id;
}

/// The id of the panel-wide account as the settings hold it; empty for none.
std::string DefaultId(Transaction& transaction) {
    std::string id;
    transaction.Prepare("SELECT value FROM setting WHERE name = 'default_account'").Into(id).Next();
    return id;
}

void RemoveUnlessUsed(Transaction& transaction, long long id) {
    if (id == 0 || DefaultId(transaction) == std::to_string(id)) return;
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
        const long long id = Keep(transaction, account);
        transaction.Prepare("UPDATE job SET account = :account WHERE id = :job").With(id).With(job).Run();
    }
    RemoveUnlessUsed(transaction, before.id);
}

Account Default(Transaction& transaction) {
    Account account;
    Statement select = transaction.Prepare(
        "SELECT kid, acmekey, modulus FROM setting JOIN account ON account.id = CAST (setting.value AS "
        "INTEGER)"
        " WHERE setting.name = 'default_account'");
    select.Into(account.kid).Into(account.acmekey).Into(account.modulus).Next();
    return account;
}

void MakeDefault(Transaction& transaction, int job) {
    const std::string before = DefaultId(transaction);
    const Kept kept = OfJob(transaction, job);
    transaction
        .Prepare(
            "INSERT INTO setting (name, value) VALUES ('default_account', :id)"
            " ON CONFLICT (name) DO UPDATE SET value = excluded.value")
        .With(std::to_string(kept.id))
        .Run();
    if (!before.empty()) RemoveUnlessUsed(transaction, std::stoll(before));
}

}  // namespace zelvek::accounts
