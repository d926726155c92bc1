// Geometry and values of frames: from classic and enhanced objects to the descriptor.
#include "tests/vintakd/viewer/conversion.h"
#include "vintakd/viewer/ultrasoundregions.h"

namespace {

constexpr int kFieldSpacing0 = 11, kFieldSpacing1 = 12, kFieldReference = 13, kFieldPosition = 14,
              kFieldOrientation = 15, kFieldPatientOrientation = 16;

class FrameGeometryTest : public ConversionTest {
protected:
    /// An object of 2 x 1 pixels a frame, values 0 and 255.
    void describe(int frames) {
        m_object.dataset().clear();
        m_object.text(DCM_SOPClassUID, UID_SecondaryCaptureImageStorage);
        m_object.text(DCM_SOPInstanceUID, "2.25.1");
        ImageShape shape;
        shape.columns = 2;
        shape.frames = frames;
        m_object.describe(shape);
        if (frames != 1) m_object.text(DCM_NumberOfFrames, std::to_string(frames).c_str());
        Bytes bytes;
        for (int i = 0; i < 2 * frames; ++i)
            bytes.push_back(i % 2 == 0 ? 0 : 255);
        m_object.pixels(bytes);
    }
    /// One value in a functional group: of all frames, or of one frame.
    void shared(const DcmTagKey& macro, const DcmTagKey& key, const char* value) {
        put(DCM_SharedFunctionalGroupsSequence, 0, macro, key, value);
    }
    void ofFrame(long item, const DcmTagKey& macro, const DcmTagKey& key, const char* value) {
        put(DCM_PerFrameFunctionalGroupsSequence, item, macro, key, value);
    }
    Outcome convertReloaded(const Options& options = {0x14}) { return convert(m_object.reload(), options); }

    TestObject m_object;

private:
    void put(const DcmTagKey& groups, long item, const DcmTagKey& macro, const DcmTagKey& key,
             const char* value) {
        DcmItem* group = nullptr;
        DcmItem* member = nullptr;
        ASSERT_TRUE(m_object.dataset().findOrCreateSequenceItem(groups, group, item).good());
        ASSERT_TRUE(group->findOrCreateSequenceItem(macro, member, 0).good());
        member->putAndInsertString(key, value);
    }
};

TEST_F(FrameGeometryTest, ClassicFramesDeriveTheirPositions) {
    constexpr char kOwn[] = "1.50\\-2.0\\3e1";
    const struct {
        int frames;
        const char *position, *orientation, *spacing;
        std::vector<const char*> positions;
    } cases[] = {
        {3, "0\\0\\0", "1\\0\\0\\0\\1\\0", "2.5", {"0\\0\\0", "0\\0\\2.5", "0\\0\\5"}},
        {2, kOwn, "0\\1\\0\\0\\0\\-1", "0.25", {"1.5\\-2\\30", "1.25\\-2\\30"}},  // normal (-1, 0, 0)
        {2, kOwn, nullptr, "0", {kOwn, kOwn}},  // without a spacing the text stays
        {2, kOwn, nullptr, "", {kOwn, kOwn}},
        {1, kOwn, nullptr, "2", {kOwn}},
        {1, nullptr, nullptr, "2", {"0\\0\\0"}},
        {2, "0", "0\\0\\0\\0\\0\\0", "2", {"0\\0\\0", "0\\0\\2"}},  // stands for axial
        {2, "0", "", "2", {"0\\0\\0", "0\\0\\2"}},
        {2, kOwn, "1\\0\\0\\2\\0\\0", "2", {kOwn, kOwn}},        // parallel: no normal
        {2, kOwn, "0.001\\0\\0\\0\\0.1\\0", "2", {kOwn, kOwn}},  // a normal of 1e-4 squared is too short
        {2, kOwn, "2", "2", {kOwn, kOwn}},                       // the last value repeats: all parallel
    };
    for (const auto& [frames, position, orientation, spacing, positions] : cases) {
        SCOPED_TRACE(testing::Message()
                     << frames << " " << (orientation ? orientation : "-") << " " << spacing);
        describe(frames);
        if (position) m_object.text(DCM_ImagePositionPatient, position);
        if (orientation) m_object.text(DCM_ImageOrientationPatient, orientation);
        m_object.text(DCM_SpacingBetweenSlices, spacing);
        m_object.text(DCM_FrameOfReferenceUID, "1.2.3");
        m_object.text(DCM_PatientOrientation, "L\\P");
        const Outcome outcome = convertReloaded();
        ASSERT_EQ(outcome.result, 0);
        for (int frame = 1; frame <= frames; ++frame) {
            EXPECT_EQ(outcome.field(frame, kFieldPosition), positions[frame - 1]);
            EXPECT_EQ(outcome.field(frame, kFieldReference), "1.2.3");
            EXPECT_EQ(outcome.field(frame, kFieldOrientation), orientation ? orientation : "");
            EXPECT_EQ(outcome.field(frame, kFieldPatientOrientation), "L\\P");
        }
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
        object.pixels(Bytes{0, 255});
        const Outcome outcome = convert(object.reload(), {0x14});
        EXPECT_EQ(outcome.field(1, kFieldSpacing0), first);
        EXPECT_EQ(outcome.field(1, kFieldSpacing1), second);
    }
}

TEST_F(FrameGeometryTest, EnhancedObjectsHaveSharedAndOwnValues) {
    describe(3);
    shared(DCM_PixelMeasuresSequence, DCM_PixelSpacing, "0.5\\0.6");
    shared(DCM_PixelMeasuresSequence, DCM_SpacingBetweenSlices, "3");
    shared(DCM_PixelValueTransformationSequence, DCM_RescaleIntercept, "-100");
    shared(DCM_PixelValueTransformationSequence, DCM_RescaleSlope, "2");
    shared(DCM_PlaneOrientationSequence, DCM_ImageOrientationPatient, "0\\1\\0\\0\\0\\-1");
    for (long i : {0, 1}) {  // the third frame has no item
        ofFrame(i, DCM_PlanePositionSequence, DCM_ImagePositionPatient, i == 0 ? "1\\2\\3" : "4\\5\\6.0");
        ofFrame(i, DCM_FrameVOILUTSequence, DCM_WindowCenter, i == 0 ? "40\\50" : "60");
        ofFrame(i, DCM_FrameVOILUTSequence, DCM_WindowWidth, i == 0 ? "400\\500" : "600");
    }
    ofFrame(1, DCM_PixelMeasuresSequence, DCM_PixelSpacing, "0.7\\0.8");
    ofFrame(1, DCM_PixelValueTransformationSequence, DCM_RescaleSlope, "4");
    const Outcome outcome = convertReloaded();
    ASSERT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.line(1), "1 2 1 mono 8 8 -100 2 400 40 0.5 0.6  1\\2\\3 0\\1\\0\\0\\0\\-1 ");
    EXPECT_EQ(outcome.line(2), "2 2 1 mono 8 8 -100 4 600 60 0.7 0.8  4\\5\\6.0 0\\1\\0\\0\\0\\-1 ");
    EXPECT_EQ(outcome.field(3, kFieldPosition), "-6\\0\\0")
        << "derived: it has neither an own nor a shared position";
    EXPECT_EQ(outcome.field(3, kFieldSpacing1), "0.6");
}

TEST_F(FrameGeometryTest, HalfASpacingIsNone) {
    for (const char* half : {"0.7", "0.7\\", "\\0.7"}) {
        describe(2);
        m_object.text(DCM_PixelSpacing, "1\\2");
        ofFrame(0, DCM_PixelMeasuresSequence, DCM_PixelSpacing, half);
        ofFrame(1, DCM_PixelMeasuresSequence, DCM_PixelSpacing, "3\\4");
        const Outcome outcome = convertReloaded();
        EXPECT_EQ(outcome.field(1, kFieldSpacing0) + " " + outcome.field(1, kFieldSpacing1), "1 2") << half;
        EXPECT_EQ(outcome.field(2, kFieldSpacing0) + " " + outcome.field(2, kFieldSpacing1), "3 4");
    }
    describe(1);
    shared(DCM_PixelMeasuresSequence, DCM_PixelSpacing, "0.5");
    m_object.text(DCM_ImagerPixelSpacing, "6\\7");
    EXPECT_EQ(convertReloaded().field(1, kFieldSpacing1), "7") << "what was not read hides nothing";
}

TEST_F(FrameGeometryTest, MoreItemsThanFramesAreIgnored) {
    describe(2);
    for (long i : {0, 1, 2, 3})
        ofFrame(i, DCM_PlanePositionSequence, DCM_ImagePositionPatient, std::to_string(i).c_str());
    EXPECT_EQ(convertReloaded().field(2, kFieldPosition), "1");

    describe(1);  // without a number of frames the first item describes the only frame
    for (long i : {0, 1})
        ofFrame(i, DCM_PlanePositionSequence, DCM_ImagePositionPatient, std::to_string(7 + i).c_str());
    EXPECT_EQ(convertReloaded().field(1, kFieldPosition), "7");
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
    EXPECT_EQ(outcome.field(2, kFieldPosition), "1\\2\\3");
    EXPECT_EQ(outcome.field(2, kFieldOrientation), "1\\0\\0\\0\\1\\0");
}

TEST_F(FrameGeometryTest, MoreSlicesThanFramesReadNoEntryThatIsNotThere) {
    describe(2);
    m_object.words(0x0054, 0x0081, EVR_US, {40});
    for (long i = 0; i < 40; ++i)
        ofFrame(i, DCM_PlanePositionSequence, DCM_ImagePositionPatient, i == 0 ? "1\\2\\3" : "4\\5\\6");
    const Outcome outcome = convertReloaded();
    EXPECT_EQ(outcome.field(1, kFieldPosition), "1\\2\\3");
    EXPECT_EQ(outcome.field(2, kFieldPosition), "4\\5\\6");
}

TEST_F(FrameGeometryTest, ASpecificFrameTakesTheFirstEntry) {
    describe(3);
    for (long i : {0, 1, 2})
        ofFrame(i, DCM_PixelValueTransformationSequence, DCM_RescaleIntercept,
                std::to_string(-10 * (i + 1)).c_str());
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

TEST_F(FrameGeometryTest, AValueOfTwoLinesStaysInItsLine) {
    describe(1);
    m_object.text(DCM_ImagePositionPatient, "1\\2\\3\n9");
    m_object.text(DCM_PatientOrientation, std::string_view("A \0\\F\0", 6));
    EXPECT_TRUE(convertReloaded().line(1).ends_with(" 1\\2\\3?9  A\\F")) << convertReloaded().line(1);
}

struct Region {
    Uint16 unitsX, unitsY;
    double deltaX, deltaY;
};

std::unique_ptr<DcmSequenceOfItems> sequenceOf(const std::vector<Region>& regions) {
    auto sequence = std::make_unique<DcmSequenceOfItems>(DCM_SequenceOfUltrasoundRegions);
    for (const Region& region : regions) {
        auto* item = new DcmItem;
        item->putAndInsertUint16(DCM_PhysicalUnitsXDirection, region.unitsX);
        item->putAndInsertUint16(DCM_PhysicalUnitsYDirection, region.unitsY);
        item->putAndInsertFloat64(DCM_PhysicalDeltaX, region.deltaX);
        item->putAndInsertFloat64(DCM_PhysicalDeltaY, region.deltaY);
        sequence->insert(item);
    }
    return sequence;
}

TEST(UltrasoundRegions, AgreeOnASpacing) {
    using Spacing = std::optional<std::array<double, 2>>;
    const auto spacing = [](const std::vector<Region>& regions) {
        return spacingOfUltrasoundRegions(*sequenceOf(regions));
    };
    EXPECT_EQ(spacing({}), Spacing());
    EXPECT_EQ(spacing({{3, 3, 0.5, 0.25}}), Spacing({5, 2.5}));
    EXPECT_EQ(spacing({{3, 3, 0, 0}, {3, 3, 0.5, 0.25}}), Spacing({5, 2.5}))
        << "the first pair that is not 0";
    EXPECT_EQ(spacing({{3, 3, 0, 0}}), Spacing());
    EXPECT_EQ(spacing({{3, 3, 0.5, 0.25}, {3, 3, 0.5, 0.75}, {3, 3, 1, 0.25}}), Spacing({5, 2.5}))
        << "compared with the first, one equal delta is enough";
    EXPECT_EQ(spacing({{3, 3, 0.5, 0.25}, {3, 3, 1, 2}}), Spacing());
    EXPECT_EQ(spacing({{3, 3, 0.5, 0.25}, {3, 4, 0.5, 0.25}}), Spacing()) << "seconds are no length";
    EXPECT_EQ(spacing({{0, 3, 0.5, 0.25}}), Spacing());
    auto incomplete = sequenceOf({{3, 3, 0.5, 0.25}});
    incomplete->insert(new DcmItem);
    EXPECT_EQ(spacingOfUltrasoundRegions(*incomplete), Spacing());
}

TEST_F(FrameGeometryTest, SpacingReachesTheDescriptorUnlessPixelSpacingFollows) {
    for (const bool withSpacing : {false, true}) {
        describe(1);
        m_object.dataset().insert(sequenceOf({{3, 3, 0.01, 0.02}}).release());
        if (withSpacing) m_object.text(DCM_PixelSpacing, "0.3\\0.4");
        const Outcome outcome = convertReloaded();
        EXPECT_EQ(outcome.field(1, kFieldSpacing0), withSpacing ? "0.3" : "0.1");
        EXPECT_EQ(outcome.field(1, kFieldSpacing1), withSpacing ? "0.4" : "0.2");
    }
}

}  // namespace
