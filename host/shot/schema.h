#pragma once

#include <string>

namespace host::shot {

// JSON schema (draft 2020-12) of compositions, for editors to complete and check against; made from
// the catalogue. The file docs/composition.schema.json is this text: a test holds them together.
std::string composition_schema();

}  // namespace host::shot
