#pragma once

#include <memory>
#include <optional>
#include <thread>

#include "zelvek/base/periodic.h"
#include "zelvek/base/snapshot.h"
#include "zelvek/certificates/reloader.h"
#include "zelvek/jobs/scheduler.h"
#include "zelvek/metrics/endpoint.h"
#include "zelvek/notices/notifier.h"
#include "zelvek/page/page.h"
#include "zelvek/panel/functions.h"
#include "zelvek/publishing/publisher.h"
#include "zelvek/publishing/responder.h"
#include "zelvek/service/looks.h"
#include "zelvek/service/query_server.h"
#include "zelvek/service/renewal_watch.h"
#include "zelvek/service/serve.h"
#include "zelvek/service/socket.h"
#include "zelvek/store/store.h"

namespace zelvek {

/// The service's parts, at work as long as this lives. What is made last ends first: runs end while the
/// server still takes their records.
class RunningService {
public:
    /// Errors: Error for options that cannot be used.
    RunningService(const ServeOptions& options, Store& store, ServiceSocket& socket);
    ~RunningService();
    RunningService(const RunningService&) = delete;
    RunningService& operator=(const RunningService&) = delete;

    /// Goes by other options from now on, those that take effect at a reload; runs and other work under way
    /// end by those with which they began. Errors: Error; nothing has changed then.
    void Use(const ServeOptions& options);

private:
    void StartOrEndParts(const ServeOptions& options);

    Store& store_;
    Publisher publisher_;
    Reloader reloader_;
    notices::Notifier notifier_;
    Looks looks_;
    Services services_;
    Snapshot<Retention> retention_;
    std::chrono::milliseconds sweep_interval_;
    // It takes a while where there are many certificates, and may go on while queries are answered.
    std::jthread tidying_;
    std::optional<Responder> responder_;
    std::optional<metrics::Endpoint> watched_;
    std::optional<page::Page> page_;
    Server server_;
    Periodic sweeper_;
    std::optional<RenewalWatch> asking_;
    Periodic reloading_;
    std::optional<Scheduler> scheduler_;
};

/// What the service wants of its plug-in is there. Errors: Error of code kIo.
void CheckPlugin(const ServeOptions& options);

}  // namespace zelvek
