#pragma once

#include <CLI/CLI.hpp>

#include <string>

/// Scripts that complete commands, options and their values, made of the program's definitions.
std::string bashCompletion(const CLI::App& program);
std::string zshCompletion(const CLI::App& program);
std::string fishCompletion(const CLI::App& program);
