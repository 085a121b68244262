#pragma once

#include <filesystem>

/// Whole databases, as they go from one machine to another.
namespace zelvek {

/// Copies a database as it is at one moment, also while a service uses it and changes it: nobody waits for
/// anybody. `to` must not be there yet; it is one file, readable by its user alone, without bytes of what was
/// deleted. Errors: Error that names `from`: of code kMissed where it is not there, of code kLater where the
/// disk is full; of `to` nothing is left then.
void CopyDatabase(const std::filesystem::path& from, const std::filesystem::path& to);

/// What a database holds, in numbers.
struct DatabaseCounts {
    long long jobs = 0;
    long long domains = 0;
    long long accounts = 0;

    /// Whether nothing of anybody's is in it: a service has been started with it, and no more.
    bool Unused() const { return jobs == 0 && domains == 0 && accounts == 0; }
};

/// Of a database that a service may be using. It stays as it is. Errors: Error that names the file.
DatabaseCounts CountsOf(const std::filesystem::path& file);

/// Makes a copied database, which no service uses, one of this machine and this program: its structure is
/// whole, its version the newest. Processes of the machine where it was belong to nobody here: jobs that were
/// running are free as soon as a service looks at them, requests of runs are forgotten, and answer files that
/// are still wanted are made again. Errors: Error that names the file; a damaged database is one, and one of
/// a newer version.
void AdoptDatabase(const std::filesystem::path& file);

}  // namespace zelvek
