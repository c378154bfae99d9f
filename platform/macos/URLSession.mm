#include "platform/URLSession.h"

#import <Foundation/Foundation.h>

#include "platform/macos/Conversions.h"
#include "platform/macos/Text.h"

namespace NS {

static_assert(static_cast<unsigned long>(URLRequestCachePolicy::UseProtocolCachePolicy) ==
              NSURLRequestUseProtocolCachePolicy);
static_assert(static_cast<unsigned long>(URLRequestCachePolicy::ReloadIgnoringLocalCacheData) ==
              NSURLRequestReloadIgnoringLocalCacheData);

// A handle that shares `object`, which may be nil.
template <typename Handle>
static Handle share(id object) {
  return Handle(CF::adopt((__bridge_retained CFTypeRef)object));
}

URLRequest URLRequest::requestWithURL(const URL& url, URLRequestCachePolicy cachePolicy, double timeoutInterval) {
  @autoreleasepool {
    return URLRequest(CF::adopt(
        (__bridge_retained CFTypeRef)[NSURLRequest requestWithURL:(__bridge NSURL*)url.get()
                                                      cachePolicy:static_cast<NSURLRequestCachePolicy>(cachePolicy)
                                                  timeoutInterval:timeoutInterval]));
  }
}

NS::URL URLResponse::URL() const {
  @autoreleasepool {
    return share<NS::URL>(((__bridge NSURLResponse*)get()).URL);
  }
}

HTTPURLResponse HTTPURLResponse::cast(const URLResponse& response) {
  @autoreleasepool {
    const id object = instanceOf(NSHTTPURLResponse.class, (__bridge id)response.get());
    return HTTPURLResponse(CF::retain((__bridge CFTypeRef)object));
  }
}

long HTTPURLResponse::statusCode() const {
  @autoreleasepool {
    return ((__bridge NSHTTPURLResponse*)get()).statusCode;
  }
}

// No pool: what the object hands out may live no longer than one.
const char* Data::bytes() const { return static_cast<const char*>(((__bridge NSData*)get()).bytes); }

std::size_t Data::length() const {
  @autoreleasepool {
    return ((__bridge NSData*)get()).length;
  }
}

void URLSessionTask::resume() const {
  @autoreleasepool {
    [(__bridge NSURLSessionTask*)get() resume];
  }
}

URLSession URLSession::sharedSession() {
  @autoreleasepool {
    return URLSession(CF::retain((__bridge CFTypeRef)NSURLSession.sharedSession));
  }
}

// By value: a block would take a reference along, not what it refers to.
// NOLINTBEGIN(performance-unnecessary-value-param)
URLSessionTask URLSession::dataTaskWithRequest(
    const URLRequest& request,
    std::function<void(const Data&, const URLResponse&, const Error&)> completionHandler) const {
  @autoreleasepool {
    return share<URLSessionTask>([(__bridge NSURLSession*)get()
        dataTaskWithRequest:(__bridge NSURLRequest*)request.get()
          completionHandler:^(NSData* data, NSURLResponse* response, NSError* error) {
            completionHandler(share<Data>(data), share<URLResponse>(response), share<Error>(error));
          }]);
  }
}

URLSessionTask URLSession::downloadTaskWithURL(
    const URL& url, std::function<void(const std::string&, const URLResponse&, const Error&)> completionHandler) const {
  @autoreleasepool {
    return share<URLSessionTask>([(__bridge NSURLSession*)get()
        downloadTaskWithURL:(__bridge NSURL*)url.get()
          completionHandler:^(NSURL* location, NSURLResponse* response, NSError* error) {
            completionHandler(text(location.path), share<URLResponse>(response), share<Error>(error));
          }]);
  }
}
// NOLINTEND(performance-unnecessary-value-param)

}  // namespace NS
