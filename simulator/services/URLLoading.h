// The network as the program meets it: requests through NSURLSession to the hosts where releases are published.
#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "simulator/machine/Part.h"
#include "simulator/services/Internet.h"
#include "simulator/services/ReleaseHost.h"
#include "simulator/time/Scheduler.h"

namespace simulator {

class Machine;

// What stands between the program and an address.
struct Route {
  std::optional<std::string> error;  // the connection fails with this text
  Duration delay{0};                 // how long the host takes to answer
  bool plainResponse = false;        // the answer is shown to the program as one that did not come over HTTP
};

// How one request ended: with an error's text, or with the status of an answer (0 when it did not come over HTTP).
struct Loaded {
  std::optional<std::string> error;
  int status = 0;
  std::string url;  // what answered, after redirects
};

class URLLoading : public Part {
 public:
  explicit URLLoading(Machine& machine);

  // Loads what is at `url` on the calling thread of the program, which waits as long as it takes on the machine's
  // clock.
  Loaded load(const std::string& url, double timeout, const std::function<bool(std::string_view)>& receive);
  // A new place for a downloaded file.
  std::filesystem::path temporaryFile();

  void addCommands(Commands& commands) override;

 private:
  ReleaseHost& host();
  void publish(const std::string& address, HostAnswer answer, Route route, HostCertificate certificate);
  void publishInstalledVersion();

  Machine& machine_;
  std::unique_ptr<ReleaseHost> host_;  // made when first needed
  std::shared_ptr<Internet> internet_;
  std::map<std::string, Route> routes_;
  bool feedPublished_ = false;
  std::uint64_t downloads_ = 0;
};

}  // namespace simulator
