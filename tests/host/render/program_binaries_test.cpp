#include "host/programs/program_binaries.h"

#include "tests/host/render/scene.h"
#include "tests/support/files.h"

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include <gtest/gtest.h>

namespace {

namespace fs = std::filesystem;

std::vector<fs::path> files_in(const fs::path& folder) {
  std::error_code none;
  std::vector<fs::path> files;
  for (const auto& entry : fs::directory_iterator(folder, none)) files.push_back(entry.path());
  return files;
}

// Makes another folder the user's.
void set_cache_home(const fs::path& folder) {
  setenv("XDG_CACHE_HOME", folder.c_str(), 1);
}

struct Start {
  int64_t compiled = 0;
  int64_t restored = 0;
  std::vector<float> pixels;
};

// What a start does that needs programs of texts, with defines, and of a filter.
Start start() {
  scene::Scene shot(
      R"({"name": "c", "type": "constant", "knobs": {"color": [0.9, 0.5, 0.2, 1]}},
         {"name": "small", "type": "crop", "inputs": "c", "knobs": {"box": [2, 2, 6, 5]}},
         {"name": "soft", "type": "blur", "inputs": "small", "knobs": {"size": 2}},
         {"name": "over", "type": "merge", "inputs": ["soft", "c"], "knobs": {"operation": "screen"}})");
  Start done;
  done.pixels = shot.image("over").rgba;
  done.compiled = shot.renderer().stats().programs_compiled;
  done.restored = shot.renderer().stats().programs_restored;
  return done;
}

// The check of an entry as its head has it, so that only the driver can tell that it is none.
void sign(std::string& entry) {
  uint64_t check = 0xcbf29ce484222325U;
  for (const char each : std::string_view(entry).substr(40))
    check = (check ^ static_cast<unsigned char>(each)) * 0x100000001b3U;
  std::memcpy(entry.data() + 24, &check, sizeof check);
}

TEST(ProgramBinaries, SpareASecondStartItsCompilingUnlessTheyAreDamaged) {
  scene::gpu();
  set_cache_home(scene::folder() / "cache");
  const fs::path folder = scene::folder() / "cache" / "quorvel" / "programs";
  const Start first = start();
  const int64_t count = first.compiled;
  ASSERT_GT(count, 2);
  EXPECT_EQ(first.restored, 0);
  if (files_in(folder).empty()) GTEST_SKIP() << "the driver packs no programs";

  using Damage = std::function<void(std::string & entry, const std::string& other)>;
  const struct {
    const char* what;
    Damage damage;
    bool serves = false;
  } rows[] = {
      {"none", [](auto&, auto&) {}, true},
      {"empty", [](auto& entry, auto&) { entry.clear(); }},
      {"half a head", [](auto& entry, auto&) { entry.resize(20); }},
      {"a byte short", [](auto& entry, auto&) { entry.pop_back(); }},
      {"a byte long", [](auto& entry, auto&) { entry += 'x'; }},
      {"another kind of file", [](auto& entry, auto&) { entry[0] ^= 1; }},
      {"a size that overflows", [](auto& entry, auto&) { entry.replace(8, 16, 16, '\xff'); }},
      {"another format", [](auto& entry, auto&) { entry[32] ^= 1; }},
      {"another driver or version", [](auto& entry, auto&) { entry[41] ^= 1; }},
      {"a byte of the binary", [](auto& entry, auto&) { entry[entry.size() - 9] ^= 1; }},
      {"another program's", [](auto& entry, auto& other) { entry = other; }},
      {"what the driver refuses",
       [](auto& entry, auto&) {
         for (size_t i = entry.size() - 64; i < entry.size(); ++i) entry[i] ^= 0x55;
         sign(entry);
       }},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    std::vector<fs::path> files = files_in(folder);
    ASSERT_EQ(files.size(), static_cast<size_t>(count));
    std::string other = support::bytes_of(files.back());
    for (const fs::path& file : files) {
      const std::string whole = support::bytes_of(file);
      std::string entry = whole;
      row.damage(entry, other);
      support::write_bytes(file, entry);
      other = whole;
    }
    const Start again = start();
    EXPECT_EQ(again.compiled, row.serves ? 0 : count);
    EXPECT_EQ(again.restored, row.serves ? count : 0);
    EXPECT_EQ(again.pixels, first.pixels);
    EXPECT_EQ(start().restored, count);  // damaged ones have been replaced
  }

  // Those that were used longest ago make room, and nothing is left beside them.
  const fs::path one_of_ours = files_in(folder).front();
  const auto long_ago = fs::file_time_type::clock::now() - std::chrono::hours(48);
  for (int i = 0; i < 600; ++i) {
    const fs::path old = folder / ("old" + std::to_string(i) + ".bin");
    support::write_bytes(old, "old");
    fs::last_write_time(old, long_ago);
  }
  fs::remove(one_of_ours);
  EXPECT_EQ(start().compiled, 1);
  EXPECT_LE(files_in(folder).size(), 512U);
  EXPECT_EQ(start().compiled, 0);

  // Where no folder can be made, there is none.
  support::write_bytes(scene::folder() / "file", "");
  set_cache_home(scene::folder() / "file");
  EXPECT_EQ(start().compiled, count);
}

}  // namespace
