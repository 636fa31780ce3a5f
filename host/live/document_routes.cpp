#include "host/live/server_state.h"
#include "host/shot/frames.h"

#include <optional>
#include <stdexcept>
#include <utility>

// What is asked of the document, of its file and of renderings to files.

namespace host::live {
namespace {

// A word as a shell takes it.
std::string quoted_word(const std::string& word) {
  constexpr const char* plain = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_./,^=:+";
  if (!word.empty() && word.find_first_not_of(plain) == std::string::npos) return word;
  std::string quoted = "'";
  for (const char each : word) quoted += each == '\'' ? std::string("'\\''") : std::string(1, each);
  return quoted + "'";
}

// The words behind `quorvel`, for a composition that is `given` so.
std::vector<std::string> render_words(const std::string& given, const std::string& frames,
                                      const std::string& existing, const std::vector<std::string>& more) {
  std::vector<std::string> words = {"render", given};
  if (!frames.empty()) {
    try {
      if (shot::parse_frames(frames).empty()) throw http::Error(400, "no frame is left to render");
    } catch (const shot::FramesError& error) {
      throw http::Error(400, error.what());
    }
    words.push_back("--frames=" + frames);
  }
  if (existing == "overwrite" || existing == "skip-existing" || existing == "skip-current") {
    words.push_back("--" + existing);
  } else if (!existing.empty()) {
    throw http::Error(400, "\"existing\": expected \"overwrite\", \"skip-existing\" or \"skip-current\"");
  }
  words.insert(words.end(), more.begin(), more.end());
  return words;
}

std::string text_or_nothing(const http::Request& request, const std::string& name) {
  const auto found = request.query.find(name);
  return found == request.query.end() ? "" : found->second;
}

// With a "view" the page says what it wants to see of the version that it makes, base + 1.
http::Reply put_composition(Server::State& state, const Json& body) {
  const auto base = body.at("base").get<int64_t>();
  auto text = body.at("text").get<std::string>();
  std::optional<View> view;
  if (body.contains("view")) view = view_of(body["view"], state.options.renderer.scale);
  const std::lock_guard lock(state.changing);
  try {
    state.document.edit(base, std::move(text));
  } catch (const Outdated&) {
    return reply(text_json(state.document.now(), state.path), 409);
  } catch (const shot::CompositionError& error) {
    return reply(problems_json(error.what(), state.document.file().string()), 422);
  }
  const Document::State now = state.announce();
  if (view) state.wish(std::move(*view));
  return reply(info_json(now, state.path));
}

http::Reply save(Server::State& state, const Json& body) {
  const auto version = body.at("version").get<int64_t>();
  const bool force = body.value("force", false);
  const std::lock_guard lock(state.changing);
  try {
    const auto other = state.document.save(version, force);
    const Document::State now = state.announce();
    if (other) return reply({{"text", *other}}, 409);
    return reply(info_json(now, state.path));
  } catch (const Outdated& error) {
    throw http::Error(412, error.what());
  }
}

http::Reply reload(Server::State& state) {
  const std::lock_guard lock(state.changing);
  try {
    state.document.reload();
  } catch (const shot::CompositionError& error) {
    return reply(problems_json(error.what(), state.document.file().string()), 422);
  }
  return reply(text_json(state.announce(), state.path));
}

http::Reply start_render(Server::State& state, const Json& body) {
  std::vector<std::string> more = {"--progress", "jsonl"};
  more.insert(more.end(), state.options.render_words.begin(), state.options.render_words.end());
  const auto words =
      render_words("-", body.value("frames", std::string()), body.value("existing", std::string()), more);
  const Document::State now = state.document.now();
  try {
    state.render->start(words, now.composition->folder, *now.text);
  } catch (const std::runtime_error& error) {
    throw http::Error(409, error.what());
  }
  return {204, {}};
}

http::Reply render_command(const Server::State& state, const http::Request& request) {
  std::string command = "quorvel";
  for (const std::string& word :
       render_words(state.path, text_or_nothing(request, "frames"), text_or_nothing(request, "existing"), {}))
    command += " " + quoted_word(word);
  return reply({{"command", command}});
}

}  // namespace

void Server::State::add_document_routes() {
  http->get("/composition", [this](const http::Request&) { return reply(text_json(document.now(), path)); });
  http->put("/composition", [this](const http::Request& request) {
    return with_json(request, [this](const Json& body) { return put_composition(*this, body); });
  });
  http->post("/save", [this](const http::Request& request) {
    return with_json(request, [this](const Json& body) { return save(*this, body); });
  });
  http->post("/reload", [this](const http::Request&) { return reload(*this); });
  http->get("/catalogue", [](const http::Request&) { return reply(catalogue_json()); });
  http->post("/render", [this](const http::Request& request) {
    return with_json(request, [this](const Json& body) { return start_render(*this, body); });
  });
  http->post("/render/stop", [this](const http::Request&) {
    render->stop();
    return http::Reply{204, {}};
  });
  http->get("/render/command",
            [this](const http::Request& request) { return render_command(*this, request); });
}

}  // namespace host::live
