#include "host/shot/parse_nodes.h"

#include <algorithm>
#include <string>
#include <utility>

namespace host::shot {

using node::Node;

namespace {

// Depth-first over inputs, with a stack of its own: a chain may be longer than the call stack.
class Order {
 public:
  Order(const std::vector<Node>& given, Problems& problems)
      : given_(given), problems_(problems), state_(given.size(), State::unseen) {}

  std::vector<int> run() {
    for (size_t i = 0; i < given_.size() && !circle_; ++i) visit(static_cast<int>(i));
    return order_;
  }

 private:
  enum class State : uint8_t { unseen, open, done };
  struct Step {
    int node = 0;
    size_t next_input = 0;
  };

  void visit(int root) {
    if (state_of(root) != State::unseen) return;
    open(root);
    while (!path_.empty() && !circle_) {
      Step& step = path_.back();
      const std::vector<int>& inputs = given_[static_cast<size_t>(step.node)].inputs;
      if (step.next_input == inputs.size()) {
        close(step.node);
        continue;
      }
      const int input = inputs[step.next_input++];
      if (input < 0 || state_of(input) == State::done) continue;
      if (state_of(input) == State::open) {
        report(input);
      } else {
        open(input);
      }
    }
  }

  void open(int node) {
    state_of(node) = State::open;
    path_.push_back({node, 0});
  }

  void close(int node) {
    state_of(node) = State::done;
    order_.push_back(node);
    path_.pop_back();
  }

  // The circle from `node` back to itself, in the direction in which images flow.
  void report(int node) {
    circle_ = true;
    const std::string first = quoted(given_[static_cast<size_t>(node)].name);
    std::string text = first;
    for (size_t i = path_.size(); i-- > 0;) {
      text += " -> " + quoted(given_[static_cast<size_t>(path_[i].node)].name);
      if (path_[i].node == node) break;
    }
    problems_.add("", "nodes feed each other in a circle: " + text);
  }

  State& state_of(int node) {
    return state_[static_cast<size_t>(node)];
  }

  const std::vector<Node>& given_;
  Problems& problems_;
  std::vector<State> state_;
  std::vector<Step> path_;
  std::vector<int> order_;
  bool circle_ = false;
};

}  // namespace

std::vector<Node> upstream_first(std::vector<Node> given, Problems& problems) {
  const std::vector<int> order = Order(given, problems).run();
  if (order.size() != given.size()) return given;
  std::vector<int> new_position(given.size());
  for (size_t i = 0; i < order.size(); ++i) new_position[static_cast<size_t>(order[i])] = static_cast<int>(i);
  std::vector<Node> sorted;
  sorted.reserve(given.size());
  for (const int old : order) {
    sorted.push_back(std::move(given[static_cast<size_t>(old)]));
    for (int& input : sorted.back().inputs) {
      if (input >= 0) input = new_position[static_cast<size_t>(input)];
    }
  }
  return sorted;
}

}  // namespace host::shot
