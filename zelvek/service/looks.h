#pragma once

#include "zelvek/base/periodic.h"
#include "zelvek/certificates/site_watch.h"
#include "zelvek/examination/examiner.h"
#include "zelvek/publishing/publisher.h"
#include "zelvek/service/serve.h"
#include "zelvek/store/store.h"

namespace zelvek {

/// What the service looks at outside, now and then, on threads of their own: names that were not proved, and
/// web servers with new certificates. Each as far as the options want it.
class Looks {
public:
    /// Errors: Error of code kValue for options that cannot be used.
    Looks(Store& store, Publisher& publisher, const ServeOptions& options);

    /// Waits for what is under way, which takes seconds.
    ~Looks();
    Looks(const Looks&) = delete;
    Looks& operator=(const Looks&) = delete;

    /// Looks by other options from now on; a look under way ends by those with which it began. Errors: as the
    /// constructor; nothing has changed then.
    void Change(const ServeOptions& options);

    SiteWatch& sites() { return sites_; }

private:
    SiteWatch sites_;
    Examiner examiner_;
    Periodic watching_;
    Periodic examining_;
};

/// How the options want new certificates looked for. Errors: Error of code kValue.
SiteWatch::Settings WatchSettings(const ServeOptions& options);

/// How they want names examined that were not proved.
Examiner::Settings ExaminerSettings(const ServeOptions& options);

}  // namespace zelvek
