#pragma once

namespace zelvek::cli {

/// `zelvek status --check`: one line, as monitoring plug-ins print it, and their exit statuses: 0 all is
/// well, 1 warning, 2 critical, 3 unknown. Throws nothing of the service's.
int CheckStatus(bool json);

}  // namespace zelvek::cli
