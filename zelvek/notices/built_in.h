#pragma once

namespace zelvek::notices {

/// The content of packaging/notices.en.txt, taken in when the program was built.
extern const char* const kBuiltInTexts;

}  // namespace zelvek::notices
