// --port NAME and `tarvel ports`, on a machine the test builds: a device
// directory (TARVEL_DEV_ROOT) and a sysfs tree (TARVEL_SYSFS_ROOT).
#include <filesystem>
#include <fstream>

#include "ToolHarness.h"

namespace tooltest {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;

void attribute(const fs::path& file, const std::string& value) {
    fs::create_directories(file.parent_path());
    std::ofstream(file) << value << "\n";
}

void link(const fs::path& at, const std::string& target) {
    fs::create_directories(at.parent_path());
    fs::create_symlink(target, at);
}

// A tty as sysfs shows it: the class entry, the device link, its bus.
void tty(const fs::path& sys, const std::string& deviceDir, const std::string& name) {
    const fs::path dir = sys / deviceDir / "tty" / name;
    fs::create_directories(dir);
    link(sys / "class" / "tty" / name, "../../" + deviceDir + "/tty/" + name);
    link(dir / "device", "../../../" + fs::path(deviceDir).filename().string());
}

TEST_F(ToolTest, PortsAndPortNames) {
    const std::string dev = file("dev"), sys = file("sys");
    const std::vector<std::string> roots = {"TARVEL_DEV_ROOT=" + dev, "TARVEL_SYSFS_ROOT=" + sys};
    fs::create_directories(dev);
    fs::create_directories(sys);

    // A machine without serial hardware.
    ProcessResult none = runTool({"ports"}, roots);
    expectSuccess(none);
    EXPECT_THAT(none.out, HasSubstr("ports: no serial ports found"));

    // A USB adapter with its by-id link, a built-in UART, a spare ttyS entry
    // of the kernel (no UART behind it) and a virtual console.
    const std::string usb = "devices/pci0000:00/0000:00:14.0/usb1/1-2";
    attribute(sys + "/" + usb + "/idVendor", "0403");
    attribute(sys + "/" + usb + "/idProduct", "6001");
    attribute(sys + "/" + usb + "/manufacturer", "FTDI");
    attribute(sys + "/" + usb + "/product", "FT232R USB UART");
    attribute(sys + "/" + usb + "/serial", "A50285BI");
    tty(sys, usb + "/1-2:1.0/ttyUSB0", "ttyUSB0");
    link(sys + "/" + usb + "/1-2:1.0/ttyUSB0/subsystem", "../../../../../../../bus/usb-serial");
    link(dev + "/serial/by-id/usb-FTDI_FT232R_USB_UART_A50285BI-if00-port0", "../../ttyUSB0");

    link(sys + "/devices/pnp0/00:05/subsystem", "../../../bus/pnp");
    tty(sys, "devices/pnp0/00:05/00:05:0/00:05:0.0", "ttyS0");
    link(sys + "/devices/pnp0/00:05/00:05:0/00:05:0.0/subsystem", "../../../../../bus/serial-base");
    attribute(sys + "/devices/pnp0/00:05/00:05:0/00:05:0.0/tty/ttyS0/type", "4");

    tty(sys, "devices/platform/serial8250/serial8250:0/serial8250:0.1", "ttyS1");
    attribute(sys + "/devices/platform/serial8250/serial8250:0/serial8250:0.1/tty/ttyS1/type", "0");
    fs::create_directories(sys + "/devices/virtual/tty/tty0");
    link(sys + "/class/tty/tty0", "../../devices/virtual/tty/tty0");

    ProcessResult listed = runTool({"ports"}, roots);
    expectSuccess(listed);
    EXPECT_EQ(dev + "/ttyS0    built-in serial port (pnp)\n" + dev +
                  "/ttyUSB0  USB 0403:6001  FTDI FT232R USB UART (serial A50285BI)  " + dev +
                  "/serial/by-id/usb-FTDI_FT232R_USB_UART_A50285BI-if00-port0\n",
              listed.out);

    // A bare --port name is looked up in the device directory, and a failure
    // names the path that was tried.
    ProcessResult missing = runTool({"--port", "tarvel-no-such-port", "ping"});
    EXPECT_EQ(1, missing.exitCode);
    EXPECT_THAT(missing.err, HasSubstr("tarvel: Connect to /dev/tarvel-no-such-port failed: -2: cannot open the port"));
    auto& simulated = device();
    link(dev + "/tarvel0", file("tty"));
    ProcessResult bare = runTool({"--port", "tarvel0", "version"}, roots);
    expectSuccess(bare);
    EXPECT_EQ("version: 100\n", bare.out);
    ProcessResult fromDev = runTool({"--port", "tarvel0", "version"}, roots, dev); // ./tarvel0 is the same file
    expectSuccess(fromDev);

    // The same bare name in the working directory: refused, nothing opened.
    fs::create_directories(file("work"));
    attribute(file("work/tarvel0"), "");
    simulated.clearLog();
    ProcessResult ambiguous = runTool({"--port", "tarvel0", "version"}, roots, file("work"));
    EXPECT_EQ(2, ambiguous.exitCode);
    EXPECT_THAT(ambiguous.err,
                HasSubstr("tarvel: error: --port tarvel0: a bare name means " + dev +
                          "/tarvel0, but ./tarvel0 exists here too; write ./tarvel0 or " + dev + "/tarvel0\n"));
    EXPECT_EQ(0u, simulated.hostPacketCount());
}

} // namespace
} // namespace tooltest
