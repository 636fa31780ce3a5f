#include "host/files/atomic_file.h"
#include "tests/host/render/scene.h"

#include <cctype>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

// The name under which write_whole writes, seen from a process that is stopped while it does: the
// folder of a pipe shows it.
std::string part_name_of(pid_t process) {
  char host[256] = {};
  gethostname(host, sizeof host - 1);
  std::string name = host;
  for (char& c : name) c = std::isalnum(static_cast<unsigned char>(c)) ? c : '-';
  std::string boot;
  std::ifstream("/proc/sys/kernel/random/boot_id") >> boot;
  struct stat space {};
  stat("/proc/self/ns/pid", &space);
  return "." + name.substr(0, 64) + "." + boot.substr(0, 8) + "-" + std::to_string(space.st_ino) + "." +
         std::to_string(process) + ".part";
}

pid_t dead_process() {
  const pid_t child = fork();
  if (child == 0) _exit(0);
  waitpid(child, nullptr, 0);
  return child;
}

TEST(PartFiles, OfOthersAreLeftAloneForADay) {
  const fs::path folder = scene::folder() / "parts";
  fs::create_directories(folder);
  const std::string dead = std::to_string(dead_process());
  const std::string here = part_name_of(dead_process());
  const std::string boot = here.substr(here.find('.', 1));
  const struct {
    std::string name;
    bool old;
    bool goes;
  } cases[] = {
      {".a.exr" + here, false, true},
      {".b.exr" + part_name_of(getpid()), false, false},
      {".c.exr.elsewhere" + boot, false, false},
      {".d.exr.elsewhere" + boot, true, true},
      {".e.exr" + here.substr(0, here.find('.', 1)) + ".00000000-1." + dead + ".part", false, true},
      {".f.exr." + dead + ".part", true, false},  // another program's
      {"g.exr", true, false},
  };
  int go = 0;
  for (const auto& each : cases) {
    std::ofstream(folder / each.name) << "x";
    if (each.old)
      fs::last_write_time(folder / each.name, fs::file_time_type::clock::now() - std::chrono::hours(25));
    go += each.goes ? 1 : 0;
  }
  EXPECT_EQ(host::files::remove_leftovers(folder), go);
  for (const auto& each : cases) EXPECT_EQ(fs::exists(folder / each.name), !each.goes) << each.name;
  // A name as long as a folder takes is written all the same.
  const fs::path longest = folder / (std::string(251, 'n') + ".exr");
  const unsigned char byte = 1;
  host::files::write_whole(longest, {&byte, 1});
  EXPECT_EQ(fs::file_size(longest), 1U);
}

}  // namespace
