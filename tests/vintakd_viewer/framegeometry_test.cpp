// Geometry and values of frames: from classic and enhanced objects to the descriptor.
#include <dcmtk/dcmdata/dcdeftag.h>

#include "conversion.h"

namespace {

constexpr int fieldSpacing0 = 11, fieldSpacing1 = 12, fieldReference = 13, fieldPosition = 14,
              fieldOrientation = 15, fieldPatientOrientation = 16;

class FrameGeometryTest : public ConversionTest {
protected:
    /// An object of 2 x 1 pixels a frame, values 0 and 255.
    void describe(int frames) {
        ImageShape shape;
        shape.columns = 2;
        shape.frames = frames;
        m_object.describe(shape);
        if (frames != 1) m_object.text(DCM_NumberOfFrames, std::to_string(frames).c_str());
        std::vector<std::uint8_t> bytes;
        for (int i = 0; i < frames; ++i)
            bytes.insert(bytes.end(), {0, 255});
        m_object.pixels(bytes);
    }
    DcmItem& functionalGroup(const DcmTagKey& groups, const DcmTagKey& macro, long item = 0) {
        DcmItem* group = nullptr;
        DcmItem* member = nullptr;
        m_object.dataset().findOrCreateSequenceItem(groups, group, item);
        group->findOrCreateSequenceItem(macro, member, 0);
        return *member;
    }
    Outcome convertReloaded(const Options& options = {0x14}) { return convert(m_object.reload(), options); }

    TestObject m_object;
};

TEST_F(FrameGeometryTest, ClassicMultiFrameDerivesPositions) {
    describe(3);
    m_object.text(DCM_ImagePositionPatient, "0\\0\\0");
    m_object.text(DCM_ImageOrientationPatient, "1\\0\\0\\0\\1\\0");
    m_object.text(DCM_SpacingBetweenSlices, "2.5");
    m_object.text(DCM_FrameOfReferenceUID, "1.2.3");
    m_object.text(DCM_PatientOrientation, "L\\P");
    const Outcome outcome = convertReloaded();
    ASSERT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.field(3, fieldPosition), "0\\0\\5");
    EXPECT_EQ(outcome.field(1, fieldPosition), "0\\0\\0");
    EXPECT_EQ(outcome.field(2, fieldReference), "1.2.3");
    EXPECT_EQ(outcome.field(2, fieldOrientation), "1\\0\\0\\0\\1\\0");
    EXPECT_EQ(outcome.field(2, fieldPatientOrientation), "L\\P");
}

TEST_F(FrameGeometryTest, DerivedPositionsAreRewrittenAlsoOfTheFirstFrame) {
    describe(2);
    m_object.text(DCM_ImagePositionPatient, "1.50\\-2.0\\3e1");
    m_object.text(DCM_ImageOrientationPatient, "0\\1\\0\\0\\0\\-1");  // normal (-1, 0, 0)
    m_object.text(DCM_SpacingBetweenSlices, "0.25");
    const Outcome outcome = convertReloaded();
    EXPECT_EQ(outcome.field(1, fieldPosition), "1.5\\-2\\30");
    EXPECT_EQ(outcome.field(2, fieldPosition), "1.25\\-2\\30");
}

TEST_F(FrameGeometryTest, WithoutSliceSpacingTheTextStays) {
    for (const char* spacing : {"0", ""}) {
        describe(2);
        m_object.text(DCM_ImagePositionPatient, "1.50\\-2.0\\3e1");
        m_object.text(DCM_SpacingBetweenSlices, spacing);
        const Outcome outcome = convertReloaded();
        EXPECT_EQ(outcome.field(1, fieldPosition), "1.50\\-2.0\\3e1");
        EXPECT_EQ(outcome.field(2, fieldPosition), "1.50\\-2.0\\3e1");
    }
}

TEST_F(FrameGeometryTest, ASingleFrameKeepsItsOwnPositionOrStartsAtTheOrigin) {
    describe(1);
    m_object.text(DCM_ImagePositionPatient, "1.50\\-2.0\\3e1");
    m_object.text(DCM_SpacingBetweenSlices, "2");
    EXPECT_EQ(convertReloaded().field(1, fieldPosition), "1.50\\-2.0\\3e1");

    TestObject bare;
    bare.describe({.columns = 2});
    bare.text(DCM_SpacingBetweenSlices, "2");
    bare.pixels(std::vector<std::uint8_t>{0, 255});
    EXPECT_EQ(convert(bare.reload(), {0x14}).field(1, fieldPosition), "0\\0\\0");
}

TEST_F(FrameGeometryTest, OddOrientations) {
    const std::pair<const char*, const char*> cases[] = {
        {"0\\0\\0\\0\\0\\0", "0\\0\\4"},        // stands for axial
        {"1\\0\\0\\2\\0\\0", "7\\8\\9"},        // parallel: no normal, the text stays
        {"0.001\\0\\0\\0\\0.1\\0", "7\\8\\9"},  // a normal of 1e-4 squared is below the limit
        {"2", "7\\8\\9"},                       // the last value repeats: all parallel
        {"", "0\\0\\4"},
    };
    for (const auto& [orientation, position] : cases) {
        describe(3);
        const bool stays = std::string(position) == "7\\8\\9";
        m_object.text(DCM_ImagePositionPatient, stays ? "7\\8\\9" : "0");
        m_object.text(DCM_ImageOrientationPatient, orientation);
        m_object.text(DCM_SpacingBetweenSlices, "2");
        EXPECT_EQ(convertReloaded().field(3, fieldPosition), position) << orientation;
    }
}

TEST_F(FrameGeometryTest, SpacingFallsBack) {
    const struct {
        const char *pixel, *imager, *scanned, *first, *second;
    } cases[] = {
        {"0.5\\0.25", "0.2\\0.3", nullptr, "0.5", "0.25"},
        {"0\\0", "0.2\\0.2", "0.1\\0.1", "0.2", "0.2"},
        {"", "0\\0", "0.1\\0.4", "0.1", "0.4"},
        {"0\\0.5", "0.2\\0.2", nullptr, "0", "0.5"},
        {nullptr, "0.2", nullptr, "0.2", "0"},
        {"text\\0", "0.7\\x", nullptr, "0.7", "0"},
    };
    for (const auto& [pixel, imager, scanned, first, second] : cases) {
        TestObject object;
        object.describe({.columns = 2});
        if (pixel) object.text(DCM_PixelSpacing, pixel);
        if (imager) object.text(DCM_ImagerPixelSpacing, imager);
        if (scanned) object.text(DCM_NominalScannedPixelSpacing, scanned);
        object.pixels(std::vector<std::uint8_t>{0, 255});
        const Outcome outcome = convert(object.reload(), {0x14});
        EXPECT_EQ(outcome.field(1, fieldSpacing0), first);
        EXPECT_EQ(outcome.field(1, fieldSpacing1), second);
    }
}

TEST_F(FrameGeometryTest, EnhancedObjectsHaveSharedAndOwnValues) {
    describe(3);
    DcmItem& measures = functionalGroup(DCM_SharedFunctionalGroupsSequence, DCM_PixelMeasuresSequence);
    measures.putAndInsertString(DCM_PixelSpacing, "0.5\\0.6");
    measures.putAndInsertString(DCM_SpacingBetweenSlices, "3");
    DcmItem& shared =
        functionalGroup(DCM_SharedFunctionalGroupsSequence, DCM_PixelValueTransformationSequence);
    shared.putAndInsertString(DCM_RescaleIntercept, "-100");
    shared.putAndInsertString(DCM_RescaleSlope, "2");
    functionalGroup(DCM_SharedFunctionalGroupsSequence, DCM_PlaneOrientationSequence)
        .putAndInsertString(DCM_ImageOrientationPatient, "0\\1\\0\\0\\0\\-1");
    for (long i : {0, 1}) {  // the third frame has no item
        functionalGroup(DCM_PerFrameFunctionalGroupsSequence, DCM_PlanePositionSequence, i)
            .putAndInsertString(DCM_ImagePositionPatient, i == 0 ? "1\\2\\3" : "4\\5\\6.0");
        DcmItem& window = functionalGroup(DCM_PerFrameFunctionalGroupsSequence, DCM_FrameVOILUTSequence, i);
        window.putAndInsertString(DCM_WindowCenter, i == 0 ? "40\\50" : "60");
        window.putAndInsertString(DCM_WindowWidth, i == 0 ? "400\\500" : "600");
    }
    DcmItem& own = functionalGroup(DCM_PerFrameFunctionalGroupsSequence, DCM_PixelMeasuresSequence, 1);
    own.putAndInsertString(DCM_PixelSpacing, "0.7\\0.8");
    functionalGroup(DCM_PerFrameFunctionalGroupsSequence, DCM_PixelValueTransformationSequence, 1)
        .putAndInsertString(DCM_RescaleSlope, "4");
    const Outcome outcome = convertReloaded();
    ASSERT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.line(1), "1 2 1 mono 8 8 -100 2 400 40 0.5 0.6  1\\2\\3 0\\1\\0\\0\\0\\-1 ");
    EXPECT_EQ(outcome.line(2), "2 2 1 mono 8 8 -100 4 600 60 0.7 0.8  4\\5\\6.0 0\\1\\0\\0\\0\\-1 ");
    EXPECT_EQ(outcome.field(3, fieldPosition), "-6\\0\\0")
        << "derived: it has neither an own nor a shared position";
    EXPECT_EQ(outcome.field(3, fieldSpacing1), "0.6");
}

TEST_F(FrameGeometryTest, MoreItemsThanFramesAreIgnored) {
    describe(2);
    for (long i : {0, 1, 2, 3})
        functionalGroup(DCM_PerFrameFunctionalGroupsSequence, DCM_PlanePositionSequence, i)
            .putAndInsertString(DCM_ImagePositionPatient, std::to_string(i).c_str());
    EXPECT_EQ(convertReloaded().field(2, fieldPosition), "1");

    TestObject single;  // without a number of frames the first item describes the only frame
    single.describe({.columns = 2});
    single.dataset().findAndDeleteElement(DCM_NumberOfFrames);
    for (long i : {0, 1}) {
        DcmItem* group = nullptr;
        DcmItem* position = nullptr;
        single.dataset().findOrCreateSequenceItem(DCM_PerFrameFunctionalGroupsSequence, group, i);
        group->findOrCreateSequenceItem(DCM_PlanePositionSequence, position, 0);
        position->putAndInsertString(DCM_ImagePositionPatient, std::to_string(7 + i).c_str());
    }
    single.pixels(std::vector<std::uint8_t>{0, 255});
    EXPECT_EQ(convert(single.reload(), {0x14}).field(1, fieldPosition), "7");
}

TEST_F(FrameGeometryTest, DetectorInformationIsSharedByAllFrames) {
    describe(2);
    DcmItem* detector = nullptr;
    m_object.dataset().findOrCreateSequenceItem(DCM_DetectorInformationSequence, detector, 0);
    detector->putAndInsertString(DCM_ImagePositionPatient, "1\\2\\3");
    detector->putAndInsertString(DCM_ImageOrientationPatient, "1\\0\\0\\0\\1\\0");
    m_object.dataset().findOrCreateSequenceItem(DCM_DetectorInformationSequence, detector, 1);
    detector->putAndInsertString(DCM_ImagePositionPatient, "9\\9\\9");
    const Outcome outcome = convertReloaded();
    EXPECT_EQ(outcome.field(2, fieldPosition), "1\\2\\3");
    EXPECT_EQ(outcome.field(2, fieldOrientation), "1\\0\\0\\0\\1\\0");
}

TEST_F(FrameGeometryTest, MoreSlicesThanFramesReadNoEntryThatIsNotThere) {
    describe(2);
    m_object.words(0x0054, 0x0081, EVR_US, {40});
    DcmItem& position = functionalGroup(DCM_PerFrameFunctionalGroupsSequence, DCM_PlanePositionSequence, 0);
    position.putAndInsertString(DCM_ImagePositionPatient, "1\\2\\3");
    for (long i = 1; i < 40; ++i)
        functionalGroup(DCM_PerFrameFunctionalGroupsSequence, DCM_PlanePositionSequence, i)
            .putAndInsertString(DCM_ImagePositionPatient, "4\\5\\6");
    const Outcome outcome = convertReloaded();
    EXPECT_EQ(outcome.field(1, fieldPosition), "1\\2\\3");
    EXPECT_EQ(outcome.field(2, fieldPosition), "4\\5\\6");
}

TEST_F(FrameGeometryTest, ASpecificFrameTakesTheFirstEntry) {
    describe(3);
    for (long i : {0, 1, 2})
        functionalGroup(DCM_PerFrameFunctionalGroupsSequence, DCM_PixelValueTransformationSequence, i)
            .putAndInsertString(DCM_RescaleIntercept, std::to_string(-10 * (i + 1)).c_str());
    const Outcome outcome = convertReloaded({.mask = 0x15, .specificFrame = 3});
    ASSERT_EQ(outcome.result, 0);
    ASSERT_EQ(outcome.files.size(), 1u);
    const std::string& preview = outcome.files.at("o/x_3.p.qi4");
    EXPECT_EQ(preview.substr(8, 4), std::string("\0\0\x20\xC1", 4)) << "-10 in single precision";
}

TEST_F(FrameGeometryTest, InvalidWindowsComeFromTheHistogramWithTheFramesRescale) {
    describe(1);
    m_object.text(DCM_RescaleSlope, "2");
    m_object.text(DCM_RescaleIntercept, "");
    m_object.text(DCM_WindowWidth, "0");
    m_object.text(DCM_Modality, "MG");
    const Outcome outcome = convertReloaded();
    // The pixels are 0 and 255, so that every level needs all 256 values.
    EXPECT_EQ(outcome.line(1), "1 2 1 mono 8 8 0 2 512 256 0 0    ");
}

TEST(FrameTexts, NumbersAreReadOneByOne) {
    std::size_t at = 0;
    const std::string text = "1.5\\ -2e1\\x\\7";
    for (const double expected : {1.5, -20.0, 0.0, 7.0, 7.0})
        EXPECT_EQ(getNextValue(text, at), expected);
    double row[3], column[3], normal[3];
    parseOrientation("1\\2\\3\\4", row, column);
    EXPECT_EQ(row[2], 3);
    EXPECT_EQ(column[0], 4);
    EXPECT_EQ(column[2], 4);
    double a[3] = {1, 2, 3}, b[3] = {4, 5, 6};
    EXPECT_TRUE(GetNormal(a, b, normal));
    EXPECT_EQ(normal[0], -3);
    EXPECT_EQ(normal[1], 6);
    EXPECT_EQ(normal[2], -3);
}

}  // namespace
