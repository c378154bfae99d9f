// Keys, certificates and the authorities that issue them: real ones, made when the machine first needs them.
#pragma once

#include <openssl/evp.h>
#include <openssl/x509.h>

#include <memory>
#include <string>
#include <string_view>

namespace simulator {

template <auto Free>
struct Freed {
  template <typename T>
  void operator()(T* object) const {
    Free(object);
  }
};
using Key = std::unique_ptr<EVP_PKEY, Freed<EVP_PKEY_free>>;
using Certificate = std::unique_ptr<X509, Freed<X509_free>>;

// Whom a certificate is for. Empty members are left out.
struct Subject {
  std::string commonName;
  std::string organization;
  std::string unit;  // OU: the team identifier of a developer
};

enum class Purpose { server, codeSigning };
enum class Validity { current, expired };

// A key with the certificate that vouches for it.
struct Identity {
  Key key;
  Certificate certificate;
};

// An authority with a self-signed certificate.
class CertificateAuthority {
 public:
  explicit CertificateAuthority(const Subject& subject);

  // For Purpose::server the common name is the host's.
  [[nodiscard]] Identity issue(const Subject& subject, Purpose purpose, Validity validity = Validity::current);
  [[nodiscard]] X509* certificate() const { return own_.certificate.get(); }
  // The authority's own certificate, as PEM.
  [[nodiscard]] std::string pem() const;

 private:
  Identity own_;
  long serial_ = 1;
};

// The digest in lower-case hex.
std::string sha256(std::string_view content);

}  // namespace simulator
