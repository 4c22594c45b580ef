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

} // namespace tool

#endif
