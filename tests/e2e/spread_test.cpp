// One object that several servants convert: what comes of it is what one of them makes.
#include <map>

#include "hsutils/ClassedError.h"
#include "tests/shared/daemon_process.h"
#include "tests/shared/objectbytes.h"
#include "tests/shared/testobject.h"
#include "tools/phantom/phantomobject.h"

namespace {

namespace fs = std::filesystem;
using Files = std::map<std::string, std::string>;
using vintakd::ConversionPart;

class SpreadTest : public testing::Test {
protected:
    /// Converts with so many parts into a folder of its own: what was written, and what was said.
    struct Result {
        Files files;
        int status = 0;
        std::string errors;
        size_t requests = 0;
    };
    Result convert(const std::string& object, int parts, std::vector<std::string> options) {
        const std::string out = m_folder / "out/";
        fs::create_directory(out);
        const size_t before = m_daemon.countInLog("vintakd received");
        options.insert(options.begin(), {"convert", object, "-o", out, "--parts", std::to_string(parts)});
        const ProgramResult run = runProgram(VINTAK_BINARY, options, m_daemon.environment());
        Result result{filesIn(out), run.status, run.errors, m_daemon.countInLog("vintakd received") - before};
        fs::remove_all(out);
        return result;
    }
    static Files filesIn(const std::string& folder) {
        Files files;
        for (const auto& entry : fs::recursive_directory_iterator(folder))
            files[fs::relative(entry.path(), folder)] =
                entry.is_regular_file() ? readFile(entry.path()) : "/";
        return files;
    }

    /// Names of what differs.
    static std::string difference(const Files& some, const Files& others) {
        Files all = some;
        all.insert(others.begin(), others.end());
        std::string names;
        for (const auto& [name, bytes] : all)
            if (!some.count(name) || !others.count(name) || some.at(name) != others.at(name))
                names += name + " ";
        return names;
    }

    std::string save(const char* name, const ImageShape& shape, int overlayBit = 0) {
        TestObject object;
        object.describe(shape);
        Bytes bytes(shape.frameBytes() * static_cast<size_t>(shape.frames));
        for (size_t i = 0; i < bytes.size(); ++i)
            bytes[i] = shape.allocated == 16 && i % 2 == 1 ? static_cast<uint8_t>(i / 999 % 16)
                                                           : static_cast<uint8_t>(i * 7 + i / 31);
        object.pixels(bytes);
        if (overlayBit > 0)
            object.overlay(0x6000, shape.allocated, static_cast<Uint16>(overlayBit), shape.rows,
                           shape.columns);
        const std::string path = m_folder / name;
        fs::copy_file(object.save(EXS_LittleEndianExplicit), path);
        return path;
    }
    /// Run lengths, a fragment for each frame; `bad`: the frame that is none, from 1.
    std::string saveCompressed(const char* name, int frames, int bad, const std::string& surplus = "") {
        using namespace objectbytes;
        std::string items;
        for (int frame = 1; frame <= frames; ++frame) {
            std::string runs;
            for (int i = 0; i < 32; ++i)
                runs += std::string("\xFF", 1) + static_cast<char>(i * frame);
            items += item(frame == bad ? "ab" : four(1) + four(64) + std::string(56, '\0') + runs);
        }
        // Without UIDs a copy would get new ones each time.
        const std::string uids = element(8, 0x16, "UI", std::string("1.2.840.10008.5.1.4.1.1.7.2\0", 28)) +
                                 element(8, 0x18, "UI", std::string("1.2.3.4\0", 8));
        writeFile(m_folder / name, metaHeader(kRunLength) + uids + grey(8, 8, std::to_string(frames) + " ") +
                                       fragments(items + surplus));
        return m_folder / name;
    }
    std::string partError(const std::string& object, const ConversionPart& part) {
        try {
            std::vector<std::string> warnings;
            vintakd::vintakPart(m_daemon.gateway(), object.c_str(), (m_folder / "out/o").c_str(),
                                (m_folder / "out/o").c_str(), true, false, 0x23, 0, part, warnings);
            return {};
        } catch (const ClassedError& error) {
            return error.text();
        }
    }

    DaemonProcess m_daemon{{"--servers", "2"}};
    TemporaryFolder m_folder;
};

}  // namespace

TEST_F(SpreadTest, PartsMakeWhatOneServantMakes) {
    writePhantom(m_folder / "phantom.dcm", {7, 40});
    const struct {
        std::string path;
        bool inParts;
    } objects[] = {
        {m_folder / "phantom.dcm", true},
        {save("words.dcm", {.rows = 40, .columns = 60, .allocated = 16, .stored = 12, .frames = 5}), true},
        {save("turned.dcm", {.rows = 9, .columns = 300, .photometric = "MONOCHROME1", .frames = 3}), true},
        {save("colour.dcm",
              {.rows = 20, .columns = 20, .samples = 3, .photometric = "RGB", .frames = 4, .planar = 0}),
         true},
        {saveCompressed("runs.dcm", 6, 0), true},
        {saveCompressed("more.dcm", 6, 0, objectbytes::item("surplus ")), false},
        {saveCompressed("damaged.dcm", 6, 4), false},
        {saveCompressed("useless.dcm", 6, 1), false},
        {save("strange.dcm", {.rows = 8, .columns = 8, .photometric = "ODD", .frames = 4}), false},
        {save("overlay.dcm", {.rows = 16, .columns = 16, .allocated = 16, .stored = 12, .frames = 4}, 14),
         false},
        {save("single.dcm", {.rows = 16, .columns = 16}), false}};
    const std::vector<std::string> ways[] = {{},
                                             {"--packed"},
                                             {"--packed", "--mask", "23"},
                                             {"--no-cache", "--mask", "1"},
                                             {"--no-cache", "--packed"}};
    for (const auto& [path, inParts] : objects)
        for (const auto& way : ways) {
            const Result one = convert(path, 1, way);
            for (const int parts : {2, 3}) {
                const Result spread = convert(path, parts, way);
                EXPECT_EQ(difference(spread.files, one.files), "") << path;
                EXPECT_EQ(spread.status, one.status) << path;
                EXPECT_EQ(spread.errors, one.errors) << path;
                // A query, the parts, their end.
                if (inParts) {
                    EXPECT_EQ(spread.requests, static_cast<size_t>(parts) + 2) << path;
                }
            }
        }
}

TEST_F(SpreadTest, WhatFailsInOnePartLeavesNothingOfTheOthers) {
    const std::string object = save("o", {.rows = 16, .columns = 16, .frames = 6});
    for (const bool packed : {false, true}) {
        fs::create_directories(m_folder / (packed ? "out/o.parts/2.heads" : "out/o_5.raw"));
        std::vector<std::string> options = {"--mask", "3"};
        if (packed) options.emplace_back("--packed");
        Result result = convert(object, 3, options);
        EXPECT_EQ(result.status, 4);
        EXPECT_TRUE(contains(result.errors, packed ? "o.parts/2.heads cannot be written (Is a directory)"
                                                   : "Cannot create file: "));
        EXPECT_EQ(result.files,
                  packed ? (Files{{"o.parts", "/"}, {"o.parts/2.heads", "/"}}) : (Files{{"o_5.raw", "/"}}));
    }
}

// What a killed tool left there, or whoever means harm.
TEST_F(SpreadTest, PartsThatDoNotFitAreNotPutTogether) {
    const std::string object = save("o", {.rows = 16, .columns = 16, .frames = 6});
    const ConversionPart first{1, 2, 1, 3}, second{2, 2, 4, 6}, join{ConversionPart::kJoin, 2, 1, 6},
        undo{ConversionPart::kUndo, 1, 1, 6};
    fs::create_directory(m_folder / "out");
    const auto joinWith = [&](const std::function<void()>& damage) {
        EXPECT_EQ(partError(object, first) + partError(object, second), "");
        damage();
        std::string error = partError(object, join);
        EXPECT_FALSE(fs::exists(m_folder / "out/o.index"));
        EXPECT_FALSE(fs::exists(m_folder / "out/o.pdcm"));
        EXPECT_EQ(partError(object, undo), "");
        EXPECT_EQ(filesIn(m_folder / "out"), Files());
        return error;
    };
    const std::string parts = m_folder / "out/o.parts/";
    const std::string facts = parts + "2.facts";
    const auto cut = [](const std::string& path) { fs::resize_file(path, fs::file_size(path) - 1); };
    EXPECT_TRUE(contains(joinWith([&] { fs::remove(facts); }), facts + " cannot be read"));
    EXPECT_TRUE(contains(joinWith([&] { cut(facts); }), "the record of a part is not whole"));
    EXPECT_TRUE(contains(joinWith([&] { writeFile(facts, readFile(parts + "1.facts")); }),
                         "part 2 does not follow the one before it"));
    const auto raws = [&] {
        const Files files = filesIn(parts);
        return parts + files.lower_bound("raws2.")->first;
    };
    EXPECT_TRUE(contains(joinWith([&] { cut(raws()); }), " bytes, a part of it ends at "));
    EXPECT_TRUE(contains(joinWith([&] { fs::remove(raws()); }), " is not what the raw pixels of "));
    EXPECT_TRUE(contains(joinWith([&] { cut(parts + "2.small"); }), "2.small has "));
    EXPECT_TRUE(contains(joinWith([&] { fs::remove(parts + "1.index"); }), "1.index cannot be opened"));
    for (size_t at : {0, 4, 8, 20, 200, 400}) {
        const auto flip = [&] {
            std::string bytes = readFile(facts);
            bytes[at] ^= 0x40;
            writeFile(facts, bytes);
        };
        EXPECT_TRUE(contains(joinWith(flip), facts + ": the record of a part ")) << at;
    }
    EXPECT_TRUE(contains(partError(object, {1, 1, 1, 7}), "the object has no frame 7"));

    for (const ConversionPart& part : {ConversionPart{1, 0, 1, 3},
                                       {3, 2, 1, 3},
                                       {1, 65, 1, 3},
                                       {1, 2, 0, 3},
                                       {1, 2, 3, 1},
                                       {1, 2, 1, 1u << 31}}) {
        // Without parts it is what a daemon sees that does not know them: too large a frame.
        EXPECT_TRUE(contains(partError(object, part), "for no part of a conversion"));
    }
    TestRequest older{.input = object, .output = m_folder / "out/o"};
    older.specificFrame = ConversionPart::kNoFrame;
    EXPECT_TRUE(contains(older.error(m_daemon.gateway()), "Invalid specific frame number 2147483647"));
    older.writeMask = 0x23;
    EXPECT_EQ(older.error(m_daemon.gateway()), "A single frame is not packed");
}
