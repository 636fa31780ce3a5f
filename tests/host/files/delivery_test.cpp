#include "host/render/delivery.h"

#include "tests/host/render/scene.h"
#include "tests/support/allocations.h"

#include <gtest/gtest.h>

namespace {

// Memory that runs out on the ring's thread, where nobody catches.
TEST(Delivery, ReportsAFrameThatTheWriterHadNoMemoryFor) {
  // A path of a length that nothing else has.
  std::string path = scene::folder().string() + "/";
  while (path.size() < 3000) path += "./";
  path += path.size() % 2 ? "o.exr" : "oo.exr";
  host::render::RenderOptions options;
  options.frames = {1};
  options.outputs = {path};
  scene::Scene shot(R"({"name": "grey", "type": "constant"})", 8, 8, options);
  scene::Recorder recorder;
  support::allocations.refused_elsewhere = path.size() + 1;
  support::Allocations::here = true;
  const auto outcome = shot.run(recorder);
  support::allocations.refused_elsewhere = 0;
  EXPECT_EQ(outcome, host::render::Outcome::some_failed);
  ASSERT_EQ(recorder.frames.size(), 1U);
  EXPECT_NE(recorder.frames[0].error, "");
}

}  // namespace
