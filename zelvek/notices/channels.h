#pragma once

#include <chrono>
#include <functional>
#include <string>

/// The ways by which a digest leaves the service. None of them knows the store or a digest's state.
namespace zelvek::notices {

/// What became of a digest.
struct Handover {
    enum class Outcome {
        kAccepted,
        kRefused,  // surely not accepted
        kUnknown,  // the other side may have accepted it
    };

    Outcome outcome;
    std::string reason = {};  // in one line, for the log; empty for one that was accepted
};

/// A message on its way. `data` is what is handed over; `from` and `to` are addresses where the channel needs
/// them.
struct Message {
    std::string from, to, data;
};

/// Called once, just before the other side may accept the message; what it throws ends the handover.
using Handing = std::function<void()>;

/// Hands one message over and waits for that, no longer than the channel's limit.
using Channel = std::function<Handover(const Message&, const Handing&)>;

/// A command, run by /bin/sh, that reads the message from its standard input: exit status 0 says that it has
/// accepted it, any other one that it has not. One that takes longer than `limit` is ended; nobody knows
/// then.
Channel CommandChannel(const std::string& command, std::chrono::seconds limit);

/// The program sendmail, or one like it, which finds the recipient in the message.
Channel SendmailChannel(const std::string& program, std::chrono::seconds limit);

/// A mail server (RFC 5321) at "smtp://host:port" or, by TLS from the start, "smtps://host:port"; its
/// certificate is checked like an authority's. Nobody knows where the connection ends between the message's
/// last byte and the server's word.
Channel SmtpChannel(const std::string& url, std::chrono::seconds limit);

/// Speaks with that mail server without a message; says in one line what failed, nothing where it answers.
std::string WhyNotReached(const std::string& url, std::chrono::seconds limit);

/// Whether `url` is of the form that `SmtpChannel` takes; no user and no password are part of it.
bool IsSmtpUrl(const std::string& url);

}  // namespace zelvek::notices
