#include "desk/Serve.h"

#include <httplib.h>
#include <signal.h>

#include <algorithm>
#include <atomic>
#include <iterator>
#include <memory>
#include <thread>
#include <vector>

#include "desk/MachineHost.h"
#include "desk/Page.h"
#include "desk/Requests.h"

using httplib::Request;
using httplib::Response;

namespace {

constexpr std::size_t longestLine = std::size_t{64} << 10;
constexpr std::size_t mostConnections = 320;      // a hundred tabs, with a stream and a request each, and room
constexpr std::chrono::seconds betweenSigns{10};  // of life on a stream on which nothing happens
// A stream rests that long after each batch: under load, many records go out at once instead of one by one.
constexpr std::chrono::milliseconds streamRests{8};
constexpr int writesWithin = 5;  // s: who takes nothing for that long is gone

std::string_view typeOf(std::string_view name) {
  if (name.ends_with(".html")) return "text/html; charset=utf-8";
  if (name.ends_with(".css")) return "text/css; charset=utf-8";
  if (name.ends_with(".js")) return "text/javascript; charset=utf-8";
  return "image/svg+xml";
}

void refuse(Response& response, int status, const std::string& reason) {
  response.status = status;
  response.set_content(reason + "\n", "text/plain; charset=utf-8");
}

class Desk {
 public:
  Desk(const ServeOptions& options, IsSeed isSeed) : isSeed_(std::move(isSeed)), host_(options.program) {
    server_.new_task_queue = [] { return new httplib::ThreadPool(mostConnections); };
    // Nobody else may listen on a port that is in use, which the library would allow.
    server_.set_socket_options([](socket_t socket) {
      const int yes = 1;
      setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    });
    // One request a connection: what a refused one leaves unread is never taken for another.
    server_.set_keep_alive_max_count(1);
    server_.set_tcp_nodelay(true);
    server_.set_payload_max_length(longestLine);
    server_.set_write_timeout(writesWithin);
    server_.set_read_timeout(writesWithin);
    server_.set_default_headers({{"Content-Security-Policy", "default-src 'self'"},
                                 {"X-Content-Type-Options", "nosniff"},
                                 {"Referrer-Policy", "no-referrer"},
                                 {"Cross-Origin-Resource-Policy", "same-origin"},
                                 {"Cache-Control", "no-store"}});
    // What is too long is refused while it is read, before any of the routes.
    server_.set_error_handler([](const Request&, Response& response) {
      if (response.status == 413) refuse(response, 403, "a line may be no longer than 64 KiB");
      if (response.status == 404 && response.body.empty()) refuse(response, 404, "there is nothing here");
    });
    server_.set_pre_routing_handler([this](const Request& request, Response& response) {
      if (isOurs(request)) return httplib::Server::HandlerResponse::Unhandled;
      refuse(response, 403, "this page is for this computer and for itself alone");
      return httplib::Server::HandlerResponse::Handled;
    });
    addPage();
    addMachine();
    addStreams();
  }

  // The port, or 0 when it is taken.
  int bind(int port) {
    if (port == 0) return port_ = std::max(server_.bind_to_any_port("127.0.0.1"), 0);
    return port_ = server_.bind_to_port("127.0.0.1", port) ? port : 0;
  }
  bool begin() { return host_.begin(true, "1"); }
  void listen() { server_.listen_after_bind(); }
  void stop() {
    host_.broadcast.end();
    server_.stop();
  }

 private:
  [[nodiscard]] bool isOurs(const Request& request) const {
    const auto all = [&request](const std::string& name) {
      const auto [begin, end] = request.headers.equal_range(name);
      std::vector<std::string> values;
      std::ranges::transform(begin, end, std::back_inserter(values), [](const auto& header) { return header.second; });
      return values;
    };
    return isForThisDesk(all("Host"), all("Origin"), port_);
  }

  void addPage() {
    for (const PageFile& file : pageFiles()) {
      const auto give = [file](const Request&, Response& response) {
        response.set_content(file.content.data(), file.content.size(), std::string(typeOf(file.name)));
      };
      std::string path = "/" + std::string(file.name);
      for (std::size_t dot = 0; (dot = path.find('.', dot)) != std::string::npos; dot += 2) path.insert(dot, "\\");
      server_.Get(path, give);
      if (file.name == "index.html") server_.Get("/", give);
    }
  }

  static void give(Response& response, const MachineHost::Answer& answer, const char* type) {
    if (answer.status != 200) return refuse(response, answer.status, answer.text);
    response.set_content(answer.text, type);
  }

  void addMachine() {
    server_.Post("/do", [this](const Request& request, Response& response) {
      give(response, host_.perform(lineOf(request.body)), "text/plain; charset=utf-8");
    });
    server_.Get("/state",
                [this](const Request&, Response& response) { give(response, host_.state(), "application/json"); });
    server_.Get("/scenario", [this](const Request&, Response& response) {
      response.set_header("Content-Disposition", "attachment; filename=\"desk.scenario\"");
      response.set_content(host_.scenario(), "text/plain; charset=utf-8");
    });
    server_.Post("/clock", [this](const Request& request, Response& response) {
      if (request.body != "live" && request.body != "paused") return refuse(response, 400, "\"live\" or \"paused\"");
      give(response, host_.setClock(request.body == "live"), "text/plain; charset=utf-8");
    });
    server_.Post("/begin", [this](const Request& request, Response& response) { begin(request, response); });
  }

  void begin(const Request& request, Response& response) {
    const auto wanted = beginningOf(request.body);
    if (!wanted || !isSeed_(wanted->seed)) {
      return refuse(response, 400,
                    R"(needs "furnished" (true or false) and "seed" (as of `dalvane-desk play`, a text))");
    }
    if (!host_.begin(wanted->isFurnished, wanted->seed)) {
      return refuse(response, 500, "no machine can be started");
    }
    response.set_content("", "text/plain");
  }

  void addStreams() {
    server_.Get("/trace", [this](const Request& request, Response& response) {
      const bool everything = request.get_param_value("with") == "state";
      // A browser that connects again says itself where it was.
      const std::string seen = request.has_header("Last-Event-ID") ? request.get_header_value("Last-Event-ID")
                                                                   : request.get_param_value("after");
      stream(response, everything ? Broadcast::Kind::everything : Broadcast::Kind::records,
             host_.broadcast.placeAfter(seen), nullptr);
    });
    server_.Get("/sound", [this](const Request&, Response& response) {
      host_.listen(true);
      // It is given back with the response, however that ends.
      const std::shared_ptr<void> listening(&host_, [](void* host) { static_cast<MachineHost*>(host)->listen(false); });
      stream(response, Broadcast::Kind::sound, host_.broadcast.placeAtEnd(), listening);
    });
  }

  void stream(Response& response, Broadcast::Kind kind, Broadcast::Place from, std::shared_ptr<void> held) {
    response.set_header("X-Accel-Buffering", "no");
    response.set_chunked_content_provider(
        "text/event-stream",
        [this, kind, place = std::make_shared<Broadcast::Place>(from), events = std::make_shared<std::string>(),
         held = std::move(held), begun = false](std::size_t, httplib::DataSink& sink) mutable {
          if (!begun) {
            begun = true;
            constexpr std::string_view hello = "retry: 500\n\n";
            return sink.write(hello.data(), hello.size());
          }
          if (!host_.broadcast.next(kind, *place, betweenSigns, *events)) return false;
          if (events->empty()) *events = ": nothing new\n\n";
          if (!sink.write(events->data(), events->size())) return false;
          std::this_thread::sleep_for(streamRests);
          return true;
        });
  }

  const IsSeed isSeed_;
  MachineHost host_;
  httplib::Server server_;
  std::atomic<int> port_ = 0;
};

}  // namespace

int serve(const ServeOptions& options, const IsSeed& isSeed, std::ostream& out, std::ostream& errors) {
  // The signals that end it are waited for by one thread; all others have them blocked.
  sigset_t ends;
  sigemptyset(&ends);
  for (const int each : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&ends, each);
  pthread_sigmask(SIG_BLOCK, &ends, nullptr);
  signal(SIGPIPE, SIG_IGN);

  Desk desk(options, isSeed);
  const int port = desk.bind(options.port);
  if (port == 0) {
    errors << "dalvane-desk: port " << options.port
           << " of this computer cannot be used: something else listens on it\n";
    return 1;
  }
  if (!desk.begin()) {
    errors << "dalvane-desk: the simulated Mac cannot be started\n";
    return 1;
  }
  out << "The desk is at http://127.0.0.1:" << port << "/ (Ctrl-C ends it)" << std::endl;
  std::thread waits([&desk, &ends] {
    int received = 0;
    sigwait(&ends, &received);
    desk.stop();
  });
  desk.listen();
  waits.join();
  return 0;
}
