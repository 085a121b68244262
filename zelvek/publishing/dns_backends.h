#pragma once

#include <array>
#include <map>
#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "zelvek/publishing/dns_backend.h"

/// The kinds of DNS back ends. Each is one source file: what its options are called and how it is made of
/// them. The service takes them from the list below, its command line included.
namespace zelvek::dns {

/// What an option holds: a text, a number, or the texts of an option that may stand several times.
using OptionValue = std::variant<std::string, int, std::vector<std::string>>;

struct Option {
    std::string name;  // on the command line it has "--" before it
    std::string help;
    OptionValue standard;  // where it is not given; says what kind of value it has
    int least = 0;         // a number lies between these two
    int most = 0;
};

/// Values by the names of their options.
using Settings = std::map<std::string, OptionValue>;

struct BackendKind {
    std::string title;            // "a DNS server", for messages
    std::vector<Option> options;  // the first is a text: where it is given, this kind is meant

    /// `settings` has a value for each of the options. Errors: Error of code kValue for what cannot be used.
    std::unique_ptr<Backend> (*make)(const Settings& settings);
};

/// Dynamic updates (RFC 2136) of a server's zones, signed with a TSIG key (RFC 8945), by the tools `dig` and
/// `nsupdate`. Each call asks the server; nothing is remembered.
BackendKind DynamicUpdate();

/// For machines without DNS: records as lines "zone name value" of a file, which is replaced as a whole at
/// each change. Every zone can be written.
BackendKind RecordsFile();

/// The list. A new kind is declared above and stands here; nothing else has to know it.
inline constexpr std::array kEveryKind{&DynamicUpdate, &RecordsFile};

std::vector<BackendKind> BackendKinds();

/// The back end that is meant; options that are not in `given` have their standard values. Null where none is
/// meant. Errors: Error of code kValue for settings that cannot be used, and where several are meant.
std::unique_ptr<Backend> MakeBackend(const Settings& given,
                                     const std::vector<BackendKind>& kinds = BackendKinds());

/// The options of which one is needed to have a back end, for messages: "--dns-server or --dns-records-file".
std::string SelectingOptions();

}  // namespace zelvek::dns
