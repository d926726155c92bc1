#include <map>
#include <sstream>

#include "tests/vintakd/pool/pool_fixture.h"
#include "vintakd/pool/MetricsFile.h"
#include "vintakd/pool/RequestRecord.h"
#include "vintakd/pool/oomkills.h"
#include "vintakd/pool/prometheustext.h"

// What the pool counts, and how it is told.

namespace {

/// The value of each series of a text.
std::map<std::string, std::string> seriesOf(const std::string& text) {
    std::map<std::string, std::string> series;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        const size_t blank = line.rfind(' ');
        if (line[0] == '#') continue;
        EXPECT_TRUE(series.emplace(line.substr(0, blank), line.substr(blank + 1)).second) << line;
    }
    return series;
}

class MetricsTest : public PoolTest {
protected:
    MetricsTest() { m_metricsFile = m_folder / "vintakd.prom"; }

    /// Waits for a series to have a value; what it has in the end.
    std::string value(const std::string& series, const std::string& expected) {
        std::string found;
        eventually([&] {
            found = seriesOf(readFile(m_metricsFile))[series];
            return found == expected;
        });
        return found;
    }

    TemporaryFolder m_folder;
};

}  // namespace

TEST(PrometheusTextTest, TellsEverySeriesAndSumsUpItsBuckets) {
    PoolCounters counters;
    counters.startTime = 1700000000;
    ++counters
          .requests[static_cast<size_t>(RequestKind::convert)][static_cast<size_t>(RequestResult::failed)];
    ++counters.errors[static_cast<size_t>(RequestKind::convert)][static_cast<size_t>(ErrorClass::decode)];
    counters.bytesWritten = uint64_t{1} << 60;
    counters.deaths[static_cast<size_t>(DeathReason::processorTime)] = 2;
    counters.lastDeaths[static_cast<size_t>(DeathReason::processorTime)] = 1700000001;
    for (const int64_t duration : {1'000'000L, 1'000'001L, 700'000'000'000L})
        counters.stageDurations[static_cast<size_t>(Stage::code)].add(duration);
    counters.reservations.add(30'000'000);
    counters.fullNanoseconds = 1'500'000'000;
    counters.fullSince = 1'000'000'000;
    const PoolGauges gauges{.servants = {{true, 0}, {true, 12.5}, {false, 0}},
                            .now = 1700000060,
                            .nanoNow = 3'000'000'000,
                            .version = "9.8.7"};
    const auto series = seriesOf(prometheusText(counters, gauges));
    const std::pair<const char*, const char*> expected[] = {
        {"vintakd_build_info{version=\"9.8.7\"}", "1"},
        {"vintakd_start_time_seconds", "1700000000"},
        {"vintakd_metrics_time_seconds", "1700000060"},
        {"vintakd_servants{state=\"idle\"}", "1"},
        {"vintakd_servants{state=\"busy\"}", "1"},
        {"vintakd_servants{state=\"starting\"}", "1"},
        {"vintakd_channel_request_seconds{channel=\"1\"}", "12.5"},
        {"vintakd_oldest_request_seconds", "12.5"},
        {"vintakd_requests_total{kind=\"convert\",result=\"failed\"}", "1"},
        {"vintakd_requests_total{kind=\"query\",result=\"done\"}", "0"},
        {"vintakd_request_errors_total{kind=\"convert\",class=\"decode\"}", "1"},
        {"vintakd_written_bytes_total", "1152921504606846976"},
        {"vintakd_servant_deaths_total{reason=\"processor_time\"}", "2"},
        {"vintakd_servant_last_death_time_seconds{reason=\"processor_time\"}", "1700000001"},
        {"vintakd_stage_duration_seconds_bucket{stage=\"code\",le=\"0.001\"}", "1"},
        {"vintakd_stage_duration_seconds_bucket{stage=\"code\",le=\"0.0025\"}", "2"},
        {"vintakd_stage_duration_seconds_bucket{stage=\"code\",le=\"600\"}", "2"},
        {"vintakd_stage_duration_seconds_bucket{stage=\"code\",le=\"+Inf\"}", "3"},
        {"vintakd_stage_duration_seconds_count{stage=\"code\"}", "3"},
        {"vintakd_stage_duration_seconds_sum{stage=\"code\"}", "700.002000001"},
        {"vintakd_reservation_wait_seconds_bucket{le=\"0.025\"}", "0"},
        {"vintakd_reservation_wait_seconds_bucket{le=\"0.05\"}", "1"},
        {"vintakd_pool_full_seconds_total", "3.5"},
    };
    for (const auto& [name, value] : expected) {
        ASSERT_TRUE(series.contains(name)) << name;
        EXPECT_EQ(series.at(name), value) << name;
    }
}

TEST(RequestRecordTest, LineHoldsWhateverAnObjectSays) {
    RequestRecord record;
    record.kind = RequestKind::convert;
    record.object = "/in/a\n\"b\\\xFF.dcm";
    record.fail(RequestResult::failed, ErrorClass::decode, "frame 1\tof 2");
    record.frames = 7;
    record.duration = 1'500'000;
    record.stages[static_cast<size_t>(Stage::decode)] = 250'000;
    EXPECT_EQ(
        requestText(record, "a-1", 3),
        "vintakd request id=a-1 channel=3 kind=convert object=\"/in/a?\\\"b\\\\\xFF.dcm\" result=failed "
        "class=decode cause=\"frame 1?of 2\" files=0 frames=7 bytes_in=0 bytes_out=0 seconds=0.001500 "
        "load=0.000000 walk=0.000000 decode=0.000250 analyse=0.000000 code=0.000000 write=0.000000");
    EXPECT_EQ(requestJson(record, "a-1", 3),
              "\"id\":\"a-1\",\"channel\":3,\"kind\":\"convert\",\"object\":\"/in/"
              "a\\u000a\\\"b\\\\\xEF\xBF\xBD.dcm\","
              "\"result\":\"failed\",\"class\":\"decode\",\"cause\":\"frame 1\\u0009of "
              "2\",\"files\":0,\"frames\":7,"
              "\"bytes_in\":0,\"bytes_out\":0,\"seconds\":0.001500,\"load\":0.000000,\"walk\":0.000000,"
              "\"decode\":0.000250,\"analyse\":0.000000,\"code\":0.000000,\"write\":0.000000");
}

TEST(MetricsFileTest, WhatCannotBeWrittenIsSaidOnceAndCostsNothingElse) {
    const TemporaryFolder folder;
    const std::string run = folder / "run", path = run + "/vintakd.prom";
    testing::internal::CaptureStderr();
    {
        MetricsFile file;
        EXPECT_FALSE(file.isDue());
        file.setPath(path);
        EXPECT_TRUE(file.isDue());
        for (int i = 0; i < 3; ++i)
            file.write("in vain\n");
        std::filesystem::create_directory(run);
        ASSERT_EQ(mkfifo((path + ".tmp").c_str(), 0600), 0) << "a pipe that nobody reads is not waited for";
        file.write("one\n");
        EXPECT_EQ(readFile(path), "one\n");
        std::filesystem::remove_all(run);
        file.write("in vain\n");
        std::filesystem::create_directory(run);
        // A full disk: not a byte fits.
        rlimit before{};
        getrlimit(RLIMIT_FSIZE, &before);
        signal(SIGXFSZ, SIG_IGN);
        const rlimit none{0, before.rlim_max};
        setrlimit(RLIMIT_FSIZE, &none);
        file.write("in vain\n");
        setrlimit(RLIMIT_FSIZE, &before);
        EXPECT_TRUE(std::filesystem::is_empty(run));
        file.write("two\n");
        EXPECT_EQ(readFile(path), "two\n");
    }
    EXPECT_TRUE(std::filesystem::is_empty(run)) << "it goes with the pool";
    const std::string log = testing::internal::GetCapturedStderr(),
                      words = "vintakd writes no metrics: " + path;
    size_t said = 0;
    for (size_t at = log.find(words); at != std::string::npos; at = log.find(words, at + 1))
        ++said;
    EXPECT_EQ(said, 2U) << log;
    EXPECT_TRUE(contains(log, words + ": No such file or directory"));
}

TEST(OomKillsTest, ReadsTheCountOfItsOwnGroup) {
    const TemporaryFolder root;
    EXPECT_EQ(oomKills(root.path()), std::nullopt);
    std::filesystem::create_directories(root / "proc/self");
    std::filesystem::create_directories(root / "sys/fs/cgroup/a.slice");
    writeFile(root / "proc/self/cgroup", "4:memory:/old\n0::/a.slice\n");
    EXPECT_EQ(oomKills(root.path()), std::nullopt);
    writeFile(root / "sys/fs/cgroup/a.slice/memory.events", "low 0\noom 3\noom_kill 2\noom_group_kill 1\n");
    EXPECT_EQ(oomKills(root.path()), 2U);
}

TEST_F(MetricsTest, WhatADeadServantCountedStaysAndItsRequestIsCountedAndLogged) {
    ServantLimits limits = ServantLimits::none();
    limits.deadlineSeconds = 1;
    start(1, 60000, limits);
    EXPECT_EQ(ask("echo"), "echo");
    EXPECT_THROW(ask("crash"), ipc::UserException);
    EXPECT_THROW(ask("sleep"), ipc::UserException);
    EXPECT_THROW(ask("exit"), ipc::UserException);
    ASSERT_TRUE(eventually([this] { return m_gateway->servant(0) > 0; }));
    kill(m_gateway->servant(0), SIGKILL);
    EXPECT_EQ(ask("echo"), "echo");
    EXPECT_EQ(value("vintakd_servant_deaths_total{reason=\"killed\"}", "1"), "1");
    EXPECT_EQ(value("vintakd_servant_deaths_total{reason=\"signal\"}", "1"), "1");
    EXPECT_EQ(value("vintakd_servant_deaths_total{reason=\"deadline\"}", "1"), "1");
    EXPECT_EQ(value("vintakd_servant_deaths_total{reason=\"exit\"}", "1"), "1");
    EXPECT_EQ(value("vintakd_requests_total{kind=\"unread\",result=\"died\"}", "3"), "3");
    EXPECT_EQ(value("vintakd_request_errors_total{kind=\"unread\",class=\"crash\"}", "2"), "2");
    EXPECT_EQ(value("vintakd_request_errors_total{kind=\"unread\",class=\"limit\"}", "1"), "1");
    EXPECT_EQ(value("vintakd_servant_starts_total", "5"), "5");
    EXPECT_EQ(value("vintakd_servants{state=\"idle\"}", "1"), "1");
    EXPECT_EQ(value("vintakd_pool_full_total", "5"), "5") << "a pool of one is full with every request";
    EXPECT_EQ(value("vintakd_oldest_request_seconds", "0"), "0");
    EXPECT_TRUE(
        contains(log(), "kind=unread object=crash result=died class=crash cause=\"was killed by SIGABRT"));
    EXPECT_TRUE(contains(log(), "object=sleep result=died class=limit cause=\"was killed by SIGKILL"));
    EXPECT_EQ(stop(SIGTERM), 0);
    EXPECT_FALSE(std::filesystem::exists(m_metricsFile));
}
