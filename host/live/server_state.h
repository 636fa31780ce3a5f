#pragma once

#include "host/live/client.h"
#include "host/live/document.h"
#include "host/live/file_watch.h"
#include "host/live/http/server.h"
#include "host/live/render_job.h"
#include "host/live/reply_json.h"
#include "host/live/server.h"
#include "host/live/session/session.h"

#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace host::live {

// What a page wishes to see.
struct View {
  std::string client;
  std::vector<session::Wish> wishes;
  std::set<uint64_t> ids;  // theirs
  std::optional<session::Ahead> ahead;
};

// Scales are at most `most_scale`, what the server was started with. Throws http::Error 400 and what JSON
// throws.
View view_of(const Json& json, double most_scale);

// What the handlers share. They are grouped by file: `document_routes`, `view_routes`, `look_routes`.
struct Server::State final : session::Listener {
  explicit State(ServerOptions given);
  ~State() override;
  State(const State&) = delete;
  State& operator=(const State&) = delete;

  void drawn(const std::string& client, session::Drawn image) override;
  void cached(int64_t version, const std::string& node, double scale,
              std::vector<std::pair<int64_t, int64_t>> frames) override;
  void memory(uint64_t held, uint64_t budget) override;
  void notice(const std::string& text) override;
  void device_lost(bool lost, const std::string& message) override;

  void add_document_routes();
  void add_view_routes();
  void add_look_routes();

  // An event for all pages, which takes the place of one of the same key; who comes later is told it as well.
  void tell_all(const std::string& name, const std::string& key, const Json& json);

  // In place of what the page wished before.
  void wish(View view);

  // Hands the document's newest version on and tells of it; under `changing`.
  Document::State announce();
  void look_at_file();
  void look_at_read();  // files that the composition reads have changed

  // Of a version, 0 for the newest. Throws http::Error 404.
  Document::CompositionPtr composition(int64_t version) const;

  const ServerOptions options;
  const std::optional<Keepsake::Address> left;  // by a server that has crashed
  const std::string token;
  const std::string path;  // of the composition, as a page shows it
  Document document;
  Clients clients;
  std::atomic<bool> ending = false;
  std::mutex changing;    // held while a version is made and told of
  int64_t announced = 0;  // under `changing`
  std::mutex lasting_mutex;
  std::map<std::string, std::string> lasting;  // by name, the events that whoever comes is told first
  std::optional<RenderJob> render;
  std::optional<session::Session> session;
  std::optional<FileWatch> watch;       // of the composition
  std::optional<FileWatch> read_watch;  // of what it reads
  std::optional<http::Server> http;     // ends first
};

// A request's parts, as numbers. Throw http::Error 400.
int64_t whole_number(const http::Request& request, const std::string& name);
double real_number(const http::Request& request, const std::string& name);

// A body as JSON, and a handler's work on it. Throws http::Error 400 for what is not of the shape expected.
template <class Work>
http::Reply with_json(const http::Request& request, Work&& work) {
  try {
    return work(Json::parse(request.body));
  } catch (const Json::exception& error) {
    throw http::Error(400, error.what());
  }
}

inline http::Reply reply(const Json& json, int status = 200) {
  return {status, dumped(json)};
}

}  // namespace host::live
