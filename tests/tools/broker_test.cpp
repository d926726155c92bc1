#include <sys/stat.h>

#include <future>
#include <random>

#include "hsutils/jsonvalue.h"
#include "tests/shared/testing.h"
#include "tools/broker/BrokerOptions.h"
#include "tools/broker/Job.h"
#include "tools/broker/JobInputs.h"
#include "tools/broker/Settlements.h"
#include "tools/feeding/ResultsFolder.h"

namespace fs = std::filesystem;

namespace {

std::string message(const std::string& input, const std::string& name) {
    return R"({"schema":1,"id":"7","input":")" + input + R"(","name":")" + name + R"(","submitted":"now"})";
}

/// What is wrong with a message; empty when it is a job.
std::string problemOf(std::string_view text) {
    try {
        (void)parseJob(text);
        return "";
    } catch (const JobError& error) {
        return error.what();
    }
}

std::string jsonProblemOf(std::string_view text) {
    try {
        (void)JsonValue::parse(text);
        return "";
    } catch (const JsonError& error) {
        return error.what();
    }
}

std::vector<std::string> safe(const std::vector<Settled>& settled) {
    std::vector<std::string> words;
    for (const Settled& one : settled)
        words.push_back(std::to_string(one.tag) + (one.isSafe ? " safe" : " not"));
    return words;
}

}  // namespace

TEST(Json, ReadsWhatTheStandardAllowsAndNothingElse) {
    const JsonValue value = JsonValue::parse(
        " {\"a\":[1,-0.5e1,true,null],\"\\u00e9\\ud83d\\ude00\\n\":\"\xC3\xA9\",\"n\":9007199254740993} ");
    EXPECT_EQ(value.names(), (std::vector<std::string>{"a", "\xC3\xA9\xF0\x9F\x98\x80\n", "n"}));
    EXPECT_EQ(value.member("a")->elements()[1].number(), -5);
    EXPECT_EQ(value.member("a")->elements()[1].integer(), std::nullopt);
    EXPECT_EQ(value.member("a")->elements()[2].boolean(), true);
    EXPECT_EQ(*value.member("\xC3\xA9\xF0\x9F\x98\x80\n")->text(), "\xC3\xA9");
    EXPECT_EQ(value.member("n")->integer(), 9007199254740993);
    EXPECT_EQ(value.member("b"), nullptr);
    for (const char* bad : {"",
                            " ",
                            "{",
                            "[1,]",
                            "[1 2]",
                            "{\"a\":1,}",
                            "{\"a\":1,\"a\":2}",
                            "{a:1}",
                            "{\"a\"}",
                            "01",
                            "1.",
                            ".5",
                            "+1",
                            "1e",
                            "-",
                            "1e999",
                            "nul",
                            "truefalse",
                            "\"",
                            "\"\\x\"",
                            "\"\\u12\"",
                            "\"\\u+123\"",
                            "\"\\ud83d\"",
                            "\"\\ud83dx\"",
                            "\"\\ude00\"",
                            "\"a\nb\"",
                            "\"\xC3\"",
                            "\"\xED\xA0\x80\"",
                            "[] []",
                            "'a'",
                            "NaN"})
        EXPECT_NE(jsonProblemOf(bad), "") << bad;
    EXPECT_NE(jsonProblemOf(std::string_view("\"\0\"", 3)), "");
    EXPECT_EQ(jsonProblemOf(std::string(16, '[') + std::string(16, ']')), "");
    EXPECT_TRUE(contains(jsonProblemOf(std::string(200000, '[')), "too deeply nested"));
}

TEST(Job, ComesOutOfItsMessageAsItWentIn) {
    const Job job = makeJob("/archive/a \"b\"\n/\xC3\xA9.dcm", "a \"b\"\n/\xC3\xA9.dcm");
    EXPECT_EQ(parseJob(jobText(job)), job);
    EXPECT_NE(makeJob(job.input, job.name).id, job.id);
    EXPECT_THROW((void)makeJob("/archive/\xE9.dcm", "x"), JobError);
    // Members to come are passed over.
    EXPECT_EQ(problemOf(R"({"schema":1,"more":[{}],"id":"7","input":"/a","name":"a","submitted":""})"), "");
}

TEST(Job, HostileMessagesNameTheirFault) {
    using Case = std::pair<std::string, const char*>;
    for (const auto& [text, problem] : {Case{"", "no JSON"},
                                        Case{"[]", "no JSON object"},
                                        Case{"{}", "schema"},
                                        Case{R"({"schema":2})", "schema is 2, this worker knows 1"},
                                        Case{R"({"schema":1.0})", "schema"},
                                        Case{R"({"schema":"1"})", "schema"},
                                        Case{R"({"schema":1,"id":7})", "no text \"id\""},
                                        Case{message("a.dcm", "a"), "no absolute path"},
                                        Case{message("/a/../etc/passwd", "a"), "a .."},
                                        Case{message("/a//b", "a"), "empty part"},
                                        Case{message("/a/./b", "a"), "a ."},
                                        Case{message("/", "a"), "folder"},
                                        Case{message("/a/", "a"), "folder"},
                                        Case{message("/a\\u0000b", "a"), "NUL"},
                                        Case{message("/a", ""), "empty"},
                                        Case{message("/a", "/etc/x"), "empty part"},
                                        Case{message("/a", "../x"), "begins with a ."},
                                        Case{message("/a", "a/../../x"), "begins with a ."},
                                        Case{message("/a", ".partial/x"), "begins with a ."},
                                        Case{message("/a", "a/"), "ends in"},
                                        Case{message("/a", "a//b"), "empty part"},
                                        Case{message("/a", std::string(241, 'x')), "too long"},
                                        Case{message("/" + std::string(4095, 'x'), "a"), "too long"},
                                        Case{std::string(70000, ' '), "too long"}}) {
        EXPECT_TRUE(contains(problemOf(text), problem)) << text.substr(0, 100);
    }
    // Whatever is broken in a good one is a fault that is told, never another end.
    const std::string good = message("/a/b.dcm", "c/d.dcm");
    ASSERT_EQ(problemOf(good), "");
    std::minstd_rand chance(7);
    for (int i = 0; i < 20000; ++i) {
        std::string bad = good.substr(0, good.size() - chance() % 3);
        for (unsigned many = chance() % 4; many > 0; --many)
            bad[chance() % bad.size()] = static_cast<char>(chance());
        try {
            const Job job = parseJob(bad);
            EXPECT_FALSE(job.name.starts_with('.') || contains(job.name + "/", "../")) << job.name;
        } catch (const JobError&) {
        }
    }
}

TEST(BrokerOptions, ReadsAddressesAndKeepsSecretsOutOfThem) {
    using Case = std::tuple<const char*, const char*, int, const char*, bool>;
    for (const auto& [address, host, port, virtualHost, isEncrypted] :
         {Case{"amqp://mq", "mq", 5672, "/", false}, Case{"amqps://mq/", "mq", 5671, "/", true},
          Case{"amqp://mq:5000/a%2Fb", "mq", 5000, "a/b", false},
          Case{"amqps://[::1]:1/x", "::1", 1, "x", true}}) {
        BrokerOptions options;
        readBrokerAddress(address, options);
        EXPECT_EQ(std::tie(options.host, options.port, options.virtualHost, options.isEncrypted),
                  std::make_tuple(std::string(host), port, std::string(virtualHost), isEncrypted))
            << address;
    }
    BrokerOptions options;
    for (const char* bad : {"mq", "http://mq", "amqp://", "amqp://user:word@mq", "amqp://mq:0",
                            "amqp://mq:70000", "amqp://mq:x", "amqp://[::1", "amqp://mq/%2", "amqp://mq/%00"})
        EXPECT_THROW(readBrokerAddress(bad, options), BrokerOptionsError) << bad;
    const TemporaryFolder folder;
    options.passwordFile = folder / "password";
    EXPECT_THROW((void)readPassword(options), BrokerOptionsError);
    writeFile(options.passwordFile, "a word\r\nmore");
    chmod(options.passwordFile.c_str(), 0644);
    EXPECT_THROW((void)readPassword(options), BrokerOptionsError);
    chmod(options.passwordFile.c_str(), 0640);
    EXPECT_EQ(readPassword(options), "a word");
    writeFile(options.passwordFile, "\n");
    EXPECT_THROW((void)readPassword(options), BrokerOptionsError);
}

TEST(Settlements, NothingIsSettledBeforeAllThatWasSaidIsSafe) {
    using Kind = BrokerEvent::Kind;
    using Words = std::vector<std::string>;
    Settlements settlements;
    settlements.add(10, {1, 2});
    settlements.add(11, {3});
    settlements.add(12, {4, 5});
    settlements.add(13, {6});
    settlements.add(14, {7});
    EXPECT_EQ(safe(settlements.take({.kind = Kind::confirmed, .tag = 2})), Words{});
    EXPECT_EQ(safe(settlements.take({.kind = Kind::confirmed, .tag = 2})), Words{}) << "told twice";
    EXPECT_EQ(safe(settlements.take({.kind = Kind::confirmed, .tag = 4, .multiple = true})),
              (Words{"10 safe", "11 safe"}));
    EXPECT_EQ(safe(settlements.take({.kind = Kind::refused, .tag = 5})), Words{"12 not"});
    // What no queue took is confirmed too.
    EXPECT_EQ(safe(settlements.take({.kind = Kind::returned, .tag = 6})), Words{});
    EXPECT_EQ(safe(settlements.take({.kind = Kind::confirmed, .tag = 6})), Words{"13 not"});
    EXPECT_FALSE(settlements.isEmpty());
    EXPECT_EQ(safe(settlements.take({.kind = Kind::returned, .tag = 99})), Words{});
    EXPECT_EQ(safe(settlements.take({.kind = Kind::confirmed, .tag = 99, .multiple = true})),
              Words{"14 safe"});
    EXPECT_TRUE(settlements.isEmpty());
}

TEST(JobInputs, LooksAtAFileBeforeAnybodyWorksOnIt) {
    struct Work : SpoolWork {
        std::string path{};
        int64_t size = 0;
        WorkResult run(const SpoolObject& object) override {
            path = object.path;
            size = object.size;
            return {.kind = WorkResult::Kind::done};
        }
    } work;
    const TemporaryFolder folder;
    for (const char* name : {"archive", "archive2", "submitted"})
        fs::create_directory(folder / name);
    const std::string archive = folder / "archive/";
    writeFile(archive + "a", "four");
    writeFile(folder / "archive2/a", "x");
    writeFile(folder / "submitted/a", "x");
    fs::create_symlink("a", archive + "within");
    fs::create_symlink("../archive2/a", archive + "out");
    mkfifo((archive + "pipe").c_str(), 0600);
    JobInputs inputs(
        {.folders = {folder / "archive", folder / "submitted"}, .submitted = {folder / "submitted"}}, work);
    const auto run = [&](const std::string& path) { return inputs.run({.name = "n", .path = path}); };

    const WorkResult done = run(archive + "within");
    EXPECT_EQ(done.kind, WorkResult::Kind::done);
    EXPECT_EQ(work.path, fs::canonical(archive + "a"));
    EXPECT_EQ(work.size, 4);
    EXPECT_TRUE(done.version.ends_with("-4"));
    EXPECT_EQ(run(archive + "out").errorClass, ErrorClass::request);
    EXPECT_EQ(run(folder / "archive2/a").errorClass, ErrorClass::request);
    EXPECT_EQ(run(archive + "pipe").errorClass, ErrorClass::object);
    EXPECT_EQ(run(archive + "gone").errorClass, ErrorClass::file);

    // Only what was submitted by a spool is deleted, by the job that it was submitted for; when it is gone,
    // it was done.
    const std::string submitted = folder / ("submitted/" + run(folder / "submitted/a").version + "-n");
    fs::rename(folder / "submitted/a", submitted);
    inputs.finished(archive + "a", "a");
    inputs.finished(submitted, "other");
    EXPECT_TRUE(fs::exists(archive + "a") && fs::exists(submitted));
    inputs.finished(submitted, "n");
    EXPECT_FALSE(fs::exists(submitted));
    const WorkResult again = run(submitted);
    EXPECT_TRUE(again.kind == WorkResult::Kind::done && again.isRepeat);
    // Nothing was done because its folder is away.
    fs::rename(folder / "submitted", folder / "unmounted");
    fs::create_directory(folder / "submitted");
    EXPECT_EQ(run(submitted).errorClass, ErrorClass::file);
    EXPECT_THROW(JobInputs({.folders = {folder / "nowhere"}}, work), std::runtime_error);
}

// Both may find nothing there, and one then take the other's results for its own former ones.
TEST(ResultsFolder, LosesNothingOfNamesWithinEachOtherThatComeAtOnce) {
    const TemporaryFolder folder;
    ResultsFolder results(folder / "r", "mark", false);
    const auto put = [&](const std::string& key) {
        const std::string place = results.newPlace();
        writeFile(place + "/mark", key);
        try {
            results.publish(place, key);
            return true;
        } catch (const std::runtime_error&) {
            return false;  // to be tried again, or refused
        }
    };
    for (int i = 0; i < 300; ++i) {
        const std::string outer = std::to_string(i), inner = outer + "/x";
        auto other = std::async(std::launch::async, put, outer);
        const bool isInner = put(inner), isOuter = other.get();
        EXPECT_TRUE(!isInner || fs::exists(folder / ("r/" + inner + "/mark"))) << i;
        EXPECT_TRUE(!isOuter || fs::exists(folder / ("r/" + outer + "/mark"))) << i;
        EXPECT_FALSE(isInner && isOuter) << i;
    }
}

TEST(ResultsFolder, IsFilledBySeveralThatDoNotMeet) {
    const TemporaryFolder folder;
    const auto filled = [](ResultsFolder& results, const std::string& text) {
        std::string place = results.newPlace();
        writeFile(place + "/mark", text);
        return place;
    };
    std::string left;
    {
        ResultsFolder first(folder / "r", "mark", true), second(folder / "r", "mark", false);
        EXPECT_NE(fs::path(first.newPlace()).parent_path(), fs::path(second.newPlace()).parent_path());
        first.publish(filled(first, "1"), "a/b");
        second.publish(filled(second, "2"), "a/b");
        EXPECT_EQ(readFile(folder / "r/a/b/mark"), "2");
        // Results within results would go with them.
        const std::string place = filled(first, "3");
        EXPECT_THROW(first.publish(place, "a"), NameTaken);
        EXPECT_THROW(first.publish(place, "a/b/c"), NameTaken);
        EXPECT_EQ(readFile(folder / "r/a/b/mark"), "2");
        // Nor is anything thrown away that is no results; an empty folder is nothing.
        fs::create_directories(folder / "r/notes");
        fs::create_directories(folder / "r/empty");
        for (const char* name : {"r/notes/n", "r/file"})
            writeFile(folder / name, "precious");
        for (const std::string& name : {std::string("notes"), std::string("file"), std::string("file/x"),
                                        std::string("file/x/y"), "x/" + std::string(300, 'y')})
            EXPECT_THROW(first.publish(place, name), NameTaken) << name;
        EXPECT_EQ(readFile(folder / "r/notes/n") + readFile(folder / "r/file"), "preciousprecious");
        first.publish(place, "empty");
        EXPECT_EQ(readFile(folder / "r/empty/mark"), "3");
    }
    EXPECT_TRUE(fs::is_empty(folder / "r/.partial")) << "who ends leaves nothing";
    {
        ResultsFolder results(folder / "r", "mark", false);
        left = fs::path(results.newPlace()).parent_path();
    }
    // As a program leaves it that is killed.
    fs::create_directories(left + "/half");
    writeFile(left + "/lock", "");
    const ResultsFolder results(folder / "r", "mark", false);
    EXPECT_FALSE(fs::exists(left + "/half"));
    EXPECT_TRUE(fs::exists(left + "/lock"));
}
