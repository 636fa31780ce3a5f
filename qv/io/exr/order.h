#pragma once

#include <qv/io/exr/file.h>

#include <vector>

namespace qv::io::exr {

// The channels of a part in the order in which OpenImageIO lists them, as indices into the part's: by layer,
// and within one colours first, alpha and depth behind them, others by name.
std::vector<int> listed_order(const std::vector<Channel>& channels);

}  // namespace qv::io::exr
