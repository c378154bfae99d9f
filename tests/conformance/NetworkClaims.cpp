// URL sessions, as far as nothing has to be on the network, and the application's life.
#include <CoreFoundation/CoreFoundation.h>
#include <dispatch/dispatch.h>
#include <os/lock.h>

#include <atomic>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>

#include "platform/Application.h"
#include "platform/CF.h"
#include "platform/URLSession.h"
#include "tests/conformance/Machine.h"

namespace {

namespace fs = std::filesystem;

// What came of a request.
struct Answer {
  std::atomic<int> calls = 0;
  std::string error;
  bool hasResponse = false;
  bool isHTTP = false;
  std::string url;
  std::string body;
  fs::path location;
  bool wasThere = false;
};
using Shared = std::shared_ptr<Answer>;

void keepResponse(Answer& answer, const NS::URLResponse& response, const NS::Error& error) {
  answer.hasResponse = static_cast<bool>(response);
  if (response) answer.isHTTP = static_cast<bool>(NS::HTTPURLResponse::cast(response));
  if (response) answer.url = response.URL().absoluteString();
  if (error) answer.error = error.localizedDescription();
  ++answer.calls;
}

Shared loaded(const std::string& url) {
  const auto answer = std::make_shared<Answer>();
  const auto request = NS::URLRequest::requestWithURL(NS::URL::URLWithString(url, false),
                                                      NS::URLRequestCachePolicy::ReloadIgnoringLocalCacheData, 15);
  NS::URLSession::sharedSession()
      .dataTaskWithRequest(request,
                           [answer](const NS::Data& data, const NS::URLResponse& response, const NS::Error& error) {
                             if (data && data.length() > 0) answer->body.assign(data.bytes(), data.length());
                             keepResponse(*answer, response, error);
                           })
      .resume();
  EXPECT_TRUE(claims::runUntil([&] { return answer->calls > 0; }, 30));
  return answer;
}

Shared downloaded(const std::string& url) {
  const auto answer = std::make_shared<Answer>();
  NS::URLSession::sharedSession()
      .downloadTaskWithURL(
          NS::URL::URLWithString(url, false),
          [answer](const std::string& location, const NS::URLResponse& response, const NS::Error& error) {
            answer->location = location;
            answer->wasThere = !location.empty() && fs::exists(location);
            std::ifstream file(location);
            answer->body.assign(std::istreambuf_iterator<char>(file), {});
            keepResponse(*answer, response, error);
          })
      .resume();
  EXPECT_TRUE(claims::runUntil([&] { return answer->calls > 0; }, 30));
  return answer;
}

// A file of the claim's own, and its URL.
struct File {
  File() { std::ofstream(path) << "in the file"; }
  ~File() { fs::remove(path); }
  File(const File&) = delete;
  File& operator=(const File&) = delete;

  const fs::path path = fs::temp_directory_path() / "claimed-file";
  [[nodiscard]] std::string url() const { return "file://" + path.string(); }
};

}  // namespace

CLAIM(Network, HostsThatDoNotExistAreErrors,
      "A request to a host that does not exist ends with an error that has a text, and with neither data nor response.",
      "NSURLSession.h, dataTaskWithRequest:completionHandler:; NSURLError.h, NSURLErrorCannotFindHost") {
  const Shared answer = loaded("https://nothing.invalid/");
  EXPECT_NE(answer->error, "");
  EXPECT_FALSE(answer->hasResponse);
  EXPECT_EQ(answer->body, "");
}

CLAIM(Network, PlainHTTPIsRefused, "A request over plain HTTP to a host of the Internet is refused.",
      "NSURLError.h, NSURLErrorAppTransportSecurityRequiresSecureConnection") {
  const Shared answer = loaded("http://www.example.com/");
  EXPECT_NE(answer->error.find("secure connection"), std::string::npos) << answer->error;
  EXPECT_FALSE(answer->hasResponse);
}

CLAIM(
    Network, PlainHTTPIsNotRefusedWithinTheHouse,
    "A request over plain HTTP to an address, or to a host without a dot in its name, is not refused for being plain.",
    "observed; Apple's documentation of NSAppTransportSecurity has it in part") {
  for (const char* const url : {"http://127.0.0.1:1/", "http://localhost:1/"}) {
    const Shared answer = loaded(url);
    EXPECT_NE(answer->error, "") << url;  // nobody listens there
    EXPECT_EQ(answer->error.find("secure connection"), std::string::npos) << answer->error;
  }
}

CLAIM(Network, UnknownSchemesAreRefused, "A request to a URL of a scheme that nobody serves ends with an error.",
      "NSURLError.h, NSURLErrorUnsupportedURL") {
  EXPECT_EQ(loaded("nobody-serves-this://host/")->error, "unsupported URL");
}

CLAIM(Network, HandlersAreCalledOnce, "A task's handler is called once, with the error as with the answer.",
      "NSURLSession.h, dataTaskWithRequest:completionHandler:") {
  const File file;
  const Shared right = loaded(file.url());
  const Shared wrong = loaded("nobody-serves-this://host/");
  claims::letRun(0.1);
  EXPECT_EQ(right->calls, 1);
  EXPECT_EQ(wrong->calls, 1);
}

CLAIM(Network, TasksBeginAtRest, "A task that is not resumed does nothing.",
      "NSURLSession.h, NSURLSessionTask, resume") {
  const File file;
  const auto calls = std::make_shared<std::atomic<int>>(0);
  {
    const auto task = NS::URLSession::sharedSession().downloadTaskWithURL(
        NS::URL::URLWithString(file.url(), false),
        [calls](const std::string&, const NS::URLResponse&, const NS::Error&) { ++*calls; });
    claims::letRun(0.3);
    EXPECT_EQ(*calls, 0);
    task.resume();
  }
  EXPECT_TRUE(claims::runUntil([&] { return *calls == 1; }));
}

CLAIM(Network, AFilesAnswerIsNotOfHTTP, "The answer to a file's URL is a response, but none of HTTP.",
      "NSURLResponse.h, NSHTTPURLResponse; observed") {
  const File file;
  const Shared answer = loaded(file.url());
  EXPECT_EQ(answer->error, "");
  EXPECT_TRUE(answer->hasResponse);
  EXPECT_FALSE(answer->isHTTP);
  EXPECT_EQ(answer->body, "in the file");
}

CLAIM(Network, FilesThatAreNotThereAreErrors, "The URL of a file that is not there ends with an error.",
      "NSURLError.h, NSURLErrorFileDoesNotExist") {
  EXPECT_EQ(loaded("file:///no/such/file")->error, "The requested URL was not found on this server.");
}

CLAIM(Network, ADownloadIsThereForItsHandler,
      "What was downloaded is a file as long as the handler runs, and is gone afterwards.",
      "NSURLSession.h, downloadTaskWithURL:completionHandler:") {
  const File file;
  const Shared answer = downloaded(file.url());
  EXPECT_EQ(answer->error, "");
  EXPECT_TRUE(answer->wasThere);
  EXPECT_EQ(answer->body, "in the file");
  EXPECT_NE(answer->location, file.path);
  EXPECT_TRUE(claims::runUntil([&] { return !fs::exists(answer->location); }));
}

CLAIM(Network, ADownloadThatFailsHasNoFile, "A download that fails has an error, and neither a file nor a response.",
      "NSURLSession.h, downloadTaskWithURL:completionHandler:") {
  const Shared answer = downloaded("file:///no/such/file");
  EXPECT_NE(answer->error, "");
  EXPECT_EQ(answer->location, "");
  EXPECT_FALSE(answer->hasResponse);
}

DESK_CLAIM(Network, AnswersOfHTTPHaveAStatus,
           "The answer of a web server is a response of HTTP with its status, its address and its body.",
           "NSURLResponse.h, NSHTTPURLResponse, statusCode") {
  const std::string url = "https://www.example.com/";
  claims::ask("Connect this Mac to the Internet.",
              R"({"do":"image","url":"https://www.example.com/","body":"a page"})");
  const auto status = std::make_shared<std::atomic<long>>(0);
  const auto answer = std::make_shared<Answer>();
  const auto request = NS::URLRequest::requestWithURL(NS::URL::URLWithString(url, false),
                                                      NS::URLRequestCachePolicy::UseProtocolCachePolicy, 15);
  NS::URLSession::sharedSession()
      .dataTaskWithRequest(request,
                           [=](const NS::Data& data, const NS::URLResponse& response, const NS::Error& error) {
                             if (data) answer->body.assign(data.bytes(), data.length());
                             const auto http =
                                 response ? NS::HTTPURLResponse::cast(response) : NS::HTTPURLResponse::cast({});
                             if (http) *status = http.statusCode();
                             keepResponse(*answer, response, error);
                           })
      .resume();
  EXPECT_TRUE(claims::runUntil([&] { return answer->calls > 0; }, 30));
  EXPECT_EQ(answer->error, "");
  EXPECT_EQ(*status, 200);
  EXPECT_EQ(answer->url, url);
  EXPECT_NE(answer->body, "");
}

// ---- The application ----

namespace {

struct Delegate : NS::ApplicationDelegate {
  void applicationDidFinishLaunching() override {
    hasLaunched = true;
    NS::Application::sharedApplication().terminate();
  }
  void applicationWillTerminate() override {
    if (hasLaunched) std::fputs("as claimed\n", stderr);
  }
  bool hasLaunched = false;
};

}  // namespace

ENDS(Application, TellsItsDelegate,
     "An application tells its delegate when it has launched and before it ends, and terminate ends the process with "
     "status 0.",
     "NSApplication.h, run, terminate:, NSApplicationDelegate") {
  Delegate delegate;
  const NS::Application application = NS::Application::sharedApplication();
  application.setDelegate(&delegate);
  application.run();
}
