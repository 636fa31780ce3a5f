#include "host/files/atomic_file.h"
#include "tests/host/render/scene.h"

#include <chrono>
#include <fstream>

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

// What a process left behind that the system ended while it wrote "a.exr": the end of the name.
std::string part_of_dead_process(const fs::path& folder) {
  const pid_t child = fork();
  if (child == 0) {
    const rlimit none = {0, 0}, one = {1, 1};
    setrlimit(RLIMIT_CORE, &none);
    setrlimit(RLIMIT_FSIZE, &one);
    const unsigned char bytes[2] = {};
    host::files::write_whole(folder / "a.exr", bytes);
    _exit(0);
  }
  waitpid(child, nullptr, 0);
  return fs::directory_iterator(folder)->path().filename().string().substr(6);
}

TEST(PartFiles, OfOthersAreLeftAloneForADay) {
  const fs::path folder = scene::folder() / "parts";
  fs::create_directories(folder);
  const std::string part = part_of_dead_process(folder);
  const size_t boot_at = part.find('.', 1), id_at = part.find('.', boot_at + 1);
  const std::string host = part.substr(0, boot_at), boot = part.substr(boot_at, id_at - boot_at),
                    dead = part.substr(id_at), alive = "." + std::to_string(getpid()) + ".part";
  const struct {
    std::string name;
    bool old, goes;
  } cases[] = {
      {".a.exr" + part, false, true},
      {".b.exr" + host + boot + alive, false, false},
      {".c.exr.elsewhere" + boot + dead, false, false},
      {".d.exr.elsewhere" + boot + dead, true, true},
      {".e.exr" + host + ".00000000-1" + dead, false, true},
      {".f.exr" + dead, true, false},  // another program's
      {"g.exr", true, false},
  };
  int go = 0;
  for (const auto& each : cases) {
    std::ofstream(folder / each.name) << "x";
    fs::last_write_time(folder / each.name,
                        fs::file_time_type::clock::now() - std::chrono::hours(each.old ? 25 : 0));
    go += each.goes;
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
