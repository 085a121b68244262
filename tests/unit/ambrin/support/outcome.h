#pragma once

#include <initializer_list>

#include "support/issuance.h"

/// What a run consists of, piece by piece, and what it changes: for the tests that know every outcome whole.
namespace ambrin_test {

using Lines = std::vector<std::string>;
using Changed = std::map<std::string, std::string>;

inline Lines Join(std::initializer_list<Lines> parts) {
    Lines joined;
    for (const Lines& part : parts) joined.insert(joined.end(), part.begin(), part.end());
    return joined;
}

inline const std::string kRefusal = R"({"status":403,"detail":"no"})";
inline const std::string kRefusalText = "<p><b>Return code:</b> 403</p></br><p><b>Details:</b> no</p>";
inline const std::string kReadJob = "panel func=ambrin.data.edit&elid=7&out=xml";
inline const std::string kFirstRecord = "_acme-challenge.shop.example.";
inline const std::string kSecondRecord = "_acme-challenge.www.shop.example.";

inline const Lines kBegin{
    kReadJob,
    "panel func=sslcert.csr.edit&domain=shop.example%20www.shop.example&su=ann&keysize=2048",
    "panel func=sslcert.csr.edit&out=xml&elid=shop.example",
    "panel func=sslcert.csr.delete&elid=shop.example",
    "GET " + kDirectoryUrl,
};
inline const Lines kStoredAccount{"nonce", "POST " + kStoredKid + " null"};
inline const Lines kDefaultAccount{"child " + kKeyDumpCommand, "nonce", "POST " + kDefaultKid + " null"};
inline const Lines kNewAccountMade{"child " + kKeyDumpCommand, "nonce",
                                   "POST " + kNewAccount + " {\"termsOfServiceAgreed\":true}"};
inline const Lines kOrder{"nonce", "POST " + kNewOrder +
                                       R"( {"identifiers":[{"type":"dns","value":"shop.example"},)"
                                       R"({"type":"dns","value":"www.shop.example"}]})"};
inline const Lines kAuthorizations{"nonce", "POST https://ca.test/authz/1 -", "nonce",
                                   "POST https://ca.test/authz/2 -"};
inline const Lines kThumbprint{"child " + kDigestCommand};
inline const Lines kTwoContents{"child " + kDigestCommand, "child " + kDigestCommand};
inline const Lines kFinalization{"child " + kDerCommand, "nonce",
                                 "POST " + kFinalizeUrl + R"( {"csr":"REVSIG9mIENTUg"})"};
inline const Lines kDownload{"nonce", "POST " + kCertificateUrl + " -"};
inline const Lines kInstallation{
    "panel "
    "func=sslcert.hardreplace&cacrt=ROOT&elid=ann%25%23%25shop.example&user=ann&crt=LEAF%0A%0AISSUER&key="
    "KEY&sok=ok"};

inline const Lines kOrderLog{"processing,order_success,"};
inline const Lines kAuthorizationLog{"processing,authorization_try,", "processing,authorization_success,"};
inline const Lines kPublicationLog{"processing,challenge_start,", "processing,challenge_created,"};
inline const Lines kAnswerLog{"processing,challenge_success,", "processing,challenge_success,"};
inline const Lines kFinalizationLog{"processing,cert_order_success,"};

/// A whole run, and what it did.
class Outcome : public IssuanceTest {
protected:
    static Lines Answers(const std::string& type, const std::string& payload) {
        return {"nonce", "POST https://ca.test/" + type + "/1 " + payload, "nonce",
                "POST https://ca.test/" + type + "/2 " + payload};
    }

    static Lines Files(const std::string& action) {
        Lines queries;
        for (const std::string token : {"http1", "http2"})
            queries.push_back("panel func=ambrin_challenge&action=" + action +
                              "&user_name=ann&file_name=" + token + "&content=" + KeyAuthz(token));
        return queries;
    }

    static std::string Content(const std::string& token) { return FakeDigestText(KeyAuthz(token)); }

    static Lines RecordsMade() {
        const auto query = [](const std::string& name, const std::string& token) {
            return "panel sok=ok&rtype=txt&func=domain.record.edit&name=" + name +
                   "&plid=shop.example&su=ann&value=" + Content(token);
        };
        return {"panel func=domain&su=ann", query(kFirstRecord, "dns1"), "panel func=domain&su=ann",
                query(kSecondRecord, "dns2")};
    }

    static Lines RecordsRemoved() {
        const auto query = [](const std::string& name, const std::string& token) {
            return "panel sok=ok&rtype=txt&elid=" + name + "%20TXT%20%20" + Content(token) +
                   "&func=domain.record.delete&plid=shop.example&su=ann&value=" + Content(token);
        };
        return {"panel func=domain&su=ann", query(kFirstRecord, "dns1"), "panel func=domain&su=ann",
                query(kSecondRecord, "dns2")};
    }

    static Lines RecordsLookedUp() {
        return {"child " + kDigCommand + "'TXT' '" + kFirstRecord + "'",
                "child " + kDigCommand + "'TXT' '" + kSecondRecord + "'"};
    }

    /// The notifications of the owner, who sorts first, and of the administrator.
    static Lines Told(const std::string& level, const std::string& user_problem,
                      const std::string& admin_problem, const std::string& parameters) {
        const std::string query = "panel func=problems.register&sok=ok&id=000000000000000";
        return {query + "1&level=" + level + "&name=" + user_problem + "&owner=ann&" + parameters,
                query + "2&level=" + level + "&name=" + admin_problem + "&" + parameters};
    }

    static Lines ToldOfTheEnd(const std::string& error) {
        return Told("error", "ambrin_failed_user", "ambrin_failed_admin",
                    "param_error=" + error + "&param_name=shop.example");
    }

    static Lines ToldOfSuccess() {
        return Told("message", "ambrin_success", "ambrin_success", "param_name=shop.example");
    }

    Lines Failures() const {
        Lines failures;
        for (const std::string& line : LogLines())
            if (!line.starts_with("9 ") && !line.starts_with("8 ")) failures.push_back(line);
        return failures;
    }

    /// The values of the write-back that differ from what the run has read.
    Changed Changes() {
        const Changed unset{{"attempt_count", "0"}, {"account_check_count", "0"},     {"verified", "off"},
                            {"failed", "off"},      {"force_update", "off"},          {"processing", "off"},
                            {"elid", "7"},          {"update_default_account", "off"}};
        Changed changes;
        for (const auto& [key, value] : EndOfProcess()) {
            if (key == "func" || key == "sok" || key == "log") continue;
            const std::string before = job.contains(key)     ? job.at(key)
                                       : unset.contains(key) ? unset.at(key)
                                                             : "";
            if (value != before) changes[key] = value;
        }
        return changes;
    }

    /// These changes, and those of a first run that has taken the default account.
    static Changed AndTheDefaultAccount(Changed changes) {
        changes.insert({{"account_check_count", "0"},
                        {"kid", kDefaultKid},
                        {"acmekey", vek_double::FakePem("default")},
                        {"modulus", FakeHeader(vek_double::FakePem("default"))}});
        return changes;
    }

    static Changed AndTheOrder(Changed changes) {
        changes.insert({{"finalize", kFinalizeUrl}, {"finalize_check", "https://ca.test/order/1"}});
        return changes;
    }

    std::string StoredAuthorizations() const {
        return "[" + AuthorizationText(1) + "," + AuthorizationText(2) + "]\n";
    }
};

}  // namespace ambrin_test
