#pragma once

#include <optional>

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

    /// Null where nobody looks at web servers.
    SiteWatch* sites() { return sites_ ? &*sites_ : nullptr; }

private:
    std::optional<SiteWatch> sites_;
    std::optional<Examiner> examiner_;
    std::optional<Periodic> watching_;
    std::optional<Periodic> examining_;
};

/// How the options want new certificates looked for. Errors: Error of code kValue.
SiteWatch::Settings WatchSettings(const ServeOptions& options);

}  // namespace zelvek
