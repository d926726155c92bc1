#include <sys/resource.h>
#include <sys/stat.h>

#include <cstring>
#include <regex>

#include "hsutils/Utils.h"
#include "tests/shared/daemon_process.h"
#include "tests/shared/objectbytes.h"
#include "tools/phantom/phantomobject.h"

namespace {

using namespace objectbytes;

/// Requests and objects that nobody should send. Whatever comes, there is an answer and the servant goes on.
class HostileTest : public testing::Test {
protected:
    HostileTest() {
        m_servant = m_daemon.servantPid();
        writePhantom(m_folder / "ok.dcm", {1, 16});
    }
    ~HostileTest() override {
        EXPECT_TRUE(vintakd::ping(m_daemon.gateway()));
        EXPECT_EQ(m_daemon.servantPid(), m_servant) << "the servant did not survive:\n" << m_daemon.log();
    }

    /// Sends bytes as they are; what came back.
    std::string exchange(const std::string& bytes) {
        ReservedChannel reserved(m_daemon.gateway());
        ipc::Channel& channel = m_daemon.gateway().getChannel(reserved.index());
        channel.send(bytes.data(), bytes.size());
        const ipc::Message answer = channel.recv();
        return {answer.getPointer(), answer.getSize()};
    }

    /// A request's header with the given counts and a dump of the phantom.
    std::string header(int numTags, int numTagsOnce, int numFiles) const {
        std::string bytes(3104, '\0');
        const std::string input = m_folder / "ok.dcm";
        bytes.replace(0, input.size(), input);
        bytes[3073] = 1;
        const int32_t counts[] = {numTags, numTagsOnce, numFiles};
        std::memcpy(bytes.data() + 3092, counts, sizeof counts);
        return bytes;
    }

    DaemonProcess m_daemon;
    TemporaryFolder m_folder;
    int m_servant;
};

std::string bytesOf(uint32_t value) {
    return {reinterpret_cast<const char*>(&value), 4};
}

}  // namespace

TEST_F(HostileTest, RequestsShorterThanTheirHeader) {
    for (const size_t size : {size_t{0}, size_t{1}, size_t{3}, size_t{4}, size_t{3103}}) {
        const std::string answer = exchange(std::string(size, 'x'));
        EXPECT_EQ(answer, "VINTAKD ERRORThe request has " + std::to_string(size) +
                              " bytes, its header alone needs 3104");
    }
    EXPECT_EQ(exchange("PING"), "PONG");
    EXPECT_EQ(exchange("PINGpath/of/a/file"), "PONG");
    EXPECT_EQ(exchange("Knock, knock."), "Who's there?");
    exchange(header(0, 0, 0));  // the channel is at a request again
}

TEST_F(HostileTest, FieldsWithoutTerminatorAndFlagsOfAnyValue) {
    const std::string answer = exchange(std::string(3092, '\xFF') + std::string(12, '\0'));
    EXPECT_EQ(answer,
              "VINTAKD ERRORError loading file: " + std::string(1024, '\xFF') + ": File name too long");
}

TEST_F(HostileTest, CountsThatLie) {
    const std::string dump = exchange(header(0, 0, 0));
    EXPECT_EQ(dump.substr(0, 3), "<<<");
    for (const int count : {-1, INT32_MIN, INT32_MAX, 1 << 30}) {
        EXPECT_EQ(exchange(header(count, count, 0)), dump) << count;
        EXPECT_EQ(exchange(header(count, 0, count)), dump) << count;
    }
    const std::string modality("\x08\x00\x60\x00", 4);
    EXPECT_EQ(exchange(header(1, -5, 0) + modality), std::string("CT;<<<ISO_IR 100>>>\0", 20));
    EXPECT_EQ(exchange(header(1, 9, -7) + modality), std::string("CT;<<<ISO_IR 100>>>\0", 20));
    // Records that reach beyond the message end the list.
    EXPECT_EQ(exchange(header(1, 0, 5) + modality + bytesOf(0) + bytesOf(0xFFFFFFFF)),
              std::string("CT;<<<ISO_IR 100>>>\0", 20));
    EXPECT_EQ(exchange(header(1, 0, 5) + modality + "\x01"), std::string("<<<>>>\0", 7));
}

TEST_F(HostileTest, RequestsBeyondTheLimits) {
    std::string tags;
    for (int i = 0; i < 16385; ++i)
        tags += std::string("\x10\x00\x10\x00", 4);
    EXPECT_EQ(exchange(header(16385, 0, 0) + tags),
              "VINTAKD ERRORThe request lists 16385 tags, the limit is 16384");
    std::string files;
    for (int i = 0; i < 5000; ++i)
        files += bytesOf(0);
    EXPECT_EQ(exchange(header(1000, 0, 5000) + tags.substr(0, 4000) + files),
              "VINTAKD ERRORThe request asks for more than 4194304 values");
    constexpr int kTooManyFiles = (1 << 20) + 1;  // of empty names
    EXPECT_EQ(exchange(header(0, 0, kTooManyFiles) + std::string(size_t{4} * kTooManyFiles, '\0')),
              "VINTAKD ERRORThe request lists more than 1048576 files");
    EXPECT_EQ(exchange(std::string((size_t{64} << 20) + 1, 'x')),
              "VINTAKD ERRORThe request is longer than 67108864 bytes");
    EXPECT_TRUE(contains(m_daemon.log(), " failed (0) The request is longer than 67108864 bytes\n"));
}

TEST_F(HostileTest, RequestsWithoutMemory) {
    if (kSanitized) GTEST_SKIP() << "a sanitizer's own memory counts";
    const auto size = [this](const char* name) {
        const std::string status = readFile("/proc/" + std::to_string(m_servant) + "/status");
        return std::stoull(status.substr(status.find(name) + std::strlen(name))) << 10;
    };
    // What is no knock is not kept, however long it is.
    const std::string large(size_t{48} << 20, 'x');
    const uint64_t before = size("VmHWM:");
    m_daemon.gateway().getChannel(0).send(large.data(), large.size());
    EXPECT_TRUE(vintakd::ping(m_daemon.gateway()));
    EXPECT_LT(size("VmHWM:"), before + large.size() / 2);

    rlimit whole{};
    ASSERT_EQ(prlimit(m_servant, RLIMIT_AS, nullptr, &whole), 0);
    const rlimit narrow{size("VmSize:") + large.size() / 2, whole.rlim_max};
    ASSERT_EQ(prlimit(m_servant, RLIMIT_AS, &narrow, nullptr), 0);
    EXPECT_EQ(exchange(large), "VINTAKD ERROROut of memory");
    EXPECT_TRUE(contains(m_daemon.log(), " failed (0) Out of memory\n"));
    ASSERT_EQ(prlimit(m_servant, RLIMIT_AS, &whole, nullptr), 0);
}

TEST_F(HostileTest, FilesThatAreNoObjects) {
    writeFile(m_folder / "text",
              "This is no DICOM object, though it is long enough to be mistaken for one.\n");
    writeFile(m_folder / "empty", "");
    writeFile(m_folder / "zeros", std::string(5000, '\0'));
    writeFile(m_folder / "ones", std::string(5000, '\xFF'));
    std::filesystem::create_directory(m_folder / "directory");
    mkfifo((m_folder / "pipe").c_str(), 0600);
    for (const char* name : {"text", "empty", "zeros", "ones", "directory", "pipe", "missing"}) {
        TestRequest request{.input = m_folder / name, .output = m_folder / "out"};
        const std::string start = "Error loading file: " + request.input + ": ";
        const std::string error = request.error(m_daemon.gateway());
        EXPECT_EQ(error.substr(0, start.size()), start) << name;
        EXPECT_GT(error.size(), start.size()) << "the cause is missing: " << name;
    }
}

TEST(Log, WhatAPathOrAnObjectSaysIsOneLine) {
    const TemporaryFolder folder;
    DaemonProcess daemon({"--servers", "1", "--debug"});
    const std::string forged = "\nI: forged", shown = "?I: forged";
    const auto logged = [&daemon](const std::string& text) {
        return daemon.log().find(text) != std::string::npos;
    };
    TestRequest request{.input = folder / ("in" + forged), .output = folder / ("out" + forged)};
    EXPECT_EQ(request.error(daemon.gateway()),
              "Error loading file: " + request.input + ": No such file or directory");
    EXPECT_TRUE(
        logged("vintakd failed (0) Error loading file: " + (folder / "in") + shown + ": No such file"));

    writePhantom(request.input, {1, 16});
    EXPECT_EQ(request.error(daemon.gateway()), "");
    EXPECT_TRUE(logged("vintakd served (0) " + (folder / "in") + shown + " : "));
    for (const std::string suffix : {"_1.raw", "_1.p.qi4"}) {
        std::filesystem::remove(request.output + suffix);
        std::filesystem::create_symlink("/dev/full", request.output + suffix);
        request.writeMask = 1;
        EXPECT_EQ(request.error(daemon.gateway()).empty(), suffix == "_1.p.qi4");
        EXPECT_TRUE(logged("Error writing file: " + (folder / "out") + shown + suffix + " (No space left"));
        std::filesystem::remove(request.output + suffix);
    }

    // The toolkit has a voice of its own, and names the class when the copy is saved.
    writeFile(request.input, metaHeader(kExplicitLittle) + element(8, 0x16, "UI", "1.2\x1B[1m.3 ") +
                                 element(8, 0x60, "CS", "OT"));
    EXPECT_EQ(request.error(daemon.gateway()), "");
    EXPECT_TRUE(logged("1.2?[1m.3")) << "the toolkit says nothing of the class any more";

    const std::string log = daemon.log();
    EXPECT_FALSE(std::regex_search(log, std::regex("\n([A-Z]: )+forged|\x1B"))) << log;
}

TEST_F(HostileTest, ObjectTruncatedAnywhere) {
    const std::string whole = readFile(m_folder / "ok.dcm");
    for (size_t size = 0; size < whole.size(); size += size < 400 ? 7 : 41) {
        writeFile(m_folder / "cut.dcm", whole.substr(0, size));
        TestRequest request{.input = m_folder / "cut.dcm", .output = m_folder / "out"};
        try {
            request.send(m_daemon.gateway());  // what is left may happen to be whole elements
        } catch (const VintakdErrorException& error) {
            EXPECT_TRUE(contains(error.text(), "cut.dcm: ")) << size;
        }
    }
}

namespace {

std::string plainImage(const char* syntax, const std::string& items, const std::string& frames = "1 ") {
    return metaHeader(syntax) + grey(64, 64, frames) + fragments(items);
}

std::string repeated(const std::string& text, int times) {
    std::string result;
    for (int i = 0; i < times; ++i)
        result += text;
    return result;
}

struct HostileObject {
    const char* name;
    std::string bytes;
    const char* cause;  ///< "" for an object that is only at a limit
};

/// What the toolkit's parser and decoders do not survive, or not in time.
std::vector<HostileObject> hostileObjects() {
    const std::string plain = metaHeader(kExplicitLittle), empty = item("");
    const std::string jpegTem = std::string("\xFF\xD8\xFF\x01", 4) + std::string(1020, '\0');
    const std::string tinyJpegLs("\xFF\xD8\xFF\xF7\0\x0B\x08\x10\0\x10\0\1\1\x11\0\xFF\xD9\0", 18);
    const std::string scans = std::string("\xFF\xD8\xFF\xC2\0\x0B\x08\0\x40\0\x40\1\1\x11\0", 15) +
                              repeated(std::string("\xFF\xDA\0\x08\1\1\0\0\0\0", 10), 101);
    std::vector<HostileObject> objects{
        {"directory record of a type that is too long",
         plain + element(4, 0x1220, "SQ", item(element(4, 0x1430, "CS", std::string(86, 'A')))),
         "cannot be parsed: "},
        {"JPEG that stops the search for its frame", plainImage(kJpegBaseline, item(jpegTem)),
         "the JPEG stream has a marker (TEM) before its frame header"},
        {"JPEG of very many scans", plainImage(kJpegBaseline, item(scans)),
         "the JPEG stream has more than 100 scans"},
        {"MPEG-2", plainImage("1.2.840.10008.1.2.4.100", item("abcd")),
         "frame 1 of 1 cannot be decoded: there is no decoder for MPEG2 Main Profile @ Main Level"},
        {"transfer syntax of two lines", plainImage("1.2\n3", item("abcd")),
         "unsupported transfer syntax 1.2?3"},
        {"run length fragment of 8 bytes", plainImage(kRunLength, item(std::string(8, '\1'))),
         "the fragment of 8 bytes is too short for a run length header"},
        {"run length frame of one segment too many",
         plainImage(kRunLength, item(four(2) + four(64) + four(66) + std::string(52, '\0') + "\1\1\1\1")),
         "frame 1 of 1 cannot be decoded: the run length header has 2 segments, the object's frame needs 1"},
        {"257 large frames in tiny fragments",
         metaHeader(kJpegLs) + grey(4096, 4096, "257 ") + fragments(repeated(item(tinyJpegLs), 257)),
         "frame 1 of 257 cannot be decoded: "},
    };
    for (const char* syntax : {kRunLength, kJpegBaseline, kJpegLs, kJpeg2000}) {
        for (const char* frames : {"1 ", "100000"})
            objects.push_back({syntax, plainImage(syntax, repeated(empty, 100000), frames), "frame 1 of "});
    }
    return objects;
}

}  // namespace

TEST_F(HostileTest, ObjectsThatTheToolkitDoesNotSurvive) {
    TestRequest sound{.input = m_folder / "ok.dcm", .output = m_folder / "sound"};
    for (const HostileObject& object : hostileObjects()) {
        writeFile(m_folder / "hostile.dcm", object.bytes);
        TestRequest request{.input = m_folder / "hostile.dcm", .output = m_folder / "out"};
        const std::string error = request.error(m_daemon.gateway());
        EXPECT_EQ(error.empty(), *object.cause == '\0') << object.name << ": " << error;
        const bool named = error.find(request.input + ": ") != std::string::npos;
        EXPECT_EQ(named, !error.empty()) << error;
        EXPECT_TRUE(contains(error, object.cause)) << object.name;
        EXPECT_EQ(sound.error(m_daemon.gateway()), "") << "after " << object.name;
        EXPECT_EQ(m_daemon.servantPid(), m_servant) << "did not survive: " << object.name;
    }
}

TEST_F(HostileTest, UnknownTransferSyntaxIsListedAndQueriedButNotConverted) {
    writeFile(m_folder / "unknown.dcm", plainImage("1.2.840.10008.1.2.4.110", item("abcd")));
    TestRequest request{.input = m_folder / "unknown.dcm", .verbose = true, .dumponly = true};
    EXPECT_TRUE(contains(request.send(m_daemon.gateway()), "\n(0028,0010) US 64\n"));
    request.tags = {0x0028, 0x0004, 0x0028, 0x0100};
    EXPECT_EQ(request.send(m_daemon.gateway()), "MONOCHROME2;8;<<<>>>");
    request.dumponly = false;
    EXPECT_EQ(request.error(m_daemon.gateway()), "Error loading file: " + request.input +
                                                     ": unsupported transfer syntax 1.2.840.10008.1.2.4.110");
}

TEST_F(HostileTest, BinaryValuesThatAreTooLongForAnAnswer) {
    writeFile(m_folder / "large.dcm", metaHeader(kExplicitLittle) + element(8, 0x60, "CS", "OT") +
                                          element(0x7FE0, 0x10, "OB", std::string((32 << 20) + 2, '\0')));
    TestRequest request{.input = m_folder / "large.dcm", .tags = {0x7FE0, 0x0010}};
    EXPECT_EQ(request.error(m_daemon.gateway()),
              "ImageProcess error (1) processing file: " + request.input +
                  ": the value of (7fe0,0010) that is asked for has more than 33554432 bytes");
}

TEST_F(HostileTest, MoreThan4GiBOfFramesAreTakenOneByOne) {
    // 4096 x 4096 zeros: runs that double in length, a set bit for each, and one for every line after the
    // third: 4124 in all. A byte of ones is followed by one whose first bit is 0. The second frame is none.
    std::string zeros("\xFF\xD8\xFF\xF7\0\x0B\x08\x10\0\x10\0\1\1\x11\0\xFF\xDA\0\x08\1\1\0\0\0\0", 25);
    zeros += repeated("\xFF\x7F", (28 + 2 + 1 + 4093) / 15) + "\xFF\x7E\xFF\xD9";
    writeFile(m_folder / "large.dcm", metaHeader(kJpegLs) + grey(4096, 4096, "257 ") +
                                          fragments(item(zeros) + repeated(item("none"), 256)));
    TestRequest request{.input = m_folder / "large.dcm", .output = m_folder / "large"};
    EXPECT_EQ(request.error(m_daemon.gateway()), "");
    EXPECT_EQ(std::filesystem::file_size(m_folder / "large_1.raw"), 4096 * 4096);
    EXPECT_FALSE(std::filesystem::exists(m_folder / "large_2.raw"));
    EXPECT_TRUE(std::filesystem::exists(m_folder / "large.pdcm")) << "the copy keeps its transfer syntax";
    request.dumponly = request.verbose = true;
    EXPECT_EQ(request.error(m_daemon.gateway()), "");
}
