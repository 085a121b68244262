#include "zelvek/service/looks.h"

#include <unistd.h>

#include <string>
#include <vector>

#include "zelvek/base/process.h"

namespace zelvek {

namespace {

const std::string kOff = "off";

}  // namespace

SiteWatch::Settings WatchSettings(const ServeOptions& options) {
    SiteWatch::Settings settings = options.site_watch;
    if (options.check_sites != kOff && options.check_sites != "name")
        settings.site = ReadSite(options.check_sites);
    return settings;
}

Looks::Looks(Store& store, Publisher& publisher, const ServeOptions& options) {
    if (options.check_sites != kOff) {
        sites_.emplace(store, WatchSettings(options));
        watching_.emplace("sites", options.sweep_interval, [this] { sites_->LookAtDue(); });
    }
    if (options.public_resolvers != std::vector{kOff}) {
        examiner_.emplace(store, publisher, Examiner::Settings{options.public_resolvers},
                          FindProcess(::getpid()).value());
        examining_.emplace("examination", options.sweep_interval, [this] { examiner_->ExamineSome(); });
    }
}

Looks::~Looks() {
    if (sites_) sites_->End();
    if (examiner_) examiner_->End();
}

}  // namespace zelvek
