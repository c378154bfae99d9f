#include "simulator/network/ReleaseHost.h"

#include <curl/curl.h>
#include <httplib.h>
#include <signal.h>

#include <algorithm>
#include <cctype>
#include <stdexcept>
#include <utility>

namespace simulator {
namespace {

std::string lowerCase(std::string_view text) {
  std::string result(text);
  std::ranges::transform(result, result.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return result;
}

using Address = std::unique_ptr<CURLU, Freed<curl_url_cleanup>>;

// The address taken apart; null when it is none.
Address parse(const std::string& url, unsigned int flags) {
  Address parts(curl_url());
  if (parts && curl_url_set(parts.get(), CURLUPART_URL, url.c_str(), flags) != CURLUE_OK) parts.reset();
  return parts;
}

std::string textOf(const Address& parts, CURLUPart part) {
  char* value = nullptr;
  curl_url_get(parts.get(), part, &value, CURLU_NO_DEFAULT_PORT);
  const std::unique_ptr<char, Freed<curl_free>> owned(value);
  return value ? value : "";
}

// A client that goes away is an error of the write, not a signal: for the servers' threads, and for nobody else. The
// library would have the whole process, and its children, ignore the signal.
class WithoutBrokenPipes {
 public:
  WithoutBrokenPipes() : action_(signal(SIGPIPE, SIG_DFL)) {
    signal(SIGPIPE, action_);
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &signals, &mask_);
  }
  WithoutBrokenPipes(const WithoutBrokenPipes&) = delete;
  WithoutBrokenPipes& operator=(const WithoutBrokenPipes&) = delete;
  ~WithoutBrokenPipes() {
    signal(SIGPIPE, action_);
    pthread_sigmask(SIG_SETMASK, &mask_, nullptr);
  }

 private:
  sighandler_t action_;
  sigset_t mask_{};
};

}  // namespace

std::string requestedURL(const std::string& url) {
  const Address parts = parse(url, 0);
  if (!parts) return url;
  curl_url_set(parts.get(), CURLUPART_HOST, lowerCase(textOf(parts, CURLUPART_HOST)).c_str(), 0);
  for (const CURLUPart part : {CURLUPART_USER, CURLUPART_PASSWORD, CURLUPART_FRAGMENT}) {
    curl_url_set(parts.get(), part, nullptr, 0);
  }
  return textOf(parts, CURLUPART_URL);
}

std::string hostOf(const std::string& url) {
  const Address parts = parse(url, CURLU_NON_SUPPORT_SCHEME);
  return parts ? lowerCase(textOf(parts, CURLUPART_HOST)) : "";
}

ReleaseHost::ReleaseHost()
    : authority_(Subject{"Simulated Web Authority", "Simulated Mac", ""}),
      unknownAuthority_(Subject{"Unknown Web Authority", "Nobody", ""}) {
  const WithoutBrokenPipes quiet;
  secure_.server = std::make_unique<httplib::SSLServer>([this](SSL_CTX& context) {
    SSL_CTX_set_tlsext_servername_callback(&context, &ReleaseHost::chooseCertificate);
    SSL_CTX_set_tlsext_servername_arg(&context, this);
    return true;
  });
  plain_.server = std::make_unique<httplib::Server>();
  run(secure_, "https://");
  run(plain_, "http://");
}

ReleaseHost::~ReleaseHost() {
  for (Server* const each : {&secure_, &plain_}) {
    each->server->stop();
    each->thread.join();
  }
}

void ReleaseHost::run(Server& server, std::string scheme) {
  constexpr std::size_t connections = 4;    // at a time
  constexpr std::size_t requests = 100000;  // on one of them
  httplib::Server& real = *server.server;
  real.new_task_queue = [] { return new httplib::ThreadPool(connections); };
  real.set_keep_alive_max_count(requests);
  real.set_tcp_nodelay(true);
  real.set_pre_routing_handler([this, scheme = std::move(scheme)](const auto& request, auto& response) {
    answer(scheme + lowerCase(request.get_header_value("Host")) + request.target, response);
    return httplib::Server::HandlerResponse::Handled;
  });
  server.port = real.bind_to_any_port("127.0.0.1");
  if (server.port < 0) throw std::runtime_error("The loopback interface cannot be listened on");
  server.thread = std::thread([&real] { real.listen_after_bind(); });
  // To stop a server that does not run yet has no effect.
  while (!real.is_running()) std::this_thread::yield();
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

void ReleaseHost::answer(const std::string& url, httplib::Response& response) const {
  std::shared_ptr<const HostAnswer> answer;
  {
    const std::lock_guard lock(mutex_);
    const auto found = answers_.find(url);
    answer = found != answers_.end() ? found->second : std::make_shared<const HostAnswer>(HostAnswer{404, "", "", {}});
  }
  response.status = answer->status;
  if (!answer->location.empty()) response.set_header("Location", answer->location);
  if (!answer->cacheControl.empty()) response.set_header("Cache-Control", answer->cacheControl);
  if (answer->body.empty() || answer->status == 204 || answer->status == 304) return;
  // A provider that fails ends the connection.
  const auto provide = [answer](std::size_t offset, std::size_t size, httplib::DataSink& sink) {
    const std::size_t end = std::min(offset + size, answer->breakAfter.value_or(answer->body.size()));
    return offset < end && sink.write(answer->body.data() + offset, end - offset);
  };
  response.set_content_provider(answer->body.size(), "application/octet-stream", provide);
}

}  // namespace simulator
