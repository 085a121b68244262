#pragma once

#include <memory>

#include "zelvek/page/api.h"
#include "zelvek/page/settings.h"
#include "zelvek/panel/functions.h"

namespace zelvek::page {

/// The page's web server.
class Page {
public:
    /// Listens until destroyed. Errors: as `CheckSettings` and `Files`, and Error of code kIo (cannot
    /// listen).
    Page(Services& services, const Settings& settings, Allowed allowed);
    ~Page();
    Page(const Page&) = delete;
    Page& operator=(const Page&) = delete;

    /// The port that it listens on, chosen by the system where the address has port 0.
    int Port() const;

    /// What it is made of.
    struct Server;

private:
    std::unique_ptr<Server> server_;
};

}  // namespace zelvek::page
