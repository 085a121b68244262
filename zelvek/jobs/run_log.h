#pragma once

#include <string>
#include <vector>

#include "zelvek/store/history.h"

namespace zelvek {

/// The entries of a run's log: "date-time,state,event,detail" joined by ";". Details hold any text, so a ";"
/// separates entries only where a date-time "YYYY-MM-DD HH:MM:SS" and "," follow. Text without such a
/// beginning becomes the detail of an entry of the time `now`.
std::vector<history::Event> SplitLog(const std::string& log, const std::string& now);

}  // namespace zelvek
