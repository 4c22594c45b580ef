// eeprom read, write, dump, load: ranges split into the device's blocks.
#include <fstream>

#include "ToolHarness.h"

namespace tooltest {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

TEST_F(ToolTest, EepromCommands) {
    std::string image(65536, '\0'); // a known pattern in the device's EEPROM
    for (std::size_t i = 0; i < image.size(); ++i)
        image[i] = static_cast<char>(i * 7 + (i >> 8));
    std::ofstream(file("eeprom.bin"), std::ios::binary) << image;
    tarvelsim::Options o;
    o.eepromFile = file("eeprom.bin");
    auto& dev = device(o);

    ProcessResult read = runOnDevice({"eeprom", "read", "0x20", "20"}); // sixteen bytes a line
    expectSuccess(read);
    EXPECT_EQ("0020: E0 E7 EE F5 FC 03 0A 11 18 1F 26 2D 34 3B 42 49\n"
              "0030: 50 57 5E 65\n",
              read.out);

    ProcessResult dump = runOnDevice({"eeprom", "dump", file("dump.bin"), "--from", "0xFFC0", "--length", "64"});
    expectSuccess(dump);
    EXPECT_EQ(image.substr(0xFFC0, 64), readFile(file("dump.bin"))); // the last byte of the address space included
    EXPECT_THAT(dump.err, Not(HasSubstr("[")));                      // no progress bar when stderr is no terminal

    std::string data;
    for (int i = 0; i < 40; ++i)
        data.push_back(static_cast<char>(0xA0 + i)); // 16 + 16 + 8
    std::ofstream(file("in.bin"), std::ios::binary) << data;
    expectSuccess(runOnDevice({"eeprom", "load", file("in.bin"), "--at", "0x200"}));
    EXPECT_EQ(std::vector<uint8_t>(data.begin(), data.end()), dev.eeprom(0x200, 40));
    EXPECT_EQ(static_cast<uint8_t>(image[0x228]), dev.eeprom(0x228, 1)[0]); // nothing beyond

    ProcessResult write = runOnDevice({"eeprom", "write", "30", "01", "02:03", "0405"});
    expectSuccess(write);
    EXPECT_EQ("eeprom: wrote 5 bytes at 0x001E\n", write.out);
    EXPECT_EQ((std::vector<uint8_t>{1, 2, 3, 4, 5}), dev.eeprom(30, 5));

    // A refused command: the operation, the code, and the library's own report.
    tarvelsim::Options failing;
    failing.faults.failCommand = 0x26; // READ_EEPROM answered COMMAND_FAILED
    device(failing);
    ProcessResult r = runOnDevice({"eeprom", "read", "0x40", "4"});
    EXPECT_EQ(1, r.exitCode);
    EXPECT_THAT(r.err, HasSubstr("tarvel: ReadEeprom at 0x0040 (4 bytes) failed: -14: no valid answer from the device\n"
                                 "tarvel: the library reported: TarvelAPI::GetResponse: COMMAND_FAILED!"));
}

} // namespace
} // namespace tooltest
