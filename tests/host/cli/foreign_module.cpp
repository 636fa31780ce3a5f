#include "host/general/offer.h"

// A module of another version, which has nothing to offer.
extern "C" const host::general::Offer* quorvel_host_images() {
  static const host::general::Offer offer = {host::general::offer_version + 1, nullptr};
  return &offer;
}
