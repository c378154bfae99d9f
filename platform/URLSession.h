// NSURLSession with its data and download tasks, and what goes in and comes out of them. Usable from any thread;
// completion handlers are called once, on a background queue of the session.
#pragma once

#include <cstddef>
#include <functional>
#include <string>

#include "platform/Error.h"
#include "platform/Object.h"
#include "platform/URL.h"

namespace NS {

// NSURLRequestCachePolicy.
enum class URLRequestCachePolicy : unsigned long {
  UseProtocolCachePolicy = 0,
  ReloadIgnoringLocalCacheData = 1,
};

class URLRequest : public Object {
 public:
  // `timeoutInterval` is how long the connection may stand still, in seconds.
  static URLRequest requestWithURL(const URL& url, URLRequestCachePolicy cachePolicy, double timeoutInterval);

 private:
  using Object::Object;
};

class URLResponse : public Object {
 public:
  URLResponse() noexcept = default;
  explicit URLResponse(CF::Ref<CFTypeRef> response) noexcept : Object(std::move(response)) {}

  // What answered, after redirects; may be null.
  [[nodiscard]] NS::URL URL() const;
};

class HTTPURLResponse : public URLResponse {
 public:
  // The response as what it is when it came over HTTP; otherwise null.
  static HTTPURLResponse cast(const URLResponse& response);

  [[nodiscard]] long statusCode() const;

 private:
  using URLResponse::URLResponse;
};

class Data : public Object {
 public:
  Data() noexcept = default;

  // Valid as long as the object; may be null when there are none.
  [[nodiscard]] const char* bytes() const;
  [[nodiscard]] std::size_t length() const;

  explicit Data(CF::Ref<CFTypeRef> data) noexcept : Object(std::move(data)) {}
};

class URLSessionTask : public Object {
 public:
  // A task is made at rest; this starts it.
  void resume() const;

  explicit URLSessionTask(CF::Ref<CFTypeRef> task) noexcept : Object(std::move(task)) {}
};

class URLSession : public Object {
 public:
  static URLSession sharedSession();

  // Loads the answer to `request` into memory. Either the error is null or the other two are.
  [[nodiscard]] URLSessionTask dataTaskWithRequest(
      const URLRequest& request,
      std::function<void(const Data& data, const URLResponse& response, const Error& error)> completionHandler) const;

  // Loads what is at `url` into a temporary file, which is gone once the handler has returned. Either the error is
  // null or the other two are.
  [[nodiscard]] URLSessionTask downloadTaskWithURL(
      const URL& url, std::function<void(const std::string& location, const URLResponse& response, const Error& error)>
                          completionHandler) const;

 private:
  using Object::Object;
};

}  // namespace NS
