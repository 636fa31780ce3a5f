#include "bench/report.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iomanip>

namespace bench {

namespace {

double ratio(Better better, double ours, double peer) {
  return better == Better::less ? peer / ours : ours / peer;
}

std::string quoted(const std::string& text) {
  std::string result = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') result += '\\';
    result += c;
  }
  return result + '"';
}

std::string number(double value) {
  char text[40];
  std::snprintf(text, sizeof text, "%.9g", value);
  return std::isfinite(value) ? text : "null";
}

}  // namespace

std::vector<Timing> time_in_turn(int rounds, const std::vector<std::function<void()>>& functions) {
  using clock = std::chrono::steady_clock;
  std::vector<std::vector<double>> seconds(functions.size());
  for (int round = -1; round < rounds; ++round) {
    for (size_t i = 0; i < functions.size(); ++i) {
      const auto begin = clock::now();
      functions[i]();
      const std::chrono::duration<double> took = clock::now() - begin;
      if (round >= 0) seconds[i].push_back(took.count());
    }
  }
  std::vector<Timing> result;
  for (auto& each : seconds) {
    std::sort(each.begin(), each.end());
    result.push_back(each.empty() ? Timing{} : Timing{each.front(), each[each.size() / 2], each.back()});
  }
  return result;
}

Report::Report(std::string name, int argc, char** argv) : name_(std::move(name)) {
  for (int i = 1; i < argc; ++i) {
    const std::string argument = argv[i];
    if (argument == "--quick") {
      quick_ = true;
    } else if ((argument == "--json" || argument == "--only") && i + 1 < argc) {
      (argument == "--json" ? json_path_ : only_) = argv[++i];
    } else {
      std::fprintf(stderr, "bench %s: unknown argument %s (known: --json FILE, --only TEXT, --quick)\n",
                   name_.c_str(), argument.c_str());
      std::exit(2);
    }
  }
  std::printf("%-52s %12s %-9s %s\n", ("bench " + name_).c_str(), "ours", "unit",
              "peers (times better than each)");
}

bool Report::wants(const std::string& name) const {
  return only_.empty() || name.find(only_) != std::string::npos;
}

void Report::row(const std::string& name, const std::string& unit, Better better, double ours,
                 const std::vector<std::pair<std::string, double>>& peers, double limit) {
  rows_.push_back({name, unit, better, ours, peers, limit});
  std::printf("%-52s %12.5g %-9s", name.c_str(), ours, unit.c_str());
  double worst = INFINITY;
  for (const auto& [peer, value] : peers) {
    const double times = ratio(better, ours, value);
    worst = std::min(worst, times);
    std::printf("  %s %.5g (%.2fx)", peer.c_str(), value, times);
  }
  if (limit > 0) std::printf("  [limit %.2fx: %s]", limit, worst >= limit ? "reached" : "MISSED");
  std::printf("\n");
  std::fflush(stdout);
}

void Report::note(const std::string& text) {
  std::printf("    %s\n", text.c_str());
}

void Report::require(bool equal, const std::string& what) const {
  if (equal) return;
  std::fprintf(stderr, "bench %s: answers differ: %s\n", name_.c_str(), what.c_str());
  std::exit(1);
}

int Report::finish() const {
  if (json_path_.empty()) return 0;
  std::ofstream file(json_path_);
  file << "[";
  for (size_t i = 0; i < rows_.size(); ++i) {
    const Row& row = rows_[i];
    file << (i ? ",\n " : "\n ") << "{\"row\": " << quoted(row.name) << ", \"unit\": " << quoted(row.unit)
         << ", \"better\": " << (row.better == Better::less ? "\"less\"" : "\"more\"")
         << ", \"ours\": " << number(row.ours) << ", \"peers\": {";
    for (size_t j = 0; j < row.peers.size(); ++j)
      file << (j ? ", " : "") << quoted(row.peers[j].first) << ": " << number(row.peers[j].second);
    file << "}, \"limit\": " << number(row.limit) << "}";
  }
  file << "\n]\n";
  file.flush();
  if (file) return 0;
  std::fprintf(stderr, "bench %s: cannot write %s\n", name_.c_str(), json_path_.c_str());
  return 2;
}

}  // namespace bench
