// Prints docs/job-record.md.
#include <iostream>

#include "job_record_page.h"

int main() {
    std::cout << zelvek::testing::JobRecordPage() << std::flush;
    return std::cout ? 0 : 1;
}
