// tarvel: command-line access to a Tarvel CAN-bus simulator device.
#include <CLI/CLI.hpp>

#include <exception>
#include <iostream>
#include <memory>
#include <string>

#include "Commands.h"

#ifndef TARVEL_VERSION
#define TARVEL_VERSION "unknown"
#endif

namespace {

const char* kFooter = R"(Without --port every command runs against the built-in simulated device,
started inside tarvel for the duration of the command.

Exit status: 0 success, 1 a device operation or the connection failed,
2 bad arguments.

Examples:
  tarvel demo                              guided tour on the simulated device
  tarvel ports                             the serial ports of this machine
  tarvel --port /dev/ttyUSB0 ping
  tarvel --port /dev/ttyUSB0 eeprom read 0x40 32
  tarvel --port /dev/ttyUSB0 send 0 123#DEADBEEF --period 100
  tarvel --port /dev/ttyUSB0 monitor 0:123 1:7FF --duration 10 --log bus.log
  tarvel sim --link /tmp/tarvel0           standalone simulated device)";

std::string commandPath(const CLI::App* app) {
    std::string path = app->get_name();
    for (const CLI::App* p = app->get_parent(); p != nullptr; p = p->get_parent())
        path = p->get_name() + " " + path;
    return path;
}

void collectSynopsis(const CLI::App* app, const CLI::Formatter& formatter, std::string& out) {
    auto subs = app->get_subcommands([](const CLI::App*) { return true; });
    if (subs.empty()) {
        std::string usage = formatter.make_usage(app, commandPath(app)); // "Usage: tarvel ...\n"
        auto colon = usage.find(": ");
        out += "  " + (colon == std::string::npos ? usage : usage.substr(colon + 2));
        return;
    }
    for (const CLI::App* sub : subs)
        collectSynopsis(sub, formatter, out);
}

// One usage line per command, so that --help shows every command's arguments.
std::string commandSynopsis(const CLI::App& app) {
    std::string out = "Commands ('tarvel COMMAND --help' describes each):\n";
    auto formatter = std::dynamic_pointer_cast<CLI::Formatter>(app.get_formatter());
    if (!formatter) return std::string();
    for (const CLI::App* sub : app.get_subcommands([](const CLI::App*) { return true; }))
        collectSynopsis(sub, *formatter, out);
    return out + "\n";
}

const CLI::App* deepestParsed(const CLI::App* app) {
    for (const CLI::App* sub : app->get_subcommands())
        return deepestParsed(sub);
    return app;
}

// The message, the usage line of the command concerned and where help is.
int usageFailure(const CLI::App& root, const CLI::App* concerned, const std::string& message) {
    if (concerned == nullptr) concerned = deepestParsed(&root);
    std::string path = commandPath(concerned);
    std::cerr << "tarvel: error: " << message << "\n";
    auto formatter = std::dynamic_pointer_cast<CLI::Formatter>(root.get_formatter());
    if (formatter) std::cerr << formatter->make_usage(concerned, path);
    std::cerr << "Run '" << path << " --help' for more information.\n";
    return tool::kExitUsage;
}

// The device said nothing within the read time-out (rather than refusing).
bool noAnswer(const tool::OperationError& e, const std::string& report) {
    bool timedOut = e.code == -14 || e.code == -15 || (e.kind == tool::ResultKind::Connect && e.code == -314);
    return timedOut && (report.empty() || report.find("No valid answer") != std::string::npos);
}

} // namespace

int main(int argc, char** argv) {
    tool::CommandContext ctx;
    CLI::App app{"Control a Tarvel CAN-bus simulator device over its serial line.", "tarvel"};
    app.fallthrough(); // global options may follow the command
    app.require_subcommand(1);
    app.set_version_flag("--version", std::string("tarvel ") + TARVEL_VERSION);

    tool::GlobalOptions& o = ctx.options;
    app.add_option("-p,--port", o.port,
                   "Serial device of a real Tarvel: a path (/dev/ttyUSB0), or a bare name looked up in /dev/ "
                   "('tarvel ports' lists them); without it the built-in simulated device is used")
        ->type_name("NAME");
    app.add_option("--read-timeout", o.readTimeout, "Read time-out of the serial line in ms")
        ->capture_default_str()
        ->check(tool::numberCheck(tool::milliseconds(1, 600000)))
        ->type_name("MS");
    app.add_option("--write-timeout", o.writeTimeout, "Write time-out of the serial line in ms")
        ->capture_default_str()
        ->check(tool::numberCheck(tool::milliseconds(1, 600000)))
        ->type_name("MS");
    app.add_option("--trace", o.trace, "Write the communication trace (every packet, errors, information) to FILE")
        ->type_name("FILE");
    app.add_flag("-v,--verbose", o.verbose,
                 "Show the library's own reports on stderr; twice (-vv) also the packet trace");
    app.add_option("--sim-fault", o.simFault, "Fault of the built-in simulated device: silent, drop, corrupt")
        ->group(""); // for tests and experiments, not in --help

    tool::addDeviceCommands(app, ctx);
    tool::addEepromCommands(app, ctx);
    tool::addTransmitCommands(app, ctx);
    tool::addReceiveCommands(app, ctx);
    tool::addDemoCommand(app, ctx);
    tool::addSimCommand(app, ctx);
    tool::addPortsCommand(app, ctx);
    // After the commands, so that they don't inherit it.
    app.footer([&app] { return commandSynopsis(app) + kFooter; });

    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp& e) {
        return app.exit(e);
    } catch (const CLI::CallForAllHelp& e) {
        return app.exit(e);
    } catch (const CLI::CallForVersion& e) {
        return app.exit(e);
    } catch (const CLI::ParseError& e) {
        // "A subcommand is required" says little when a word was given that
        // is no command: name the word.
        const CLI::App* concerned = deepestParsed(&app);
        auto left = concerned->remaining();
        if (left.empty()) left = app.remaining();
        if (!left.empty() && concerned->get_require_subcommand_min() > 0 && concerned->get_subcommands().empty() &&
            left.front().compare(0, 1, "-") != 0)
            return usageFailure(app, concerned, "unknown command '" + left.front() + "'");
        return usageFailure(app, concerned, e.what());
    } catch (const tool::UsageError& e) {
        return usageFailure(app, ctx.chosen, e.what());
    }
    if (!ctx.action) return usageFailure(app, nullptr, "no command given");

    tool::installInterruptHandler();
    try {
        return ctx.action();
    } catch (const tool::UsageError& e) {
        return usageFailure(app, ctx.chosen, e.what());
    } catch (const tool::OperationError& e) {
        std::cout.flush();
        std::cerr << "tarvel: " << e.operation << " failed: " << tool::describeResult(e.code, e.kind) << "\n";
        std::string report = tool::lastLibraryReport();
        if (!report.empty()) std::cerr << "tarvel: the library reported: " << report << "\n";
        if (noAnswer(e, report))
            std::cerr << "tarvel: the read time-out is " << ctx.options.readTimeout
                      << " ms; --read-timeout MS changes it\n";
        return tool::kExitFailed;
    } catch (const std::exception& e) {
        std::cout.flush();
        std::cerr << "tarvel: " << e.what() << "\n";
        return tool::kExitFailed;
    }
}
