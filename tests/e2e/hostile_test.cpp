#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstring>
#include <filesystem>

#include "daemon_process.h"
#include "tools/phantom/phantomobject.h"

namespace {

/// Requests and objects that nobody should send. Whatever comes, there is an answer and the servant goes on.
class HostileTest : public testing::Test {
protected:
    HostileTest() { m_servant = m_daemon.servantPid(); }
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

    void writeSmallPhantom() const { writePhantom(m_folder / "ok.dcm", {1, 16}); }

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
    writeSmallPhantom();
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
    EXPECT_EQ(exchange(std::string((size_t{64} << 20) + 1, 'x')),
              "VINTAKD ERRORThe request is longer than 67108864 bytes");
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
        TestRequest request;
        request.input = m_folder / name;
        request.output = m_folder / "out";
        const std::string start = "Error loading file: " + request.input + ": ";
        const std::string error = request.error(m_daemon.gateway());
        EXPECT_EQ(error.substr(0, start.size()), start) << name;
        EXPECT_GT(error.size(), start.size()) << "the cause is missing: " << name;
    }
}

TEST_F(HostileTest, ObjectTruncatedAnywhere) {
    writeSmallPhantom();
    const std::string whole = readFile(m_folder / "ok.dcm");
    for (size_t size = 0; size < whole.size(); size += size < 400 ? 7 : 41) {
        writeFile(m_folder / "cut.dcm", whole.substr(0, size));
        TestRequest request;
        request.input = m_folder / "cut.dcm";
        request.output = m_folder / "out";
        try {
            request.send(m_daemon.gateway());  // what is left may happen to be whole elements
        } catch (const VintakdErrorException& error) {
            EXPECT_NE(error.text().find("cut.dcm: "), std::string::npos) << size << ": " << error.text();
        }
    }
}

TEST_F(HostileTest, OutputThatCannotBeWritten) {
    writeSmallPhantom();
    TestRequest request;
    request.input = m_folder / "ok.dcm";
    request.output = m_folder / "missing/out";
    std::string error = request.error(m_daemon.gateway());
    EXPECT_NE(error.find(m_folder / "missing/out.desc"), std::string::npos) << error;
    EXPECT_NE(error.find("No such file or directory"), std::string::npos) << error;

    // A device that is always full, in the place of each file.
    for (const std::string suffix : {".desc", "_1.raw", ".pdcm"}) {
        request.output = request.cache = m_folder / ("full" + suffix.substr(1));
        const std::string path = request.output + suffix;
        std::filesystem::create_symlink("/dev/full", path);
        error = request.error(m_daemon.gateway());
        EXPECT_NE(error.find(path), std::string::npos) << error;
        EXPECT_NE(error.find("No space left on device"), std::string::npos) << error;
    }
}

TEST_F(HostileTest, NestingWithoutEnd) {
    // Nothing but opening tags of sequences and items: a parser that calls itself for each would run out of
    // stack.
    const auto tag = [](uint16_t group, uint16_t element, const std::string& rest) {
        return std::string(reinterpret_cast<const char*>(&group), 2) +
               std::string(reinterpret_cast<const char*>(&element), 2) + rest;
    };
    const std::string undefined = "\xFF\xFF\xFF\xFF";
    const std::string level =
        tag(0x0008, 0x1140, std::string("SQ\0\0", 4) + undefined) + tag(0xFFFE, 0xE000, undefined);
    std::string bytes =
        std::string(128, '\0') + "DICM" + tag(0x0002, 0x0000, std::string("UL\x04\0\x1C\0\0\0", 8)) +
        tag(0x0002, 0x0010, std::string("UI\x14\0", 4) + std::string("1.2.840.10008.1.2.1\0", 20));
    for (int i = 0; i < 100000; ++i)
        bytes += level;
    writeFile(m_folder / "deep.dcm", bytes);
    TestRequest request;
    request.input = m_folder / "deep.dcm";
    request.dumponly = request.verbose = true;
    EXPECT_EQ(request.error(m_daemon.gateway()),
              "Error loading file: " + request.input + ": sequences are nested too deeply");
}
