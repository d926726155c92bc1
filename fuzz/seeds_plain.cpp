// Seeds that need no toolkit: requests, configuration files, exchanges on a channel.
#include <cstring>

#include "fuzz/seedwriter.h"
#include "vintakd/folderidentity.h"
#include "vintakd/vintakd_if.h"

namespace {

SeedBytes request(const char* input, int tags, int once, const std::vector<std::string>& files) {
    vintakd::VintakMsgIn header;
    std::memset(&header, 0, sizeof header);
    std::strcpy(header.inputFile, input);
    std::strcpy(header.outputPrefix, "/o/x");
    std::strcpy(header.cachePrefix, "/c/x");
    header.verbose = header.needOptimize = true;
    header.writeMask = 3;
    header.streamParameter = 0.5F;
    header.specificFrame = 1;
    header.numTags = tags;
    header.numTagsOnce = once;
    header.numFiles = static_cast<int32_t>(files.size());
    const auto* bytes = reinterpret_cast<const uint8_t*>(&header);
    SeedBytes seed(bytes, bytes + sizeof header);
    for (int i = 0; i < tags; ++i)
        seed = seed + seedOfNumber<uint16_t>(0x0010) + seedOfNumber(static_cast<uint16_t>(0x0010 + i));
    for (const std::string& file : files)
        seed = seed + seedOfNumber(static_cast<uint32_t>(file.size())) + seedOf(file);
    return seed;
}

/// The same without the texts, as the target's short form has it.
SeedBytes shortForm(const SeedBytes& whole) {
    SeedBytes seed = seedOf(std::string_view("\x01\x04/a/b\x04/o/x\0", 12));
    return seed + std::span(whole).subspan(3 * vintakd::kTextFieldSize);
}

}  // namespace

void writeRequestSeeds(const SeedWriter& writer) {
    writer.write("request_fuzz", "ping", seedOf(std::string_view("\0PING", 5)));
    const SeedBytes requests[] = {
        request("/objects/a.dcm", 0, 0, {}),
        request("/objects/", 1, 0, {"a.dcm"}),
        request("/objects/", 5, 2, {"a.dcm", "", "b/c.dcm"}),
        request("/objects/", -1, 7, {"a"}),
    };
    SeedBytes folders = requests[1] + SeedBytes(sizeof(vintakd::ResultFolders), 7);
    folders[offsetof(vintakd::VintakMsgIn, extras)] = vintakd::requestextras::kFolders;
    folders[offsetof(vintakd::VintakMsgIn, extrasCheck)] =
        static_cast<char>(vintakd::requestextras::checkOf(vintakd::requestextras::kFolders));
    writer.write("request_fuzz", "folders", SeedBytes{0} + folders);
    int number = 0;
    for (const SeedBytes& whole : requests) {
        writer.write("request_fuzz", "whole" + std::to_string(number), SeedBytes{0} + whole);
        writer.write("request_fuzz", "short" + std::to_string(number++), shortForm(whole));
    }
}

void writeConfigurationSeeds(const SeedWriter& writer) {
    const auto write = [&writer](const char* name, uint8_t kind, std::string_view text) {
        writer.write("configuration_fuzz", name, SeedBytes{kind} + seedOf(text));
    };
    write("properties", 0, "# comment\nA=1\n  B = \"two words\" \nC=\n=D\nA==3\r\nno value\nB=\"x\"y\"");
    write("include", 1, "(0009,0000)\n(0009,1001)\n(0029,10ff)\nno tag\n(1ffff,1)\n(0009,1001)\n");
    writer.write("configuration_fuzz", "thumbnail",
                 SeedBytes{2} + seedOfNumber<uint64_t>(1024) + seedOfNumber<uint32_t>(16384) +
                     seedOf("KELT_PERCENT=\"2.5\"\nKELT_PERCENT_CT=\"50t\"\n"));
    write("rates", 3, "# rates\nDefault=\"0.1\"\nCT=\"0.05\"\nMR=\"1\"\nUS=\"0\"\nCR=\"2\"\nXA=\"nan\"\n");
}

void writeChannelSeeds(const SeedWriter& writer) {
    writer.write("channel_fuzz", "one-chunk", seedOfNumber<uint32_t>(5));
    writer.write("channel_fuzz", "chunks", seedOfNumber<uint32_t>(3000));
    writer.write("channel_fuzz", "too-long", seedOfNumber<uint32_t>(20001));
    writer.write("channel_fuzz", "peer-gone", seedOfNumber<uint32_t>(3000) + SeedBytes{0, 0, 1});
    writer.write("channel_fuzz", "error-notice", seedOfNumber<uint32_t>(5) + SeedBytes{2, 4, 2, 0, 0, 0, 1});
    writer.write("channel_fuzz", "clash", seedOfNumber<uint32_t>(5) + SeedBytes{2, 4, 1, 0, 0, 0, 1});
    writer.write(
        "channel_fuzz", "growing",
        seedOfNumber<uint32_t>(3000) + SeedBytes{0, 0, 2, 16, 255, 255, 255, 255, 255, 255, 255, 255});
}
