// eeprom read / write / dump / load: any range, moved in 16-byte blocks.
#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

#include "Commands.h"

namespace tool {
namespace {

constexpr unsigned kBlock = 16;         // the device moves at most 16 bytes per command
constexpr unsigned kFirstWritable = 30; // addresses below are protected
constexpr unsigned kAddressSpace = 0x10000;
const NumberRule kAddress = wholeNumber(0, kAddressSpace - 1, true);
const NumberRule kLength = wholeNumber(1, kAddressSpace);

// A progress bar on stderr, drawn only when stderr is a terminal.
class Progress {
public:
    Progress(const char* what, std::size_t total) : m_what(what), m_total(total), m_show(isTerminal(2)) {}
    void update(std::size_t done) {
        if (!m_show || m_total == 0) return;
        int width = 30;
        int filled = static_cast<int>(done * width / m_total);
        std::fprintf(stderr, "\r%s [%.*s%*s] %3zu%% %zu/%zu bytes", m_what, filled, "##############################",
                     width - filled, "", done * 100 / m_total, done, m_total);
        std::fflush(stderr);
    }
    ~Progress() {
        if (m_show && m_total != 0) std::fprintf(stderr, "\n");
    }

private:
    const char* m_what;
    std::size_t m_total;
    bool m_show;
};

std::string hex4(unsigned address) {
    char b[8];
    std::snprintf(b, sizeof b, "%04X", address);
    return b;
}

std::vector<unsigned char> readRange(Tarvel& t, unsigned address, std::size_t length, Progress* progress) {
    std::vector<unsigned char> out(length);
    for (std::size_t done = 0; done < length;) {
        auto n = static_cast<unsigned char>(std::min<std::size_t>(kBlock, length - done));
        unsigned at = address + static_cast<unsigned>(done);
        check(t.ReadEeprom(static_cast<unsigned short>(at), n, out.data() + done),
              "ReadEeprom at 0x" + hex4(at) + " (" + std::to_string(n) + " bytes)", ResultKind::Eeprom);
        done += n;
        if (progress) progress->update(done);
        if (g_interrupted) throw std::runtime_error("interrupted");
    }
    return out;
}

void writeRange(Tarvel& t, unsigned address, const std::vector<unsigned char>& data, Progress* progress) {
    for (std::size_t done = 0; done < data.size();) {
        auto n = static_cast<unsigned char>(std::min<std::size_t>(kBlock, data.size() - done));
        unsigned at = address + static_cast<unsigned>(done);
        check(t.WriteEeprom(static_cast<unsigned short>(at), n, data.data() + done),
              "WriteEeprom at 0x" + hex4(at) + " (" + std::to_string(n) + " bytes)", ResultKind::Eeprom);
        done += n;
        if (progress) progress->update(done);
        if (g_interrupted) throw std::runtime_error("interrupted");
    }
}

void checkRange(uint64_t address, uint64_t length, bool writing) {
    if (length == 0) throw UsageError("the length must be at least 1");
    if (address + length > kAddressSpace)
        throw UsageError("the range 0x" + hex4(static_cast<unsigned>(address)) + " + " + std::to_string(length) +
                         " goes beyond the 16-bit address space");
    if (writing && address < kFirstWritable)
        throw UsageError("addresses below 30 (0x1E) are protected; write from 30 on");
}

struct RangeArgs {
    unsigned address = 0;
    unsigned length = 0;
    std::vector<std::string> hex;
    std::string file;
};

int runEepromRead(const GlobalOptions& options, const RangeArgs& args) {
    uint64_t address = args.address;
    uint64_t length = args.length;
    checkRange(address, length, false);
    Connection conn(options);
    auto data = readRange(conn.tarvel(), static_cast<unsigned>(address), length, nullptr);
    for (std::size_t i = 0; i < data.size(); i += kBlock) {
        std::size_t n = std::min<std::size_t>(kBlock, data.size() - i);
        std::printf("%s: %s\n", hex4(static_cast<unsigned>(address + i)).c_str(), hexBytes(data.data() + i, n).c_str());
    }
    return kExitOk;
}

int runEepromWrite(const GlobalOptions& options, const RangeArgs& args) {
    uint64_t address = args.address;
    std::vector<unsigned char> data;
    for (const auto& token : args.hex) {
        auto bytes = parseHexBytes(token, "HEX");
        data.insert(data.end(), bytes.begin(), bytes.end());
    }
    checkRange(address, data.size(), true);
    Connection conn(options);
    writeRange(conn.tarvel(), static_cast<unsigned>(address), data, nullptr);
    std::printf("eeprom: wrote %zu bytes at 0x%s\n", data.size(), hex4(static_cast<unsigned>(address)).c_str());
    return kExitOk;
}

int runEepromDump(const GlobalOptions& options, const RangeArgs& args) {
    uint64_t address = args.address;
    uint64_t length = args.length;
    checkRange(address, length, false);
    std::ofstream file;
    if (args.file != "-") {
        file.open(args.file, std::ios::binary | std::ios::trunc);
        if (!file) throw UsageError("cannot write the file '" + args.file + "'");
    }
    Connection conn(options);
    std::vector<unsigned char> data;
    {
        Progress progress("eeprom dump", length);
        data = readRange(conn.tarvel(), static_cast<unsigned>(address), length, &progress);
    }
    std::ostream& out = args.file == "-" ? std::cout : file;
    out.write(reinterpret_cast<const char*>(data.data()), static_cast<std::streamsize>(data.size()));
    out.flush();
    if (!out) throw std::runtime_error("writing '" + args.file + "' failed");
    if (args.file != "-")
        std::printf("eeprom: saved %zu bytes from 0x%s to %s\n", data.size(),
                    hex4(static_cast<unsigned>(address)).c_str(), args.file.c_str());
    return kExitOk;
}

int runEepromLoad(const GlobalOptions& options, const RangeArgs& args) {
    uint64_t address = args.address;
    std::ifstream file(args.file, std::ios::binary);
    if (!file) throw UsageError("cannot read the file '" + args.file + "'");
    std::vector<unsigned char> data((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    if (data.empty()) throw UsageError("the file '" + args.file + "' is empty");
    checkRange(address, data.size(), true);
    Connection conn(options);
    {
        Progress progress("eeprom load", data.size());
        writeRange(conn.tarvel(), static_cast<unsigned>(address), data, &progress);
    }
    std::printf("eeprom: loaded %zu bytes from %s at 0x%s\n", data.size(), args.file.c_str(),
                hex4(static_cast<unsigned>(address)).c_str());
    return kExitOk;
}

} // namespace

void addEepromCommands(CLI::App& app, CommandContext& ctx) {
    auto* eeprom = app.add_subcommand("eeprom", "Read and write the device's EEPROM");
    eeprom->require_subcommand(1);

    auto* read = eeprom->add_subcommand("read", "Print LEN bytes from ADDR as hex, 16 per line");
    auto r = std::make_shared<RangeArgs>();
    read->add_option("ADDR", r->address, "Start address (decimal or 0x hex)")->required()->check(numberCheck(kAddress));
    read->add_option("LEN", r->length, "Number of bytes")->required()->check(numberCheck(kLength));
    onRun(read, ctx, [&ctx, r] { return runEepromRead(ctx.options, *r); });

    auto* write = eeprom->add_subcommand("write", "Write hex bytes at ADDR (from address 30 on)");
    auto w = std::make_shared<RangeArgs>();
    write->add_option("ADDR", w->address, "Start address, 30 or more (decimal or 0x hex)")
        ->required()
        ->check(numberCheck(kAddress));
    write->add_option("HEX", w->hex, "Bytes in hex: 01 02 FF, 0102FF or 01:02:FF")->required();
    onRun(write, ctx, [&ctx, w] { return runEepromWrite(ctx.options, *w); });

    auto* dump = eeprom->add_subcommand("dump", "Save an EEPROM range to a binary FILE");
    auto d = std::make_shared<RangeArgs>();
    d->length = 1024;
    dump->add_option("FILE", d->file, "Output file ('-' for stdout)")->required();
    dump->add_option("--from", d->address, "Start address")
        ->capture_default_str()
        ->check(numberCheck(kAddress))
        ->type_name("ADDR");
    dump->add_option("--length", d->length, "Number of bytes")
        ->capture_default_str()
        ->check(numberCheck(kLength))
        ->type_name("LEN");
    onRun(dump, ctx, [&ctx, d] { return runEepromDump(ctx.options, *d); });

    auto* load = eeprom->add_subcommand("load", "Write a binary FILE into the EEPROM");
    auto l = std::make_shared<RangeArgs>();
    l->address = kFirstWritable;
    load->add_option("FILE", l->file, "Input file")->required();
    load->add_option("--at", l->address, "Start address, 30 or more")
        ->capture_default_str()
        ->check(numberCheck(kAddress))
        ->type_name("ADDR");
    onRun(load, ctx, [&ctx, l] { return runEepromLoad(ctx.options, *l); });
}

} // namespace tool
