// The machine's way to web servers: HTTPS through libcurl, with certificates checked. Plain HTTP is refused as App
// Transport Security refuses it: not to the hosts of a local network.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "simulator/network/ReleaseHost.h"

struct curl_slist;

namespace simulator {

// Errors in NSURLErrorDomain (NSURLError.h).
enum class URLError : int {
  badURL = -1000,
  timedOut = -1001,
  unsupportedURL = -1002,
  cannotFindHost = -1003,
  cannotConnectToHost = -1004,
  networkConnectionLost = -1005,
  httpTooManyRedirects = -1007,
  notConnectedToInternet = -1009,
  badServerResponse = -1011,
  appTransportSecurityRequiresSecureConnection = -1022,
  fileDoesNotExist = -1100,
  secureConnectionFailed = -1200,
  serverCertificateHasBadDate = -1201,
  serverCertificateUntrusted = -1202,
  cannotWriteToFile = -3003,
};

// The error's text as the system shows it.
std::string localizedDescription(int error, const std::string& host);

// What one request ended with.
struct Transfer {
  std::optional<URLError> error;  // none: it was answered
  int status = 0;                 // of HTTP; 0 when the answer did not come over HTTP
  std::string url;                // what answered, after redirects
  std::string cacheControl = {};  // its Cache-Control header
};

class Internet {
 public:
  explicit Internet(ReleaseHost& host);
  ~Internet();
  Internet(const Internet&) = delete;
  Internet& operator=(const Internet&) = delete;

  // Gets `url`, following redirects, and hands the body over piece by piece; `receive` answers false when it cannot
  // take more. Blocks; usable from any thread.
  Transfer get(const std::string& url, const std::function<bool(std::string_view)>& receive);

 private:
  // Sets the connection up for one request; the result must live as long as the request.
  curl_slist* prepare(const std::string& url);

  ReleaseHost& host_;
  std::mutex mutex_;
  std::unique_ptr<void, void (*)(void*)> curl_;  // one connection is kept for the next request
};

}  // namespace simulator
