// Texts of attributes, however a writer padded them.
#include "imgproc/elementvalues.h"

#include "tests/imgproc/capturingprocess.h"

namespace {

using namespace std::string_view_literals;
struct Padded {
    std::string_view text;
    PhotometricKind kind;
    bool inverted = false;
    bool known = true;
};

}  // namespace

TEST(ValueText, PaddingMakesNoOtherColorModel) {
    const Padded cases[] = {{"RGB\0"sv, PhotometricKind::Rgb},
                            {"RGB \0"sv, PhotometricKind::Rgb},
                            {"RGB\0JUNK"sv, PhotometricKind::Rgb},
                            {" RGB"sv, PhotometricKind::Rgb},
                            {"RGB\\MONOCHROME1"sv, PhotometricKind::Rgb},
                            {"MONOCHROME1\0"sv, PhotometricKind::Monochrome, true},
                            {" MONOCHROME1 \0\0"sv, PhotometricKind::Monochrome, true},
                            {"MONOCHROME2\0"sv, PhotometricKind::Monochrome},
                            {"hsv\0"sv, PhotometricKind::Monochrome, false, false}};
    for (const Padded& padded : cases)
        for (const E_TransferSyntax syntax : {EXS_LittleEndianExplicit, EXS_LittleEndianImplicit}) {
            SCOPED_TRACE(std::string(padded.text) + (syntax == EXS_LittleEndianImplicit ? " implicit" : ""));
            const bool colour = padded.kind == PhotometricKind::Rgb;
            TestObject object({.columns = 2, .samples = static_cast<Uint16>(colour ? 3 : 1)},
                              colour ? Bytes{0, 10, 20, 30, 40, 50} : Bytes{10, 20});
            object.text(DCM_PhotometricInterpretation, padded.text);
            const Converted converted(object, syntax);
            EXPECT_EQ(converted.attributes().photometricKind, padded.kind);
            EXPECT_EQ(converted.attributes().invertMonochrome, padded.inverted);
            EXPECT_EQ(converted.warnings().empty(), padded.known);
            EXPECT_EQ(converted.frame().layout, colour ? "bypixel" : "mono");
        }
}

TEST(ValueText, PaddedPaletteColourAndModality) {
    TestObject object({.columns = 2}, Bytes{0, 1});
    object.text(DCM_PhotometricInterpretation, "PALETTE COLOR\0"sv);
    object.text(DCM_Modality, "MG\0 "sv);
    for (const Uint16 element : {0x1101, 0x1102, 0x1103})
        object.words(0x0028, element, EVR_US, {2, 0, 16});
    for (const Uint16 element : {0x1201, 0x1202, 0x1203})
        object.words(0x0028, element, EVR_OW, {0, 0x4200});
    const Converted converted(object);
    EXPECT_EQ(converted.bytes(), (Bytes{0, 0, 0, 0x42, 0x42, 0x42}));
    EXPECT_EQ(converted.attributes().modality, "MG");
}

TEST(ValueText, PaddedNamesOfClassesCreatorsAndKeys) {
    TestObject object("1.2.840.10008.5.1.4.1.1.104.1");
    object.text(DCM_SOPClassUID, "1.2.840.10008.5.1.4.1.1.104.1\0\0 "sv);
    object.bytes(0x0042, 0x0011, EVR_OB, {'%', 'P', 'D', 'F'});
    EXPECT_EQ(Converted(object).documents().size(), 1U);

    TestObject reference({.columns = 2}, Bytes{1, 2});
    reference.text(DcmTag(0xF215, 0x0010, DcmVR(EVR_LO)), "PB group A\0"sv);
    reference.text(DcmTag(0xF215, 0x101D, DcmVR(EVR_LT)), "1");
    DcmDataset& dataset = reference.reload();
    PBItem block(dataset);
    const char* numbers = nullptr;
    EXPECT_TRUE(block.findAndGetPBString(0x1D, numbers).good()) << "the creator is ours";

    TestObject content(kContentClass);
    content.text(DcmTag(0xF215, 0x0010, DcmVR(EVR_LO)), "PB group A");
    content.text(DcmTag(0xF215, 0x1045, DcmVR(EVR_CS)), "STUDY\0"sv);
    CapturingProcess process(content.reload());
    CPbRContent study(&process, *process.dataset());
    EXPECT_EQ(study.postProcess(), 0);
    EXPECT_EQ(study.contentKind(), PbRKind::Study);
}

TEST(ValueText, EachOfSeveralValuesLosesItsPadding) {
    DcmLongString element(DcmTag(0x0020, 0x0020, DcmVR(EVR_LO)));
    const std::string_view value = " A\0junk\\F \\\0"sv;
    ASSERT_TRUE(element.putString(value.data(), static_cast<Uint32>(value.size())).good());
    EXPECT_EQ(textsOf(element), "A\\F\\");
    EXPECT_EQ(textOf(element), "A");
    EXPECT_EQ(textOf(element, 1), "F");
    EXPECT_EQ(textOf(element, 3), std::nullopt);
}

template <class Element, class Value>
std::string shown(DcmEVR vr, OFCondition (Element::*put)(const Value*, unsigned long),
                  const std::vector<Value>& values) {
    Element element(DcmTag(0x7FE0, 0x0001, DcmVR(vr)));
    EXPECT_TRUE((element.*put)(values.data(), values.size()).good());
    return shownValue(element);
}

TEST(ValueText, AllNumbersOfBinaryValuesAreShown) {
    EXPECT_EQ(shown(EVR_OF, &DcmOtherFloat::putFloat32Array, {1.5F, -2.0F, 0.25F}), "1.5\\-2\\0.25");
    EXPECT_EQ(shown(EVR_OD, &DcmOtherDouble::putFloat64Array, {0.5, 3.0}), "0.5\\3");
    EXPECT_EQ(shown(EVR_OL, &DcmOtherLong::putUint32Array, {7U, 4294967295U}), "7\\4294967295");
    EXPECT_EQ(shown(EVR_OV, &DcmOther64bitVeryLong::putUint64Array, {Uint64{1}, ~Uint64{0}}),
              "1\\18446744073709551615");
}
