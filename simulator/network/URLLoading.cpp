#include "simulator/network/URLLoading.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <nlohmann/json.hpp>
#include <utility>

#include "platform/URLSession.h"
#include "simulator/foundation/Foundation.h"
#include "simulator/kernel/Call.h"
#include "simulator/kernel/Commands.h"
#include "simulator/system/FileContent.h"
#include "simulator/system/Files.h"
#include "simulator/system/SystemRoot.h"

namespace simulator {
namespace {

// What an exchange with a host on the other side of the network takes.
constexpr Duration exchangeTime = std::chrono::milliseconds(50);

constexpr const char* dataTask = "NSURLSession.dataTaskWithRequest";
constexpr const char* downloadTask = "NSURLSession.downloadTaskWithURL";

HostCertificate certificateNamed(Arguments& line) {
  const std::string name = line.text("certificate", "genuine");
  if (name == "genuine") return HostCertificate::genuine;
  if (name == "expired") return HostCertificate::expired;
  if (name == "another-host") return HostCertificate::ofAnotherHost;
  if (name == "unknown-authority") return HostCertificate::ofUnknownAuthority;
  line.fail("member \"certificate\" must be \"genuine\", \"expired\", \"another-host\" or \"unknown-authority\"");
}

// The members that say how a host answers, whatever the answer is.
HostAnswer parseAnswer(Arguments& line) {
  HostAnswer answer;
  answer.status = line.has("status") ? line.integer<int>("status") : 200;
  // Interim answers (1xx) are not answers yet.
  if (answer.status < 200 || answer.status > 999) line.fail("member \"status\" must be from 200 to 999");
  answer.location = line.text("redirect", "");
  if (line.has("redirect") && !isURL(answer.location)) line.fail("member \"redirect\" must be a URL");
  if (!answer.location.empty() && !line.has("status")) answer.status = 302;
  answer.cacheControl = line.text("cache-control", "");
  if (answer.cacheControl.find_first_of("\r\n") != std::string::npos) {
    line.fail("member \"cache-control\" must be one line");
  }
  if (line.has("break-after")) answer.breakAfter = line.unsigned32("break-after");
  return answer;
}

Duration parseSeconds(Arguments& line, const char* member) {
  const double seconds = line.number(member, 0);
  if (!(seconds >= 0) || seconds > 1e6) {
    line.fail("member \"" + std::string(member) + "\" must be from 0 to a million seconds");
  }
  return Duration(std::llround(seconds * 1e9));
}

Route parseRoute(Arguments& line) {
  Route route;
  if (line.has("error") && !line.json("error").is_null()) route.error = line.text("error");
  route.delay = parseSeconds(line, "delay");
  if (auto drip = line.object("drip")) {
    route.pieces = drip->count("pieces", 1);
    route.pause = parseSeconds(*drip, "pause");
    drip->finish();
  }
  route.plainResponse = !line.flag("http", true);
  return route;
}

// What "max-age=" says, in seconds; zero where it is not said.
Duration freshness(const std::string& cacheControl) {
  constexpr std::string_view member = "max-age=";
  const std::size_t at = cacheControl.find(member);
  if (at == std::string::npos || cacheControl.find("no-store") != std::string::npos) return Duration::zero();
  constexpr unsigned long longest = 365 * 86400;
  return std::chrono::seconds(std::min(std::strtoul(cacheControl.c_str() + at + member.size(), nullptr, 10), longest));
}

}  // namespace

URLLoading::URLLoading(Machine& machine, SystemRoot& root) : machine_(machine), root_(root) {
  machine.faults.declare({dataTask, downloadTask});
}

ReleaseHost& URLLoading::host() {
  if (!host_) {
    host_ = std::make_unique<ReleaseHost>();
    internet_ = std::make_shared<Internet>(*host_);
  }
  return *host_;
}

Publication Publication::parse(Arguments& line) {
  return {.answer = parseAnswer(line), .route = parseRoute(line), .certificate = certificateNamed(line)};
}

void URLLoading::publish(const std::string& address, Publication publication) {
  const std::string url = requestedURL(address);
  const Scheduler::Lock lock(machine_.scheduler);
  host().setAnswer(url, std::move(publication.answer));
  host().setCertificate(hostOf(url), publication.certificate);
  // The next connection is a new one, and meets the certificate.
  if (publication.certificate != HostCertificate::genuine) internet_ = std::make_shared<Internet>(*host_);
  routes_[url] = std::move(publication.route);
  if (url == machine_.process.program().feedURL) feedPublished_ = true;
}

// Until a scenario says what is published, that is the version which is installed.
void URLLoading::publishInstalledVersion() {
  const Program& program = machine_.process.program();
  const nlohmann::json release = {{"version", program.version},
                                  {"date", "2025-01-01"},
                                  {"dmg_url", "https://" + hostOf(program.feedURL) + "/" + program.name + ".dmg"},
                                  {"size_bytes", 0},
                                  {"notes", ""}};
  Publication publication;
  publication.answer.body = nlohmann::json::array({release}).dump();
  publish(program.feedURL, std::move(publication));
}

Loaded URLLoading::load(const std::string& url, double timeout, const Receive& receive) {
  Route route;
  std::shared_ptr<Internet> internet;
  {
    const Scheduler::Lock lock(machine_.scheduler);
    host();
    internet = internet_;
    if (!feedPublished_) publishInstalledVersion();
    if (const auto known = routes_.find(requestedURL(url)); known != routes_.end()) route = known->second;
  }
  const auto failed = [&](URLError error) {
    return Loaded{localizedDescription(static_cast<int>(error), hostOf(url)), 0, url};
  };
  // Whether something happens before the program's patience is at its end.
  const auto waitFor = [&](Duration time, Duration more) {
    const Duration patience(std::llround(timeout * 1e9));
    machine_.scheduler.sleep(time < patience ? time + more : patience);
    return time < patience;
  };
  if (!waitFor(route.delay, exchangeTime)) return failed(URLError::timedOut);
  if (route.error) return {route.error, 0, url};

  if (const auto path = filePath(url)) {
    std::string content;
    try {
      // What the program has made has its path on the host.
      const bool isWhole = path->starts_with(root_.path().string() + "/");
      content = readFile(isWhole ? std::filesystem::path(*path) : root_.below(*path));
    } catch (const std::system_error&) {
      return failed(URLError::fileDoesNotExist);
    }
    receive(content);
    return {std::nullopt, 0, url};
  }
  std::string body;
  const auto keep = [&body](std::string_view piece) {
    body += piece;
    return true;
  };
  const bool drips = route.pause > Duration::zero();
  const Transfer transfer = internet->get(url, drips ? Receive(keep) : receive);
  const std::size_t size = body.size() / route.pieces + 1;
  for (std::size_t at = 0; at < body.size(); at += size) {
    if (!waitFor(route.pause, Duration::zero())) return failed(URLError::timedOut);
    if (!receive(std::string_view(body).substr(at, size))) return failed(URLError::cannotWriteToFile);
  }
  if (transfer.error) {
    return {localizedDescription(static_cast<int>(*transfer.error), hostOf(url)), 0, transfer.url};
  }
  return {std::nullopt, route.plainResponse ? 0 : transfer.status, transfer.url, freshness(transfer.cacheControl)};
}

Loaded URLLoading::loadCached(const std::string& url, bool useCache, double timeout, const Receive& receive) {
  const std::string key = requestedURL(url);
  {
    const Scheduler::Lock lock(machine_.scheduler);
    const auto known = cache_.find(key);
    if (useCache && known != cache_.end() && machine_.scheduler.now() < known->second.until) {
      receive(known->second.body);
      return known->second.loaded;
    }
  }
  std::string body;
  const Loaded loaded = load(url, timeout, [&](std::string_view piece) {
    body += piece;
    return receive(piece);
  });
  if (!loaded.error && loaded.status == 200 && loaded.freshFor > Duration::zero()) {
    const Scheduler::Lock lock(machine_.scheduler);
    cache_[key] = {loaded, std::move(body), machine_.scheduler.now() + loaded.freshFor};
  }
  return loaded;
}

std::filesystem::path URLLoading::temporaryFile() {
  const Scheduler::Lock lock(machine_.scheduler);
  return root_.temporaryDirectory() / ("CFNetworkDownload_" + std::to_string(++downloads_) + ".tmp");
}

void URLLoading::addCommands(Commands& commands) {
  commands.add("feed", [this](Arguments& line) -> Action {
    if (line.has("body") && line.has("releases")) line.fail("has \"body\" and \"releases\"");
    Publication publication = Publication::parse(line);
    if (line.has("releases")) {
      const nlohmann::json releases = line.json("releases");
      if (!releases.is_array()) line.fail("member \"releases\" must be a list");
      publication.answer.body = releases.dump();
    } else {
      publication.answer.body = line.text("body", "");
    }
    return [this, publication] { publish(machine_.process.program().feedURL, publication); };
  });
}

namespace {

struct RequestObject : Object {
  RequestObject(std::string address, unsigned long policy, double interval)
      : url(std::move(address)), cachePolicy(policy), timeout(interval) {}
  std::string_view kind() const override { return "NSURLRequest"; }
  const std::string url;
  const unsigned long cachePolicy;
  const double timeout;
};

struct ResponseObject : Object {
  ResponseObject(int code, std::string address) : status(code), url(std::move(address)) {}
  std::string_view kind() const override { return status != 0 ? "NSHTTPURLResponse" : "NSURLResponse"; }
  const int status;  // 0: not of HTTP
  const std::string url;
};

struct SessionObject : Object {
  SessionObject() { makeImmortal(); }
  std::string_view kind() const override { return "NSURLSession"; }
};

// A request that can be sent once.
struct TaskObject : Object {
  TaskObject(const char* name, std::string address, unsigned long policy, double interval, std::function<void()> work)
      : api(name), url(std::move(address)), cachePolicy(policy), timeout(interval), run(std::move(work)) {}
  std::string_view kind() const override { return "NSURLSessionTask"; }

  const char* const api;
  const std::string url;
  const unsigned long cachePolicy;
  const double timeout;
  std::function<void()> run;  // empty once resumed
};

template <typename T, typename... Values>
CF::Ref<CFTypeRef> make(Values&&... values) {
  return CF::adopt(static_cast<CFTypeRef>(new T(std::forward<Values>(values)...)));
}

// A file that is gone at the end of the scope.
class TemporaryFile {
 public:
  explicit TemporaryFile(std::filesystem::path path) : path_(std::move(path)) {}
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;
  ~TemporaryFile() {
    std::error_code ignored;
    const MachineAtWork work;
    std::filesystem::remove(path_, ignored);
  }
  [[nodiscard]] const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

// NSURLRequestCachePolicy's names.
const char* cachePolicyName(unsigned long policy) {
  return policy == 0 ? "useProtocolCachePolicy" : "reloadIgnoringLocalCacheData";
}

NS::URLResponse responseFor(const Loaded& loaded) {
  return NS::URLResponse(make<ResponseObject>(loaded.status, loaded.url));
}

// Loads unless the call has been told to fail.
Loaded loadOrFail(Machine& machine, std::optional<std::int32_t> fault, const std::string& url, unsigned long policy,
                  double timeout, const URLLoading::Receive& receive) {
  if (!fault) return machine.part<URLLoading>().loadCached(url, policy == 0, timeout, receive);
  machine.scheduler.sleep(exchangeTime);
  return {localizedDescription(*fault, hostOf(url)), 0, url};
}

}  // namespace
}  // namespace simulator

// ---- NSURLSession ----

namespace NS {

using simulator::Call;
using simulator::live;
using simulator::Loaded;
using simulator::Machine;

URLRequest URLRequest::requestWithURL(const URL& url, URLRequestCachePolicy cachePolicy, double timeoutInterval) {
  const Call call("NSURLRequest.requestWithURL");
  return URLRequest(
      simulator::make<simulator::RequestObject>(live<__CFURL>(url.get(), "NSURLRequest.requestWithURL").text,
                                                static_cast<unsigned long>(cachePolicy), timeoutInterval));
}

URL URLResponse::URL() const {
  return NS::URL(simulator::make<__CFURL>(live<simulator::ResponseObject>(get(), "NSURLResponse.URL").url));
}

HTTPURLResponse HTTPURLResponse::cast(const URLResponse& response) {
  const auto& object = live<simulator::ResponseObject>(response.get(), "NSHTTPURLResponse");
  return HTTPURLResponse(CF::retain(object.status != 0 ? response.get() : nullptr));
}

long HTTPURLResponse::statusCode() const {
  return live<simulator::ResponseObject>(get(), "NSHTTPURLResponse.statusCode").status;
}

const char* Data::bytes() const {
  const std::string& bytes = live<simulator::DataObject>(get(), "NSData.bytes").bytes;
  return bytes.empty() ? nullptr : bytes.data();
}

std::size_t Data::length() const { return live<simulator::DataObject>(get(), "NSData.length").bytes.size(); }

void URLSessionTask::resume() const {
  const Call call("NSURLSessionTask.resume");
  auto& task = live<simulator::TaskObject>(get(), "NSURLSessionTask.resume");
  if (!task.run) return;
  const double timeout = task.timeout;
  call.machine.trace.call(task.api)
      .text("method", "GET")
      .text("url", task.url)
      .real("timeout", timeout)
      .text("cache", simulator::cachePolicyName(task.cachePolicy));
  call.machine.scheduler.spawn("NSURLSession", std::exchange(task.run, nullptr));
}

URLSession URLSession::sharedSession() {
  const Call call("NSURLSession.sharedSession");
  static auto* const session = new simulator::SessionObject;
  return URLSession(CF::retain(static_cast<CFTypeRef>(session)));
}

URLSessionTask URLSession::dataTaskWithRequest(
    const URLRequest& request,
    std::function<void(const Data&, const URLResponse&, const Error&)> completionHandler) const {
  const Call call(simulator::dataTask);
  const auto& sent = live<simulator::RequestObject>(request.get(), simulator::dataTask);
  auto work = [&machine = call.machine, fault = call.fault(), url = sent.url, policy = sent.cachePolicy,
               timeout = sent.timeout, handler = std::move(completionHandler)] {
    std::string body;
    const Loaded loaded = simulator::loadOrFail(machine, fault, url, policy, timeout, [&body](std::string_view piece) {
      body += piece;
      return true;
    });
    if (loaded.error) {
      handler({}, {}, Error(simulator::make<simulator::ErrorObject>(*loaded.error)));
    } else {
      handler(Data(simulator::make<simulator::DataObject>(std::move(body))), simulator::responseFor(loaded), {});
    }
  };
  return URLSessionTask(simulator::make<simulator::TaskObject>(simulator::dataTask, sent.url, sent.cachePolicy,
                                                               sent.timeout, std::move(work)));
}

URLSessionTask URLSession::downloadTaskWithURL(
    const URL& url, std::function<void(const std::string&, const URLResponse&, const Error&)> completionHandler) const {
  // A session's requests wait for a minute unless told otherwise.
  constexpr double timeout = 60;
  const Call call(simulator::downloadTask);
  const std::string& address = live<__CFURL>(url.get(), simulator::downloadTask).text;
  auto work = [&machine = call.machine, fault = call.fault(), address, handler = std::move(completionHandler)] {
    const simulator::TemporaryFile temporary(machine.part<simulator::URLLoading>().temporaryFile());
    const std::filesystem::path& location = temporary.path();
    std::ofstream file(location, std::ios::binary);
    const Loaded loaded = simulator::loadOrFail(machine, fault, address, 0, timeout, [&file](std::string_view piece) {
      return static_cast<bool>(file.write(piece.data(), static_cast<std::streamsize>(piece.size())));
    });
    file.close();
    if (loaded.error) {
      handler("", {}, Error(simulator::make<simulator::ErrorObject>(*loaded.error)));
    } else {
      handler(location.string(), simulator::responseFor(loaded), {});
    }
  };
  return URLSessionTask(
      simulator::make<simulator::TaskObject>(simulator::downloadTask, address, 0UL, timeout, std::move(work)));
}

}  // namespace NS
