// What a person reads first of a job.
#include <json/json.h>

#include <memory>

#include "service.h"

namespace zelvek::testing {

namespace {

class JobSentence : public ServiceTest {
protected:
    JobSentence() { Start(); }

    /// A job whose run has failed with this event.
    static std::string FailedJob(const std::string& event, const std::string& detail) {
        const std::string id = AddJob();
        ReadJob(id);
        Write(id, {{"log", "2026-01-01 00:00:00,failed," + event + "," + detail}});
        return id;
    }

    static std::string SentenceOf(const std::string& id) {
        return Ask("func=zelvek.job.show", {{"elid", id}}).value("sentence");
    }
};

// Behaviours of: What people are told about a job

// Behaviour: A job is shown with a sentence first, which tells what it does next or what is wrong with it,
// and
//   with further lines after its table, as JSON too
TEST_F(JobSentence, BeginsWhatIsShownOfAJob) {
    const std::string id =
        FailedJob("order_failed", "<p><b>Return code:</b> 400</p></br><p><b>Details:</b> no &lt;x&gt;</p>");
    const std::string sentence = SentenceOf(id);
    EXPECT_EQ(sentence.find("The authority refused the order (\"no <x>\"); look at its words, "), 0U)
        << sentence;

    const std::string shown = Zelvek({"job", "show", id}).out;
    EXPECT_EQ(shown.find(sentence + "\n\nJOB "), 0U) << shown;
    const std::size_t findings = shown.find(
        "\n\nTold with \"order_failed\": no <x>\n\"zelvek job retry 1\" tries again at once\n\nTIME ");
    EXPECT_NE(findings, std::string::npos) << shown;
    EXPECT_GT(findings, shown.find("order"));

    Json::Value json;
    const std::string text = Zelvek({"job", "show", id, "--json"}).out;
    const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    ASSERT_TRUE(reader->parse(text.data(), text.data() + text.size(), &json, nullptr));
    EXPECT_EQ(json["sentence"].asString(), sentence);
    ASSERT_EQ(json["findings"].size(), 2U);
    EXPECT_EQ(json["findings"][0].asString(), "Told with \"order_failed\": no <x>");
}

// Behaviour: A job is shown with a sentence ...
TEST_F(JobSentence, FollowsTheJob) {
    const std::string id = AddJob();
    EXPECT_EQ(SentenceOf(id), "Nothing is wrong; the next run is due now.");
    ReadJob(id);
    EXPECT_EQ(SentenceOf(id), "A run of the job is under way.");
    Ask("func=zelvek.job.list");
    Write(id, {{"verified", "on"}});
    EXPECT_EQ(SentenceOf(id).find("The certificate is installed"), 0U);
}

// Behaviour: What the panel has refused to a run is told with what a person can do
TEST_F(JobSentence, TellsARefusal) {
    const std::string id = AddJob();
    ReadJob(id);
    EXPECT_EQ(ErrorOf("func=ambrin_challenge&action=create&user_name=anna&file_name=..&content=c"), "value");
    Write(id);
    EXPECT_EQ(SentenceOf(id).find(
                  "The service has refused something to the last run (\"\"..\" is no token\"); "
                  "mend that, and \"zelvek job retry 1\" tries again at once; the next run is due at "),
              0U)
        << SentenceOf(id);
}

}  // namespace

}  // namespace zelvek::testing
