#include <qv/io/layer_plan.h>

#include <algorithm>
#include <cstddef>

namespace qv::io {

namespace {

bool slot_exists(const Slot& slot, const std::vector<Read>& reads) {
  if (slot.read < 0) return true;
  const auto index = static_cast<size_t>(slot.read);
  return index < reads.size() && slot.channel >= 0 &&
         slot.channel < int64_t{reads[index].chend} - reads[index].chbegin;
}

}  // namespace

std::string plan_error(const LayerPlan& plan) {
  if (plan.outs.size() != plan.slots.size() || plan.width < 0 || plan.height < 0) return "bad plan";
  for (const auto& output : plan.slots) {
    const auto exists = [&](const Slot& slot) { return slot_exists(slot, plan.reads); };
    if (!std::all_of(output.begin(), output.end(), exists)) return "bad slot";
  }
  return {};
}

}  // namespace qv::io
