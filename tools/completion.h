#pragma once

#include <CLI/App.hpp>
#include <string>

namespace ORVEL::TOOLS {

/** The shells that completions can be written for. */
inline constexpr const char* kShells[] = {"bash", "zsh", "fish"};

/**
 * The script that completes the program's command line in a shell, made from the parser's own commands
 * and options. @param shell one of kShells.
 */
std::string completionScript(const CLI::App& app, const std::string& shell);

}  // namespace ORVEL::TOOLS
