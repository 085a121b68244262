#pragma once

namespace zelvek {

/// The project's version, such as "0.1.0".
const char* Version();

}  // namespace zelvek
