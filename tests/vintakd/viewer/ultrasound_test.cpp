#include "tests/vintakd/viewer/conversion.h"
#include "vintakd/viewer/ultrasoundregions.h"

namespace {

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

class UltrasoundObject : public ConversionTest {};

TEST_F(UltrasoundObject, SpacingReachesTheDescriptorUnlessPixelSpacingFollows) {
    for (const bool withSpacing : {false, true}) {
        TestObject object;
        object.describe({.columns = 2});
        object.dataset().insert(sequenceOf({{3, 3, 0.01, 0.02}}).release());
        if (withSpacing) object.text(DCM_PixelSpacing, "0.3\\0.4");
        object.pixels(Bytes{0, 255});
        const Outcome outcome = convert(object.reload(), {0x14});
        EXPECT_EQ(outcome.field(1, 11), withSpacing ? "0.3" : "0.1");
        EXPECT_EQ(outcome.field(1, 12), withSpacing ? "0.4" : "0.2");
    }
}

}  // namespace
