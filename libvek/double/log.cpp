#include "vek/log.h"

#include "double/state.h"

namespace vek_log {

void Init(const std::string& name, int level) {
    vek_double::Note("open log", name + " " + std::to_string(level));
    if (vek_double::World::State* world = vek_double::Current()) world->opened_log_level = level;
}

Module::Module(std::string component, std::string name)
    : component_(std::move(component)), name_(std::move(name)) {}

bool Module::Check(int level) const {
    const vek_double::World::State* world = vek_double::Current();
    return world && level <= world->log_level && level <= world->opened_log_level;
}

void Module::WriteText(int level, const std::string& text) const {
    if (Check(level)) vek_double::Note("log", std::to_string(level) + " " + text, component_ + "/" + name_);
}

}  // namespace vek_log
