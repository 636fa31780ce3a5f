#include <qv/graph/walk.h>
#include <qv/version.h>

#include <cstdio>

static_assert(QV_VERSION >= 100 &&
              qv::version_major * 10000 + qv::version_minor * 100 + qv::version_patch == QV_VERSION);

int main() {
  qv::graph::Walk walk;
  walk.build({{}, {0}}, {0, 0}, {1, 2});
  const int visited = walk.walk({0}, false, [](int node, bool) { return int64_t{10} + node; });
  std::printf("%s %d\n", qv::core_version(), visited);
  return visited == 2 ? 0 : 1;
}
