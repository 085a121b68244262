#include "vek/client.h"

#include "double/state.h"

namespace vek_client {

Client::Client(std::string service, std::string module, std::optional<UserId> service_user)
    : service_(std::move(service)), module_(std::move(module)), service_user_(service_user) {}

Result Client::Send(const std::string& query) const {
    vek_double::Enter("panel", query, service_ + "/" + module_);
    const auto answer = vek_double::TakeAnswer(&vek_double::World::State::panel, "panel", query);
    return Result(answer ? (*answer)(query) : "<doc/>");
}

}  // namespace vek_client
