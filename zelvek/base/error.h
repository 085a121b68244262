#pragma once

#include <exception>
#include <string>
#include <utility>

namespace zelvek {

/// The kind of a failure, for programs to compare. People read the sentence beside it.
enum class Code {
    kValue,        // something that was given cannot be used
    kMissed,       // what is named is not there
    kExists,       // what is to be made is there already
    kStale,        // what the caller read before has been changed by somebody else since
    kBusy,         // somebody else is working on it
    kLater,        // the service cannot do it for the moment, such as when the database is locked
    kBadKey,       // the private key cannot be read, or belongs to none of the certificates
    kBadChain,     // the certificates cannot be read, or are not one chain
    kBadNames,     // the certificate is not for all the names that were asked for
    kDns,          // the name server refused, or did not answer
    kUnavailable,  // a name server does not answer now; trying again may help
    kIo,           // a file, a socket or a process could not be used
    kProtocol,     // what arrived is not a query
    kDenied,       // who asks may not
    kInternal      // a fault of the service itself; its log says more. Stays the last: CodeOf counts up to it
};

/// The code as callers of the service read it in an answer: "value", "missed", "exists", "stale", "busy",
/// "later", "badkey", "badchain", "badnames", "dns" (kUnavailable too: callers know no other word), "io",
/// "protocol", "denied", "internal".
const char* Word(Code code);

/// The code that is told by this word; kInternal for every other text.
Code CodeOf(const std::string& word);

/// Every error of the service. Programs decide by its code, never by its sentence.
class Error : public std::exception {
public:
    Error(Code code, std::string sentence) : code_(code), sentence_(std::move(sentence)) {}

    /// `object` and `value` name what is refused; neither may hold a secret.
    Error(Code code, std::string object, std::string value, std::string sentence)
        : code_(code), object_(std::move(object)), value_(std::move(value)), sentence_(std::move(sentence)) {}

    Code code() const noexcept { return code_; }
    const std::string& object() const noexcept { return object_; }
    const std::string& value() const noexcept { return value_; }
    const char* what() const noexcept override { return sentence_.c_str(); }

    /// The sentence as it is, whatever characters a refused value has brought into it.
    const std::string& sentence() const noexcept { return sentence_; }

private:
    Code code_;
    std::string object_;
    std::string value_;
    std::string sentence_;
};

/// An Error of code kIo with the sentence "<deed> <where>: <reason>", such as "cannot open /a: Permission
/// denied". `number` is an errno.
Error IoError(const std::string& deed, const std::string& where, int number);

}  // namespace zelvek
