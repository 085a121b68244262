#pragma once

#include "support/job_test.h"

namespace ambrin_test {

/// A job whose account is known at the authority, in the middle of a run.
class FlowTest : public JobTest {
protected:
    FlowTest() {
        StoreAccount();
        AnswerNonces();
        ambrin_data.challenges = "old";
    }
};

}  // namespace ambrin_test
