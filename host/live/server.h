#pragma once

#include "host/gpu/gpu_context.h"
#include "host/live/keepsake.h"
#include "host/render/renderer.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace host::live {

struct ServerOptions {
  std::filesystem::path file;         // the composition
  std::string address = "127.0.0.1";  // to listen at; any other one needs a certificate
  int port = 0;                       // 0: one that is free
  std::string certificate, key;       // files in PEM
  render::RendererOptions renderer;   // its scale is the most that images are drawn at
  gpu::DeviceChoice device;
  std::filesystem::path program;                // `quorvel`, for renderings to files
  std::vector<std::string> render_words;        // options of those, as typed: of the machine
  std::function<void(const std::string&)> log;  // told a line of what was refused; from any thread
  // Where a server that comes after a crash finds what it takes to go on as this one, and this one finds what
  // the one before has left; may be null. Outlives the process that crashes.
  std::shared_ptr<Keepsake> keepsake;
  std::string notice;  // what the pages are told first; "": nothing
};

// The page and what stands behind it: answers HTTP requests about one composition, see page/src/protocol.ts.
// Thread-safe; its threads end with it.
class Server {
 public:
  // Reads the composition and opens the device. Throws shot::CompositionError, gpu::NoGpu, and what
  // http::Server throws.
  explicit Server(ServerOptions options);
  ~Server();  // within half a second
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  // Begins to answer and returns the page's address with its token. Throws std::runtime_error where it cannot
  // listen.
  std::string start();

  struct State;

 private:
  std::unique_ptr<State> state_;
};

}  // namespace host::live
