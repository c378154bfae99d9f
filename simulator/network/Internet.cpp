#include "simulator/network/Internet.h"

#include <curl/curl.h>
#include <fcntl.h>

#include <stdexcept>

namespace simulator {
namespace {

constexpr int redirectLimit = 16;

// Where the body of an answer goes. That of a redirect is kept back: it counts only if nothing is followed.
struct Receiver {
  CURL* curl;
  const std::function<bool(std::string_view)>& receive;
  std::string keptBack;
};

bool redirects(long status) {
  return status == 301 || status == 302 || status == 303 || status == 307 || status == 308;
}

std::size_t receivePiece(char* data, std::size_t size, std::size_t count, void* context) {
  auto& receiver = *static_cast<Receiver*>(context);
  const std::string_view piece(data, size * count);
  long status = 0;
  curl_easy_getinfo(receiver.curl, CURLINFO_RESPONSE_CODE, &status);
  if (redirects(status)) {
    receiver.keptBack += piece;
    return piece.size();
  }
  return receiver.receive(piece) ? piece.size() : 0;
}

// Whether the host is one that App Transport Security does not apply to: a name without a dot, one of Bonjour's, or an
// address.
bool isLocal(const std::string& host) {
  const bool isAddress = host.starts_with('[') || host.find_first_not_of("0123456789.") == std::string::npos;
  return isAddress || host.find('.') == std::string::npos || host.ends_with(".local");
}

// Child processes do not get the machine's connections.
int closeOnExec(void*, curl_socket_t socket, curlsocktype) {
  fcntl(socket, F_SETFD, FD_CLOEXEC);
  return CURL_SOCKOPT_OK;
}

URLError errorFor(CURLcode code, long verification) {
  switch (code) {
    case CURLE_URL_MALFORMAT:
      return URLError::badURL;
    case CURLE_COULDNT_RESOLVE_HOST:
      return URLError::cannotFindHost;
    case CURLE_COULDNT_CONNECT:
      return URLError::cannotConnectToHost;
    case CURLE_OPERATION_TIMEDOUT:
      return URLError::timedOut;
    case CURLE_TOO_MANY_REDIRECTS:
      return URLError::httpTooManyRedirects;
    case CURLE_PEER_FAILED_VERIFICATION:
      return verification == X509_V_ERR_CERT_HAS_EXPIRED ? URLError::serverCertificateHasBadDate
                                                         : URLError::serverCertificateUntrusted;
    case CURLE_SSL_CONNECT_ERROR:
      return URLError::secureConnectionFailed;
    case CURLE_WRITE_ERROR:
      return URLError::cannotWriteToFile;
    case CURLE_WEIRD_SERVER_REPLY:
      return URLError::badServerResponse;
    default:
      return URLError::networkConnectionLost;
  }
}

}  // namespace

std::string localizedDescription(int error, const std::string& host) {
  switch (static_cast<URLError>(error)) {
    case URLError::badURL:
      return "bad URL";
    case URLError::timedOut:
      return "The request timed out.";
    case URLError::unsupportedURL:
      return "unsupported URL";
    case URLError::cannotFindHost:
      return "A server with the specified hostname could not be found.";
    case URLError::cannotConnectToHost:
      return "Could not connect to the server.";
    case URLError::networkConnectionLost:
      return "The network connection was lost.";
    case URLError::httpTooManyRedirects:
      return "too many HTTP redirects";
    case URLError::notConnectedToInternet:
      return "The Internet connection appears to be offline.";
    case URLError::badServerResponse:
      return "There was a bad response from the server.";
    case URLError::appTransportSecurityRequiresSecureConnection:
      return "The resource could not be loaded because the App Transport Security policy requires the use of a secure "
             "connection.";
    case URLError::fileDoesNotExist:
      return "The requested URL was not found on this server.";
    case URLError::secureConnectionFailed:
      return "An SSL error has occurred and a secure connection to the server cannot be made.";
    case URLError::serverCertificateHasBadDate:
    case URLError::serverCertificateUntrusted:
      return "The certificate for this server is invalid. You might be connecting to a server that is pretending to be "
             "“" +
             host + "” which could put your confidential information at risk.";
    case URLError::cannotWriteToFile:
      return "The file couldn’t be saved.";
  }
  return "The operation couldn’t be completed. (NSURLErrorDomain error " + std::to_string(error) + ".)";
}

Internet::Internet(ReleaseHost& host)
    : host_(host), curl_(curl_easy_init(), [](void* curl) { curl_easy_cleanup(curl); }) {
  if (!curl_) throw std::runtime_error("curl_easy_init failed");
}

Internet::~Internet() = default;

Transfer Internet::get(const std::string& address, const std::function<bool(std::string_view)>& receive) {
  const std::lock_guard lock(mutex_);
  std::string url = requestedURL(address);
  for (int followed = 0; followed <= redirectLimit; ++followed) {
    const bool isPlain = url.starts_with("http://");
    if (isPlain && !isLocal(hostOf(url))) return {URLError::appTransportSecurityRequiresSecureConnection, 0, url};
    if (!isPlain && !url.starts_with("https://")) return {URLError::unsupportedURL, 0, url};
    // Names that the machine was not told of do not exist; nothing ever leaves this computer.
    if (!host_.knows(hostOf(url))) return {URLError::cannotFindHost, 0, url};

    CURL* const curl = curl_.get();
    Receiver receiver{curl, receive, ""};
    curl_slist* const routes = prepare(url);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &receiver);
    const CURLcode code = curl_easy_perform(curl);
    curl_slist_free_all(routes);

    long status = 0;
    long verification = 0;
    char* next = nullptr;
    curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
    curl_easy_getinfo(curl, CURLINFO_SSL_VERIFYRESULT, &verification);
    curl_easy_getinfo(curl, CURLINFO_REDIRECT_URL, &next);
    if (code != CURLE_OK) return {errorFor(code, verification), 0, url};
    if (!redirects(status) || !next) {
      if (!receiver.keptBack.empty() && !receive(receiver.keptBack)) return {URLError::cannotWriteToFile, 0, url};
      curl_header* control = nullptr;
      const bool isTold = curl_easy_header(curl, "Cache-Control", 0, CURLH_HEADER, -1, &control) == CURLHE_OK;
      return {std::nullopt, static_cast<int>(status), url, isTold ? control->value : ""};
    }
    url = requestedURL(next);
  }
  return {URLError::httpTooManyRedirects, 0, url};
}

curl_slist* Internet::prepare(const std::string& url) {
  CURL* const curl = curl_.get();
  curl_easy_reset(curl);
  // Every name leads to the one server.
  curl_slist* const routes =
      curl_slist_append(nullptr, ("::127.0.0.1:" + std::to_string(host_.port(url.starts_with("http://")))).c_str());
  const std::string authority = host_.trustedAuthority();
  curl_blob trusted{const_cast<char*>(authority.data()), authority.size(), CURL_BLOB_COPY};
  curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
  curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(curl, CURLOPT_PROXY, "");
  curl_easy_setopt(curl, CURLOPT_CONNECT_TO, routes);
  curl_easy_setopt(curl, CURLOPT_CAINFO_BLOB, &trusted);
  curl_easy_setopt(curl, CURLOPT_CAPATH, nullptr);
  curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(curl, CURLOPT_HTTP_VERSION, CURL_HTTP_VERSION_1_1);
  curl_easy_setopt(curl, CURLOPT_SOCKOPTFUNCTION, &closeOnExec);
  curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, &receivePiece);
  return routes;
}

}  // namespace simulator
