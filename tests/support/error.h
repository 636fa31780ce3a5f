#pragma once

#include <exception>
#include <string>

namespace support {

// What the call throws says, or "" where it throws nothing; other exceptions than Error pass.
template <class Error = std::exception, class Call>
std::string error_of(const Call& call) {
  try {
    call();
  } catch (const Error& error) {
    return error.what();
  }
  return "";
}

}  // namespace support
