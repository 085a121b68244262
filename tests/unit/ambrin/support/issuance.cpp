#include "support/issuance.h"

#include <algorithm>

#include "vek/launcher.h"
#include "vek/str.h"

namespace ambrin_test {

namespace {

const std::string kDefaultPem = vek_double::FakePem("default");

std::string ChallengeText(const std::string& type, int number) {
    const std::string n = std::to_string(number);
    return R"({"token":")" + type + n + R"(","type":")" + type + R"(-01","url":")" + kCa + type + "/" + n +
           "\"}";
}

}  // namespace

std::string AuthorizationText(int number) {
    const std::string domain = number == 1 ? "shop.example" : "www.shop.example";
    return R"({"challenges":[)" + ChallengeText("http", number) + "," + ChallengeText("dns", number) +
           R"(],"identifier":{"type":"dns","value":")" + domain + R"("},"status":"pending"})";
}

IssuanceTest::IssuanceTest()
    : job{{"certname", "shop.example"},
          {"aliases", "shop.example www.shop.example"},
          {"domain", "shop.example"},
          {"check_type", "http"},
          {"user_name", "ann"},
          {"time_started", "2030-06-01 11:00:00"},
          {"attempt_count", "0"},
          {"account_check_count", "2"},
          {"csr_internal_request", "keysize=2048"},
          {"default_kid", kDefaultKid},
          {"default_pem", kDefaultPem}} {
    AnswerPanel();
    AnswerAuthority();
    AnswerTools();
}

void IssuanceTest::AnswerPanel() {
    world.AlwaysPanel("func=ambrin.data.edit&elid=7&out=xml",
                      [this](const std::string&) { return PanelValues(job); });
    world.AlwaysPanel("func=sslcert.csr.edit&out=xml&elid=shop.example", [](const std::string&) {
        return PanelValues({{"csr_req", "CSR"}, {"csr_pk", "KEY"}});
    });
    world.AlwaysPanel("func=domain&su=ann",
                      [](const std::string&) { return "<doc><elem><name>shop.example</name></elem></doc>"; });
    for (const std::string query :
         {"func=sslcert.csr.edit&domain=*", "func=sslcert.csr.delete&elid=shop.example",
          "func=ambrin_challenge&*", "sok=ok&rtype=txt&*", "func=problems.register&sok=ok&*",
          "func=sslcert.hardreplace&*"})
        world.AlwaysPanel(query, [](const std::string&) { return "<doc/>"; });
}

void IssuanceTest::AnswerAuthority() {
    AnswerNonces();
    world.AlwaysHttp("GET " + kDirectoryUrl, [this](const std::string&) {
        return JsonAnswer(200, params.directory.toStyledString());
    });
    for (const std::string& account : {kStoredKid, kDefaultKid, kCa + "account/new"})
        Object(account, 200, R"({"status":"valid"})");
    Object(kNewAccount, 201, R"({"status":"valid"})", "Location: " + kCa + "account/new\r\n");
    Object(kNewOrder, 201,
           R"({"authorizations":[")" + kCa + R"(authz/1",")" + kCa + R"(authz/2"],"finalize":")" +
               kFinalizeUrl + "\"}",
           "Location: " + kCa + "order/1\r\n");
    for (const int number : {1, 2}) AnswerAuthorization(number);
    Object(kFinalizeUrl, 200, R"({"status":"valid","certificate":")" + kCertificateUrl + "\"}");
    Object(kCertificateUrl, 200, "LEAF\n\nISSUER\n\nROOT\n");
}

void IssuanceTest::AnswerTools() {
    AnswerDigests();
    AnswerKeyDumps();
    world.AlwaysChild(kDerCommand, [](const std::string& pem) {
        return vek_double::ChildAnswer{"DER of " + pem, 0};
    });
    world.AlwaysChild(kDigCommand + "'NS' 'shop.example'", [](const std::string&) {
        return vek_double::ChildAnswer{
            "shop.example.\t9\tIN\tNS\tns1.example.\nshop.example.\t9\tIN\tNS\tns2.example.\n", 0};
    });
    AnswerLookUps("shop.example", FakeDigestText(KeyAuthz("dns1")));
    AnswerLookUps("www.shop.example", FakeDigestText(KeyAuthz("dns2")));
}

void IssuanceTest::AnswerAuthorization(int number) {
    const std::string n = std::to_string(number);
    Object(kCa + "authz/" + n, 200, AuthorizationText(number));
    Object(kCa + "http/" + n, 200, R"({"status":"valid"})");
    Object(kCa + "dns/" + n, 200, R"({"status":"valid"})");
}

void IssuanceTest::AnswerLookUps(const std::string& domain, const std::string& content) {
    const std::string name = "_acme-challenge." + domain + ".";
    world.AlwaysChild(kDigCommand + "'TXT' '" + name + "'", [=, this](const std::string&) {
        const bool visible =
            std::find(visible_records.begin(), visible_records.end(), name) != visible_records.end();
        return vek_double::ChildAnswer{visible ? name + "\t9\tIN\tTXT\t\"" + content + "\"\n" : "", 0};
    });
}

void IssuanceTest::Object(const std::string& url, int status, const std::string& body,
                          const std::string& head) {
    world.AlwaysHttp("POST " + url, [=, this](const std::string&) {
        if (refused_++ < refused_nonces)
            return JsonAnswer(400, R"({"type":"urn:ietf:params:acme:error:badNonce","status":400})",
                              "Replay-Nonce: further-" + std::to_string(refused_) + "\r\n");
        refused_ = 0;
        return JsonAnswer(status, body, head);
    });
}

void IssuanceTest::MakeSecondRun() {
    job["attempt_count"] = "1";
    job["kid"] = kDefaultKid;
    job["acmekey"] = kDefaultPem;
    job["modulus"] = FakeHeader(kDefaultPem);
    job["challenges"] = "[" + AuthorizationText(1) + "," + AuthorizationText(2) + "]\n";
    job["finalize"] = kFinalizeUrl;
    job["finalize_check"] = kCa + "order/1";
    job["account_check_count"] = "0";
}

std::string IssuanceTest::KeyAuthz(const std::string& token) {
    return token + "." + FakeDigestText(FakeJwk(kDefaultPem));
}

int IssuanceTest::Run(const std::string& argument) {
    std::string program = "ambrin";
    std::string id = argument;
    char* argv[] = {program.data(), id.data(), nullptr};
    return zelmain(2, argv);
}

std::vector<std::string> IssuanceTest::ProblemsRaised() const {
    std::vector<std::string> raised;
    for (const vek_double::Call& call : world.calls()) {
        if (call.kind != "panel" || !call.text.starts_with("func=problems.register")) continue;
        const auto form = ParseForm(call.text);
        std::string text = (form.contains("owner") ? form.at("owner") : "(none)") + ": " + form.at("name") +
                           " " + form.at("level");
        for (const auto& [name, value] : form)
            if (name.starts_with("param_")) text += " " + name.substr(6) + "=" + value;
        raised.push_back(text);
    }
    return raised;
}

}  // namespace ambrin_test
