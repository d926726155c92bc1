// Documents and the side files of content objects.
#include <dcmtk/dcmdata/dcdeftag.h>

#include "privateblock/PBItem.h"
#include "tests/vintakd/viewer/conversion.h"

namespace {

constexpr char kContentClass[] = "2.25.0118999881999119725.1.0.1";
constexpr char kCtClass[] = "1.2.840.10008.5.1.4.1.1.2";

class StudyFilesTest : public ConversionTest {
protected:
    using Files = std::map<std::string, std::string>;

    static DcmItem& newItem(DcmItem& in, unsigned short key) {
        DcmItem* item = nullptr;
        EXPECT_TRUE(PBItem(in).findOrCreatePBSequenceItem(key, item, -2).good());
        return *item;
    }
    static void put(DcmItem& item, unsigned short key, const char* value) {
        EXPECT_TRUE(PBItem(item).putAndInsertPBString(key, value).good());
    }
    static void date(DcmItem& item, const char* day, const char* time) {
        put(item, 0x45, "PARTIAL");
        put(item, 0x47, day);
        put(item, 0x48, time);
    }
    static void reference(DcmItem& item, const char* instance) {
        item.putAndInsertString(DCM_ReferencedSOPClassUID, kCtClass);
        item.putAndInsertString(DCM_ReferencedSOPInstanceUID, instance);
    }
    /// The files without the empty descriptor.
    Files files(TestObject& object, const Options& options = {}) {
        Outcome outcome = convert(object.reload(), options);
        EXPECT_EQ(outcome.result, 0) << outcome.cause;
        EXPECT_EQ(outcome.files.erase("o/x.desc"), 1u);
        return outcome.files;
    }
};

TEST_F(StudyFilesTest, AWholeStudy) {
    TestObject object(kContentClass);
    put(object.dataset(), 0x45, "STUDY");
    put(object.dataset(), 0x3A, "100% of it");
    EXPECT_EQ(files(object), (Files{{"o/x.obsinfo", "WHOLE=\"true\"\n"}, {"o/x.fingerprint", "100% of it"}}));
}

TEST_F(StudyFilesTest, SeriesSinceADate) {
    TestObject object(kContentClass);
    date(object.dataset(), "20240229", "235958.123");
    for (const char* uid : {"1.2.3", "1.2.4"}) {
        DcmItem& series = newItem(object.dataset(), 0x49);
        date(series, "20200101", uid[4] == '3' ? "0102" : "030405");
        series.putAndInsertString(DCM_SeriesInstanceUID, uid);
    }
    EXPECT_EQ(files(object), (Files{{"o/x.obsinfo",
                                     "INVALIDATE_DATE=\"20240229\"\n"
                                     "INVALIDATE_TIME=\"235958\"\n"
                                     "SERIES_1=\"1.2.3 20200101 010200\"\n"
                                     "SERIES_2=\"1.2.4 20200101 030405\"\n"
                                     "CNT_SERIES=\"2\"\n"},
                                    {"o/x.fingerprint", ""}}));
}

TEST_F(StudyFilesTest, ObjectsAndFilesWithoutADate) {
    TestObject object(kContentClass);
    put(object.dataset(), 0x45, "PARTIAL");
    for (const char* instance : {"1.1", "1.2\x1B[1m"})
        reference(newItem(object.dataset(), 0x46), instance);
    DcmItem& obsolete = newItem(object.dataset(), 0x4A);
    date(obsolete, "20200101", "000000");
    DcmItem* item = nullptr;
    obsolete.findOrCreateSequenceItem(DCM_ReferencedSOPSequence, item, 0);
    reference(*item, "1.3\x7F");
    EXPECT_EQ(files(object), (Files{{"o/x.obsinfo",
                                     "OBJINV_1=\"CT.1.3? 20200101 000000\"\n"
                                     "CNT_OBJINV=\"1\"\n"
                                     "FILES=\"CT.1.1 CT.1.2?[1m \"\n"},
                                    {"o/x.fingerprint", ""}}));
}

TEST_F(StudyFilesTest, ContentThatDeclaresNothingWritesNothing) {
    TestObject object(kContentClass);
    put(object.dataset(), 0x3A, "fingerprint");
    EXPECT_EQ(files(object), Files());
}

TEST_F(StudyFilesTest, WithoutObsinfoThereIsNoFingerprint) {
    std::filesystem::create_directories(m_folder / "o/x.obsinfo");
    TestObject object(kContentClass);
    put(object.dataset(), 0x45, "STUDY");
    const Outcome outcome = convert(object.reload());
    EXPECT_EQ(outcome.result, 1);
    EXPECT_EQ(outcome.cause, "Cannot create file: " + (m_folder / "o/x.obsinfo") + " (Is a directory)");
    EXPECT_FALSE(outcome.files.contains("o/x.fingerprint"));
}

TEST_F(StudyFilesTest, DocumentsGoToTheCache) {
    const std::string text("%PDF-1.4 \0 odd!", 15);
    std::string padded = text + '\0';
    const auto pdf = [&] {
        auto object = std::make_unique<TestObject>(UID_EncapsulatedPDFStorage);
        object->bytes(0x0042, 0x0011, EVR_OB, std::vector<uint8_t>(padded.begin(), padded.end()));
        return object;
    };
    EXPECT_EQ(files(*pdf()), (Files{{"c/x.pdf", text}}));
    std::filesystem::remove(m_folder / "c/x.pdf");
    EXPECT_EQ(files(*pdf(), {.noCached = true}), Files());
}

}  // namespace
