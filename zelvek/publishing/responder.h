#pragma once

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>

namespace zelvek {

/// A small web server for http-01 answers, for machines without one: GET and HEAD of
/// /.well-known/acme-challenge/<token> give the file's content as text/plain, everything else 404.
class Responder {
public:
    /// Listens until destroyed. `address` is "127.0.0.1:80", "[::1]:80" or ":80" (every address). `limit` is
    /// for a request as a whole, from its connection to the end of its answer. Errors: Error of code kValue
    /// (address), kIo (cannot listen).
    Responder(const std::string& address, std::filesystem::path answers,
              std::chrono::milliseconds limit = std::chrono::seconds{10});
    ~Responder();
    Responder(const Responder&) = delete;
    Responder& operator=(const Responder&) = delete;

    /// The port that it listens on, chosen by the system where `address` has port 0.
    int Port() const;

private:
    struct Server;
    std::unique_ptr<Server> server_;
};

}  // namespace zelvek
