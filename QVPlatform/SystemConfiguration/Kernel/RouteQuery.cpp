#include <QVPlatform/SystemConfiguration/Kernel/RouteQuery.h>

#include <QVPlatform/SystemConfiguration/Kernel/RouteMessages.h>

#include <libmnl/libmnl.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <utility>

namespace QVPlatform {
namespace {

constexpr std::uint32_t kSequence = 1;      // a socket serves one request
constexpr std::size_t kAnswerSize = 32768;  // the most that the kernel puts into one datagram
constexpr int kMaxAttempts = 4;             // at a list that changes while it is read

using Handler = std::function<void(const nlmsghdr*)>;

/// A message to the kernel, built in place.
class Request {
 public:
  template <class Header>
  Request(std::uint16_t type, const Header& header, std::uint16_t extraFlags = 0) {
    message_ = mnl_nlmsg_put_header(bytes_.data());
    message_->nlmsg_type = type;
    message_->nlmsg_flags = static_cast<std::uint16_t>(NLM_F_REQUEST | extraFlags);
    message_->nlmsg_seq = kSequence;
    *static_cast<Header*>(mnl_nlmsg_put_extra_header(message_, sizeof header)) = header;
  }
  Request(const Request&) = delete;
  Request& operator=(const Request&) = delete;

  nlmsghdr* message() { return message_; }
  bool asksForList() const { return (message_->nlmsg_flags & NLM_F_DUMP) == NLM_F_DUMP; }

 private:
  alignas(nlmsghdr) std::array<char, 256> bytes_{};
  nlmsghdr* message_ = nullptr;
};

struct SocketCloser {
  void operator()(mnl_socket* socket) const noexcept {
    const int error = errno;
    mnl_socket_close(socket);
    errno = error;
  }
};
using Socket = std::unique_ptr<mnl_socket, SocketCloser>;

/// The kernel answers while it takes the request, so a socket that does not wait finds the answer
/// there; were it lost, the caller would get an error instead of hanging.
Socket openSocket() {
  Socket socket(mnl_socket_open2(NETLINK_ROUTE, SOCK_CLOEXEC | SOCK_NONBLOCK));
  if (socket && mnl_socket_bind(socket.get(), 0, MNL_SOCKET_AUTOPID) < 0) socket.reset();
  return socket;
}

struct Answer {
  const Handler& handler;
  const int next;
};

int handleMessage(const nlmsghdr* message, void* data) {
  const auto& answer = *static_cast<const Answer*>(data);
  answer.handler(message);
  return answer.next;
}

/// "No" is an answer of the kernel's; the others are failures to get one, with the reason in errno.
enum class Outcome { kAnswered, kRefused, kInterrupted, kFailed };

Outcome outcomeOfError() {
  if (errno == EINTR) return Outcome::kInterrupted;
  const bool isOurs = errno == EPROTO || errno == EBADMSG || errno == ENOMEM || errno == ENOBUFS;
  return isOurs ? Outcome::kFailed : Outcome::kRefused;
}

Outcome converse(Request& request, const Handler& handler) {
  const Socket socket = openSocket();
  if (!socket) return Outcome::kFailed;
  const nlmsghdr* message = request.message();
  if (mnl_socket_sendto(socket.get(), message, message->nlmsg_len) < 0) return Outcome::kFailed;
  Answer answer{handler, request.asksForList() ? MNL_CB_OK : MNL_CB_STOP};
  alignas(nlmsghdr) std::array<char, kAnswerSize> bytes;
  for (;;) {
    const auto size = mnl_socket_recvfrom(socket.get(), bytes.data(), bytes.size());
    if (size < 0) return Outcome::kFailed;
    const int state = mnl_cb_run(bytes.data(), static_cast<std::size_t>(size), kSequence,
                                 mnl_socket_get_portid(socket.get()), &handleMessage, &answer);
    if (state == MNL_CB_ERROR) return outcomeOfError();
    if (state == MNL_CB_STOP) return Outcome::kAnswered;
  }
}

/// False when the kernel could not be asked.
bool ask(Request& request, const Handler& handler) {
  const Outcome outcome = converse(request, handler);
  return outcome == Outcome::kAnswered || outcome == Outcome::kRefused;
}

/// The list of what `read` makes of each message; a list that changed while the kernel wrote it
/// down is asked for again. False when it could not be had.
template <class Item, class Header>
bool askForList(std::uint16_t type, const Header& header,
                std::optional<Item> (*read)(const nlmsghdr*), std::vector<Item>& items) {
  for (int attempt = 0; attempt < kMaxAttempts; ++attempt) {
    items.clear();
    Request request(type, header, NLM_F_DUMP);
    const Outcome outcome = converse(request, [&](const nlmsghdr* message) {
      if (auto item = read(message)) items.push_back(std::move(*item));
    });
    if (outcome != Outcome::kInterrupted) return outcome == Outcome::kAnswered;
  }
  return false;
}

}  // namespace

std::optional<Route> RouteQuery::route(const NetworkAddress& to) {
  rtmsg header{};
  header.rtm_family = to.isIPv6 ? AF_INET6 : AF_INET;
  header.rtm_dst_len = static_cast<unsigned char>(8 * to.bytes().size());
  Request request(RTM_GETROUTE, header);
  mnl_attr_put(request.message(), RTA_DST, to.bytes().size(), to.bytes().data());
  if (to.scope != 0) mnl_attr_put_u32(request.message(), RTA_OIF, to.scope);
  std::optional<Route> route;
  if (!ask(request, [&](const nlmsghdr* message) { route = readRoute(message); })) {
    hasFailed_ = true;
  }
  return route;
}

std::optional<NetworkInterface> RouteQuery::interface(unsigned index) {
  ifinfomsg header{};
  header.ifi_family = AF_UNSPEC;
  header.ifi_index = static_cast<int>(index);
  Request request(RTM_GETLINK, header);
  std::optional<NetworkInterface> interface;
  if (!ask(request, [&](const nlmsghdr* message) { interface = readInterface(message); })) {
    hasFailed_ = true;
  }
  return interface;
}

std::vector<NetworkInterface> RouteQuery::interfacesWithAddress() {
  ifinfomsg linkHeader{};
  linkHeader.ifi_family = AF_UNSPEC;
  ifaddrmsg addressHeader{};
  addressHeader.ifa_family = AF_UNSPEC;
  std::vector<NetworkInterface> interfaces;
  std::vector<unsigned> owners;
  if (!askForList(RTM_GETLINK, linkHeader, &readInterface, interfaces) ||
      !askForList(RTM_GETADDR, addressHeader, &readAddressOwner, owners)) {
    hasFailed_ = true;
    return {};
  }
  const std::set<unsigned> isOwner(owners.begin(), owners.end());
  std::erase_if(interfaces, [&](const auto& item) { return !isOwner.contains(item.index); });
  return interfaces;
}

}  // namespace QVPlatform
