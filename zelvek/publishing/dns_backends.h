#pragma once

#include <array>
#include <map>
#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "zelvek/publishing/dns_backend.h"

/// The kinds of DNS back ends. Each is one source file, which says what its options are and how it is made of
/// them. The service and its command line go through the list below.
namespace zelvek::dns {

/// What an option holds: a text, a number, or the texts of an option that may stand several times.
using OptionValue = std::variant<std::string, int, std::vector<std::string>>;

struct Option {
    std::string name;  // on the command line it has "--" before it
    std::string help;
    OptionValue standard;  // the value where none is given; its type is the option's
    int least = 0;         // of a number
    int most = 0;
};

/// Values by the names of their options.
using Settings = std::map<std::string, OptionValue>;

struct BackendKind {
    std::string title;            // "a DNS server", for messages
    std::vector<Option> options;  // the first, a text, selects this kind where it is given

    /// `settings` has a value for each of the options. Errors: Error of code kValue for what cannot be used.
    std::unique_ptr<Backend> (*make)(const Settings& settings);
};

/// Dynamic updates (RFC 2136) of a server's zones, signed with a TSIG key (RFC 8945), by the tools `dig` and
/// `nsupdate`. Each call asks the server; nothing is remembered.
BackendKind DynamicUpdate();

/// For machines without DNS: records as lines "zone name value" of a file, which is replaced as a whole at
/// each change. Every zone can be written.
BackendKind RecordsFile();

/// A program of the administrator's, for zones whose servers take no dynamic updates:
/// `PROGRAM add|remove ZONE NAME VALUE TTL` of checked words, without a shell. Status 0: it is so now,
/// EX_TEMPFAIL (75): it may be later, another one: a person has to look. It cannot say that a value was there
/// before; adding that again is a success.
BackendKind ProviderCommand();

/// The list of them. A new kind is declared above and added here; nothing else has to know it.
inline constexpr std::array kEveryKind{&DynamicUpdate, &RecordsFile, &ProviderCommand};

std::vector<BackendKind> BackendKinds();

/// The back end that `given` selects; options that are not there have their standard values. Null where none
/// is selected. Errors: Error of code kValue for settings that cannot be used, or that select several.
std::unique_ptr<Backend> MakeBackend(const Settings& given,
                                     const std::vector<BackendKind>& kinds = BackendKinds());

/// The options that select a back end, for messages: "--dns-server or --dns-records-file or --dns-command".
std::string SelectingOptions();

}  // namespace zelvek::dns
