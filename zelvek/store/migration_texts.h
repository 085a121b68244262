#pragma once

/// The texts of `Migrations`, several in each file. None is changed once it was released.
namespace zelvek::migrations {

// migrations_records.cpp
extern const char* const kPanelRecords;
extern const char* const kProcesses;
extern const char* const kAccountsAndIndexes;
extern const char* const kPublicationsOfRuns;
extern const char* const kReloads;
extern const char* const kFolders;

// migrations_times.cpp
extern const char* const kClock;
extern const char* const kAnsweredQueries;
extern const char* const kRenewals;
extern const char* const kRetries;
extern const char* const kParents;
extern const char* const kAuthorityUse;
extern const char* const kSettling;
extern const char* const kRenewalInfo;
extern const char* const kProblemStates;
extern const char* const kNoticesOfEnds;
extern const char* const kDeliveries;

// migrations_lists.cpp
extern const char* const kAttention;
extern const char* const kCounts;
extern const char* const kServed;
extern const char* const kExaminations;
extern const char* const kSiteChecks;
extern const char* const kAuthorities;

}  // namespace zelvek::migrations
