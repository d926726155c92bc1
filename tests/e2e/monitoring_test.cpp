#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dctk.h>

#include <boost/property_tree/json_parser.hpp>
#include <future>
#include <regex>
#include <set>
#include <sstream>

#include "tests/shared/daemon_process.h"
#include "tools/phantom/phantomobject.h"

// What the real daemon tells of itself: figures, lines about requests, health, configuration.

namespace {

using Json = boost::property_tree::ptree;

Json parseJson(const std::string& text) {
    Json tree;
    std::istringstream stream(text);
    boost::property_tree::read_json(stream, tree);
    return tree;
}

class MonitoringTest : public testing::Test {
protected:
    explicit MonitoringTest(const char* format = "text") {
        writeFile(m_folder / "log.conf", std::string("LOG_FORMAT = ") + format + "\n");
        m_daemon = std::make_unique<DaemonProcess>(std::vector<std::string>{"--servers", "1"},
                                                   [this] { setenv("CONF", m_folder.path().c_str(), 1); });
    }

    ProgramResult vintak(const std::vector<std::string>& arguments) const {
        std::vector<std::string> variables = m_daemon->environment();
        variables.push_back("CONF=" + m_folder.path());
        return runProgram(VINTAK_BINARY, arguments, variables);
    }

    /// Waits until the figures hold this line.
    testing::AssertionResult counts(const std::string& line) const {
        std::string text;
        eventually([&] {
            text = readFile(m_daemon->folder() / "vintakd.prom");
            return text.find("\n" + line + "\n") != std::string::npos;
        });
        return contains(text, "\n" + line + "\n");
    }

    TemporaryFolder m_folder;
    std::unique_ptr<DaemonProcess> m_daemon;
};

class JsonLogTest : public MonitoringTest {
protected:
    JsonLogTest() : MonitoringTest("json") {}

    /// The lines about requests so far; every line of the log has to be an object.
    std::vector<Json> requests() const {
        std::vector<Json> found;
        std::istringstream log(m_daemon->log());
        for (std::string line; std::getline(log, line) && !log.eof();) {
            const Json tree = parseJson(line);
            EXPECT_TRUE(tree.count("time") == 1 && tree.count("level") == 1 && tree.count("pid") == 1)
                << line;
            EXPECT_EQ(tree.count("message") + tree.count("id"), 1U) << line;
            if (tree.count("id") == 1) found.push_back(tree);
        }
        return found;
    }

    /// The line about the last of `count` requests.
    Json lastOf(size_t count) const {
        EXPECT_TRUE(eventually([&] { return requests().size() >= count; })) << m_daemon->log();
        return requests().at(count - 1);
    }

    /// An object that is someone's, with a name in places where it does not belong.
    std::string writeObject(const std::string& name, const char* frames) const {
        std::string path = m_folder / name;
        writePhantom(path, {2, 16});
        DcmFileFormat file;
        file.loadFile(path.c_str());
        DcmDataset& dataset = *file.getDataset();
        for (const DcmTagKey& tag :
             {DCM_PatientName, DCM_PatientID, DCM_PatientBirthDate, DCM_StudyDescription, DCM_WindowCenter,
              DCM_PixelSpacing, DCM_ImagePositionPatient})
            dataset.putAndInsertString(tag, "SECRET^NAME");
        dataset.putAndInsertString(DCM_NumberOfFrames, frames);
        file.saveFile(path.c_str());
        return path;
    }
};

double stageSum(const Json& line) {
    double sum = 0;
    for (const char* stage : {"load", "walk", "decode", "analyse", "code", "write"})
        sum += line.get<double>(stage);
    return sum;
}

uint64_t bytesBelow(const std::string& folder) {
    uint64_t bytes = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder))
        bytes += entry.file_size();
    return bytes;
}

}  // namespace

TEST_F(JsonLogTest, RequestIsToldAndCountedByKindResultAndClass) {
    const std::string good = writeObject("good \n\xFF.dcm", "2"), few = writeObject("few.dcm", "4");
    writeFile(m_folder / "bad.dcm", "not an object");
    std::filesystem::create_directory(m_folder / "out");
    const struct {
        TestRequest request;
        std::string kind, result, errorClass, cause;
    } cases[] = {
        {{.input = good, .output = m_folder / "out/a", .writeMask = 3}, "convert", "done", "none", ""},
        {{.input = few, .output = m_folder / "b"},
         "convert",
         "warned",
         "none",
         "2 of 4 frames were converted"},
        {{.input = m_folder / "bad.dcm", .output = m_folder / "c"},
         "convert",
         "failed",
         "object",
         "truncated"},
        {{.input = m_folder / "none.dcm", .output = m_folder / "c"},
         "convert",
         "failed",
         "file",
         "No such file"},
        {{.input = good, .output = m_folder / "none/c"},
         "convert",
         "failed",
         "output",
         "none/c.desc (No such"},
        {{.input = good, .output = m_folder / "c", .specificFrame = 3},
         "convert",
         "failed",
         "request",
         "only 2 frames"},
        {{.input = good, .verbose = true, .dumponly = true}, "dump", "done", "none", ""},
        {{.input = m_folder.path() + "/",
          .noCached = true,
          .tags = {0x10, 0x10},
          .files = {"few.dcm", "bad.dcm"}},
         "query",
         "failed",
         "object",
         "truncated"},
    };
    size_t count = requests().size();
    std::set<std::string> names;
    for (const auto& [request, kind, result, errorClass, cause] : cases) {
        EXPECT_EQ(request.error(m_daemon->gateway()).empty(), errorClass == "none");
        const Json line = lastOf(++count);
        SCOPED_TRACE(request.input + " " + kind);
        EXPECT_EQ(line.get<std::string>("kind"), kind);
        EXPECT_EQ(line.get<std::string>("result"), result);
        EXPECT_EQ(line.get<std::string>("class"), errorClass);
        EXPECT_TRUE(contains(line.get<std::string>("cause"), cause));
        EXPECT_EQ(line.get<std::string>("level"), result == "done"     ? "INFO"
                                                  : result == "warned" ? "WARN"
                                                                       : "ERROR");
        EXPECT_TRUE(names.insert(line.get<std::string>("id")).second);
        EXPECT_GT(stageSum(line), 0);
        EXPECT_LE(stageSum(line), line.get<double>("seconds") + 0.00001);
        if (kind == "query") {
            EXPECT_EQ(line.get<std::string>("object"), m_folder / "bad.dcm");
            EXPECT_EQ(line.get<int>("files"), 1);
        }
    }
    const Json first = requests().at(count - std::size(cases));

    // A client that talks where it ought to listen.
    vintakd::VintakMsgIn header{};
    good.copy(header.inputFile, sizeof header.inputFile - 1);
    {
        const ReservedChannel reserved(m_daemon->gateway());
        ipc::Channel& channel = m_daemon->gateway().getChannel(reserved.index());
        channel.send(reinterpret_cast<const char*>(&header), sizeof header);
        EXPECT_EQ(failureOf([&] { channel.send("more", 4); }), "clash");
    }
    const Json lost = lastOf(++count);
    EXPECT_EQ(lost.get<std::string>("result") + " " + lost.get<std::string>("class"), "lost exchange");
    EXPECT_EQ(lost.get<std::string>("object"), first.get<std::string>("object"));
    EXPECT_EQ(first.get<std::string>("object"), m_folder / "good \n\xEF\xBF\xBD.dcm");
    EXPECT_EQ(first.get<int>("files"), 1);
    EXPECT_EQ(first.get<int>("frames"), 2);
    EXPECT_EQ(first.get<uint64_t>("bytes_in"), std::filesystem::file_size(good));
    EXPECT_EQ(first.get<uint64_t>("bytes_out"), bytesBelow(m_folder / "out"));
    for (const char* stage : {"load", "walk", "decode", "analyse", "code", "write"})
        EXPECT_GT(first.get<double>(stage), 0) << stage;
    EXPECT_FALSE(contains(m_daemon->log(), "SECRET"));

    EXPECT_TRUE(counts("vintakd_requests_total{kind=\"query\",result=\"failed\"} 1"));
    EXPECT_TRUE(counts("vintakd_requests_total{kind=\"convert\",result=\"failed\"} 4"));
    EXPECT_TRUE(counts("vintakd_request_errors_total{kind=\"convert\",class=\"output\"} 1"));
    EXPECT_TRUE(counts("vintakd_request_duration_seconds_count{kind=\"dump\"} 1"));
    EXPECT_TRUE(counts("vintakd_requests_total{kind=\"convert\",result=\"lost\"} 1"));
    EXPECT_TRUE(counts("vintakd_files_total 5"));
}

TEST_F(JsonLogTest, ServantThatIsKilledAtWorkLeavesWhatItCounted) {
    const std::string path = m_folder / "long.dcm";
    writePhantom(path, {400, 256});
    const std::string output = m_folder / "long";
    const TestRequest request{.input = path, .output = output, .writeMask = 3};
    auto client = std::async(std::launch::async,
                             [&] { return failureOf([&] { (void)request.send(m_daemon->gateway()); }); });
    ASSERT_TRUE(eventually([&] { return std::filesystem::exists(output + "_2.raw"); }));
    ASSERT_GT(m_daemon->signalServant(SIGKILL), 0);
    EXPECT_EQ(client.get(), "error notice");
    EXPECT_TRUE(counts("vintakd_servant_deaths_total{reason=\"killed\"} 1"));
    EXPECT_TRUE(counts("vintakd_requests_total{kind=\"convert\",result=\"died\"} 1"));
    EXPECT_TRUE(counts("vintakd_request_errors_total{kind=\"convert\",class=\"crash\"} 1"));
    EXPECT_FALSE(contains(readFile(m_daemon->folder() / "vintakd.prom"), "\nvintakd_frames_total 0\n"));
    const Json line = requests().back();
    EXPECT_EQ(line.get<std::string>("result"), "died");
    EXPECT_EQ(line.get<std::string>("object"), path);
    EXPECT_TRUE(contains(line.get<std::string>("cause"), "was killed by SIGKILL"));
    EXPECT_TRUE(vintakd::ping(m_daemon->gateway()));
    const Json health = parseJson(vintak({"health", "--json"}).output);
    EXPECT_EQ(health.get<std::string>("status"), "healthy");
    EXPECT_EQ(health.get<std::string>("last_death.reason"), "killed");
    m_daemon->stop(SIGTERM);
    requests();
}

TEST_F(MonitoringTest, HealthAndMetricsTellAScriptHowItIs) {
    ASSERT_TRUE(counts("vintakd_servants{state=\"idle\"} 1"));
    ProgramResult result = vintak({"health"});
    EXPECT_EQ(result.status, 0) << result.output;
    EXPECT_EQ(result.output.find("healthy\ndaemon: pid " + std::to_string(m_daemon->pid()) + ", version "),
              0U);
    EXPECT_TRUE(
        contains(result.output, "channel 0: free, servant " + std::to_string(m_daemon->servantPid())));
    EXPECT_TRUE(contains(result.output, "answer: yes\noldest request: none\nlast death: none\n"));

    // A busy pool is well, and nobody is disturbed.
    const size_t channel = m_daemon->gateway().reserveChannel();
    result = vintak({"health", "--json"});
    EXPECT_EQ(result.status, 0);
    const Json busy = parseJson(result.output);
    EXPECT_EQ(busy.get<std::string>("answers"), "null");
    EXPECT_EQ(busy.get_child("channels").front().second.get<int>("client_pid"), getpid());
    m_daemon->gateway().releaseChannel(channel);

    // Figures that nobody has written for long: the supervisor is stuck, whoever answers.
    writeFile(m_folder / "vintakd.prom", "vintakd_metrics_time_seconds 1700000000\n");
    result = vintak({"health", "--run", m_folder.path()});
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(contains(result.output, "degraded\nproblem: the supervisor has written no figures for "));
    EXPECT_EQ(vintak({"metrics", "--run", m_folder.path()}).status, 3);
    EXPECT_EQ(vintak({"health", "--run", m_folder / "none"}).status, 0) << "what is not known is no illness";

    {
        const ipc::SpinGuard lock(m_daemon->gateway().header().spinLock, 1000);
        result = vintak({"health", "--json"});
        EXPECT_EQ(result.status, 4);
        EXPECT_TRUE(contains(result.output, "\"problems\":[\"the channel table is locked\"]"));
    }

    // Every name that the rules and the dashboard use is one that the daemon writes.
    result = vintak({"metrics"});
    EXPECT_EQ(result.status, 0);
    const std::regex name("vintakd_[a-z_]+");
    for (const char* file : {"/prometheus/vintakd.rules.yml", "/grafana/vintakd.json"}) {
        const std::string text = readFile(std::string(VINTAKD_PACKAGING) + file);
        size_t used = 0;
        for (std::sregex_iterator found(text.begin(), text.end(), name), end; found != end; ++found, ++used)
            EXPECT_NE(result.output.find("\n" + found->str()), std::string::npos) << found->str();
        EXPECT_GT(used, 10U) << file;
    }
    EXPECT_NO_THROW(parseJson(readFile(std::string(VINTAKD_PACKAGING) + "/grafana/vintakd.json")));

    EXPECT_EQ(vintak({"convert", m_folder / "missing.dcm", "-o", m_folder / "out"}).status, 4);
    EXPECT_TRUE(counts("vintakd_reservation_wait_seconds_count 1")) << "its client told how long it waited";

    m_daemon->stop(SIGTERM);
    EXPECT_FALSE(std::filesystem::exists(m_daemon->folder() / "vintakd.prom"));
    result = vintak({"metrics"});
    EXPECT_EQ(result.status, 3);
    EXPECT_TRUE(
        contains(result.errors, "no metrics: " + (m_daemon->folder() / "vintakd.prom: No such file")));
    EXPECT_EQ(vintak({"health"}).status, 3);
    EXPECT_EQ(parseJson(vintak({"health", "--json"}).output).get<std::string>("status"), "no daemon");
}

TEST_F(MonitoringTest, FiguresPassPromtool) {
    const auto shell = [&](const std::string& words) { return runProgram("/bin/sh", {"-c", words}); };
    if (shell("command -v promtool").status != 0) GTEST_SKIP() << "there is no promtool to ask";
    ASSERT_TRUE(counts("vintakd_servants{state=\"idle\"} 1"));
    const ProgramResult result = shell("promtool check metrics <" + (m_daemon->folder() / "vintakd.prom"));
    EXPECT_EQ(result.status, 0) << result.output << result.errors;
}

TEST_F(MonitoringTest, ConfigurationIsCheckedByTheDaemonAndByTheToolAlike) {
    EXPECT_FALSE(contains(m_daemon->log(), "vintakd configuration: "));
    ProgramResult result = vintak({"check-config"});
    EXPECT_EQ(result.status, 0);
    EXPECT_TRUE(contains(result.output, "LOG_FORMAT = text  (" + (m_folder / "log.conf:1)")));
    EXPECT_EQ(vintak({"check-config", "a", "b"}).status, 2);

    writeFile(m_folder / "limits.conf", "DEADLNE_SECONDS = 5\n");
    writeFile(m_folder / "thumbnail.conf", "KELT_PERCENT = much\n");
    const std::string first = m_folder /
                              "limits.conf:1: DEADLNE_SECONDS = 5: there is no such entry; the nearest is "
                              "DEADLINE_SECONDS";
    const std::string second = m_folder / "thumbnail.conf:1: KELT_PERCENT = much: a number is needed";
    result = vintak({"check-config", m_folder.path()});
    EXPECT_EQ(result.status, 4);
    EXPECT_TRUE(contains(result.errors, "error: " + first));
    EXPECT_TRUE(contains(result.errors, "error: " + second));

    const TemporaryFolder run;
    result = runProgram(VINTAKD_BINARY, {}, {"RUN=" + run.path(), "CONF=" + m_folder.path()});
    EXPECT_EQ(result.status, 3);
    EXPECT_TRUE(contains(result.errors, first));
    EXPECT_TRUE(contains(result.errors, second));
    EXPECT_TRUE(std::filesystem::is_empty(run.path()));
}
