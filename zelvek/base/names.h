#pragma once

#include <string>
#include <vector>

/// Checks of what comes from outside. Every failed check throws an Error of code kValue.
namespace zelvek::names {

/// A panel user: `[A-Za-z0-9._-]+`, at most 230 bytes, not beginning with "." or "-".
void CheckUser(const std::string& user);

/// A certificate's name: something that has a folder and does not look like an option.
void CheckCertname(const std::string& certname);

/// The folder that a certificate of this name is installed in: its ASCII form, with "_wildcard." for a "*."
/// at the beginning.
std::string CertificateFolder(const std::string& certname);

/// The form in which folders of certificates are compared: names of the DNS differ by more than letter case.
std::string ComparedFolder(const std::string& certname);

/// The same; nothing for a name that cannot be installed: older versions took longer ones.
std::string ComparedFolderIfAny(const std::string& certname);

/// `name`, where a folder for certificates can have it: 1 to 230 bytes, no "/", no control character, no "."
/// at the beginning. `what` says in the error whose name it is.
std::string FolderName(const std::string& what, const std::string& name);

/// A domain name in UTF-8 or ASCII: labels of letters, digits, hyphens and underscores in its ASCII form.
/// With `wildcard` a first label "*" is allowed.
void CheckDomain(const std::string& name, bool wildcard);

/// What an XML answer can carry: UTF-8 without the control characters that XML 1.0 forbids. `key` names the
/// value.
void CheckText(const std::string& key, const std::string& text);
bool IsText(const std::string& text);

/// `text` with each byte that `IsText` forbids replaced by U+FFFD.
std::string MakeText(const std::string& text);

/// The form in which names are compared: ASCII, lower case, without the final dot. Errors: Error of code
/// kValue, about `key`, for a name that has no ASCII form.
std::string Canonical(const std::string& name, const std::string& key = "domain");

/// The name that a wildcard stands below, "example.org" for "*.example.org"; any other name as it is.
std::string WithoutWildcard(const std::string& name);

/// Whether `name` is `zone` or lies below it; both in the canonical form.
bool ZoneContains(const std::string& zone, const std::string& name);

/// Those of `zones` that contain `name`, the longest first; all in the canonical form.
std::vector<std::string> ZonesContaining(const std::vector<std::string>& zones, const std::string& name);

}  // namespace zelvek::names
