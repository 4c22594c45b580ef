// The simulator as a program: its command-line options, defined once for
// tarvel-sim and `tarvel sim`, and the run they set up. Kept out of the
// tarvelsim library, which does not depend on CLI11.
#ifndef TARVELSIM_SIMULATOR_CLI_H
#define TARVELSIM_SIMULATOR_CLI_H

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "tarvelsim/Simulator.h"

namespace CLI {
class App;
}

namespace tarvelsim::cli {

// A frame put on the bus again and again, as another node on the bus would.
struct Injection {
    BusFrame frame;
    std::chrono::milliseconds period{0};
};

// CHANNEL:ID#HEXDATA[/FLAGS]@MS, e.g. 0:123#1021324354657687/80@20. Returns
// what is wrong with the text, or an empty string when it is sound.
std::string parseInjection(const std::string& text, Injection& out);

// What the options set.
struct Settings {
    Options options;
    std::vector<Injection> injections;
};

// Adds every option of the simulator to app (the faults in a group of their
// own); parsing the command line fills settings.
void addSimulatorOptions(CLI::App& app, Settings& settings);

class Injector;

// A simulator run by a program until the program ends it.
class Standalone {
public:
    explicit Standalone(Settings settings);
    ~Standalone(); // stops
    Standalone(const Standalone&) = delete;
    Standalone& operator=(const Standalone&) = delete;

    // Starts the device, says where it is ("Simulated device ready on PATH",
    // "Linked as LINK"; on standard output, or on standard error when the bus
    // log goes to standard output) and starts the injections. False and a
    // reason on failure.
    bool start(std::string& error);
    void stop();

private:
    Settings m_settings;
    Simulator m_sim;
    std::unique_ptr<Injector> m_injector;
};

} // namespace tarvelsim::cli

#endif
