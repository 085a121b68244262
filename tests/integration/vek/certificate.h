#pragma once

#include <memory>
#include <string>

typedef struct ssl_ctx_st SSL_CTX;

namespace vek_test {

/// What a leaf certificate says.
struct Leaf {
    std::string names = "DNS:localhost,IP:127.0.0.1";  // subjectAltName
    int days = 1;                                      // until its end; negative for one that has ended
};

/// A certificate authority of the tests.
class Authority {
public:
    explicit Authority(const std::string& name);
    ~Authority();
    Authority(const Authority&) = delete;
    Authority& operator=(const Authority&) = delete;

    /// The root's PEM text.
    std::string Pem() const;

    using Context = std::unique_ptr<SSL_CTX, void (*)(SSL_CTX*)>;
    /// A TLS server's context with a new certificate of this authority.
    Context MakeContext(const Leaf& leaf) const;

private:
    struct Root;
    std::unique_ptr<Root> root_;
};

}  // namespace vek_test
