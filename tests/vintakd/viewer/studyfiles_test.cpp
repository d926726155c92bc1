// Documents and the side files of content objects.
#include "tests/vintakd/viewer/conversion.h"

namespace {

constexpr char kCtClass[] = "1.2.840.10008.5.1.4.1.1.2";
constexpr char kMrClass[] = "1.2.840.10008.5.1.4.1.1.4";

class StudyFilesTest : public ConversionTest {
protected:
    using Files = std::map<std::string, std::string>;

    static void date(DcmItem& item, const char* day, const char* time, const char* kind = "PARTIAL") {
        if (kind != nullptr) putPrivate(item, 0x45, kind);
        if (day != nullptr) putPrivate(item, 0x47, day);
        if (time != nullptr) putPrivate(item, 0x48, time);
    }
    static void reference(DcmItem& item, const char* sopClass, const char* instance) {
        if (sopClass != nullptr) item.putAndInsertString(DCM_ReferencedSOPClassUID, sopClass);
        if (instance != nullptr) item.putAndInsertString(DCM_ReferencedSOPInstanceUID, instance);
    }
    static void series(DcmItem& dataset, const char* uid, const char* day, const char* time,
                       const char* kind = "PARTIAL") {
        DcmItem& item = newPrivateItem(dataset, 0x49);
        date(item, day, time, kind);
        if (uid != nullptr) item.putAndInsertString(DCM_SeriesInstanceUID, uid);
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
    putPrivate(object.dataset(), 0x45, "STUDY");
    putPrivate(object.dataset(), 0x3A, "100% of it");
    EXPECT_EQ(files(object), (Files{{"o/x.obsinfo", "WHOLE=\"true\"\n"}, {"o/x.fingerprint", "100% of it"}}));
}

TEST_F(StudyFilesTest, KindsDatesAndTimes) {
    const struct {
        const char *day, *time, *kind;
        const char* obsinfo;  ///< nullptr when the content fails
    } cases[] = {
        {"20240131", "235958.25", "PARTIAL", "INVALIDATE_DATE=\"20240131\"\nINVALIDATE_TIME=\"235958\"\n"},
        {nullptr, nullptr, "PARTIAL", ""},
        {"20240131", "120000", nullptr, ""},
        {"20240131", "120000", "SERIES", nullptr},
        {"20240131", nullptr, "PARTIAL", nullptr},
        {nullptr, "120000", "PARTIAL", nullptr},
        {"20241331", "120000", "PARTIAL", nullptr},
    };
    for (const auto& [day, time, kind, obsinfo] : cases) {
        for (const E_TransferSyntax syntax : {EXS_LittleEndianExplicit, EXS_LittleEndianImplicit}) {
            TestObject object(kContentClass);
            date(object.dataset(), day, time, kind);
            reference(newPrivateItem(object.dataset(), 0x46), kCtClass, "1.1");
            Outcome outcome = convert(object.reload(syntax));
            SCOPED_TRACE(testing::PrintToString(std::array{day, time, kind}));
            EXPECT_EQ(outcome.result, obsinfo == nullptr ? 1 : 0);
            if (obsinfo != nullptr && kind != nullptr) {
                EXPECT_EQ(outcome.files["o/x.obsinfo"], obsinfo + std::string("FILES=\"CT.1.1 \"\n"));
            }
        }
    }
    TestObject wrongKind(kContentClass);
    date(wrongKind.dataset(), nullptr, "120000");
    auto* text = new DcmLongString(DcmTag(PBItem(wrongKind.dataset()).getTag(0x47), DcmVR(EVR_LO)));
    text->putString("20240131");
    wrongKind.dataset().insert(text);
    EXPECT_EQ(convert(wrongKind.reload()).result, 1) << "a text that looks like a date is none";
}

TEST_F(StudyFilesTest, SeriesObjectsAndFiles) {
    TestObject object(kContentClass);
    DcmDataset& dataset = object.dataset();
    date(dataset, nullptr, nullptr);
    reference(newPrivateItem(dataset, 0x46), kCtClass, "1.2.3");
    reference(newPrivateItem(dataset, 0x46), "1.2.3.4.5", "1.2.4");  // no known class
    reference(newPrivateItem(dataset, 0x46), kMrClass, nullptr);
    reference(newPrivateItem(dataset, 0x46), nullptr, "1.2.5");
    reference(newPrivateItem(dataset, 0x46), kMrClass, "1.2\x1B[1m");

    series(dataset, "9.1", "20240101", "010203");
    series(dataset, "9.2", "20240101", "010203", "STUDY");
    series(dataset, "9.3", "20240101", nullptr);
    series(dataset, nullptr, "20240101", "010203");
    series(dataset, "9.4", "20240101", "nonsense");
    series(dataset, "9.5", "20240102", "0405");

    for (const char* kind : {"PARTIAL", "STUDY"}) {
        DcmItem& item = newPrivateItem(dataset, 0x4A);
        date(item, "20230630", "120000", kind);
        for (const char* instance : {"7.1", "7.2\x7F"}) {
            DcmItem* below = nullptr;
            item.findOrCreateSequenceItem(DCM_ReferencedSOPSequence, below, -2);
            reference(*below, kCtClass, instance);
        }
        DcmItem* unknown = nullptr;
        item.findOrCreateSequenceItem(DCM_ReferencedSOPSequence, unknown, -2);
    }
    date(newPrivateItem(dataset, 0x4A), "20230630", "120000");  // refers to nothing
    EXPECT_EQ(files(object), (Files{{"o/x.obsinfo",
                                     "SERIES_1=\"9.1 20240101 010203\"\n"
                                     "SERIES_2=\"9.5 20240102 040500\"\n"
                                     "CNT_SERIES=\"2\"\n"
                                     "OBJINV_1=\"CT.7.1 20230630 120000\"\n"
                                     "OBJINV_2=\"CT.7.2? 20230630 120000\"\n"
                                     "CNT_OBJINV=\"2\"\n"
                                     "FILES=\"CT.1.2.3 MR.1.2?[1m \"\n"},
                                    {"o/x.fingerprint", ""}}));
}

TEST_F(StudyFilesTest, ContentThatDeclaresNothingWritesNothing) {
    TestObject object(kContentClass);
    putPrivate(object.dataset(), 0x3A, "fingerprint");
    EXPECT_EQ(files(object), Files());
    putPrivate(object.dataset(), 0x45, "PARTIAL");
    EXPECT_EQ(convert(object.reload()).result, 1);
}

TEST_F(StudyFilesTest, WithoutObsinfoThereIsNoFingerprint) {
    std::filesystem::create_directories(m_folder / "o/x.obsinfo");
    TestObject object(kContentClass);
    putPrivate(object.dataset(), 0x45, "STUDY");
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
        object->bytes(0x0042, 0x0011, EVR_OB, Bytes(padded.begin(), padded.end()));
        return object;
    };
    EXPECT_EQ(files(*pdf()), (Files{{"c/x.pdf", text}}));
    std::filesystem::remove(m_folder / "c/x.pdf");
    EXPECT_EQ(files(*pdf(), {.noCached = true}), Files());
}

}  // namespace
