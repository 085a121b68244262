#pragma once

namespace vek_rpc {

/// Whether single roots can be looked up in this folder by the hash of their name ("5ed36f99.0"); false for
/// none. The entries of a folder that had some are not read again while it stays as it is.
bool IsHashed(const char* folder);

}  // namespace vek_rpc
