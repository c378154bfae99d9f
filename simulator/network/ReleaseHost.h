// The web servers that releases are published on: one real server on the loopback interface that answers for every host
// name it is told of, over HTTPS with certificates from an authority of its own, and over plain HTTP.
#pragma once

#include <openssl/ssl.h>

#include <cstddef>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "simulator/system/Certificates.h"

namespace simulator {

class Stream;

// What is answered at one address.
struct HostAnswer {
  int status = 200;
  std::string body;
  std::string location;                   // the Location header; empty: none
  std::optional<std::size_t> breakAfter;  // the connection breaks after so many bytes of the body
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
  [[nodiscard]] int port() const { return port_; }
  // The certificate of the authority that the machine trusts, as PEM.
  [[nodiscard]] std::string trustedAuthority() const { return authority_.pem(); }

 private:
  using Context = std::unique_ptr<SSL_CTX, Freed<SSL_CTX_free>>;
  struct Connection {
    int socket = -1;
    std::thread thread;
  };

  static int chooseCertificate(SSL* connection, int* alert, void* host);
  SSL_CTX* contextFor(const std::string& host);
  void acceptConnections();
  void serve(int socket);
  bool answer(const Stream& connection, const std::string& head);

  CertificateAuthority authority_;
  CertificateAuthority unknownAuthority_;
  int listener_ = -1;
  int port_ = 0;
  Context context_;

  mutable std::mutex mutex_;
  std::map<std::string, std::shared_ptr<const HostAnswer>> answers_;
  std::map<std::string, HostCertificate> hosts_;
  std::map<std::pair<std::string, HostCertificate>, Context> contexts_;
  std::vector<Connection> connections_;
  bool closing_ = false;
  std::thread acceptor_;
};

// The address as it is asked for: scheme and host in lower case, without user, fragment and the scheme's own port, with
// a path. What is no address stays as it is.
std::string requestedURL(const std::string& url);

// The host of an address such as "https://host/path", in lower case; empty when it has none.
std::string hostOf(std::string_view url);

}  // namespace simulator
