// Helpers for the files that define subcommands.
#ifndef TARVEL_TOOL_COMMANDS_H
#define TARVEL_TOOL_COMMANDS_H

#include <CLI/CLI.hpp>

#include <functional>
#include <utility>

#include "Tool.h"

namespace tool {

// Runs `work` (after the whole command line has parsed) when `cmd` is chosen.
inline void onRun(CLI::App* cmd, CommandContext& ctx, std::function<int()> work) {
    cmd->callback([cmd, &ctx, work = std::move(work)] {
        ctx.chosen = cmd;
        ctx.action = work;
    });
}

// The check of every numeric option (Numbers.cpp): the rule's message when the
// text breaks it, "--count: abc is not a whole number from 1 to 1000000".
CLI::Validator numberCheck(const NumberRule& rule);

} // namespace tool

#endif
