#include "tests/host/cli/process.h"
#include "tests/support/images.h"
#include "tests/support/table.h"

#include <gtest/gtest.h>

// The libraries that a start brings into the process, and files without the module that reads and writes
// them.

namespace {

namespace fs = std::filesystem;
using process::grey;
using process::run;

fs::path folder_of_shots() {
  const fs::path folder = process::new_folder();
  for (const std::string type : {"exr", "png"})
    process::write_shot(folder / (type + ".json"), grey + process::write_node("out", "grey", "o.#." + type),
                        "1");
  process::write_shot(folder / "copy.json",
                      R"({"name": "in", "type": "read", "knobs": {"file": "o.1.exr"}})" +
                          process::write_node("out", "in", "c.#.exr"),
                      "1");
  support::write_image(folder / "whole.png", OIIO::ImageSpec(4, 4, 3, OIIO::TypeUInt8),
                       std::vector<float>(48));
  return folder;
}

TEST(Modules, AreLoadedForFilesThatNeedThemAndForNothingElse) {
  const fs::path folder = folder_of_shots();
  constexpr const char* brings = R"(
nodes | no
--help | no
nodes --schema | no
completion bash | no
info exr.json | no
render exr.json | no
info o.1.exr | no
render copy.json | no
info whole.png | yes
render png.json | yes
)";
  for (const auto& [words, expected] : support::rows<2>(brings)) {
    const auto ended = run("LD_DEBUG=files quorvel " + words, folder);
    EXPECT_EQ(ended.code, 0) << words;
    EXPECT_NE(ended.err.find("libquorvel_core"), std::string::npos) << words;
    EXPECT_EQ(ended.err.find("libOpenImageIO") == std::string::npos ? "no" : "yes", expected) << words;
  }
}

TEST(Modules, ThatAreMissingOrOfAnotherVersionFailTheFilesThatNeedThemAlone) {
  const fs::path folder = folder_of_shots(), libraries = folder / "lib";
  const std::string module = (libraries / "libquorvel_host_images.so").string();
  fs::create_directory(libraries);
  fs::copy_file(CORE_LIBRARY, libraries / fs::path(CORE_NAME));
  constexpr const char* modules = R"(
- | cannot be loaded: cannot open shared object file
/bin/true | cannot be loaded: cannot dynamically load
FOREIGN_MODULE | belongs to another version of quorvel
)";
  const std::string quorvel = "LD_LIBRARY_PATH=" + libraries.string() + " quorvel ";
  for (const auto& [source, says] : support::rows<2>(modules)) {
    const std::string file = source == "FOREIGN_MODULE" ? FOREIGN_MODULE : source;
    if (file != "-") fs::copy_file(file, module, fs::copy_options::overwrite_existing);
    EXPECT_EQ(run(quorvel + "nodes", folder).code, 0) << source;
    for (const std::string shot : {"exr.json", "copy.json"})
      EXPECT_EQ(run(quorvel + "render --overwrite " + shot, folder).code, 0) << source << shot;
    const std::string reason = module + ", which reads and writes such files, " + says;
    const auto read = run(quorvel + "info whole.png", folder);
    EXPECT_EQ(read.code, 2) << source;
    EXPECT_EQ(read.err.find("quorvel: whole.png: " + reason), 0U) << read.err;
    const auto written = run(quorvel + "render png.json", folder);
    EXPECT_EQ(written.code, 1) << source;
    EXPECT_NE(written.err.find("o.1.png: " + reason), std::string::npos) << written.err;
    EXPECT_FALSE(fs::exists(folder / "o.1.png"));
  }
}

}  // namespace
