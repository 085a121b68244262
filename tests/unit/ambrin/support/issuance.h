#pragma once

#include "support/job_test.h"

namespace ambrin_test {

inline const std::string kDirectoryUrl = AMBRIN_DIRECTORY_URL;
inline const std::string kOrderUrl = kCa + "order/1";
inline const std::string kFinalizeUrl = kCa + "finalize/1";
inline const std::string kCertificateUrl = kCa + "cert/1";
inline const std::string kHardReplace = "func=sslcert.hardreplace&*";
inline const std::string kProblem = "func=problems.register&sok=ok&*";

/// A whole run against a panel, tools and an authority that agree to everything. The job: "shop.example" and
/// "www.shop.example" of user "ann", http, no account of its own but a default one, first run. A test changes
/// the job's values or tells another standing answer, then runs.
class IssuanceTest : public JobTest {
protected:
    IssuanceTest();

    /// `zelmain` with this argument.
    int Run(const std::string& argument = "7");

    /// The job as the run before this one has left it: authorizations stored, second attempt.
    void MakeSecondRun();

    /// What must be published for a challenge: its key authorization by the default account, or that one's
    /// digest.
    static std::string KeyAuthz(const std::string& token);

    /// One object of the authority's: an answer to every POST to its address.
    void Object(const std::string& url, int status, const std::string& body, const std::string& head = "");

    /// The problems raised, as "owner: name level=... key=value ..." without their ids.
    std::vector<std::string> ProblemsRaised() const;

    std::map<std::string, std::string> job;
    std::vector<std::string> visible_records;  // names whose TXT record the resolvers show
    int refused_nonces = 0;                    // of each request to an object of the authority's

private:
    void AnswerPanel();
    void AnswerAuthority();
    void AnswerAuthorization(int number);
    void AnswerTools();
    void AnswerLookUps(const std::string& domain, const std::string& content);

    int refused_ = 0;  // of the request that is under way
};

/// The authorizations that the authority gives for the two names.
std::string AuthorizationText(int number);

}  // namespace ambrin_test
