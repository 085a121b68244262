#include "csr/csr.h"

#include "support/job_test.h"
#include "vek/err.h"

namespace {

using ambrin_test::JobTest;
using ambrin_test::kDerCommand;
using ambrin_test::PanelValues;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

const std::string kMake = "func=sslcert.csr.edit&domain=a.example%20b.example&su=ann&";
const std::string kRead = "func=sslcert.csr.edit&out=xml&elid=a.example";
const std::string kRemove = "func=sslcert.csr.delete&elid=a.example";

class Csr : public JobTest {
protected:
    Csr() {
        ambrin_data.aliases = "a.example b.example";
        ambrin_data.user_name = "ann";
        ambrin_data.certname = "a.example";
    }

    void Get() { GetCSR(csr, key); }

    std::string csr = "old csr";
    std::string key = "old key";
};

// Behaviours of: Certificate signing request

// Behaviour: The panel makes the request for the job's names and user, then it is read, then removed
// Behaviour: Names and request are traced, the key never
TEST_F(Csr, IsMadeReadAndRemoved) {
    ambrin_data.csr_internal_request = "keysize=2048&o=Shop%20Ltd";
    world.AnswerPanel(kMake + "keysize=2048&o=Shop%20Ltd", "<doc/>");
    world.AnswerPanel(kRead, PanelValues({{"csr_req", "CSR\n"}, {"csr_pk", "KEY\n"}}));
    world.AnswerPanel(kRemove, "<doc/>");
    Get();
    EXPECT_EQ(csr, "CSR\n");
    EXPECT_EQ(key, "KEY\n");
    EXPECT_THAT(LogLines(),
                ElementsAre("9 create csr for domains 'a.example b.example'", "9 we got csr\n 'CSR\n'"));
}

// Behaviour: The job's further parameters go out as they stand after the final "&"
TEST_F(Csr, FurtherParametersGoOutAsTheyStand) {
    ambrin_data.csr_internal_request = "a=?&b=%41 &c=?";
    world.AnswerPanel(kMake + "a=?&b=%41 &c=?", "<doc/>");
    world.AnswerPanel(kRead, "<doc/>");
    world.AnswerPanel(kRemove, "<doc/>");
    Get();
}

// Behaviour: The job's further parameters go out as they ...
TEST_F(Csr, WithoutFurtherParametersTheQueryEndsWithItsAmpersand) {
    world.AnswerPanel(kMake, "<doc/>");
    world.AnswerPanel(kRead, "<doc/>");
    world.AnswerPanel(kRemove, "<doc/>");
    Get();
    EXPECT_EQ(csr, "") << "an answer without the texts empties the outputs";
    EXPECT_EQ(key, "");
}

// Behaviour: The request is read and removed under the ASCII form of the certificate's name
TEST_F(Csr, RecordIsKeptUnderTheAsciiFormOfTheCertificatesName) {
    ambrin_data.certname = "m\xC3\xBCnchen.example";
    world.AnswerPanel("func=sslcert.csr.edit&domain=*", "<doc/>");
    world.AnswerPanel("func=sslcert.csr.edit&out=xml&elid=xn--mnchen-3ya.example", "<doc/>");
    world.AnswerPanel("func=sslcert.csr.delete&elid=xn--mnchen-3ya.example", "<doc/>");
    Get();
}

// Behaviour: A failed making or reading leaves the outputs alone, and removes nothing
TEST_F(Csr, FailedMakingLeavesTheOutputsAlone) {
    world.FailPanel(kMake, "value", "bad key size");
    EXPECT_THROW(Get(), vek_err::Error);
    EXPECT_EQ(csr + key, "old csrold key");
}

// Behaviour: A failed making or reading leaves the outputs ...
TEST_F(Csr, FailedReadingLeavesTheOutputsAndTheRecordAlone) {
    world.AnswerPanel(kMake, "<doc/>");
    world.FailPanel(kRead, "missed", "no such record");
    EXPECT_THROW(Get(), vek_err::Error);
    EXPECT_EQ(csr + key, "old csrold key");
    EXPECT_THAT(world.Lines({"panel"}), ElementsAre("panel: " + kMake, "panel: " + kRead));
}

// Behaviour: A failed removal leaves the outputs filled
TEST_F(Csr, FailedRemovalLeavesTheOutputsFilled) {
    world.AnswerPanel(kMake, "<doc/>");
    world.AnswerPanel(kRead, PanelValues({{"csr_req", "CSR"}, {"csr_pk", "KEY"}}));
    world.FailPanel(kRemove, "io", "no");
    EXPECT_THROW(Get(), vek_err::Error);
    EXPECT_EQ(csr + key, "CSRKEY");
}

// Behaviour: The request is traced before the panel is asked to remove it
TEST_F(Csr, RequestIsTracedBeforeItsRemoval) {
    world.AnswerPanel(kMake, "<doc/>");
    world.AnswerPanel(kRead, PanelValues({{"csr_req", "CSR"}, {"csr_pk", "KEY"}}));
    world.FailPanel(kRemove, "io", "no");
    EXPECT_THROW(Get(), vek_err::Error);
    EXPECT_EQ(LogLines().back(), "9 we got csr\n 'CSR'");
}

// Behaviour: A name without an ASCII form travels to the caller
TEST_F(Csr, NameWithoutAsciiFormTravelsToTheCaller) {
    ambrin_data.certname = "\xFF.example";
    world.AnswerPanel(kMake, "<doc/>");
    EXPECT_THROW(Get(), vek_err::Error);
}

// Behaviour: No key reaches log file or job log ...
// Behaviour: Names and request are traced, the key never ...
TEST_F(Csr, PrivateKeyStaysOutOfTheLog) {
    world.AnswerPanel(kMake, "<doc/>");
    world.AnswerPanel(kRead, PanelValues({{"csr_req", "CSR"}, {"csr_pk", "SECRET"}}));
    world.AnswerPanel(kRemove, "<doc/>");
    Get();
    for (const std::string& line : LogLines()) EXPECT_THAT(line, Not(HasSubstr("SECRET")));
}

// Behaviour: The DER form is one run of "openssl req -outform DER", base64url-encoded
TEST_F(Csr, DerFormIsOneRunOfOpensslEncoded) {
    world.AnswerChild(kDerCommand, {std::string("\xFB\xFF\x00", 3), 0});
    EXPECT_EQ(GetEncodedDERCsr("PEM"), "-_8A");
    EXPECT_THAT(world.Lines(), ElementsAre("child: " + kDerCommand, "input: PEM"));
    EXPECT_EQ(world.calls().front().detail, "134");
}

// Behaviour: A request that the tool refuses is an error "derencode_error" with the tool's output
TEST_F(Csr, RequestThatTheToolRefusesIsAnErrorWithItsOutput) {
    world.AnswerChild(kDerCommand, {"unable to load X509 request", 1});
    try {
        GetEncodedDERCsr("");
        FAIL() << "no error";
    } catch (const vek_err::Error& error) {
        EXPECT_EQ(error.type(), "derencode_error");
        EXPECT_STREQ(error.what(), "ambrin: derencode_error: unable to load X509 request");
    }
    EXPECT_THAT(JobLog(), IsEmpty());
}

}  // namespace
