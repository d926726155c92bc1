#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <random>

#include "pack/PackError.h"
#include "pack/PackIndex.h"
#include "pack/PackWriter.h"
#include "pack/crc32c.h"
#include "pack/packseries.h"
#include "pack/unpack.h"
#include "tests/shared/testing.h"
#include "tools/picture/commands.h"

namespace {

namespace fs = std::filesystem;
using Files = std::map<std::string, std::string>;

Files filesIn(const std::string& folder) {
    Files files;
    for (const auto& entry : fs::recursive_directory_iterator(folder))
        if (entry.is_regular_file())
            files[fs::relative(entry.path(), folder).string()] = readFile(entry.path().string());
    return files;
}

std::string line(int number, double z, const char* layout = "mono", const char* rest = "") {
    return std::to_string(number) + " 4 2 " + layout + " 8 8 -1024 1.5 400 40.5 0.5 0.25 1.2.3 0\\0\\" +
           std::to_string(z) + " 1\\0\\0\\0\\1\\0 L\\P" + rest + "\n";
}

class PackTest : public testing::Test {
protected:
    PackTest() {
        // Three objects whose names do not tell their order; frames in colour and grey, of one and of two
        // bytes.
        writeObject("in/c", {line(1, 10)},
                    {".p.qi4", ".t.qi4", ".f.qi4", ".raw", ".128x128t.cw1", ".128x128t.raw"});
        writeObject("in/deep/a", {line(1, -5, "bypixel"), line(2, -4), line(7, -3, "mono", " blanks here")},
                    {".t.qi4", ".f.qi4", ".raw"});
        writeObject("in/b", {line(1, 2)}, {".p.qi4"});
        writeFile(path("in/b_1.f.qi4"), "");  // the rest of a short stream
        writeFile(path("in/b.pdcm"), "copy");
        writeFile(path("in/b.pdf"), "");
    }

    std::string path(const std::string& name) const { return m_folder / name; }
    void writeObject(const std::string& prefix, const std::vector<std::string>& lines,
                     const std::vector<const char*>& suffixes) {
        fs::create_directories(fs::path(path(prefix)).parent_path());
        std::string descriptor;
        for (const std::string& line : lines) {
            descriptor += line;
            const std::string number = line.substr(0, line.find(' '));
            for (const char* suffix : suffixes) {
                std::string bytes;
                for (size_t i = 0, count = m_random() % 5000; i < count; ++i)
                    bytes += static_cast<char>(m_random());
                writeFile(path(prefix + "_" + number + suffix), bytes);
            }
        }
        writeFile(path(prefix + ".desc"), descriptor);
    }
    pack::PackedSeries packAll(bool byGeometry = true) const {
        return pack::packSeries(path("s"), {path("in/c.desc"), path("in/deep/a.desc"), path("in/b.desc")},
                                byGeometry);
    }
    /// What is wrong with the pack, by the way of all readers that take it as a whole; empty when nothing is.
    std::string problem() const {
        std::string told;
        try {
            pack::PackIndex(path("s.index")).walk({});
        } catch (const pack::PackError& error) {
            told = error.what();
        }
        try {
            pack::unpack(path("s.index"), path("again/"));
            EXPECT_EQ(told, "");
        } catch (const pack::PackError& error) {
            EXPECT_NE(told, "") << error.what();
        }
        return told;
    }
    /// Changes bytes of the index and mends the sums of all records, as somebody would who means it.
    void change(const std::function<void(std::string&)>& action) const {
        std::string index = readFile(path("s.index"));
        action(index);
        const auto seal = [&](size_t from, size_t sum) {
            if (from + sum + 4 > index.size()) return;
            const uint32_t value = pack::crc32c({reinterpret_cast<const uint8_t*>(index.data()) + from, sum});
            std::memcpy(index.data() + from + sum, &value, sizeof value);
        };
        seal(0, 124);
        for (size_t i = 0; i < kFrames; ++i)
            seal(128 + 184 * i, 176);
        for (size_t i = 0; i < 3; ++i)
            seal(128 + 184 * kFrames + 104 * i, 96);
        writeFile(path("s.index"), index);
    }

    static constexpr size_t kFrames = 5;
    TemporaryFolder m_folder;
    std::mt19937 m_random{7};
};

template <typename T>
void put(std::string& bytes, size_t at, T value) {
    std::memcpy(bytes.data() + at, &value, sizeof value);
}

}  // namespace

TEST_F(PackTest, SumsAreThoseOfEverybody) {
    const std::string digits = "123456789";  // the check value of the CRC's catalogue
    const std::span bytes(reinterpret_cast<const uint8_t*>(digits.data()), digits.size());
    EXPECT_EQ(pack::crc32c(bytes), 0xE3069283);
    EXPECT_EQ(pack::crc32c(bytes.subspan(4), pack::crc32c(bytes.first(4))), 0xE3069283);

    // Long runs are summed in another way than short ones.
    std::vector<uint8_t> many(30'000);
    for (uint8_t& byte : many)
        byte = static_cast<uint8_t>(m_random());
    for (size_t size : {6143, 6144, 6145, 12'288, 20'001, 30'000}) {
        const auto all = std::span<const uint8_t>(many).first(size);
        uint32_t sum = 0;
        for (size_t at = 0; at < size; at += 1000)
            sum = pack::crc32c(all.subspan(at, std::min<size_t>(1000, size - at)), sum);
        EXPECT_EQ(pack::crc32c(all), sum) << size;
        EXPECT_EQ(pack::crc32c(all.subspan(3), pack::crc32c(all.first(3))), sum) << size;
    }
}

TEST_F(PackTest, ComesBackByteForByteInTheOrderOfThePlanes) {
    const Files before = filesIn(path("in"));
    const pack::PackedSeries packed = packAll();
    EXPECT_EQ(packed.frames, kFrames);
    EXPECT_EQ(packed.order, pack::Order::byGeometry);
    const pack::PackIndex index(path("s.index"));
    std::string order;
    for (uint64_t i = 0; i < 3; ++i)
        order += index.text(index.object(i).name) + " ";
    EXPECT_EQ(order, "deep/a b c ");
    const pack::FrameRecord frame = index.frame(2);
    EXPECT_EQ(frame.number, 7u);
    EXPECT_EQ(frame.meaning, (std::array<double, 6>{-1024, 1.5, 400, 40.5, 0.5, 0.25}));
    EXPECT_EQ(problem(), "");
    EXPECT_EQ(filesIn(path("again")), before);
    EXPECT_EQ(filesIn(m_folder.path()).count("s.index.part.texts"), 0u);

    // A pack of packs, and of separate files beside them, holds the same.
    fs::create_directory(path("one"));
    pack::packSeries(path("one/a"), {path("in/deep/a.desc")}, true);
    pack::packSeries(path("t"), {path("one/a.index"), path("in/b.desc"), path("in/c.desc")}, true);
    for (const char* suffix : {".small", ".heads", ".rests", ".raws", ".objects"})
        EXPECT_EQ(readFile(path(std::string("t") + suffix)), readFile(path(std::string("s") + suffix)))
            << suffix;
    // What is stopped leaves whole files, and a descriptor of whole objects alone.
    int asked = 0;
    EXPECT_THROW(pack::unpack(path("s.index"), path("half/"), [&] { return ++asked == 14; }),
                 pack::PackError);
    for (const auto& [name, bytes] : filesIn(path("half")))
        EXPECT_EQ(bytes, readFile(path("in/" + name))) << name;
    EXPECT_TRUE(fs::exists(path("half/deep/a.desc")) && !fs::exists(path("half/c.desc")));
    packAll(false);
    EXPECT_EQ(pack::PackIndex(path("s.index")).frame(0).line.length, line(1, 10).size());
}

// Names do not depend on how the same files are named.
TEST_F(PackTest, ObjectsAreCalledAfterWhereTheyLie) {
    packAll();
    const Files whole = filesIn(m_folder.path());
    const std::string relative = fs::relative(path("in")).string();
    pack::packSeries(path("s"),
                     {relative + "/./c.desc", path("in//deep/../deep/a.desc"), "./" + relative + "/b.desc"},
                     true);
    EXPECT_TRUE(filesIn(m_folder.path()) == whole);
    EXPECT_THROW(pack::packSeries(path("s"), {path("in/b.desc"), relative + "/b.desc"}, true),
                 pack::PackError);
}

TEST_F(PackTest, WhatCannotBePackedLeavesNothing) {
    packAll();
    writeFile(path("in/c.desc"), line(1, 10) + "2 4 2 mono");
    EXPECT_THROW(packAll(), pack::PackError);
    writeFile(path("in/c.desc"), line(1, 10) + line(2, 11));
    EXPECT_THROW(packAll(), pack::PackError);
    writeFile(path("in/c.desc"), "1 0 0 mono\n");
    EXPECT_THROW(packAll(), pack::PackError);
    int asked = 0;
    EXPECT_THROW(pack::packSeries(path("s"), {path("in/deep/a.desc")}, true, pack::Durability::ofProcess,
                                  [&] { return ++asked == 3; }),
                 pack::PackError);
    for (const auto& [name, bytes] : filesIn(m_folder.path()))
        EXPECT_FALSE(name.starts_with("s.")) << name;
    ASSERT_EQ(mkfifo(path("s.raws").c_str(), 0600), 0);  // has room for some, and then for none
    EXPECT_THROW(packAll(), pack::PackError);
    EXPECT_TRUE(fs::is_fifo(path("s.raws")));
    EXPECT_THROW(pack::packSeries(path("in/b"), {path("in/b.desc")}, true), pack::PackError);
    EXPECT_EQ(readFile(path("in/b.pdcm")), "copy");
}

TEST_F(PackTest, AnIndexThatLiesIsRefusedWithTheCause) {
    packAll();
    const Files whole = filesIn(m_folder.path());
    const size_t frame = 128 + 184, object = 128 + 184 * kFrames, texts = object + 3 * 104;
    const uint64_t huge = ~uint64_t{0} - 8;
    const struct {
        const char* cause;
        std::function<void(std::string&)> damage;
    } cases[] = {
        {"no index of a pack", [](std::string& index) { index[0] = 'X'; }},
        {"ends within its head", [](std::string& index) { index.resize(100); }},
        {"no index of a pack", [](std::string& index) { index.clear(); }},
        {"version 2", [](std::string& index) { index[4] = 2; }},
        {"do not fit", [](std::string& index) { index.pop_back(); }},
        {"do not fit", [](std::string& index) { index += 'x'; }},
        {"do not fit", [&](std::string& index) { put(index, 8, huge); }},
        {"do not fit", [&](std::string& index) { put(index, 8, uint64_t{UINT32_MAX}); }},
        {"do not fit", [&](std::string& index) { put(index, 16, huge); }},
        {"do not fit", [&](std::string& index) { put(index, 32, huge); }},
        {"another size", [](std::string& index) { put(index, 24, 0u); }},
        {"unknown order", [](std::string& index) { put(index, 80, 9u); }},
        {"makes no sense", [&](std::string& index) { put(index, frame, 3u); }},
        {"makes no sense", [&](std::string& index) { put(index, frame + 4, 0u); }},
        {"differ", [&](std::string& index) { put(index, frame + 4, 3u); }},
        {"differ", [&](std::string& index) { put(index, frame + 16, 1e300); }},
        {"past the end of the texts", [&](std::string& index) { put(index, frame + 64, huge); }},
        {"past the end of the texts", [&](std::string& index) { put(index, frame + 72, UINT32_MAX); }},
        {"past the end of a file", [&](std::string& index) { put(index, frame + 80 + 2 * 16, huge); }},
        {"past the end of a file",
         [&](std::string& index) { put(index, frame + 80 + 2 * 16 + 8, UINT32_MAX); }},
        {"past the end of a file",
         [&](std::string& index) { put(index, frame + 80 + 2 * 16, uint64_t{1} << 62); }},
        {"the one before it ends at",
         [&](std::string& index) { put(index, frame + 80 + 2 * 16, uint64_t{0}); }},
        {"unknown kind", [&](std::string& index) { index[frame + 15] = '\xFF'; }},
        {"past the last frame", [&](std::string& index) { put(index, object, huge); }},
        {"past the last frame", [&](std::string& index) { put(index, object + 8, 6u); }},
        {"do not follow", [&](std::string& index) { put(index, object, uint64_t{1}); }},
        {"past the end of the texts", [&](std::string& index) { put(index, object + 24, UINT32_MAX); }},
        {"sum of a text", [&](std::string& index) { index[texts] ^= 1; }},
        {"belong to nothing",
         [&](std::string& index) {
             index[frame + 15] &= ~4;
             put(index, frame + 112, uint64_t{0});
             put(index, frame + 120, uint64_t{0});
         }},
    };
    for (size_t i = 0; i < std::size(cases); ++i) {
        writeFile(path("s.index"), whole.at("s.index"));
        change(cases[i].damage);
        const std::string told = problem();
        // A part that goes missing moves the next one: either is a cause.
        const bool said = told.find(cases[i].cause) != std::string::npos ||
                          (i + 1 == std::size(cases) && told.find("ends at") != std::string::npos);
        EXPECT_TRUE(said) << cases[i].cause << " in \"" << told << '"';
        EXPECT_TRUE(contains(told, path("s.index")));
    }
    // Without mended sums nothing else is asked.
    writeFile(path("s.index"), whole.at("s.index"));
    std::string index = whole.at("s.index");
    index[frame + 17] ^= 1;
    writeFile(path("s.index"), index);
    EXPECT_TRUE(contains(problem(), "checksum of a frame's record is wrong"));
}

TEST_F(PackTest, NamesLeadNowhereElse) {
    for (const char* name : {"..", "a/../b", "/a", "a//b", "a/", ".", "", "a\nb"})
        EXPECT_FALSE(pack::isSafeName(name)) << name;
    for (const char* name : {"a", "a/b", "..a", "a b"})
        EXPECT_TRUE(pack::isSafeName(name)) << name;
    packAll();
    change([&](std::string& index) {
        const size_t record = 128 + 184 * kFrames, texts = record + 3 * 104,
                     name = index.find("deep/a", texts);
        index.replace(name, 6, "../../");
        put(index, record + 28, pack::crc32c({reinterpret_cast<const uint8_t*>(index.data()) + name, 6}));
    });
    EXPECT_TRUE(contains(problem(), "a name that is none"));
}

// A killed tool's servant still writes when the next run begins: neither may take the other's files for its
// own.
TEST_F(PackTest, TheLaterOfTwoWritersIsTheOne) {
    packAll();
    const Files whole = filesIn(m_folder.path());
    const auto bytes = [](const std::string& text) {
        return std::span(reinterpret_cast<const uint8_t*>(text.data()), text.size());
    };
    for (const bool laterIsDone : {false, true}) {
        auto early = std::make_unique<pack::PackWriter>(path("s"), pack::Order::asGiven);
        early->beginObject("o");
        early->beginFrame(line(1, 0));
        early->add(pack::Element::head, bytes("early"));
        auto later = std::make_unique<pack::PackWriter>(path("s"), pack::Order::asGiven);
        if (laterIsDone) {
            later.reset();
            packAll();
        }
        EXPECT_THROW(early->add(pack::Element::raw, bytes("early")), pack::PackError);
        EXPECT_THROW(early->finish(), pack::PackError);
        early.reset();
        if (later) {
            EXPECT_FALSE(fs::exists(path("s.index")));
            later->finish();
            later.reset();
            EXPECT_NO_THROW(pack::PackIndex(path("s.index")).walk({}));
            packAll();
        }
        EXPECT_TRUE(filesIn(m_folder.path()) == whole);
    }
}

// By SIGKILL or by a full disk (a limit on the size of files stands for it), at any moment.
TEST_F(PackTest, InterruptedItLeavesNoIndexOverWhatIsNotWhole) {
    packAll();
    const Files whole = filesIn(m_folder.path());
    uint64_t largest = 0;
    for (const auto& [name, bytes] : whole)
        if (name.starts_with("s.")) largest = std::max<uint64_t>(largest, bytes.size());
    for (int i = 0; i < 100; ++i) {
        const bool full = i % 3 == 0;
        const pid_t child = fork();
        if (child == 0) {
            const rlimit limit{m_random() % largest, RLIM_INFINITY};
            signal(SIGXFSZ, SIG_IGN);
            if (full) setrlimit(RLIMIT_FSIZE, &limit);
            try {
                for (;;) {
                    packAll();
                    if (full) _exit(0);
                }
            } catch (const pack::PackError&) {
                _exit(1);
            }
        }
        if (!full) {
            usleep(m_random() % 3000);
            kill(child, SIGKILL);
        }
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        if (fs::exists(path("s.index"))) {
            EXPECT_NO_THROW(pack::PackIndex(path("s.index")).walk({}));
        }
        if (full) {
            ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 1);
            const Files left = filesIn(m_folder.path());
            EXPECT_TRUE(std::none_of(left.begin(), left.end(),
                                     [](const auto& file) { return file.first.starts_with("s."); }));
        }
        packAll();
        EXPECT_EQ(filesIn(m_folder.path()) == whole, true) << "round " << i;
    }
}

// Whatever becomes of a pack's bytes: a cause or the right bytes, within the memory of a small process, and
// nothing outside the folder that was named.
TEST_F(PackTest, DamagedPacksCostNothing) {
    packAll();
    const Files whole = filesIn(m_folder.path());
    const auto restore = [&] {
        for (const auto& [name, bytes] : whole)
            if (name.starts_with("s.")) writeFile(path(name), bytes);
    };
    const char* targets[] = {"s.index", "s.index", "s.small", "s.heads", "s.rests", "s.raws", "s.objects"};
    int refused = 0;
    testing::internal::CaptureStderr();
    testing::internal::CaptureStdout();
    for (int i = 0; i < 1000; ++i) {
        const std::string target = path(targets[m_random() % std::size(targets)]);
        std::string bytes = readFile(target);
        if (i % 10 == 0)
            bytes.resize(m_random() % bytes.size());
        else
            for (uint32_t n = m_random() % 4 + 1; n > 0; --n)
                bytes[m_random() % bytes.size()] ^= static_cast<char>(m_random() % 255 + 1);
        writeFile(target, bytes);
        if (i % 2 == 0 && target.ends_with(".index")) change([](std::string&) {});
        (void)runShow({path("s.index#3"), path("s.index#1.raw")});
        (void)runInfo({path("s.index#2"), path("s.index#3.t.qi4")});
        refused += !problem().empty();
        restore();
    }
    testing::internal::GetCapturedStderr();
    testing::internal::GetCapturedStdout();
    EXPECT_GT(refused, 990);
    fs::remove_all(path("again"));
    EXPECT_EQ(filesIn(m_folder.path()), whole);
    rusage usage{};
    ASSERT_EQ(getrusage(RUSAGE_SELF, &usage), 0);
    EXPECT_LT(usage.ru_maxrss, 512 * 1024);  // kB; a sanitizer's shadow included
}
