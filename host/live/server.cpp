#include "host/live/server.h"

#include "host/live/http/rules.h"
#include "host/live/page.h"
#include "host/live/server_state.h"

#include <array>
#include <charconv>
#include <chrono>
#include <exception>
#include <system_error>

#include <unistd.h>

namespace host::live {
namespace {

// What others may call this machine. A name that leads to any of its addresses is not among them: a page of
// somebody else's could have brought it about.
std::vector<std::string> names_of(const ServerOptions& options) {
  std::vector<std::string> names = {"127.0.0.1", "localhost"};
  if (options.certificate.empty()) return names;
  names.push_back(options.address.find(':') == std::string::npos ? options.address
                                                                 : "[" + options.address + "]");
  std::array<char, 256> name{};
  if (gethostname(name.data(), name.size() - 1) == 0) names.emplace_back(name.data());
  return names;
}

// By what a page can be reached.
std::string address_of(const ServerOptions& options) {
  const std::vector<std::string> names = names_of(options);
  const bool any = options.address == "0.0.0.0" || options.address == "::";
  return options.certificate.empty() ? names.front() : any ? names.back() : names.at(2);
}

// Files are written a few at a time.
constexpr std::chrono::milliseconds gathered{300};

// What a composition reads: files and frame patterns, in full.
std::vector<std::filesystem::path> files_read(const shot::Composition& composition) {
  node::Project project;
  project.folder = composition.folder.string();
  std::vector<std::filesystem::path> files;
  for (const node::Node& each : composition.nodes) {
    if (each.type->writes_files) continue;
    for (size_t at = 0; at < each.knobs.size(); ++at) {
      if (each.type->knobs[at].kind != node::KnobKind::file || each.knobs[at].text.empty()) continue;
      try {
        files.emplace_back(node::resolved_path(project, each.knobs[at].text));
      } catch (const std::runtime_error&) {
        continue;  // whoever draws it is told
      }
    }
  }
  return files;
}

template <class Number>
Number number(const http::Request& request, const std::string& name) {
  const std::string& text = request.text(name);
  Number value{};
  const char* const end = text.data() + text.size();
  const auto parsed = std::from_chars(text.data(), end, value);
  if (parsed.ec != std::errc() || parsed.ptr != end)
    throw http::Error(400, "\"" + name + "\": expected a number, found \"" + text + "\"");
  return value;
}

}  // namespace

int64_t whole_number(const http::Request& request, const std::string& name) {
  return number<int64_t>(request, name);
}

double real_number(const http::Request& request, const std::string& name) {
  return number<double>(request, name);
}

Server::State::State(ServerOptions given)
    : options(std::move(given)),
      left(options.keepsake ? options.keepsake->address() : std::nullopt),
      token(left ? left->token : http::random_token()),
      path(std::filesystem::absolute(options.file).string()),
      document(options.file, left ? options.keepsake->document() : std::nullopt) {
  http::Options listen;
  listen.address = options.address;
  listen.port = left ? left->port : options.port;
  listen.names = names_of(options);
  listen.certificate = options.certificate;
  listen.key = options.key;
  listen.token = token;
  listen.refused = options.log;
  http.emplace(std::move(listen));
  render.emplace(options.program,
                 [this](const RenderState& state) { tell_all("render", "", render_json(state)); });
  session.emplace(options.renderer, options.device, *this);
  lasting["render"] = dumped(render_json({}));
  lasting["computing"] = dumped({{"paused", false}});
  lasting["device"] = dumped({{"lost", false}, {"message", ""}});
  if (!options.notice.empty()) lasting["notice"] = dumped({{"text", options.notice}});
  read_watch.emplace([this] { look_at_read(); }, gathered);
  announce();
  watch.emplace([this] { look_at_file(); });
  watch->follow({options.file});
  for (const PageFile& file : page_files()) {
    http->page(file.path == "/" ? "/" : std::string(file.path), [&file](const http::Request&) {
      http::Reply page{200, std::string(file.gzip), std::string(file.type), {{"Content-Encoding", "gzip"}}};
      page.headers.emplace_back("Cache-Control", "no-cache");
      return page;
    });
  }
  add_document_routes();
  add_view_routes();
  add_look_routes();
}

Server::State::~State() {
  ending = true;
  clients.end_all();
  http.reset();
  watch.reset();
  read_watch.reset();
  render.reset();
}

void Server::State::tell_all(const std::string& name, const std::string& key, const Json& json) {
  const std::string text = dumped(json);
  if (key.empty()) {
    const std::lock_guard lock(lasting_mutex);
    lasting[name] = text;
  }
  clients.tell_all(name, key, text);
}

Document::State Server::State::announce() {
  Document::State now = document.now();
  if (now.version != announced) {
    session->set_composition(now.version, now.composition);
    read_watch->follow(files_read(*now.composition));
  }
  announced = now.version;
  if (options.keepsake) options.keepsake->keep(document.kept());
  tell_all("document", "", info_json(now, path));
  tell_all("disk", "", {{"changed", now.disk_changed}});
  return now;
}

void Server::State::look_at_file() {
  const std::lock_guard lock(changing);
  const std::string why = document.look();
  announce();
  if (!why.empty()) notice("The file has changed, and cannot be used: " + why);
}

// Told to those who are here: whoever comes asks anyway.
void Server::State::look_at_read() {
  session->look_again();
  clients.tell_all("files", "", "{}");
}

Document::CompositionPtr Server::State::composition(int64_t version) const {
  auto found = document.composition(version);
  if (!found)
    throw http::Error(404, "there is no version " + std::to_string(version) + " of the composition");
  return found;
}

void Server::State::drawn(const std::string& name, session::Drawn image) {
  if (options.keepsake && image.error.empty()) options.keepsake->note_image();
  const auto client = clients.find(name);
  if (!client) return;
  if (image.wish.slot == 'a' && (!image.uses.empty() || !image.error_node.empty()))
    client->tell("nodes", "", dumped(nodes_json(image)));
  client->push(std::move(image));
}

void Server::State::cached(int64_t version, const std::string& node, double scale,
                           std::vector<std::pair<int64_t, int64_t>> frames) {
  tell_all("cached", node + " " + std::to_string(scale),
           {{"version", version}, {"node", node}, {"scale", scale}, {"frames", std::move(frames)}});
}

void Server::State::memory(uint64_t held, uint64_t budget) {
  tell_all("memory", "", {{"held", held}, {"budget", budget}});
}

void Server::State::notice(const std::string& text) {
  tell_all("notice", text, {{"text", text}});
}

void Server::State::device_lost(bool lost, const std::string& message) {
  tell_all("device", "", {{"lost", lost}, {"message", message}});
}

Server::Server(ServerOptions options) : state_(std::make_unique<State>(std::move(options))) {}

Server::~Server() = default;

std::string Server::start() {
  const int port = state_->http->start();
  if (state_->options.keepsake) state_->options.keepsake->keep(Keepsake::Address{port, state_->token});
  const std::string scheme = state_->options.certificate.empty() ? "http://" : "https://";
  return scheme + address_of(state_->options) + ":" + std::to_string(port) + "/#" + state_->token;
}

}  // namespace host::live
