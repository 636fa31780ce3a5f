#include "tests/host/live/page_server.h"
#include "tests/support/table.h"

#include <atomic>
#include <filesystem>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace {

namespace fs = std::filesystem;
using live::Answer;
using live::Json;
using live::keyed;
using live::PageServer;
using live::shot_of;

std::string replaced(std::string text, const std::string& from, const std::string& to) {
  return text.replace(text.find(from), from.size(), to);
}

// What is refused, by its first lines; TOKEN and PORT stand for those of the server.
TEST(Server, AnswersNobodyButItsOwnPage) {
  PageServer server(shot_of(keyed));
  const auto fill = [&](std::string text) {
    for (const auto& [name, value] :
         {std::pair<std::string, std::string>("PORT", std::to_string(server.port)),
          {"TOKEN", server.token},
          {"~", "\r\n"}}) {
      for (size_t at = text.find(name); at != std::string::npos; at = text.find(name))
        text.replace(at, name.size(), value);
    }
    return text;
  };
  const std::string ours = "Host: 127.0.0.1:PORT~", told = "Authorization: Bearer TOKEN~";
  for (const auto& [request, status, says] : support::rows<3>(R"(
GET / HTTP/1.1~OURS                                                              | 200 | Content-Encoding: gzip
GET / HTTP/1.1~Host: LOCALHOST:PORT~Origin: http://localhost:PORT~               | 200 | frame-ancestors 'none'
GET /page.js HTTP/1.1~OURS                                                       | 200 | X-Content-Type-Options: nosniff
GET / HTTP/1.1~Host: 127.0.0.1~                                                  | 403 | Host \"127.0.0.1\"
GET / HTTP/1.1~Host: evil.example:PORT~                                          | 403 | Host
GET / HTTP/1.0~                                                                  | 403 | Host
GET /composition HTTP/1.1~OURSTOLDOrigin: http://evil.example:PORT~              | 403 | Origin
GET /composition HTTP/1.1~OURSTOLDOrigin: https://127.0.0.1:PORT~                | 403 | Origin
GET /composition HTTP/1.1~OURSTOLDOrigin: null~                                  | 403 | Origin
GET /composition HTTP/1.1~OURS                                                   | 401 | token
GET /composition HTTP/1.1~OURSAuthorization: Bearer TOKEN0~                      | 401 | token
GET /composition HTTP/1.1~OURSAuthorization: Basic TOKEN~                        | 401 | token
GET /frames?client=a HTTP/1.1~OURS                                               | 401 | token
GET /events?client=a HTTP/1.1~OURSTOLDOrigin: http://other.example~              | 403 | Origin
GET /frames?client= HTTP/1.1~OURSTOLD                                            | 400 | client
PUT /composition HTTP/1.1~OURSContent-Length: 2~~{}                              | 401 | token
POST /save HTTP/1.1~OURSTOLDContent-Type: multipart/form-data; boundary=x~Content-Length: 0~ | 415 | form
POST /view HTTP/1.1~OURSTOLDContent-Length: 3~~{"a                               | 400 | message
POST /view HTTP/1.1~OURSTOLDContent-Length: 2~~[]                                | 400 | message
GET /pixel?version=0&node=&frame=x&x=0&y=0 HTTP/1.1~OURSTOLD                     | 400 | expected a number
GET /pixel?version=0&node=sotf&frame=1&x=0&y=0 HTTP/1.1~OURSTOLD                 | 404 | did you mean \"soft\"?
GET /pixel?version=9&node=&frame=1&x=0&y=0 HTTP/1.1~OURSTOLD                     | 404 | no version 9
GET /shot.json HTTP/1.1~OURSTOLD                                                 | 404 | nothing here
GET /../../etc/passwd HTTP/1.1~OURSTOLD                                          | 404 | nothing here
GET /%2e%2e/%0aforged HTTP/1.1~OURSTOLD                                          | 404 | nothing here
nonsense                                                                         | 400 | broken)")) {
    std::string text = request;
    for (const auto& [name, value] : {std::pair<std::string, std::string>("OURS", ours), {"TOLD", told}}) {
      const size_t at = text.find(name);
      if (at != std::string::npos) text.replace(at, name.size(), value);
    }
    server.refused();
    const std::string answer = server.send_raw(fill(text) + "\r\n");
    EXPECT_EQ(answer.substr(0, 13).substr(9, 3), status) << text << '\n' << answer;
    EXPECT_NE(answer.find(says), std::string::npos) << text << '\n' << answer;
    const std::vector<std::string> refused = server.refused();
    const bool logged = status == "403" || status == "401" || status == "415";
    EXPECT_GE(refused.size(), logged ? 1U : 0U) << text;
    for (const std::string& line : refused) {
      EXPECT_EQ(line.find('\n'), std::string::npos);
      EXPECT_EQ(line.find(server.token), std::string::npos);
    }
  }
}

TEST(Server, TakesBodiesOfAtMostSixteenMebibytes) {
  PageServer server(shot_of(keyed));
  const std::string head = "PUT /composition HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(server.port) +
                           "\r\nAuthorization: Bearer " + server.token + "\r\n";
  const std::string much((size_t{16} << 20) + 1, ' ');
  const std::string chunk = "800000\r\n" + std::string(size_t{8} << 20, ' ') + "\r\n";
  std::string announced = "Content-Length: " + std::to_string(much.size());
  announced.append("\r\n\r\n").append(much);
  std::string chunked = "Transfer-Encoding: chunked\r\n\r\n";
  chunked.append(chunk).append(chunk).append("1\r\n \r\n0\r\n\r\n");
  for (const std::string& body : {announced, chunked}) {
    std::string sent = head;
    sent += body;
    const std::string answer = server.send_raw(sent);
    EXPECT_NE(answer.find(" 413 "), std::string::npos) << answer.substr(0, 300);
  }
  EXPECT_EQ(server.send("GET", "/composition").status, 200);
}

TEST(Server, ChecksAndKeepsVersionsOfTheText) {
  const std::string first = shot_of(keyed);
  PageServer server(first);
  const auto put = [&](int base, const std::string& text) {
    return server.send("PUT", "/composition", {{"base", base}, {"text", text}});
  };
  Answer answer = server.send("GET", "/composition");
  EXPECT_EQ(answer.body["text"], first);
  EXPECT_EQ(answer.body["version"], 1);
  EXPECT_EQ(answer.body["saved"], true);
  EXPECT_EQ(answer.body["outputs"], Json({"soft"}));
  // As the text has it, though what is drawn passes over what is disabled.
  EXPECT_EQ(answer.body["nodes"][2]["inputs"][0], "off");
  EXPECT_EQ(answer.body["nodes"][1]["disabled"], true);

  const std::string second = replaced(first, R"("size": 2)", R"("size": 3)");
  answer = put(1, second);
  EXPECT_EQ(answer.status, 200);
  EXPECT_EQ(answer.body["version"], 2);
  EXPECT_EQ(answer.body["saved"], false);
  EXPECT_EQ(put(2, second).body["version"], 2) << "nothing was changed";
  answer = put(1, first);
  EXPECT_EQ(answer.status, 409);
  EXPECT_EQ(answer.body["version"], 2);
  EXPECT_EQ(answer.body["text"], second);

  for (const auto& [from, to, node, knob, message, suggestion] : support::rows<6>(R"(
"size": 2        | "size": -3        | soft |      size | found -3             |
"size": 2        | "siez": 2         | soft |      siez | unknown knob         | size
"type": "blur"   | "type": "blurr"   | off  |           | unknown type         | blur
"inputs": "off"  | "inputs": "of"    | soft |           | no node              | off
{"format"        | ["format"         |      |           | not JSON: parse error at line 1 |
)")) {
    answer = put(2, replaced(first, from, to));
    EXPECT_EQ(answer.status, 422) << to;
    const Json problem = answer.body["problems"][0];
    EXPECT_EQ(problem["node"], node) << problem;
    EXPECT_EQ(problem["knob"], knob) << problem;
    EXPECT_EQ(problem["suggestion"], suggestion) << problem;
    EXPECT_NE(problem["message"].get<std::string>().find(message), std::string::npos) << problem;
  }
  EXPECT_EQ(server.send("GET", "/composition").body["text"], second);
}

TEST(Server, SavesAndFollowsTheFile) {
  const std::string first = shot_of(keyed), mine = replaced(first, "0.25", "0.75");
  const std::string theirs = replaced(first, "0.5", "0.625"), more = replaced(first, "0.5", "0.125");
  PageServer server(first);
  const auto events = server.listen("/events?client=one");
  EXPECT_EQ(events->event("computing")["paused"], false);
  EXPECT_EQ(events->event("disk")["changed"], false);
  EXPECT_EQ(events->event("document")["version"], 1);
  EXPECT_EQ(events->event("render")["state"], "idle");
  const auto is_version = [](int version) {
    return [version](const Json& document) { return document["version"] == version; };
  };

  // Written in place, then as editors do it: another file under the name.
  support::write_bytes(server.file, theirs);
  events->event("document", is_version(2));
  support::write_bytes(server.folder / "shot.json~", more);
  fs::rename(server.folder / "shot.json~", server.file);
  EXPECT_EQ(events->event("document", is_version(3))["saved"], true);
  EXPECT_EQ(server.send("GET", "/composition").body["text"], more);
  support::write_bytes(server.file, "{");
  EXPECT_NE(events->event("notice")["text"].get<std::string>().find("not JSON"), std::string::npos);

  // Both have changed: nothing is written until somebody decides.
  server.send("PUT", "/composition", {{"base", 3}, {"text", mine}});
  support::write_bytes(server.file, theirs);
  events->event("disk", [](const Json& disk) { return disk["changed"] == true; });
  Answer answer = server.send("POST", "/save", {{"version", 4}, {"force", false}});
  EXPECT_EQ(answer.status, 409);
  EXPECT_EQ(answer.body["text"], theirs);
  EXPECT_EQ(support::bytes_of(server.file), theirs);
  EXPECT_EQ(server.send("POST", "/save", {{"version", 3}, {"force", true}}).status, 412);
  answer = server.send("POST", "/save", {{"version", 4}, {"force", true}});
  EXPECT_EQ(answer.body["saved"], true) << answer.body;
  EXPECT_EQ(support::bytes_of(server.file), mine);
  events->event("disk", [](const Json& disk) { return disk["changed"] == false; });
  support::write_bytes(server.file, theirs);
  events->event("document", is_version(5));
  answer = server.send("POST", "/reload");
  EXPECT_EQ(answer.body["version"], 5);
  EXPECT_EQ(answer.body["text"], theirs);
}

// Two pages that edit as fast as they can: every edit is made once, on top of another one.
TEST(Server, TakesAStormOfEditsFromTwoPages) {
  const std::string first = shot_of(keyed);
  PageServer server(first);
  static constexpr int edits = 60;
  std::atomic<int> refused = 0;
  const auto edit = [&](int page) {
    httplib::Client client("127.0.0.1", server.port);
    client.set_keep_alive(true);
    client.set_tcp_nodelay(true);
    const httplib::Headers headers = {{"Authorization", "Bearer " + server.token}};
    const auto events = server.listen("/events?client=" + std::to_string(page));
    int base = 1;
    for (int made = 0; made < edits;) {
      const std::string size = std::to_string(100 * page + made);
      const Json body = {{"base", base}, {"text", replaced(first, R"("size": 2)", "\"size\": " + size)}};
      const auto result = client.Put("/composition", headers, body.dump(), "application/json");
      ASSERT_TRUE(result) << to_string(result.error());
      ASSERT_TRUE(result->status == 200 || result->status == 409) << result->body;
      base = Json::parse(result->body)["version"].get<int>();
      made += result->status == 200 ? 1 : 0;
      refused += result->status == 409 ? 1 : 0;
    }
    events->event("document", [](const Json& document) { return document["version"] == 1 + 2 * edits; });
  };
  std::thread other([&] { edit(1); });
  edit(2);
  other.join();
  EXPECT_EQ(server.send("GET", "/composition").body["version"], 1 + 2 * edits);
}

TEST(Server, RendersByTheCommand) {
  const std::string text = shot_of(keyed + R"(, {"name": "out", "type": "write", "inputs": "ground",
    "knobs": {"file": "out/f.####.exr"}})");
  PageServer server(text);
  const auto events = server.listen("/events?client=r");
  EXPECT_EQ(events->event("render")["state"], "idle");
  EXPECT_EQ(server.send("GET", "/render/command?frames=1-2").body["command"],
            "quorvel render " + server.file.string() + " --frames=1-2");
  EXPECT_EQ(server.send("POST", "/render", {{"frames", "--help"}}).status, 400);
  const auto ended = [](const Json& render) { return render["state"] != "running"; };
  ASSERT_EQ(server.send("POST", "/render", {{"frames", "1-2"}}).status, 204);
  EXPECT_EQ(events->event("render", ended),
            Json({{"state", "done"}, {"done", 2}, {"total", 2}, {"message", ""}}));
  EXPECT_TRUE(fs::exists(server.folder / "out/f.0002.exr"));
  ASSERT_EQ(server.send("POST", "/render", {{"frames", "1-2"}}).status, 204);
  const Json refused = events->event("render", ended);
  EXPECT_EQ(refused["state"], "failed");
  EXPECT_NE(refused["message"].get<std::string>().find("out/f.0001.exr"), std::string::npos) << refused;
}

}  // namespace
