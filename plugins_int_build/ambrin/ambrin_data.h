#pragma once

#include <cstdint>
#include <string>

#include "vek/client.h"

/// One certificate job as the panel keeps it. Nothing else of a run is kept for the next one. Members bear
/// the names of their panel keys; a flag is "on" or "off" there.
class AmbrinData {
public:
    AmbrinData() = default;

    /// Writes the record back, whatever the run did. A write-back that fails ends the process abnormally: the
    /// panel must not take a lost record for a finished run.
    ~AmbrinData();

    AmbrinData(const AmbrinData&) = delete;
    AmbrinData& operator=(const AmbrinData&) = delete;

    /// Loads the job. Errors: vek_err::Error of the panel query; of the members only `elid` is set then.
    void Init(int id);

    /// Appends "<date and time>,<state>,<event>,<detail>" to this run's log entries, which ";" separates. The
    /// panel matches states and events as they stand.
    void WriteLog(const std::string& state, const std::string& event, const std::string& detail);

    /// Sends the record back with "processing" off. What the panel owns (names, owner, start time, ...) is
    /// not sent. Errors: vek_err::Error of the panel query.
    void Post();

    std::int32_t elid = 0;
    std::int32_t attempt_count = 0;        // runs that got past the time-out check
    std::int32_t account_check_count = 0;  // account checks that failed in a row
    std::string certname;
    std::string kid;             // account URL (key id) of the account in use
    std::string aliases;         // all names to certify, blank-separated
    std::string finalize_check;  // URL of the current order
    std::string challenges;      // JSON array of the current order's authorizations that were not valid yet
    std::string check_type;      // "dns" for dns-01; anything else means http-01
    std::string domain;          // main domain name
    std::string finalize;        // finalize URL of the current order
    std::string modulus;         // JSON text of the JWS header with the account's public key
    std::string acmekey;         // account private key, PEM
    std::string csr_internal_request;  // further parameters of the panel's CSR form, in query form
    std::string time_started;          // date and time, UTC; owned by the panel
    std::string next_attempt;          // date and time, UTC
    bool verified = false;             // issued and installed
    bool failed = false;               // stopped for good
    bool force_update = false;         // forced renewal requested
    std::string user_name;
    std::string res_name;  // optional further addressee of problems
    bool skip_account_check = false;
    std::string default_kid;  // the panel-wide default account
    std::string default_pem;
    std::int32_t max_account_check_attempts = 0;
    bool update_default_account = false;  // tells the panel to keep this account as its default

    vek_client::Local client{"zelvek", "ambrin"};
    std::string log;  // this run's entries only
};

/// The job of this run: built before `zelmain`, written back and destroyed after it.
extern AmbrinData ambrin_data;
