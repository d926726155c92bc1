// Which files a conversion writes, under which names, and what it says when one cannot be written.
#include <cstring>
#include <set>

#include "tests/vintakd/viewer/conversion.h"
#include "vintakd/viewer/vintakrawimage.h"

namespace {

class ImageFilesTest : public ConversionTest {
protected:
    /// Three frames of 3 x 2 pixels, 16 bits allocated, 12 stored; values 100 ... 109, 200 ... 209, 300 ...
    /// 309.
    DcmDataset& threeFrames(const char* photometric = "MONOCHROME2") {
        ImageShape shape{2, 3, 16, 12, 11, 0, 1, photometric, 3};
        m_object.describe(shape);
        m_object.text(DCM_NumberOfFrames, "3");
        m_object.text(DCM_WindowCenter, "40.5");
        m_object.text(DCM_WindowWidth, "400");
        m_object.text(DCM_RescaleIntercept, "-1000");
        m_object.text(DCM_RescaleSlope, "0.5");
        Words words;
        for (const uint16_t base : {100, 200, 300})
            for (const uint16_t step : {0, 9, 3, 4, 5, 6})
                words.push_back(static_cast<uint16_t>(base + step));
        m_object.pixels(words);
        return m_object.reload();
    }
    static std::set<std::string> names(const Outcome& outcome) {
        std::set<std::string> result;
        for (const auto& [name, content] : outcome.files)
            result.insert(name);
        return result;
    }
    void clear() {
        for (const char* folder : {"o", "c"}) {
            std::filesystem::remove_all(m_folder / folder);
            std::filesystem::create_directories(m_folder / folder);
        }
    }

    TestObject m_object;
};

TEST_F(ImageFilesTest, TheMaskChoosesTheFiles) {
    using Names = std::set<std::string>;
    const struct {
        Options options;
        Names expected;
    } cases[] = {
        {{0x00}, {"o/x.desc", "c/x_@.raw", "c/x_@.128x128t.raw", "o/x_@.128x128t.cw1"}},
        {{0x03},
         {"o/x.desc", "c/x_@.raw", "c/x_@.f.qi4", "c/x_@.t.qi4", "o/x_@.p.qi4", "c/x_@.128x128t.raw",
          "o/x_@.128x128t.cw1"}},
        {{0x17}, {"o/x.desc", "c/x_@.f.qi4", "c/x_@.t.qi4", "o/x_@.p.qi4"}},
        {{0x04}, {"o/x.desc", "c/x_@.raw"}},
        {{0x10}, {"o/x.desc", "o/x_@.128x128t.cw1"}},
        {{0xFFFFFFE8}, {"o/x.desc", "c/x_@.raw", "c/x_@.128x128t.raw", "o/x_@.128x128t.cw1"}},
        {{.mask = 0x13, .noCached = true}, {"o/x.desc", "o/x_@.p.qi4", "o/x_@.128x128t.cw1"}},
        {{.mask = 0x06, .noCached = true}, {"o/x.desc"}},
        {{.mask = 0x00, .noCached = true}, {"o/x.desc", "o/x_@.128x128t.cw1"}},
    };
    for (const auto& [options, expected] : cases) {
        SCOPED_TRACE(options.mask);
        clear();
        DcmDataset& dataset = threeFrames();
        const Outcome outcome = convert(dataset, options);
        EXPECT_EQ(outcome.result, 0) << outcome.cause;
        EXPECT_EQ(outcome.framesWritten, 3);
        Names all;
        for (const std::string& name : expected) {
            const size_t at = name.find('@');
            if (at == std::string::npos) all.insert(name);
            for (const char* frame : {"1", "2", "3"})
                if (at != std::string::npos) all.insert(std::string(name).replace(at, 1, frame));
        }
        EXPECT_EQ(names(outcome), all);
    }
}

TEST_F(ImageFilesTest, PixelsAndDescriptorAreExact) {
    Outcome outcome = convert(threeFrames(), {0x14 & 0x04});
    // 9 needs 4 bits; -1000 + 200 * 0.5; a space before the texts that are empty.
    EXPECT_EQ(outcome.files.at("o/x.desc"),
              "1 3 2 mono 8 4 -950 0.5 400 40.5 0 0    \n"
              "2 3 2 mono 8 4 -900 0.5 400 40.5 0 0    \n"
              "3 3 2 mono 8 4 -850 0.5 400 40.5 0 0    \n");
    for (const char* name : {"c/x_1.raw", "c/x_2.raw", "c/x_3.raw"})
        EXPECT_EQ(outcome.files.at(name), std::string("\0\x9\x3\x4\x5\x6", 6)) << name;

    clear();
    outcome = convert(threeFrames(), {.mask = 0x04, .needOptimize = false});
    EXPECT_EQ(outcome.field(2, 5), "8") << "described as bytes although they were not packed";
    EXPECT_EQ(outcome.files.at("c/x_2.raw"), std::string("\0\0\x9\0\x3\0\x4\0\x5\0\x6\0", 12));

    clear();
    outcome = convert(threeFrames("MONOCHROME1"), {0x15});
    EXPECT_EQ(outcome.line(1), "1 3 2 mono 8 4 -945.5 -0.5 -400 40.5 0 0    ");
    const std::string& preview = outcome.files.at("o/x_1.p.qi4");
    float values[4];
    std::memcpy(values, preview.data() + 8, 16);
    EXPECT_EQ(preview.substr(0, 8), std::string("QXID\x01\0\x18\0", 8));
    EXPECT_EQ(values[0], -945.5F);
    EXPECT_EQ(values[1], -0.5F);
    EXPECT_EQ(values[2], -400.0F);
    EXPECT_EQ(values[3], 40.5F);
}

TEST_F(ImageFilesTest, ASpecificFrameIsAloneAndUndescribed) {
    const Outcome outcome = convert(threeFrames(), {.mask = 0x04, .specificFrame = 2});
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(names(outcome), std::set<std::string>{"c/x_2.raw"});
    clear();
    const Outcome beyond = convert(threeFrames(), {.mask = 0x04, .specificFrame = 4});
    EXPECT_EQ(beyond.result, 1);
    EXPECT_TRUE(beyond.files.empty());
    EXPECT_FALSE(beyond.cause.empty());
}

TEST_F(ImageFilesTest, OnlyADumpWritesNothing) {
    EXPECT_EQ(convert(threeFrames(), {.dumpOnly = true}).result, 0);
    EXPECT_TRUE(convert(threeFrames(), {.dumpOnly = true}).files.empty());
}

TEST_F(ImageFilesTest, AFileThatCannotBeCreatedFailsTheFrameButNotTheOthers) {
    const struct {
        const char* blocked;  ///< a folder stands in the way of this file
        uint32_t mask;
        int framesWritten;
    } cases[] = {{"c/x_2.raw", 0x00, 2},   {"c/x_2.f.qi4", 0x03, 2},        {"c/x_2.t.qi4", 0x03, 2},
                 {"o/x_2.p.qi4", 0x01, 2}, {"c/x_2.128x128t.raw", 0x00, 2}, {"o/x_2.128x128t.cw1", 0x00, 2}};
    for (const auto& [blocked, mask, framesWritten] : cases) {
        SCOPED_TRACE(blocked);
        clear();
        std::filesystem::create_directories(m_folder / blocked);
        const Outcome outcome = convert(threeFrames(), {mask});
        EXPECT_EQ(outcome.result, 1);
        EXPECT_EQ(outcome.framesWritten, framesWritten);
        EXPECT_EQ(outcome.cause, "Cannot create file: " + (m_folder / blocked) + " (Is a directory)");
        EXPECT_TRUE(outcome.files.contains("c/x_3.raw"));
        EXPECT_EQ(outcome.line(3).substr(0, 2), "3 ") << "the descriptor names all frames";
    }
    clear();
    std::filesystem::remove(m_folder / "o");
    const Outcome outcome = convert(threeFrames());
    EXPECT_EQ(outcome.result, 1);
    EXPECT_EQ(outcome.cause,
              "Cannot create file: " + (m_folder / "o/x.desc") + " (No such file or directory)");
    EXPECT_TRUE(outcome.files.empty());
}

TEST_F(ImageFilesTest, AFrameIsNamedAsItsFilesAre) {
    testing::internal::CaptureStderr();
    const Outcome outcome = convert(threeFrames(), {.specificFrame = 2}, [](CVintakRawImage& image) {
        CVintakRawImage empty(image.viewerProcess(), image.context(), image.kind());
        const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::tmpfile(), std::fclose);
        EXPECT_FALSE(empty.createAndWriteThumbnail(nullptr, file.get()));
        EXPECT_FALSE(empty.createAndWriteCompressedStreamElements(file.get(), nullptr, nullptr));
    });
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_TRUE(contains(log, "o/x_2.*.qi4: there are no pixels"));
    EXPECT_EQ(outcome.cause, "The thumbnail of frame 2 cannot be rendered: there are no pixels");
}

}  // namespace
