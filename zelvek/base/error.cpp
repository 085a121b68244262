#include "zelvek/base/error.h"

#include <system_error>

namespace zelvek {

const char* Word(Code code) {
    switch (code) {
        case Code::kValue: return "value";
        case Code::kMissed: return "missed";
        case Code::kExists: return "exists";
        case Code::kStale: return "stale";
        case Code::kBusy: return "busy";
        case Code::kLater: return "later";
        case Code::kBadKey: return "badkey";
        case Code::kBadChain: return "badchain";
        case Code::kDns:
        case Code::kUnavailable: return "dns";  // who asks is told the same
        case Code::kBadNames: return "badnames";
        case Code::kIo: return "io";
        case Code::kProtocol: return "protocol";
        case Code::kDenied: return "denied";
        case Code::kInternal: break;
    }
    return "internal";
}

Code CodeOf(const std::string& word) {
    for (int number = 0; number < static_cast<int>(Code::kInternal); ++number) {
        const Code code = static_cast<Code>(number);
        if (word == Word(code)) return code;
    }
    return Code::kInternal;
}

Error IoError(const std::string& deed, const std::string& where, int number) {
    return Error(Code::kIo, deed + " " + where + ": " + std::generic_category().message(number));
}

}  // namespace zelvek
