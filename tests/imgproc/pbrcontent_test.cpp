// Content objects: attributes that they replace. What they declare obsolete shows in the files of a study.
#include "tests/imgproc/capturingprocess.h"

TEST(PbRContent, TheOverrideItemReplacesAttributesBeforeTheWalk) {
    TestObject object(kContentClass);
    DcmDataset& dataset = object.dataset();
    object.text(DCM_PatientName, "Before");
    object.text(DCM_Modality, "CT");
    DcmItem& item = newPrivateItem(dataset, 0x62);
    item.putAndInsertString(DCM_PatientName, "After");
    item.putAndInsertString(DCM_Modality, "MR");
    putPrivate(item, 0x63, "label");
    putPrivate(item, 0x3A, "print");
    newPrivateItem(dataset, 0x62).putAndInsertString(DCM_PatientName, "Never");
    EXPECT_EQ(Converted(object).attributes().modality, "MR");
    EXPECT_EQ(textAt(object.dataset(), DCM_PatientName), "After");
    EXPECT_EQ(textAt(object.dataset(), 0x1063), "-");
    EXPECT_EQ(textAt(object.dataset(), 0x103A), "print");
}

TEST(PbRContent, AnOverrideItemMayReplaceItsOwnSequence) {
    TestObject object(kContentClass);
    DcmItem& item = newPrivateItem(object.dataset(), 0x62);
    item.putAndInsertString(DCM_PatientName, "Outer");
    DcmItem& inner = newPrivateItem(item, 0x62);
    inner.putAndInsertString(DCM_PatientName, "Inner");
    item.putAndInsertString(DCM_PatientID, "last");
    const Converted process(object);
    EXPECT_EQ(textAt(object.dataset(), DCM_PatientName), "Outer");
    DcmItem* now = nullptr;
    ASSERT_TRUE(PBItem(object.dataset()).findAndGetPBSequenceItem(0x62, now).good());
    EXPECT_EQ(textAt(*now, DCM_PatientName), "Inner");
}

TEST(PbRContent, AFailureCountsAndTheWalkGoesOn) {
    TestObject object(kContentClass), ordinary;
    for (TestObject* one : {&object, &ordinary}) {
        putPrivate(one->dataset(), 0x45, "PARTIAL");
        putPrivate(one->dataset(), 0x47, "20240131");  // without a time
        one->describe({.columns = 2});
        one->pixels(Bytes{3, 5});
        CapturingProcess process(one->reload());
        EXPECT_EQ(process.process(), one == &object ? 1 : 0) << "only content objects are asked";
        EXPECT_EQ(process.frames().size(), 1U);
    }
    TestObject emptyOverride(kContentClass);
    PBItem(emptyOverride.dataset()).insertPBEmptyElement(0x62);
    CapturingProcess second(emptyOverride.reload());
    EXPECT_EQ(second.process(), 1) << "a sequence without the item it is there for";
}
