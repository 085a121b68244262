#pragma once

#include <gmock/gmock.h>
#include <json/json.h>

#include <map>
#include <string>
#include <vector>

#include "acme/request.h"
#include "ambrin_data.h"
#include "double/vek_double.h"

/// What the unit tests of the program share: a fresh record, a scripted world, and readable forms of what was
/// asked.
namespace ambrin_test {

inline const std::string kCa = "https://ca.test/";
inline const std::string kNewNonce = kCa + "new-nonce";
inline const std::string kNewAccount = kCa + "new-account";
inline const std::string kNewOrder = kCa + "new-order";
inline const std::string kStoredKid = kCa + "account/stored";
inline const std::string kDefaultKid = kCa + "account/default";
inline const std::string kDigestCommand = "openssl dgst -sha256 -binary";
inline const std::string kKeyDumpCommand = "openssl rsa -text -noout";
inline const std::string kDerCommand = "openssl req -outform DER";
inline const std::string kDigCommand = "dig +noall +answer @8.8.8.8 @8.8.4.4 @1.1.1.1 @1.0.0.1 @9.9.9.9 ";

/// A request's parameters as they came: percent-decoded, by name.
std::map<std::string, std::string> ParseForm(const std::string& query);

/// An answer of the panel with these values.
std::string PanelValues(const std::map<std::string, std::string>& values);

/// An answer of the authority with a JSON body.
vek_double::HttpAnswer JsonAnswer(int status, const std::string& body, const std::string& head = "");

/// The stand-in for a SHA-256 digest that a world with `AnswerDigests` gives: 32 bytes, different for each
/// input; and its base64url text.
std::string FakeDigest(const std::string& input);
std::string FakeDigestText(const std::string& input);

/// The key header that a world with `AnswerKeyDumps` gives for that key, and the text of its JWK.
std::string FakeHeader(const std::string& pem);
std::string FakeJwk(const std::string& pem);

std::string DecodeBase64Url(const std::string& text);

/// One POST taken apart.
struct SignedRequest {
    std::string url;
    std::string body;            // as sent
    std::string protected_text;  // decoded, as sent
    std::string payload;         // decoded, as sent; empty for POST-as-GET
    std::string signing_input;
    std::string signature;  // raw bytes
    Json::Value header;
};

/// Ends the record as the process's end does, which posts it, and makes a new one.
void RenewRecord();

/// Makes the record fresh before a test's world exists, so that nobody sees the old one's write-back.
struct FreshRecord {
    FreshRecord() { RenewRecord(); }
};

class JobTest : public testing::Test {
protected:
    JobTest();

    /// Standing answers of the tools and of the nonce resource ("nonce-1", "nonce-2", ...).
    void AnswerDigests();
    void AnswerKeyDumps();
    void AnswerNonces();

    /// Puts a complete account into the record.
    void StoreAccount();

    /// The record's write-back at process end, as the map that was sent.
    std::map<std::string, std::string> EndOfProcess();

    /// This run's job log without its dates: "state,event,detail".
    std::vector<std::string> JobLog() const;

    /// The log file's lines as "level text", the line number of trace lines cut off; `Traces` gives those of
    /// level 9 alone.
    std::vector<std::string> LogLines() const;
    std::vector<std::string> Traces() const;

    std::vector<SignedRequest> Requests() const;

    /// What was asked outside, in order and short: "panel <query>", "GET <url>", "nonce", "POST <url>
    /// <payload>" (payload
    /// "-" for POST-as-GET), "child <command>", "sleep <milliseconds>".
    std::vector<std::string> Story() const;

private:
    FreshRecord fresh_;

protected:
    vek_double::World world;
    QueryParams params;  // with a directory

private:
    int nonces_ = 0;
};

}  // namespace ambrin_test
