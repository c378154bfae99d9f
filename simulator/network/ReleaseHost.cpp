#include "simulator/network/ReleaseHost.h"

#include <arpa/inet.h>
#include <curl/curl.h>
#include <netinet/tcp.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace simulator {
namespace {

using Connected = std::unique_ptr<SSL, Freed<SSL_free>>;

[[noreturn]] void fail(const char* what) { throw std::system_error(errno, std::generic_category(), what); }

std::string lowerCase(std::string_view text) {
  std::string result(text);
  std::ranges::transform(result, result.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return result;
}

// The value of a header field in a request's head; empty when there is none.
std::string header(const std::string& head, std::string_view name) {
  const std::string wanted = "\r\n" + lowerCase(name) + ": ";
  const std::size_t at = lowerCase(head).find(wanted);
  if (at == std::string::npos) return "";
  const std::size_t start = at + wanted.size();
  return head.substr(start, head.find("\r\n", start) - start);
}

}  // namespace

// A connection to a client, with TLS or without.
class Stream {
 public:
  // `tls` is null for plain HTTP.
  Stream(int socket, SSL* tls) : socket_(socket), tls_(tls) {}

  [[nodiscard]] const char* scheme() const { return tls_ ? "https://" : "http://"; }

  // Appends what comes next; false at the end.
  bool read(std::string& received) const {
    std::array<char, 4096> buffer;
    std::size_t size = 0;
    if (tls_) {
      if (SSL_read_ex(tls_, buffer.data(), buffer.size(), &size) != 1) return false;
    } else {
      const ssize_t count = recv(socket_, buffer.data(), buffer.size(), 0);
      if (count <= 0) return false;
      size = static_cast<std::size_t>(count);
    }
    received.append(buffer.data(), size);
    return true;
  }

  [[nodiscard]] bool write(std::string_view data) const {
    while (!data.empty()) {
      std::size_t size = 0;
      if (tls_) {
        if (SSL_write_ex(tls_, data.data(), data.size(), &size) != 1) return false;
      } else {
        const ssize_t count = send(socket_, data.data(), data.size(), 0);
        if (count <= 0) return false;
        size = static_cast<std::size_t>(count);
      }
      data.remove_prefix(size);
    }
    return true;
  }

 private:
  int socket_;
  SSL* tls_;
};

std::string requestedURL(const std::string& url) {
  const std::unique_ptr<CURLU, Freed<curl_url_cleanup>> parts(curl_url());
  const auto text = [&parts](CURLUPart part) {
    char* value = nullptr;
    curl_url_get(parts.get(), part, &value, CURLU_NO_DEFAULT_PORT);
    const std::unique_ptr<char, Freed<curl_free>> owned(value);
    return std::string(value ? value : "");
  };
  if (!parts || curl_url_set(parts.get(), CURLUPART_URL, url.c_str(), 0) != CURLUE_OK) return url;
  curl_url_set(parts.get(), CURLUPART_HOST, lowerCase(text(CURLUPART_HOST)).c_str(), 0);
  for (const CURLUPart part : {CURLUPART_USER, CURLUPART_PASSWORD, CURLUPART_FRAGMENT}) {
    curl_url_set(parts.get(), part, nullptr, 0);
  }
  return text(CURLUPART_URL);
}

std::string hostOf(std::string_view url) {
  const std::size_t start = url.find("://");
  if (start == std::string_view::npos) return "";
  url.remove_prefix(start + 3);
  url = url.substr(0, url.find_first_of("/?#"));
  if (const std::size_t user = url.rfind('@'); user != std::string_view::npos) url.remove_prefix(user + 1);
  return lowerCase(url.substr(0, url.find(':')));
}

ReleaseHost::ReleaseHost()
    : authority_(Subject{"Simulated Web Authority", "Simulated Mac", ""}),
      unknownAuthority_(Subject{"Unknown Web Authority", "Nobody", ""}),
      context_(SSL_CTX_new(TLS_server_method())) {
  if (!context_) throw std::runtime_error("SSL_CTX_new failed");
  SSL_CTX_set_tlsext_servername_callback(context_.get(), &ReleaseHost::chooseCertificate);
  SSL_CTX_set_tlsext_servername_arg(context_.get(), this);

  listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (listener_ < 0) fail("socket");
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  auto* const generic = reinterpret_cast<sockaddr*>(&address);
  if (bind(listener_, generic, size) != 0 || listen(listener_, 16) != 0 ||
      getsockname(listener_, generic, &size) != 0) {
    close(listener_);
    fail("listen on the loopback interface");
  }
  port_ = ntohs(address.sin_port);
  acceptor_ = std::thread([this] { acceptConnections(); });
}

ReleaseHost::~ReleaseHost() {
  {
    const std::lock_guard lock(mutex_);
    closing_ = true;
    for (const Connection& connection : connections_) shutdown(connection.socket, SHUT_RDWR);
  }
  shutdown(listener_, SHUT_RDWR);
  acceptor_.join();
  for (Connection& connection : connections_) {
    connection.thread.join();
    close(connection.socket);
  }
  close(listener_);
}

void ReleaseHost::setAnswer(const std::string& url, HostAnswer answer) {
  const std::lock_guard lock(mutex_);
  hosts_.try_emplace(hostOf(url), HostCertificate::genuine);
  answers_[url] = std::make_shared<const HostAnswer>(std::move(answer));
}

void ReleaseHost::setCertificate(const std::string& host, HostCertificate certificate) {
  const std::lock_guard lock(mutex_);
  hosts_[host] = certificate;
}

bool ReleaseHost::knows(const std::string& host) const {
  const std::lock_guard lock(mutex_);
  return hosts_.contains(host);
}

int ReleaseHost::chooseCertificate(SSL* connection, int*, void* host) {
  const char* const name = SSL_get_servername(connection, TLSEXT_NAMETYPE_host_name);
  if (!name) return SSL_TLSEXT_ERR_ALERT_FATAL;
  try {
    SSL_set_SSL_CTX(connection, static_cast<ReleaseHost*>(host)->contextFor(lowerCase(name)));
    return SSL_TLSEXT_ERR_OK;
  } catch (const std::exception&) {
    return SSL_TLSEXT_ERR_ALERT_FATAL;
  }
}

SSL_CTX* ReleaseHost::contextFor(const std::string& host) {
  const std::lock_guard lock(mutex_);
  const auto known = hosts_.find(host);
  const HostCertificate which = known == hosts_.end() ? HostCertificate::genuine : known->second;
  Context& context = contexts_[{host, which}];
  if (!context) {
    CertificateAuthority& issuer = which == HostCertificate::ofUnknownAuthority ? unknownAuthority_ : authority_;
    const std::string name = which == HostCertificate::ofAnotherHost ? "another.example" : host;
    const Validity validity = which == HostCertificate::expired ? Validity::expired : Validity::current;
    const Identity identity = issuer.issue(Subject{name, "", ""}, Purpose::server, validity);
    context.reset(SSL_CTX_new(TLS_server_method()));
    SSL_CTX_use_certificate(context.get(), identity.certificate.get());
    SSL_CTX_use_PrivateKey(context.get(), identity.key.get());
  }
  return context.get();
}

void ReleaseHost::acceptConnections() {
  for (;;) {
    const int socket = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    if (socket < 0 && errno == EINTR) continue;
    if (socket < 0) return;
    const int on = 1;
    setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    const std::lock_guard lock(mutex_);
    if (closing_) {
      close(socket);
      return;
    }
    // Sockets are closed with the host, so that a number is not taken again while a thread may still use it.
    connections_.push_back({socket, std::thread([this, socket] { serve(socket); })});
  }
}

void ReleaseHost::serve(int socket) {
  // A client that goes away is an error of the write, not a signal.
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);

  // TLS begins with a record of the type "handshake", HTTP with a letter.
  constexpr char handshake = 22;
  char first = 0;
  Connected tls;
  if (recv(socket, &first, 1, MSG_PEEK) == 1 && first == handshake) {
    tls.reset(SSL_new(context_.get()));
    SSL_set_fd(tls.get(), socket);
  }
  if (!tls || SSL_accept(tls.get()) == 1) {
    const Stream connection(socket, tls.get());
    std::string received;
    for (bool open = true; open;) {
      const std::size_t end = received.find("\r\n\r\n");
      if (end == std::string::npos) {
        open = connection.read(received);
      } else {
        open = answer(connection, received.substr(0, end + 2));
        received.erase(0, end + 4);
      }
    }
  }
  shutdown(socket, SHUT_RDWR);
}

bool ReleaseHost::answer(const Stream& connection, const std::string& head) {
  const std::size_t start = head.find(' ');
  const std::string path = head.substr(start + 1, head.find(' ', start + 1) - start - 1);
  std::shared_ptr<const HostAnswer> answer;
  {
    const std::lock_guard lock(mutex_);
    const auto found = answers_.find(connection.scheme() + lowerCase(header(head, "Host")) + path);
    answer = found != answers_.end() ? found->second : std::make_shared<const HostAnswer>(HostAnswer{404, "", "", {}});
  }

  std::string reply = "HTTP/1.1 " + std::to_string(answer->status) + " Answer\r\n";
  if (!answer->location.empty()) reply += "Location: " + answer->location + "\r\n";
  const bool hasBody = answer->status >= 200 && answer->status != 204 && answer->status != 304;
  if (hasBody) reply += "Content-Length: " + std::to_string(answer->body.size()) + "\r\n";
  reply += "\r\n";
  std::string_view body = hasBody ? std::string_view(answer->body) : std::string_view();
  const bool breaks = answer->breakAfter.has_value();
  if (breaks) body = body.substr(0, *answer->breakAfter);
  return connection.write(reply) && connection.write(body) && !breaks;
}

}  // namespace simulator
