#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace bench {

// What one measurement of a function gave, in seconds a call.
struct Timing {
  double least = 0;
  double median = 0;
  double most = 0;
};

// Times every function in turn, round after round (A B C A B C ...), so that a machine whose speed
// drifts slows all of them alike; one round before the first is not counted. Returns one Timing a
// function, in the order given.
std::vector<Timing> time_in_turn(int rounds, const std::vector<std::function<void()>>& functions);

// Keeps the compiler from removing a computation whose result nobody reads.
template <class T>
inline void keep(const T& value) {
  asm volatile("" : : "g"(&value) : "memory");
}

// Collects rows, prints them as a table with ratios and writes them as JSON.
//   bench::Report report("graph", argc, argv);
//   report.row("walk, nothing changed", "ns/node", Better::less, ours, {{"byte test", theirs}}, 5.0);
//   return report.finish();
enum class Better { less, more };

class Report {
 public:
  // Understands "--json FILE" (write the rows there), "--only TEXT" (run what holds TEXT in its
  // name) and "--quick" (the bench may shrink its sizes); exits with 2 on anything else.
  Report(std::string name, int argc, char** argv);

  // Whether the host of this bench should measure the row or group of this name.
  bool wants(const std::string& name) const;
  bool quick() const {
    return quick_;
  }

  // Adds and prints a row. The ratio to each peer is how many times better ours is: peer / ours
  // where less is better, ours / peer where more is. `limit` is the least ratio to the best peer
  // that the project holds itself to, 0 for a row that is only reported.
  void row(const std::string& name, const std::string& unit, Better better, double ours,
           const std::vector<std::pair<std::string, double>>& peers = {}, double limit = 0);

  // Prints a line beneath the rows: a reason, a spread, a size.
  void note(const std::string& text);

  // Ends with 1 and the row's name when an answer differs from a peer's: no timing counts then.
  void require(bool equal, const std::string& what) const;

  // Writes the JSON and returns the process's exit status: 0, or 2 when the file cannot be written.
  int finish() const;

 private:
  struct Row {
    std::string name, unit;
    Better better = Better::less;
    double ours = 0;
    std::vector<std::pair<std::string, double>> peers;
    double limit = 0;
  };
  std::string name_, json_path_, only_;
  bool quick_ = false;
  std::vector<Row> rows_;
};

}  // namespace bench
