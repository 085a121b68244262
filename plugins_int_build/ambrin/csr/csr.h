#pragma once

#include <string>

/// Has the panel make a certificate signing request and its key for the job's names, reads both (PEM) and
/// removes the panel's copy. Errors: vek_err::Error of the panel queries; the outputs are unchanged when
/// making or reading failed.
void GetCSR(std::string& csr, std::string& key);

/// The DER form of a PEM request, base64url-encoded, as finalization wants it.
/// Errors: vek_err::Error("ambrin", "derencode_error", output) when `openssl` refuses the text.
std::string GetEncodedDERCsr(const std::string& csr);
