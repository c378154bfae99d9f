// The web servers that releases are published on: a real server on the loopback interface that answers for every host
// name it is told of over HTTPS, with certificates from an authority of its own, and one that does over plain HTTP.
#pragma once

#include <openssl/ssl.h>

#include <cstddef>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "simulator/system/Certificates.h"

namespace httplib {
class Server;
struct Response;
}  // namespace httplib

namespace simulator {

// What is answered at one address.
struct HostAnswer {
  int status = 200;
  std::string body;
  std::string location;                   // the Location header; empty: none
  std::optional<std::size_t> breakAfter;  // the connection breaks after so many bytes of the body
  std::string cacheControl = {};          // the Cache-Control header; empty: none
};

// What a host shows when a connection is made.
enum class HostCertificate { genuine, expired, ofAnotherHost, ofUnknownAuthority };

// Its threads touch nothing else of the machine. All operations are usable from any thread.
class ReleaseHost {
 public:
  ReleaseHost();
  ~ReleaseHost();
  ReleaseHost(const ReleaseHost&) = delete;
  ReleaseHost& operator=(const ReleaseHost&) = delete;

  // From now on `url`, as `requestedURL` gives it, is answered so; other addresses of a known host with status 404.
  void setAnswer(const std::string& url, HostAnswer answer);
  void setCertificate(const std::string& host, HostCertificate certificate);
  // Whether the host name exists.
  [[nodiscard]] bool knows(const std::string& host) const;
  // Where an address of that scheme is answered.
  [[nodiscard]] int port(bool isPlain) const { return (isPlain ? plain_ : secure_).port; }
  // The certificate of the authority that the machine trusts, as PEM.
  [[nodiscard]] std::string trustedAuthority() const { return authority_.pem(); }

 private:
  using Context = std::unique_ptr<SSL_CTX, Freed<SSL_CTX_free>>;
  struct Server {
    std::unique_ptr<httplib::Server> server;
    int port = 0;
    std::thread thread = {};
  };

  static int chooseCertificate(SSL* connection, int* alert, void* host);
  SSL_CTX* contextFor(const std::string& host);
  void run(Server& server, std::string scheme);
  void answer(const std::string& url, httplib::Response& response) const;

  CertificateAuthority authority_;
  CertificateAuthority unknownAuthority_;
  mutable std::mutex mutex_;
  std::map<std::string, std::shared_ptr<const HostAnswer>> answers_;
  std::map<std::string, HostCertificate> hosts_;
  std::map<std::pair<std::string, HostCertificate>, Context> contexts_;
  Server secure_;
  Server plain_;
};

// The address as it is asked for: scheme and host in lower case, without user, fragment and the scheme's own port, with
// a path. What is no address stays as it is.
std::string requestedURL(const std::string& url);

// The host of an address such as "https://host/path", in lower case; empty when it has none.
std::string hostOf(const std::string& url);

}  // namespace simulator
