// When an authority is asked for the times of renewals.
#include "moved_clock.h"
#include "zelvek/publishing/publisher.h"
#include "zelvek/service/renewal_watch.h"
#include "zelvek/store/jobs.h"
#include "zelvek_store/engine.h"

namespace zelvek::testing {

namespace {

class AskedRenewals : public StoreTest {
protected:
    int AddToAskFor(const std::string& authority = "ambrin") {
        Job job;
        job.authority = authority;
        job.user_name = "anna";
        job.certname = job.folder = std::to_string(++names_) + ".example";
        job.verified = true;
        job.expires = "2031-07-01 00:00:00";
        job.renew = "2031-06-01 00:00:00";
        job.ask_renewal = "2031-05-01 11:00:00";
        return AddJob(job);
    }

    MovedClock clock_{kNow};
    Publisher publisher_{store(), "answers", nullptr};
    Reloader reloader_{store(), {}};
    Services services_{store(), publisher_, {"certs"}, reloader_};
    AskedAuthorities authorities_{
        [](const std::string& name) { return name == "ambrin-gone" ? std::string() : "no URL of " + name; }};
    int names_ = 0;
};

INSTANTIATE_TEST_SUITE_P(Engines, AskedRenewals, ::testing::ValuesIn(Engines()), EngineName);

// Behaviours of: Scheduling

// Behaviour: The authority is asked for many certificates one after the other; a service that is to end asks
// for no further one
TEST_P(AskedRenewals, EndWithTheService) {
    const int asked = AddToAskFor();
    AskForRenewals(services_, authorities_);
    EXPECT_EQ(FindJob(asked).ask_renewal, "2031-05-02 00:00:00");
    const int left = AddToAskFor();
    authorities_.End();
    AskForRenewals(services_, authorities_);
    EXPECT_EQ(FindJob(left).ask_renewal, "2031-05-01 11:00:00");
}

// Behaviour: Each authority is asked by its own directory; one whose plug-in is gone is not asked, and
//   later again
TEST_P(AskedRenewals, GoToTheDirectoryOfTheJobsAuthority) {
    renewal_info::Authority* const first = authorities_.Of("ambrin");
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(authorities_.Of("ambrin"), first) << "its directory is remembered";
    EXPECT_NE(authorities_.Of("ambrin-other"), first);
    EXPECT_EQ(authorities_.Of("ambrin-gone"), nullptr);
    const int gone = AddToAskFor("ambrin-gone");
    AskForRenewals(services_, authorities_);
    EXPECT_EQ(FindJob(gone).ask_renewal, "2031-05-02 00:00:00");
}

}  // namespace

}  // namespace zelvek::testing
