#pragma once

#include <string>

#include <CLI/CLI.hpp>

namespace host::manual {

// The page of section 1: every command with its arguments and options as the table has them.
std::string man_page(const CLI::App& program, const std::string& version);

}  // namespace host::manual
