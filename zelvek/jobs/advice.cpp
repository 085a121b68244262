#include "zelvek/jobs/advice.h"

#include <algorithm>
#include <array>

#include "zelvek/jobs/authority_answer.h"

namespace zelvek {

namespace {

constexpr const char* kNothing = "nobody has to do anything";
constexpr const char* kServe =
    "see that %s points to this server alone, and that its web server shows what lies below "
    "/.well-known/acme-challenge/";
constexpr const char* kServeRecords =
    "see that all name servers of its zone show the TXT record _acme-challenge below it";

constexpr const char* kApart =
    "orders are placed about a day apart, since an authority limits the certificates of a name";
constexpr const char* kFinishesLater =
    "where it finishes orders later, use the program that waits for that: see docs/authorities.md; orders "
    "are "
    "placed about a day apart, since an authority limits the certificates of a name";

struct Row {
    const char* key;
    const char* problem;
    const char* remedy;
};

// RFC 8555 section 6.7.
constexpr std::array kTypes{
    Row{"accountDoesNotExist", "The authority does not know the job's account",
        "nobody has to do anything: after some more tries the service registers a new one"},
    Row{"alreadyRevoked", "The authority has revoked this certificate already", kNothing},
    Row{"badCSR", "The authority does not take the certificate's request",
        "look at the job's names and at the kind of its key (\"--csr\"), and add the job anew with others"},
    Row{"badNonce", "The authority did not know a request's nonce", kNothing},
    Row{"badPublicKey", "The authority does not take the account's key",
        "ask the authority which keys it takes"},
    Row{"badRevocationReason", "The authority does not take the reason of a revocation",
        "ask the authority which reasons it takes"},
    Row{"badSignatureAlgorithm", "The authority does not take signatures of the kind RS256",
        "ask the authority which kinds it takes: this service has no other"},
    Row{"caa", "The CAA records of %s forbid this authority to issue",
        "add a CAA record for the authority, or remove those that are there"},
    Row{"compound", "The authority has refused several things at once", "mend what its words name"},
    Row{"connection", "The authority could not connect to the server of %s",
        "see that %s points to this server, and that no firewall keeps others from its port 80"},
    Row{"dns", "The authority could not look up %s in the DNS",
        "see that the name has its records, and that all name servers of its zone answer"},
    Row{"externalAccountRequired",
        "The authority takes accounts alone that are bound to a customer's account with its operator",
        "this service has no such accounts: ask the operator for another way, or use another authority"},
    Row{"incorrectResponse", "The authority found another answer than this server's at %s", kServe},
    Row{"invalidContact", "The authority does not take the account's address for messages",
        "ask the authority which addresses it takes"},
    Row{"malformed", "The authority could not make sense of a request",
        "look at its words: where they name one of the job's names, add the job anew without it"},
    Row{"orderNotReady", "The order was finalized before it was ready",
        "nobody has to do anything: the next run places a new one"},
    Row{"rateLimited", "The authority asks for patience, since it was asked for too much of late",
        "nobody has to do anything; fewer names and fewer tries help"},
    Row{"rejectedIdentifier", "The authority issues no certificate for %s",
        "add the job anew without that name, or ask the authority why"},
    Row{"serverInternal", "The authority has trouble of its own",
        "nobody has to do anything; where that lasts, look at what its operator says"},
    Row{"tls", "The authority met a TLS server that it could not talk to when it checked %s",
        "see where %s sends visitors of port 80, and that it sends those of /.well-known/acme-challenge/ "
        "nowhere"},
    Row{"unauthorized", "The authority did not find this server's answer at %s", kServe},
    Row{"unsupportedContact", "The authority cannot use the account's address for messages",
        "ask the authority which addresses it takes"},
    Row{"unsupportedIdentifier", "The authority issues no certificates for names such as %s",
        "add the job anew without that name"},
    Row{"userActionRequired", "The authority wants a person to do something before it goes on",
        "do what its words say, such as agreeing to new terms"}};

// By a run's events, where the problem's type is not known.
constexpr std::array kEvents{
    Row{"challenge_fail", "The authority could not check %s", kServe},
    Row{"challenge_req_attempt", "The authority says that %s is not proved, and does not say why", kServe},
    Row{"cert_order_fail", "The authority refused to issue the certificate",
        "look at its words: the next run places a new order"},
    Row{"order_failed", "The authority refused the order",
        "look at its words, and add the job anew without a name that it does not take"},
    Row{"registration_fail", "The authority refused to register an account", "do what its words say"},
    Row{"authorization_fail", "The authority refused to say how %s is to be proved",
        "look at its words: the next run places a new order"},
    Row{"acme_request_error", "The authority refused a request", "look at its words"},
    Row{"http_query_error", "The authority could not be reached",
        "see that this server reaches it: network, name servers, trusted roots"},
    Row{"timeout_error", "The job had no certificate a day after its start",
        "see in its history what kept it from one"},
    Row{"hardreplace_error", "The certificate was issued, but could not be installed",
        "mend what is told there"},
    Row{"panel_error", "The service could not do what the run asked for", "mend what is told there"}};

// Of orders that were finalized, by the last event.
constexpr std::array kUnfetched{
    Row{"cert_order_req_attempt", "The authority took the order, and did not give its certificate",
        kFinishesLater},
    Row{"cert_order_fail", "The authority refused to issue the certificate, or to say what becomes of it",
        kFinishesLater}};
constexpr Row kNotGivenOut{"", "The authority has issued the certificate, and did not give it out", kApart};

constexpr Row kUnknown{"", "The last run failed", "look at the job's history"};

template <class Rows>
const Row* Find(const Rows& rows, const std::string& key) {
    const auto row = std::find_if(rows.begin(), rows.end(), [&](const Row& each) { return key == each.key; });
    return row == rows.end() ? nullptr : &*row;
}

/// What a status alone says of any request (RFC 8555 section 6.6; RFC 9110 section 15.6).
std::string TypeOfStatus(int code) {
    if (code == kTooManyRequests) return "rateLimited";
    return IsServerError(code) ? "serverInternal" : "";
}

/// A finalization of which the authority says what it does not take.
bool IsRefusedForItself(const Ending& ending) {
    const bool of_its_state =
        ending.type.empty() || ending.type == "orderNotReady" || ending.type == "malformed";
    return ending.event == "cert_order_fail" && !of_its_state;
}

bool IsOfACheck(const std::string& event) { return event.starts_with("challenge_"); }

}  // namespace

bool IsProblemType(const std::string& type) { return Find(kTypes, type) != nullptr; }

Advice AdviceFor(const Ending& ending) {
    if (ending.unfetched && !IsRefusedForItself(ending)) {
        const Row* row = Find(kUnfetched, ending.event);
        if (row == nullptr) row = &kNotGivenOut;
        return {row->problem, row->remedy};
    }
    // Of an account or an order it says something else than of a name.
    const bool elsewhere = ending.type == "unauthorized" && !IsOfACheck(ending.event);
    const Row* row = elsewhere ? nullptr : Find(kTypes, ending.type);
    if (row == nullptr) row = Find(kTypes, TypeOfStatus(ending.code));
    if (row == nullptr) row = Find(kEvents, ending.event);
    if (row == nullptr) row = &kUnknown;
    const bool records = ending.check_type == "dns" && row->remedy == kServe;
    return {row->problem, records ? kServeRecords : row->remedy};
}

}  // namespace zelvek
