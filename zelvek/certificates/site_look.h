#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace zelvek {

/// A place that serves TLS.
struct Site {
    std::string address;  // numeric
    int port = 443;

    /// "192.0.2.1:443", "[2001:db8::1]:443".
    std::string Text() const;
};

/// Reads "ADDRESS:PORT", with an IPv6 address in brackets. Errors: Error of code kValue.
Site ReadSite(const std::string& text);

/// The addresses that the system has for a host, at port 443, at most `most`. Errors: Error of code kIo.
std::vector<Site> SitesOf(const std::string& host, std::size_t most);

/// The certificate, PEM, that a site shows for this name, by one TLS handshake. Whether anybody trusts it is
/// not looked at. Errors: Error of code kIo that says what failed.
std::string CertificateAt(const Site& site, const std::string& name, std::chrono::milliseconds limit);

}  // namespace zelvek
