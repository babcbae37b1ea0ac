#pragma once

#include <string>

#include "inspector/HTTPServer.h"
#include "inspector/Live.h"
#include "inspector/Rules.h"
#include "inspector/Store.h"

/// The page, and what the page asks for, on a port of its own: any path of the collector's port may
/// be a hit's.
///
/// A page of any site can send requests to this port, and may have given its own name this
/// machine's address. So a request must be for an address or "localhost", and what a browser says
/// about where it comes from must be the page itself.
class Control : public HTTPHandler {
 public:
  static constexpr std::size_t kLargestImport = std::size_t{256} << 20;  // bytes

  Control(Store& store, Rules& rules, Live& live) : store_(store), rules_(rules), live_(live) {}

  void onRequest(HTTPExchange& exchange) override;
  void onEnd(HTTPExchange& exchange, bool isDelivered) override;

 private:
  HTTPReply callFunction(const HTTPRequest& request, std::string_view path);
  HTTPReply pin(const HTTPRequest& request, std::string_view path);
  HTTPReply replaceRules(const HTTPRequest& request);
  HTTPReply importFile(const HTTPRequest& request);
  HTTPReply exportHits(const HTTPRequest& request);

  Store& store_;
  Rules& rules_;
  Live& live_;
};
