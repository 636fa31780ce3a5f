#include "host/base/library_threads.h"
#include "host/cli/cli.h"
#include "host/cli/device.h"
#include "host/cli/keeper.h"
#include "host/cli/options.h"
#include "host/cli/table.h"
#include "host/live/server.h"

#include <array>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <iostream>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <system_error>
#include <utility>

#include <CLI/CLI.hpp>
#include <fcntl.h>
#include <spawn.h>
#include <sys/time.h>
#include <unistd.h>

// The command that shows a composition in a browser while a person works on it.

namespace host::cli {
namespace {

namespace fs = std::filesystem;

struct LiveCommand {
  RenderCommand render;  // what it takes of a machine
  int port = 0;
  std::string address, certificate, key;
  bool no_open = false;
};

int late_code = exit_interrupted;

extern "C" void end_late(int /*signal*/) {
  _exit(late_code);
}

// A driver that does not come back holds nobody up: nothing is under way that could be left half done.
void end_in_time(int signal) {
  late_code = code_of(signal);
  std::signal(SIGALRM, end_late);
  itimerval timer{};
  timer.it_value.tv_usec = 900'000;
  setitimer(ITIMER_REAL, &timer, nullptr);
}

// A page that leads to the address, which others on this machine would see among the words of a process. Made
// in front of what serves, so that a crash leaves it to somebody.
class Redirection {
 public:
  Redirection() {
    const char* const folder = std::getenv("XDG_RUNTIME_DIR");
    std::string name = std::string(folder && *folder ? folder : "/tmp") + "/quorvel-live-XXXXXX.html";
    file_ = mkostemps(name.data(), 5, O_CLOEXEC);  // for its owner alone
    if (file_ >= 0) path_ = name;
  }
  ~Redirection() {
    std::error_code ignored;
    if (path_.empty()) return;
    ::close(file_);
    fs::remove(path_, ignored);
  }
  Redirection(const Redirection&) = delete;
  Redirection& operator=(const Redirection&) = delete;

  // Whether a browser comes up is for the person to see: the address is printed all the same.
  void open(const std::string& address) {
    const std::string text =
        "<!doctype html><meta http-equiv=\"refresh\" content=\"0;url=" + address + "\">\n";
    if (path_.empty() || ::write(file_, text.data(), text.size()) != static_cast<ssize_t>(text.size()))
      return;
    std::string opener = "xdg-open";
    std::array<char*, 3> words = {opener.data(), path_.data(), nullptr};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDWR, 0);
    for (const int out : {1, 2}) posix_spawn_file_actions_adddup2(&actions, 0, out);
    posix_spawn_file_actions_addclosefrom_np(&actions, 3);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_setsigmask(&attributes, &none);
    // In a group of its own: Ctrl-C is not meant for the browser.
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETPGROUP);
    pid_t process = -1;
    posix_spawnp(&process, opener.c_str(), &actions, &attributes, words.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
  }

 private:
  std::string path_;
  int file_ = -1;
};

bool on_a_desktop() {
  const auto is_set = [](const char* name) {
    const char* const value = std::getenv(name);
    return value && *value;
  };
  return is_set("DISPLAY") || is_set("WAYLAND_DISPLAY");
}

live::ServerOptions server_options(const LiveCommand& given) {
  live::ServerOptions options;
  if (!given.address.empty()) {
    if (given.certificate.empty() || given.key.empty())
      throw UsageError("--listen: others could read along: --cert and --key are needed as well");
    options.address = given.address;
  }
  options.file = given.render.shot.file;
  options.port = given.port;
  options.certificate = given.certificate;
  options.key = given.key;
  options.renderer = static_cast<const render::RendererOptions&>(given.render.options);
  options.device = device_choice(given.render.gpu);
  options.program = "/proc/self/exe";
  options.render_words = {"--threads", std::to_string(options.renderer.threads),
                          "--memory",  std::to_string(options.renderer.memory),
                          "--gpu",     given.render.gpu};
  // Lines of several threads, each whole.
  options.log = [mutex = std::make_shared<std::mutex>()](const std::string& line) {
    const std::lock_guard lock(*mutex);
    std::cerr << "quorvel: " + line + "\n" << std::flush;
  };
  return options;
}

int show(const LiveCommand& given) {
  live::ServerOptions options = server_options(given);
  std::optional<Redirection> redirection;
  if (!given.no_open && on_a_desktop()) redirection.emplace();
  Keeper keeper(options.file);
  if (const std::optional<int> code = keeper.run()) return *code;
  hold_threads(options.renderer.threads);
  options.keepsake = keeper.keepsake();
  options.notice = keeper.story();
  live::Server server(std::move(options));
  const std::string address = server.start();
  if (keeper.story().empty()) {
    std::cout << address << std::endl;
    if (redirection) redirection->open(address);
  }
  const int signal = keeper.wait_for_end();
  redirection.reset();
  end_in_time(signal);
  return code_of(signal);
}

}  // namespace

Command add_live(CLI::App& program) {
  CLI::App* const options = program.add_subcommand(
      "live", "Shows a composition in a browser while you work on it, until Ctrl-C. Prints the address.");
  const auto given = std::make_shared<LiveCommand>();
  options->add_option("composition", given->render.shot.file, "Composition, a JSON file")
      ->type_name("FILE")
      ->required();
  options->add_option("--port", given->port, "Port to listen at; 0 (the default): one that is free")
      ->type_name("N")
      ->check(CLI::Range(0, 65535).description(""));
  options
      ->add_option("--listen", given->address,
                   "Let other machines in at this address or name of this one; needs --cert and --key")
      ->type_name("ADDRESS");
  options->add_option("--cert", given->certificate, "Certificate to encrypt with, a PEM file")
      ->type_name("FILE");
  options->add_option("--key", given->key, "The certificate's key, a PEM file")->type_name("FILE");
  options->get_option("--cert")->needs("--key");
  options->get_option("--key")->needs("--cert");
  options->add_flag("--no-open", given->no_open, "Do not open a browser");
  add_device_options(*options, given->render);
  add_proxy(*options, given->render.options.scale, "Draw at most at this scale, above 0 and at most 1");
  return {options, [given] { return show(*given); }};
}

}  // namespace host::cli
