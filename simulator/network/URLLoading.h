// The network as the program meets it: requests through NSURLSession to the hosts where releases are published.
#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "simulator/kernel/Part.h"
#include "simulator/kernel/Scheduler.h"
#include "simulator/network/Internet.h"
#include "simulator/network/ReleaseHost.h"

namespace simulator {

class Machine;
class Arguments;
class SystemRoot;

// What stands between the program and an address.
struct Route {
  std::optional<std::string> error;  // the connection fails with this text
  Duration delay{0};                 // how long the host takes to answer
  std::uint64_t pieces = 1;          // that the body comes in
  Duration pause{0};                 // before each of them
  bool plainResponse = false;        // the answer is shown to the program as one that did not come over HTTP
};

// How one request ended: with an error's text, or with the status of an answer (0 when it did not come over HTTP).
struct Loaded {
  std::optional<std::string> error;
  int status = 0;
  std::string url;       // what answered, after redirects
  Duration freshFor{0};  // how long the host says that the answer may be kept
};

// How an address answers, as a scenario line says it.
struct Publication {
  HostAnswer answer;
  Route route;
  HostCertificate certificate = HostCertificate::genuine;

  // Reads the members that say so; those that give a body are left to the line.
  static Publication parse(Arguments& line);
};

class URLLoading : public Part {
 public:
  URLLoading(Machine& machine, SystemRoot& root);

  using Receive = std::function<bool(std::string_view)>;
  // Loads what is at `url` on the calling thread of the program, which waits as long as it takes on the machine's
  // clock, but no longer than `timeout` seconds for the next thing to happen.
  Loaded load(const std::string& url, double timeout, const Receive& receive);
  // The same as far as the session's cache has no fresh answer, or must not be asked.
  Loaded loadCached(const std::string& url, bool useCache, double timeout, const Receive& receive);
  // From now on `address` answers so.
  void publish(const std::string& address, Publication publication);
  // A new place for a downloaded file.
  std::filesystem::path temporaryFile();

  void addCommands(Commands& commands) override;

 private:
  // An answer that is kept, for as long as its host says that it is fresh. Programs that end do not take it with them.
  struct Cached {
    Loaded loaded;
    std::string body;
    Time until;
  };

  ReleaseHost& host();
  void publishInstalledVersion();

  Machine& machine_;
  SystemRoot& root_;
  std::unique_ptr<ReleaseHost> host_;  // made when first needed
  std::shared_ptr<Internet> internet_;
  std::map<std::string, Route> routes_;
  std::map<std::string, Cached> cache_;
  bool feedPublished_ = false;
  std::uint64_t downloads_ = 0;
};

}  // namespace simulator
