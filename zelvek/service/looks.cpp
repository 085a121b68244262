#include "zelvek/service/looks.h"

#include <unistd.h>

#include <string>
#include <utility>
#include <vector>

#include "zelvek/base/process.h"

namespace zelvek {

namespace {

const std::string kOff = "off";

}  // namespace

SiteWatch::Settings WatchSettings(const ServeOptions& options) {
    SiteWatch::Settings settings = options.site_watch;
    settings.wanted = options.check_sites != kOff;
    if (settings.wanted && options.check_sites != "name") settings.site = ReadSite(options.check_sites);
    return settings;
}

Examiner::Settings ExaminerSettings(const ServeOptions& options) {
    if (options.public_resolvers == std::vector{kOff}) return {};
    return {options.public_resolvers};
}

Looks::Looks(Store& store, Publisher& publisher, const ServeOptions& options)
    : sites_(store, WatchSettings(options)),
      examiner_(store, publisher, ExaminerSettings(options), FindProcess(::getpid()).value()),
      watching_("sites", options.sweep_interval, [this] { sites_.LookAtDue(); }),
      examining_("examination", options.sweep_interval, [this] { examiner_.ExamineSome(); }) {}

Looks::~Looks() {
    sites_.End();
    examiner_.End();
}

void Looks::Change(const ServeOptions& options) {
    SiteWatch::Settings sites = WatchSettings(options);
    examiner_.Change(ExaminerSettings(options));
    sites_.Change(std::move(sites));
}

}  // namespace zelvek
