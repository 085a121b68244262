// The example of a DNS command, with a provider that has the interface it is written for.
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <atomic>
#include <mutex>

#include "integration/vek/server.h"
#include "unit/zelvek_parts/support.h"
#include "vek/str.h"
#include "zelvek/publishing/dns_backends.h"

namespace {

using parts::Failure;
using parts::FailureOf;
using parts::TempFolder;
using parts::TypeOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using zelvek::dns::MakeBackend;

const std::string kToken = "token-of-the-test";
const std::string kRecords = "/zones/example.org/records";
const std::string kOfTheName = kRecords + "?type=TXT&name=_acme-challenge.example.org ";

/// Keeps values of one name. A value here needs no quoting in JSON.
class Provider {
public:
    std::string Url() const { return "http://127.0.0.1:" + std::to_string(server_.port()); }

    std::vector<std::string> Values() {
        const std::lock_guard lock(mutex_);
        return values_;
    }

    void Fail(int status) { failure_ = status; }

private:
    std::string AnswerTo(const vek_test::HttpRequest& request) {
        const std::lock_guard lock(mutex_);
        const std::string& head = request.head;
        if (failure_ != 0) return vek_test::Answer(failure_, "", "");
        if (head.find("Authorization: Bearer " + kToken + "\r\n") == std::string::npos) {
            return vek_test::Answer(401, "", "");
        }
        if (head.starts_with("GET " + kOfTheName)) return vek_test::Answer(200, "", List());
        if (head.starts_with("POST " + kRecords + " ")) {
            std::string rest = request.body;
            str::GetWord(rest,
                         "{\"type\": \"TXT\", \"name\": \"_acme-challenge.example.org\", \"content\": \"");
            values_.push_back(str::GetWord(rest, "\", \"ttl\": 60}"));
            return vek_test::Answer(201, "", "{\"id\": 1}");
        }
        std::string path = head;
        str::GetWord(path, "DELETE " + kRecords + "/");
        values_.erase(values_.begin() + std::stoi(path));
        return vek_test::Answer(204, "", "");
    }

    std::string List() const {
        std::string list;
        for (std::size_t i = 0; i < values_.size(); ++i) {
            str::inpl::Append(
                list, "{\"id\": " + std::to_string(i) + ", \"content\": \"" + values_[i] + "\"}", ",");
        }
        return "[" + list + "]";
    }

    std::mutex mutex_;
    std::vector<std::string> values_;
    std::atomic<int> failure_{0};
    vek_test::Server server_{
        [this](vek_test::Connection& connection) { connection.Write(AnswerTo(connection.ReadRequest())); }};
};

class ExampleCommand : public testing::Test {
protected:
    ExampleCommand() {
        const std::string own = folder_.path();
        Settle(provider_.Url(), kToken);
        parts::Put(program_, str::Replace(parts::Content(EXAMPLES "/dns-command"), "/etc/zelvek", own));
        chmod(program_.c_str(), 0700);
        backend_ = MakeBackend(
            {{"dns-command", program_}, {"dns-command-zone", std::vector<std::string>{"example.org"}}});
    }

    void Settle(const std::string& url, const std::string& token) {
        parts::Put(folder_.path() / "dns-provider", url + "\n" + token + "\n");
    }

    void Add(const std::string& value) const {
        backend_->AddTxt("example.org", "_acme-challenge.example.org", value);
    }
    void Remove(const std::string& value) const {
        backend_->RemoveTxt("example.org", "_acme-challenge.example.org", value);
    }

    TempFolder folder_;
    Provider provider_;
    std::string program_ = folder_.path() / "dns-command";
    std::unique_ptr<zelvek::dns::Backend> backend_;
};

// Behaviours of: Domains and TXT records (domain, domain.record.edit, domain.record.delete)

// Behaviour: The example of a DNS command adds a value beside others, once, and removes just that value
TEST_F(ExampleCommand, AddsAndRemovesOneValue) {
    Add("one");
    Add("-two_");
    Add("one");
    EXPECT_THAT(provider_.Values(), ElementsAre("one", "-two_"));
    Remove("one");
    Remove("one");
    EXPECT_THAT(provider_.Values(), ElementsAre("-two_"));
}

// Behaviour: The example of a DNS command tells what may be over in a while from what a person has to mend,
// and
//   never the token
TEST_F(ExampleCommand, TellsPassingFailuresFromOthers) {
    for (const int status : {429, 503}) {
        provider_.Fail(status);
        EXPECT_EQ(FailureOf([&] { Add("one"); }).code, zelvek::Code::kUnavailable) << status;
    }
    provider_.Fail(0);
    Settle(provider_.Url(), "wrong-token");
    const Failure refused = FailureOf([&] { Remove("one"); });
    EXPECT_EQ(refused.code, zelvek::Code::kDns);
    EXPECT_THAT(refused.text, testing::AllOf(HasSubstr("the provider answers 401"), Not(HasSubstr("token"))));

    Settle("http://127.0.0.1:1", kToken);
    const Failure away = FailureOf([&] { Add("one"); });
    EXPECT_EQ(away.code, zelvek::Code::kUnavailable);
    EXPECT_THAT(away.text, HasSubstr("the provider cannot be reached"));

    Settle(kToken, provider_.Url());
    const Failure swapped = FailureOf([&] { Add("one"); });
    EXPECT_EQ(swapped.code, zelvek::Code::kDns);
    EXPECT_THAT(swapped.text, testing::AllOf(HasSubstr("no URL and token"), Not(HasSubstr(kToken))));

    std::filesystem::remove(folder_.path() / "dns-provider");
    const Failure unset = FailureOf([&] { Add("one"); });
    EXPECT_EQ(unset.code, zelvek::Code::kDns);
    EXPECT_THAT(unset.text, EndsWith("dns-provider: No such file or directory (status 1)"));
    EXPECT_THAT(provider_.Values(), IsEmpty());
}

}  // namespace
