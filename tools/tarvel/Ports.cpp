// Serial ports: what --port NAME opens, and `tarvel ports`, the serial
// ports of the machine as the kernel describes them in sysfs.
//
// TARVEL_SYSFS_ROOT (default /sys) and TARVEL_DEV_ROOT (default /dev) move
// both lookups elsewhere, so that a test can build a machine of its own.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <system_error>
#include <vector>

#include <sys/stat.h>

#include "Commands.h"

namespace fs = std::filesystem;

namespace tool {
namespace {

std::string rootFromEnvironment(const char* variable, const char* fallback) {
    const char* value = std::getenv(variable);
    return value != nullptr && *value != '\0' ? value : fallback;
}

std::string devRoot() {
    return rootFromEnvironment("TARVEL_DEV_ROOT", "/dev");
}

std::string sysfsRoot() {
    return rootFromEnvironment("TARVEL_SYSFS_ROOT", "/sys");
}

// The first line of a sysfs attribute, or "" when there is none.
std::string attribute(const fs::path& file) {
    std::ifstream in(file);
    std::string line;
    std::getline(in, line);
    while (!line.empty() && (line.back() == ' ' || line.back() == '\r'))
        line.pop_back();
    return line;
}

struct PortInfo {
    std::string name; // ttyUSB0
    std::string byId; // the stable /dev/serial/by-id link, if any
    std::string usbId;
    std::string description;
};

// USB adapters: the USB device is an ancestor of the port's device in sysfs
// (the one with idVendor); anything else is described by its bus.
void describe(const fs::path& device, PortInfo& port) {
    port.description = "serial port";
    std::error_code ec;
    fs::path at = fs::canonical(device, ec);
    if (ec) return;
    const fs::path root = fs::canonical(sysfsRoot(), ec);
    std::string bus;
    for (; at != root && at.has_relative_path(); at = at.parent_path()) {
        std::string vendor = attribute(at / "idVendor");
        if (!vendor.empty()) {
            port.usbId = vendor + ":" + attribute(at / "idProduct");
            std::string maker = attribute(at / "manufacturer"), product = attribute(at / "product");
            port.description = maker.empty() || product.empty() ? maker + product : maker + " " + product;
            if (port.description.empty()) port.description = "USB serial adapter";
            std::string serial = attribute(at / "serial");
            if (!serial.empty()) port.description += " (serial " + serial + ")";
            return;
        }
        std::string subsystem = fs::read_symlink(at / "subsystem", ec).filename().string();
        if (!ec && bus.empty() && subsystem != "serial-base" && subsystem != "tty") bus = subsystem;
    }
    static const char* const builtInBuses[] = {"pnp", "platform", "amba", "acpi"};
    if (std::find(std::begin(builtInBuses), std::end(builtInBuses), bus) != std::end(builtInBuses))
        port.description = "built-in serial port (" + bus + ")";
    else if (!bus.empty())
        port.description = "serial port (" + bus + ")";
}

// ttyS2 before ttyS10: the name's digits compare as a number.
bool naturalLess(const std::string& a, const std::string& b) {
    auto split = [](const std::string& s) {
        std::size_t digits = s.find_last_not_of("0123456789") + 1;
        unsigned long n = digits < s.size() ? std::strtoul(s.c_str() + digits, nullptr, 10) : 0;
        return std::make_pair(s.substr(0, digits), n);
    };
    return split(a) < split(b);
}

std::vector<PortInfo> serialPorts() {
    std::vector<PortInfo> ports;
    std::error_code ec;
    // A tty with a device behind it; serial core ports without a UART (the
    // kernel's spare ttyS entries) say type 0.
    for (const auto& entry : fs::directory_iterator(fs::path(sysfsRoot()) / "class" / "tty", ec)) {
        const fs::path tty = entry.path();
        if (!fs::exists(tty / "device", ec)) continue;
        if (attribute(tty / "type") == "0") continue;
        PortInfo port;
        port.name = tty.filename().string();
        describe(tty / "device", port);
        ports.push_back(port);
    }
    std::map<std::string, std::string> byId; // tty name -> link
    const fs::path byIdDir = fs::path(devRoot()) / "serial" / "by-id";
    for (const auto& entry : fs::directory_iterator(byIdDir, ec)) {
        fs::path target = fs::read_symlink(entry.path(), ec);
        if (!ec) byId[target.filename().string()] = entry.path().string();
    }
    for (auto& port : ports)
        if (byId.count(port.name) != 0) port.byId = byId[port.name];
    std::sort(ports.begin(), ports.end(),
              [](const PortInfo& a, const PortInfo& b) { return naturalLess(a.name, b.name); });
    return ports;
}

int runPorts() {
    const std::vector<PortInfo> ports = serialPorts();
    if (ports.empty()) {
        std::printf("ports: no serial ports found (a USB adapter shows up here once plugged in; 'tarvel sim' "
                    "makes a simulated device)\n");
        return kExitOk;
    }
    std::size_t width = 0;
    for (const auto& port : ports)
        width = std::max(width, devRoot().size() + 1 + port.name.size());
    for (const auto& port : ports) {
        std::string line = devRoot() + "/" + port.name;
        line.resize(width, ' ');
        if (!port.usbId.empty()) line += "  USB " + port.usbId;
        line += "  " + port.description;
        if (!port.byId.empty()) line += "  " + port.byId;
        std::printf("%s\n", line.c_str());
    }
    return kExitOk;
}

// std::filesystem::equivalent gives up on device files; stat does not.
bool sameFile(const std::string& a, const std::string& b) {
    struct stat sa {
    }, sb{};
    return ::stat(a.c_str(), &sa) == 0 && ::stat(b.c_str(), &sb) == 0 && sa.st_dev == sb.st_dev &&
           sa.st_ino == sb.st_ino;
}

} // namespace

std::string resolvePort(const std::string& name) {
    if (name.find('/') != std::string::npos) return name;
    const std::string inDev = devRoot() + "/" + name;
    std::error_code ec;
    if (fs::exists(fs::symlink_status(name, ec)) && !sameFile(name, inDev))
        throw UsageError("--port " + name + ": a bare name means " + inDev + ", but ./" + name +
                         " exists here too; write ./" + name + " or " + inDev);
    return inDev;
}

void addPortsCommand(CLI::App& app, CommandContext& ctx) {
    auto* ports = app.add_subcommand(
        "ports", "List the serial ports of this machine: path, USB vendor:product, description, by-id link");
    onRun(ports, ctx, [] { return runPorts(); });
}

} // namespace tool
