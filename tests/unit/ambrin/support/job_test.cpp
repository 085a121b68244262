#include "support/job_test.h"

#include <algorithm>
#include <cctype>
#include <memory>
#include <string_view>

#include "vek/str.h"

namespace ambrin_test {

namespace {

std::string DecodePercent(const std::string& text) {
    std::string decoded;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            decoded += text[i];
            continue;
        }
        decoded += static_cast<char>(std::stoi(text.substr(i + 1, 2), nullptr, 16));
        i += 2;
    }
    return decoded;
}

std::string EscapeXml(std::string text) {
    str::inpl::Replace(text, "&", "&amp;");
    str::inpl::Replace(text, "<", "&lt;");
    str::inpl::Replace(text, ">", "&gt;");
    str::inpl::Replace(text, "\r", "&#13;");
    return text;
}

std::string Element(const std::string& name, const std::string& content) {
    return "<" + name + ">" + content + "</" + name + ">";
}

/// A number of sixteen hexadecimal digits that stands for a text.
std::string Fingerprint(const std::string& text) {
    std::uint64_t hash = 14695981039346656037U;
    for (const char c : text) hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211U;
    std::string bytes;
    for (int shift = 56; shift >= 0; shift -= 8)
        bytes += static_cast<char>(hash >> static_cast<unsigned>(shift) & 0xFFU);
    return str::hex::Encode(bytes);
}

std::string WithColons(const std::string& hex) {
    std::string text;
    for (std::size_t i = 0; i < hex.size(); i += 2) text += (i == 0 ? "" : ":") + hex.substr(i, 2);
    return text;
}

/// "7 ambrin_bin:42 text" without program and line number; a trace line without them shows as what it is.
std::string WithoutLineNumber(const std::string& line) {
    const std::string program = "9 ambrin_bin:";
    if (!line.starts_with(program)) return line;
    std::size_t end = program.size();
    while (end < line.size() && std::isdigit(static_cast<unsigned char>(line[end])) != 0) ++end;
    const bool numbered = end > program.size() && end < line.size() && line[end] == ' ';
    return numbered ? "9 " + line.substr(end + 1) : line;
}

SignedRequest TakeApart(const std::string& url, const std::string& body) {
    SignedRequest request;
    request.url = url;
    request.body = body;
    Json::Value jws;
    Json::Reader reader;
    EXPECT_TRUE(reader.parse(body, jws)) << body;
    request.signing_input = jws["protected"].asString() + "." + jws["payload"].asString();
    request.protected_text = DecodeBase64Url(jws["protected"].asString());
    request.payload = DecodeBase64Url(jws["payload"].asString());
    request.signature = DecodeBase64Url(jws["signature"].asString());
    EXPECT_TRUE(reader.parse(request.protected_text, request.header)) << request.protected_text;
    return request;
}

std::string StoryLine(const vek_double::Call& call) {
    if (call.kind == "http") return call.text == "GET " + kNewNonce ? "nonce" : call.text;
    if (call.kind == "panel" || call.kind == "child" || call.kind == "sleep")
        return call.kind + " " + call.text;
    return "";
}

}  // namespace

std::map<std::string, std::string> ParseForm(const std::string& query) {
    std::map<std::string, std::string> form;
    std::string rest = query;
    while (!rest.empty()) {
        std::string pair = str::GetWord(rest, '&');
        const std::string name = DecodePercent(str::GetWord(pair, '='));
        EXPECT_TRUE(form.emplace(name, DecodePercent(pair)).second) << "parameter given twice: " << name;
    }
    return form;
}

std::string PanelValues(const std::map<std::string, std::string>& values) {
    std::string xml;
    for (const auto& [key, value] : values) xml += Element(key, EscapeXml(value));
    return Element("doc", xml);
}

vek_double::HttpAnswer JsonAnswer(int status, const std::string& body, const std::string& head) {
    return {status, "Content-Type: application/json\r\n" + head, body, ""};
}

std::string FakeDigest(const std::string& input) {
    std::string digest = Fingerprint(input) + " of the digested";
    digest.resize(32, '.');
    return digest;
}

std::string DecodeBase64Url(const std::string& text) {
    const std::string_view alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
    std::string bytes;
    unsigned bits = 0;
    int count = 0;
    for (const char c : text) {
        const std::size_t digit = alphabet.find(c);
        EXPECT_NE(digit, std::string_view::npos) << "no base64url text: " << text;
        bits = bits << 6U | static_cast<unsigned>(digit);
        count += 6;
        if (count < 8) continue;
        count -= 8;
        bytes += static_cast<char>(bits >> static_cast<unsigned>(count) & 0xFFU);
    }
    return bytes;
}

std::string FakeDigestText(const std::string& input) {
    std::string text = str::base64::Encode(FakeDigest(input));
    str::inpl::Replace(text, "+", "-");
    str::inpl::Replace(text, "/", "_");
    str::inpl::Replace(text, "=", "");
    return text;
}

std::string FakeJwk(const std::string& pem) {
    std::string n = str::base64::Encode(str::hex::Decode("c0" + Fingerprint(pem)));
    str::inpl::Replace(n, "+", "-");
    str::inpl::Replace(n, "/", "_");
    str::inpl::Replace(n, "=", "");
    return R"({"e":"AQAB","kty":"RSA","n":")" + n + "\"}";
}

std::string FakeHeader(const std::string& pem) { return R"({"alg":"RS256","jwk":)" + FakeJwk(pem) + "}\n"; }

void RenewRecord() {
    std::destroy_at(&ambrin_data);
    std::construct_at(&ambrin_data);
}

JobTest::JobTest() {
    params.directory["newNonce"] = kNewNonce;
    params.directory["newAccount"] = kNewAccount;
    params.directory["newOrder"] = kNewOrder;
}

void JobTest::AnswerDigests() {
    world.AlwaysChild(kDigestCommand, [](const std::string& input) {
        return vek_double::ChildAnswer{FakeDigest(input), 0};
    });
}

void JobTest::AnswerKeyDumps() {
    world.AlwaysChild(kKeyDumpCommand, [](const std::string& pem) {
        return vek_double::ChildAnswer{
            "Private-Key: (4096 bit, 2 primes)\nmodulus:\n    00:" + WithColons("c0" + Fingerprint(pem)) +
                "\npublicExponent: 65537 (0x10001)\nprivateExponent:\n    5e:c2\n",
            0};
    });
}

void JobTest::AnswerNonces() {
    world.AlwaysHttp("GET " + kNewNonce, [this](const std::string&) {
        return vek_double::HttpAnswer{200, "Replay-Nonce: nonce-" + std::to_string(++nonces_) + "\r\n", "",
                                      ""};
    });
}

void JobTest::StoreAccount() {
    ambrin_data.kid = kStoredKid;
    ambrin_data.acmekey = vek_double::FakePem("stored");
    ambrin_data.modulus = FakeHeader(ambrin_data.acmekey);
}

std::map<std::string, std::string> JobTest::EndOfProcess() {
    const std::string query = "func=ambrin.data.edit&sok=ok";
    world.AlwaysPanel(query + "*", [](const std::string&) { return "<doc/>"; });
    const std::size_t before = world.calls().size();
    RenewRecord();
    EXPECT_EQ(world.calls().size(), before + 1) << "the record is written back exactly once";
    EXPECT_TRUE(world.calls().back().text.starts_with(query + "&"));
    EXPECT_EQ(world.calls().back().detail, "zelvek/ambrin");
    return ParseForm(world.calls().back().text);
}

std::vector<std::string> JobTest::JobLog() const {
    std::vector<std::string> entries;
    for (std::string entry : str::Split(ambrin_data.log, ";")) {
        EXPECT_TRUE(entry.starts_with("2030-06-0")) << entry;
        str::GetWord(entry, ',');
        entries.push_back(entry);
    }
    return entries;
}

std::vector<std::string> JobTest::LogLines() const {
    std::vector<std::string> lines;
    for (const vek_double::Call& call : world.calls())
        if (call.kind == "log") lines.push_back(WithoutLineNumber(call.text));
    return lines;
}

std::vector<std::string> JobTest::Traces() const {
    std::vector<std::string> traces;
    for (const std::string& line : LogLines())
        if (line.starts_with("9 ")) traces.push_back(line.substr(2));
    return traces;
}

std::vector<SignedRequest> JobTest::Requests() const {
    std::vector<SignedRequest> requests;
    std::string url;
    for (const vek_double::Call& call : world.calls()) {
        if (call.kind == "http") url = call.text.substr(call.text.find(' ') + 1);
        if (call.kind == "body") requests.push_back(TakeApart(url, call.text));
    }
    return requests;
}

std::vector<std::string> JobTest::Story() const {
    std::vector<std::string> story;
    for (const vek_double::Call& call : world.calls()) {
        if (call.kind == "body") {
            const std::string payload = str::Trim(TakeApart("", call.text).payload);
            story.back() += " " + (payload.empty() ? "-" : payload);
        }
        const std::string line = StoryLine(call);
        if (!line.empty()) story.push_back(line);
    }
    return story;
}

}  // namespace ambrin_test
