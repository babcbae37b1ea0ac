#include "tour/kit/Collector.h"

#include <httplib.h>

#include <mutex>
#include <set>
#include <stdexcept>
#include <thread>
#include <utility>

namespace {

constexpr int kKeepAliveSeconds = 60;
constexpr std::size_t kKeepAliveRequests = 100'000;

}  // namespace

struct Collector::State {
  void receive(const httplib::Request& request, const std::string& note = "") {
    const std::lock_guard lock(mutex);
    std::string hit = request.method + " " + request.target + note;
    if (!request.body.empty()) hit += " " + request.body;
    hits.push_back(std::move(hit));
    clientPorts.insert(request.remote_port);
  }

  bool isNewerThan(const std::string& date) {
    std::tm fields{};
    const char* const end = strptime(date.c_str(), "%a, %d %b %Y %H:%M:%S GMT", &fields);
    const std::lock_guard lock(mutex);
    return end == nullptr || timegm(&fields) < vendorsModified;
  }

  void answerWithVendors(const httplib::Request& request, httplib::Response& response) {
    response.status = isNewerThan(request.get_header_value("If-Modified-Since")) ? 200 : 304;
    receive(request, ": " + std::to_string(response.status));
    const std::lock_guard lock(mutex);
    if (response.status == 200) response.set_content(vendors, "application/json");
  }

  httplib::Server server;
  int port = 0;
  std::mutex mutex;
  std::vector<std::string> hits;
  std::set<int> clientPorts;
  std::string vendors;
  std::time_t vendorsModified = kLongAgo;
};

Collector::Collector() : state_(*new State) {
  const auto answer = [state = &state_](const httplib::Request& request,
                                        httplib::Response& response) {
    state->receive(request);
    if (request.matches.size() > 1) response.status = std::stoi(request.matches[1]);
    response.set_content("ok", "text/plain");
  };
  state_.server.Get("/vendors.json", [state = &state_](const auto& request, auto& response) {
    state->answerWithVendors(request, response);
  });
  for (const char* place : {R"(/status/(\d{3}))", ".*"}) {
    state_.server.Get(place, answer).Post(place, answer);
  }
  state_.server.set_keep_alive_timeout(kKeepAliveSeconds)
      .set_keep_alive_max_count(kKeepAliveRequests)
      .set_tcp_nodelay(true);
  state_.port = state_.server.bind_to_any_port("127.0.0.1");
  if (state_.port <= 0) throw std::runtime_error("the collector gets no port on 127.0.0.1");
  std::thread([server = &state_.server] { server->listen_after_bind(); }).detach();
}

std::string Collector::url() const { return "http://127.0.0.1:" + std::to_string(state_.port); }

void Collector::publish(std::string text, std::time_t modified) {
  const std::lock_guard lock(state_.mutex);
  state_.vendors = std::move(text);
  state_.vendorsModified = modified;
}

std::vector<std::string> Collector::takeHits() {
  const std::lock_guard lock(state_.mutex);
  return std::exchange(state_.hits, {});
}

std::size_t Collector::connections() const {
  const std::lock_guard lock(state_.mutex);
  return state_.clientPorts.size();
}
