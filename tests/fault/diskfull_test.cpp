#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <map>
#include <numeric>
#include <random>
#include <set>

#include "tests/shared/daemon_process.h"
#include "tests/shared/testobject.h"

namespace {

namespace fs = std::filesystem;

using Files = std::map<std::string, std::string>;

constexpr unsigned kNoThumbnails = 0x04;
constexpr unsigned kNoRaw = 0x10;
constexpr unsigned kStreams = 0x03;

/// One frame whose files all have bytes. With a side of 100 its thumbnail has more pixels than it has itself.
void describeFrame(TestObject& object, unsigned short side = 100) {
    object.describe({.rows = side, .columns = side, .allocated = 16, .stored = 12});
    std::mt19937 random(5);
    Words samples(size_t{side} * side);
    for (uint16_t& sample : samples)
        sample = random() % 4096;
    object.pixels(samples);
}

Files filesIn(const std::string& folder) {
    Files files;
    for (const auto& entry : fs::directory_iterator(folder))
        files[entry.path().filename()] = readFile(entry.path());
    return files;
}

bool isStreamFile(const std::string& name) {
    return name.ends_with(".qi4");
}

/// The daemon's messages, through a pipe: a log file would share the limits of the other files.
class Messages {
public:
    Messages() { EXPECT_EQ(pipe2(m_ends, O_CLOEXEC | O_NONBLOCK), 0); }
    ~Messages() {
        close(m_ends[0]);
        close(m_ends[1]);
    }
    void becomeStandardError() const { dup2(m_ends[1], STDERR_FILENO); }

    /// What came since the last call.
    std::string take() const {
        std::string text;
        char bytes[4096];
        for (ssize_t count = 0; (count = read(m_ends[0], bytes, sizeof bytes)) > 0;)
            text.append(bytes, static_cast<size_t>(count));
        return text;
    }

private:
    int m_ends[2];
};

class DiskFull : public testing::Test {
protected:
    DiskFull() { describeFrame(m_object); }

    TestRequest request(const std::string& prefix, unsigned mask) {
        TestRequest request{.input = m_object.save(EXS_LittleEndianExplicit)};
        request.output = request.cache = prefix;
        request.writeMask = static_cast<int>(mask);
        return request;
    }

    /// What the request writes while nothing is in its way.
    Files undisturbed(unsigned mask) {
        const TemporaryFolder folder;
        DaemonProcess daemon;
        request(folder / "o", mask).send(daemon.gateway());
        return filesIn(folder.path());
    }

    /// Sends the request while something is short, and looks at what is left in `view`, the folder of the
    /// prefix: nothing but whole files, and every file that is missing was told of with `reason`. The names
    /// of the files that could not be written.
    static std::set<std::string> convertInNeed(DaemonProcess& daemon, const Messages& messages,
                                               const TestRequest& wanted, const std::string& view,
                                               const Files& expected, const std::string& reason) {
        messages.take();
        const std::string error = wanted.error(daemon.gateway());
        const std::string log = messages.take();
        const Files present = filesIn(view);
        for (const auto& [name, content] : present)
            EXPECT_TRUE(expected.contains(name) && expected.at(name) == content) << "not whole: " << name;

        const std::string folder = fs::path(wanted.output).parent_path();
        std::set<std::string> lost;
        for (const auto& [name, content] : expected) {
            const std::string path = folder + "/" + name;
            const bool logged = log.find("Error writing file: " + path + " (" + reason) != std::string::npos;
            const bool answered = error.find("Error writing file: " + path) != std::string::npos &&
                                  error.find(reason) != std::string::npos;
            if (logged || answered) {
                lost.insert(name);
                EXPECT_FALSE(present.contains(name)) << "told of, but there: " << name;
                EXPECT_TRUE(isStreamFile(name) || !error.empty()) << name << " counts, but nobody failed";
                EXPECT_FALSE(isStreamFile(name) && answered) << name << " does not count";
            } else if (error.empty()) {
                EXPECT_TRUE(present.contains(name)) << "nobody told of the loss of " << name << '\n' << log;
            }
        }
        EXPECT_TRUE(error.empty() || !lost.empty()) << error;
        return lost;
    }

    static std::set<std::string> names(const Files& files) {
        std::set<std::string> names;
        for (const auto& file : files)
            names.insert(file.first);
        return names;
    }

    TestObject m_object;
};

}  // namespace

TEST_F(DiskFull, EveryFileThatGrowsBeyondItsLimit) {
    const Messages messages;
    DaemonProcess daemon({"--servers", "1"}, [&] { messages.becomeStandardError(); });
    std::set<std::string> lost;
    for (const unsigned mask : {kStreams, kStreams | kNoRaw, kNoThumbnails | kNoRaw}) {
        const Files expected = undisturbed(mask);
        for (const auto& [name, content] : expected) {
            SCOPED_TRACE(name + " " + std::to_string(mask));
            const TemporaryFolder folder;
            rlimit limit{};
            ASSERT_EQ(prlimit(daemon.servantPid(), RLIMIT_FSIZE, nullptr, &limit), 0);
            limit.rlim_cur = content.size() - 1;
            ASSERT_EQ(prlimit(daemon.servantPid(), RLIMIT_FSIZE, &limit, nullptr), 0);
            const auto found = convertInNeed(daemon, messages, request(folder / "o", mask), folder.path(),
                                             expected, "File too large");
            EXPECT_FALSE(found.empty());
            lost.insert(found.begin(), found.end());
        }
    }
    EXPECT_EQ(lost, names(undisturbed(kStreams))) << "not every file was hit";
}

TEST_F(DiskFull, EveryFileOnADeviceThatIsFull) {
    TestObject content(kContentClass);
    PBItem(content.dataset()).putAndInsertPBString(0x45, "STUDY");
    PBItem(content.dataset()).putAndInsertPBString(0x3A, "fingerprint");
    TestObject large;  // more bytes than are buffered, and than a pipe holds
    describeFrame(large, 250);
    TestObject strip;  // the same, of its thumbnail
    strip.describe({.columns = 65535, .allocated = 16, .stored = 16});
    Words ramp(65535);
    std::iota(ramp.begin(), ramp.end(), uint16_t{0});
    strip.pixels(ramp);
    TestObject document(UID_EncapsulatedPDFStorage);
    document.bytes(0x0042, 0x0011, EVR_OB, {'%', 'P', 'D', 'F'});

    const struct {
        TestObject& object;
        std::vector<const char*> suffixes;
    } cases[] = {{m_object,
                  {".desc", "_1.raw", "_1.f.qi4", "_1.t.qi4", "_1.p.qi4", "_1.128x128t.raw",
                   "_1.128x128t.cw1", ".pdcm"}},
                 {large, {"_1.raw"}},
                 {strip, {"_1.128x128t.raw"}},
                 {content, {".obsinfo", ".fingerprint", ".pdcm"}},
                 {document, {".pdf", ".pdcm"}}};
    DaemonProcess daemon;
    for (const auto& [object, suffixes] : cases) {
        for (const std::string suffix : suffixes) {
            SCOPED_TRACE(suffix);
            const TemporaryFolder folder;
            const std::string path = folder / ("o" + suffix);
            fs::create_symlink("/dev/full", path);
            TestRequest wanted = request(folder / "o", kStreams);
            wanted.input = object.save(EXS_LittleEndianExplicit);
            const std::string error = wanted.error(daemon.gateway());
            const std::string& told = isStreamFile(path) ? daemon.log() : error;
            EXPECT_EQ(error.empty(), isStreamFile(path)) << error;
            EXPECT_TRUE(contains(told, "Error writing file: " + path));
            EXPECT_TRUE(contains(told, "No space left on device"));
            const fs::path thumbnail = folder / "o_1.128x128t.cw1";
            EXPECT_FALSE(fs::is_regular_file(thumbnail) && fs::is_empty(thumbnail)) << "never written to";
            EXPECT_TRUE(fs::is_symlink(path)) << "what stands for a device is not to be removed";
        }
    }
}

TEST_F(DiskFull, ReadersThatGoAway) {
    int log[2];
    ASSERT_EQ(pipe2(log, O_CLOEXEC), 0);
    DaemonProcess daemon({"--servers", "1"}, [&] { dup2(log[1], STDERR_FILENO); });
    for (const int end : log)
        close(end);
    const int servant = daemon.servantPid();

    describeFrame(m_object, 250);  // more bytes than a pipe holds
    const TemporaryFolder folder;
    const std::string path = folder / "o_1.raw";
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    std::thread reader([&] {
        const int pipe = open(path.c_str(), O_RDONLY | O_CLOEXEC);
        pollfd wait{pipe, POLLIN, 0};
        poll(&wait, 1, -1);
        close(pipe);
    });
    const std::string error = request(folder / "o", kNoThumbnails).error(daemon.gateway());
    reader.join();
    EXPECT_TRUE(contains(error, "Error writing file: " + path + " (Broken pipe)"));
    EXPECT_TRUE(fs::is_fifo(path)) << "what is not our file is not to be removed";
    EXPECT_TRUE(vintakd::ping(daemon.gateway()));
    EXPECT_EQ(daemon.servantPid(), servant);
    EXPECT_EQ(daemon.stop(SIGTERM), 0);
}
