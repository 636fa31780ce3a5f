#pragma once

#include <qv/transport/state.h>

namespace qv::transport {

// The background thread: completes the queue's transfers one by one, in ticket order, until
// `stopping` is set and the queue is empty. Makes no call that needs a current context.
void complete_transfers(State& state);

}  // namespace qv::transport
