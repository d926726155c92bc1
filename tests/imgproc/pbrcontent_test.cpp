// Content objects: what they declare obsolete, and attributes that they replace.
#include <gtest/gtest.h>

#include "privateblock/PBItem.h"
#include "tests/imgproc/capturingprocess.h"
#include "tests/imgproc/testobject.h"

namespace {

constexpr char kContentClass[] = "2.25.0118999881999119725.1.0.1";
constexpr char kCtClass[] = "1.2.840.10008.5.1.4.1.1.2";
constexpr char kMrClass[] = "1.2.840.10008.5.1.4.1.1.4";

DcmItem& newItem(DcmItem& in, unsigned short key) {
    DcmItem* item = nullptr;
    EXPECT_TRUE(PBItem(in).findOrCreatePBSequenceItem(key, item, -2).good());
    return *item;
}

void putPrivate(DcmItem& item, unsigned short key, const char* value) {
    EXPECT_TRUE(PBItem(item).putAndInsertPBString(key, value).good());
}

void putDate(DcmItem& item, const char* date, const char* time, const char* kind = "PARTIAL") {
    if (kind != nullptr) putPrivate(item, 0x45, kind);
    if (date != nullptr) putPrivate(item, 0x47, date);
    if (time != nullptr) putPrivate(item, 0x48, time);
}

void putReference(DcmItem& item, const char* sopClass, const char* instance) {
    if (sopClass != nullptr) item.putAndInsertString(DCM_ReferencedSOPClassUID, sopClass);
    if (instance != nullptr) item.putAndInsertString(DCM_ReferencedSOPInstanceUID, instance);
}

void addSeries(DcmItem& dataset, const char* uid, const char* date, const char* time,
               const char* kind = "PARTIAL") {
    DcmItem& item = newItem(dataset, 0x49);
    putDate(item, date, time, kind);
    if (uid != nullptr) item.putAndInsertString(DCM_SeriesInstanceUID, uid);
}

/// The whole content in one text, so that a test reads like the content.
std::string describe(const CPbRContent& content) {
    const auto record = [](const InvalidationRecord& r) {
        OFString date;
        OFString time;
        r.date.getISOFormattedDate(date, OFFalse);
        r.time.getISOFormattedTime(time, OFTrue, OFFalse, OFFalse, OFFalse);
        return " " + r.uid + "@" + date.c_str() + time.c_str();
    };
    std::string text = std::to_string(static_cast<int>(content.contentKind()));
    if (content.date().isValid()) text += record({content.date(), content.time(), ""});
    for (const std::string& file : content.files())
        text += " f:" + file;
    for (const auto& series : content.series())
        text += " s:" + record(*series);
    for (const auto& object : content.objects())
        text += " o:" + record(*object);
    return text;
}

/// The result of reading the content of a reloaded object, and what was read.
std::string read(TestObject& object, E_TransferSyntax syntax = EXS_LittleEndianExplicit) {
    DcmDataset& dataset = object.reload(syntax);
    CapturingProcess process(dataset);
    CPbRContent content(&process, *process.dataset());
    if (!content.init()) return "init failed";
    const int result = content.postProcess();
    return (result == 0 ? "ok " : "failed ") + describe(content);
}

}  // namespace

TEST(PbRContent, KindsDatesAndTimes) {
    const struct {
        const char *date, *time, *kind, *expected;
    } cases[] = {
        {"20240131", "235958.25", "PARTIAL", "ok 2 @20240131235958"},
        {"20240131", "120000", nullptr, "ok 0"},
        {"20240131", "120000", "SERIES", "failed 0"},
        {nullptr, nullptr, "PARTIAL", "failed 0"},
        {"20240131", nullptr, "PARTIAL", "failed 2"},
        {nullptr, "120000", "PARTIAL", "failed 2"},
        {"20241331", "120000", "PARTIAL", "failed"},
    };
    for (const auto& [date, time, kind, expected] : cases) {
        for (E_TransferSyntax syntax : {EXS_LittleEndianExplicit, EXS_LittleEndianImplicit}) {
            TestObject object(kContentClass);
            putDate(object.dataset(), date, time, kind);
            EXPECT_EQ(read(object, syntax).substr(0, std::string(expected).size()), expected);
        }
    }
    TestObject wrongKind(kContentClass);
    putDate(wrongKind.dataset(), nullptr, "120000");
    PBItem block(wrongKind.dataset());
    auto* text = new DcmLongString(DcmTag(block.getTag(0x47), DcmVR(EVR_LO)));
    text->putString("20240131");
    wrongKind.dataset().insert(text);
    EXPECT_EQ(read(wrongKind).substr(0, 6), "failed") << "a text that looks like a date is none";
}

TEST(PbRContent, FilesSeriesAndObjects) {
    TestObject object(kContentClass);
    DcmDataset& dataset = object.dataset();
    putDate(dataset, nullptr, nullptr);
    putReference(newItem(dataset, 0x46), kCtClass, "1.2.3");
    putReference(newItem(dataset, 0x46), "1.2.3.4.5", "1.2.4");  // no known class
    putReference(newItem(dataset, 0x46), kMrClass, nullptr);
    putReference(newItem(dataset, 0x46), nullptr, "1.2.5");
    putReference(newItem(dataset, 0x46), kMrClass, "1.2.6");

    addSeries(dataset, "9.1", "20240101", "010203");
    addSeries(dataset, "9.2", "20240101", "010203", "STUDY");
    addSeries(dataset, "9.3", "20240101", nullptr);
    addSeries(dataset, nullptr, "20240101", "010203");
    addSeries(dataset, "9.4", "20240101", "nonsense");
    addSeries(dataset, "9.5", "20240102", "0405");

    for (const char* kind : {"PARTIAL", "STUDY"}) {
        DcmItem& item = newItem(dataset, 0x4A);
        putDate(item, "20230630", "120000", kind);
        for (const char* instance : {"7.1", "7.2"}) {
            DcmItem* reference = nullptr;
            item.findOrCreateSequenceItem(DCM_ReferencedSOPSequence, reference, -2);
            putReference(*reference, kCtClass, instance);
        }
        DcmItem* unknown = nullptr;
        item.findOrCreateSequenceItem(DCM_ReferencedSOPSequence, unknown, -2);
    }
    putDate(newItem(dataset, 0x4A), "20230630", "120000");  // refers to nothing

    EXPECT_EQ(
        read(object),
        "ok 2 f:CT.1.2.3 f:MR.1.2.6 s: 9.1@20240101010203 s: 9.5@20240102040500 o: CT.7.1@20230630120000 "
        "o: CT.7.2@20230630120000");
}

TEST(PbRContent, TheOverrideItemReplacesAttributesBeforeTheWalk) {
    TestObject object(kContentClass);
    DcmDataset& dataset = object.dataset();
    object.text(DCM_PatientName, "Before");
    object.text(DCM_Modality, "CT");
    DcmItem& item = newItem(dataset, 0x62);
    item.putAndInsertString(DCM_PatientName, "After");
    item.putAndInsertString(DCM_Modality, "MR");
    putPrivate(item, 0x63, "label");
    putPrivate(item, 0x3A, "print");
    newItem(dataset, 0x62).putAndInsertString(DCM_PatientName, "Never");
    EXPECT_EQ(Converted(object).attributes().modality, "MR");
    OFString name;
    object.dataset().findAndGetOFString(DCM_PatientName, name);
    EXPECT_EQ(name, "After");
    PBItem block(object.dataset());
    const char* value = nullptr;
    EXPECT_EQ(block.findAndGetPBString(0x63, value), EC_TagNotFound);
    ASSERT_TRUE(block.findAndGetPBString(0x3A, value).good());
    EXPECT_STREQ(value, "print");
}

TEST(PbRContent, AnOverrideItemMayReplaceItsOwnSequence) {
    TestObject object(kContentClass);
    DcmItem& item = newItem(object.dataset(), 0x62);
    item.putAndInsertString(DCM_PatientName, "Outer");
    DcmItem& inner = newItem(item, 0x62);
    inner.putAndInsertString(DCM_PatientName, "Inner");
    item.putAndInsertString(DCM_PatientID, "last");
    const Converted process(object);
    OFString name;
    object.dataset().findAndGetOFString(DCM_PatientName, name);
    EXPECT_EQ(name, "Outer");
    DcmItem* now = nullptr;
    ASSERT_TRUE(PBItem(object.dataset()).findAndGetPBSequenceItem(0x62, now).good());
    now->findAndGetOFString(DCM_PatientName, name);
    EXPECT_EQ(name, "Inner");
}

TEST(PbRContent, AFailureCountsAndTheWalkGoesOn) {
    TestObject object(kContentClass);
    putDate(object.dataset(), "20240131", nullptr);
    object.describe({.columns = 2});
    object.pixels(std::vector<uint8_t>{3, 5});
    CapturingProcess process(object.reload());
    EXPECT_EQ(process.process(), 1);
    EXPECT_EQ(process.frames().size(), 1U);

    TestObject emptyOverride(kContentClass);
    PBItem(emptyOverride.dataset()).insertPBEmptyElement(0x62);
    CapturingProcess second(emptyOverride.reload());
    EXPECT_EQ(second.process(), 1) << "a sequence without the item it is there for";

    TestObject ordinary;
    putDate(ordinary.dataset(), "20240131", nullptr);
    CapturingProcess third(ordinary.reload());
    EXPECT_EQ(third.process(), 0) << "only content objects are asked";
}
