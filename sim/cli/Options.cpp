// Every option of the simulator, for tarvel-sim and `tarvel sim` alike.
#include <CLI/CLI.hpp>

#include "SimulatorCli.h"

namespace tarvelsim::cli {

void addSimulatorOptions(CLI::App& app, Settings& settings) {
    Options& o = settings.options;
    app.add_option("--link", o.link,
                   "Also make PATH a symbolic link to the device's terminal (refused while another running "
                   "simulator owns PATH; removed on exit)")
        ->type_name("PATH");
    app.add_option("--serve", o.port, "Act as the device on this serial device instead of a new pseudo-terminal")
        ->type_name("DEVICE");
    app.add_option("--eeprom", o.eepromFile, "Keep the 64 KiB EEPROM in FILE across runs")->type_name("FILE");
    app.add_option("--version-status", o.versionStatus,
                   "Status answered to the version query (0: feature level 100; e.g. 65535 for an older device)")
        ->capture_default_str()
        ->type_name("N");
    app.add_option("--boot-ms", o.bootTimeMs, "Deaf time after a restart, in milliseconds")
        ->capture_default_str()
        ->type_name("MS");
    app.add_option("--capacity", o.capacity, "Transmit messages the device can hold")
        ->capture_default_str()
        ->type_name("N");
    app.add_flag("--log-traffic", o.verbose, "Log every packet in both directions on standard error");
    app.add_option("--bus-log", o.busLog,
                   "Write every frame on the virtual bus to FILE in candump's log format, a line per frame "
                   "as it happens ('-': standard output)")
        ->type_name("FILE");
    app.add_option(
           "--inject",
           [&settings](const CLI::results_t& texts) {
               for (const std::string& text : texts) {
                   Injection injection;
                   parseInjection(text, injection);
                   settings.injections.push_back(std::move(injection));
               }
               return true;
           },
           "Put a frame on the bus every MS milliseconds, as another node would: channel 0..3, identifier and "
           "data in hexadecimal, optional flag bits 7..4 in hexadecimal (e.g. 0:123#1021324354/80@20). Repeatable")
        ->type_name("CHANNEL:ID#HEXDATA[/FLAGS]@MS")
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->check(CLI::Validator(
            [](std::string& text) {
                Injection unused;
                return parseInjection(text, unused);
            },
            "", "injection"));

    Faults& f = o.faults;
    auto* g = app.add_option_group("Faults");
    g->add_option("--delay-ms", f.answerDelayMs, "Delay every answer by MS milliseconds")->type_name("MS");
    g->add_option("--drop-every", f.dropEvery, "Drop every n-th answer")->type_name("N");
    g->add_option("--corrupt-every", f.corruptEvery, "Spoil the checksum of every n-th answer")->type_name("N");
    g->add_flag("--garbage", f.garbageBeforeFrames, "Send stray bytes before every frame");
    g->add_flag("--cut-frames", f.cutFrames, "Start every frame with junk cancelled by ESC ESC_BRK");
    g->add_flag("--hw-error", f.hwErrorBeforeAnswer, "Send TARVEL_HW_ERROR before every answer");
    g->add_option("--fail-command", f.failCommand, "Answer this command code with --fail-response")->type_name("CODE");
    g->add_option("--fail-response", f.failResponse,
                  "Response code for --fail-command: 129 COMMAND_FAILED (default) or 130 PACKET_ERROR")
        ->check(CLI::IsMember({0x81, 0x82}))
        ->type_name("CODE");
    g->add_option("--flood-rate", f.floodPerSecond, "Send N ASYNC_MESSAGE reports per second")->type_name("N");
    g->add_flag("--flood-max", f.floodMax, "Send ASYNC_MESSAGE reports as fast as the line takes them");
    g->add_flag("--silent", f.silent, "Read every command, answer none");
}

} // namespace tarvelsim::cli
