// What a servant does once for a request that it used to do again and again: opening the object, taking
// memory.
#include <malloc.h>
#include <sys/resource.h>

#include <sstream>

#include "hsutils/Utils.h"
#include "imgproc/objectscan.h"
#include "privateblock/privatedictionary.h"
#include "tests/shared/objectbytes.h"
#include "tests/shared/testobject.h"
#include "vintakd/service/objectloader.h"
#include "vintakd/service/servantmemory.h"

namespace {

size_t openFiles() {
    const std::filesystem::directory_iterator files("/proc/self/fd");
    return static_cast<size_t>(std::distance(begin(files), end(files)));
}

Bytes pixelsOf(DcmFileFormat& file) {
    const Uint8* values = nullptr;
    unsigned long count = 0;
    EXPECT_TRUE(file.getDataset()->findAndGetUint8Array(DCM_PixelData, values, &count).good());
    return Bytes(values, values + count);
}

long pageFaults() {
    rusage used{};
    getrusage(RUSAGE_SELF, &used);
    return used.ru_minflt;
}

/// Takes and gives back some megabytes, as a request with its frame does.
void useHeap(size_t blocks, size_t bytes) {
    std::vector<std::unique_ptr<char[]>> taken(blocks);
    for (auto& block : taken) {
        block = std::make_unique_for_overwrite<char[]>(bytes);
        for (size_t i = 0; i < bytes; i += 4096)
            static_cast<volatile char*>(block.get())[i] = 1;
    }
}

/// A data set as text, long values by their length.
std::string printed(DcmItem& item) {
    std::ostringstream text;
    item.print(text, DCMTypes::PF_shortenLongTagValues);
    return text.str();
}

/// What a conversion throws away: all private elements of others that are no sequences.
void removeForeignValues(DcmItem& item) {
    for (DcmObject *next = item.nextInContainer(nullptr), *object = next; object != nullptr; object = next) {
        next = item.nextInContainer(object);
        if (isForeignGroup(object->getGTag()) && object->ident() != EVR_SQ) delete item.remove(object);
    }
}

}  // namespace

TEST(ServantWork, ReadsValuesFromTheFileThatItOpened) {
    const TemporaryFolder folder;
    const std::string path = folder / "object", other = folder / "other";
    const ImageShape shape{.rows = 200, .columns = 300};
    Bytes pixels(shape.frameBytes());
    for (size_t i = 0; i < pixels.size(); ++i)
        pixels[i] = static_cast<unsigned char>(i * 7 + i / 300);
    ASSERT_TRUE(TestObject(shape, pixels).file().saveFile(path.c_str(), EXS_LittleEndianExplicit).good());
    ASSERT_TRUE(TestObject(shape, Bytes(pixels.size(), 9))
                    .file()
                    .saveFile(other.c_str(), EXS_LittleEndianExplicit)
                    .good());

    const size_t before = openFiles();
    {
        DcmFileFormat file;
        loadObject(file, path, 256, ObjectValues::onDemand);
        EXPECT_EQ(openFiles(), before + 1) << "the file is kept for what was not loaded";
        std::filesystem::rename(other, path);
        EXPECT_EQ(pixelsOf(file), pixels) << "and not looked up by its name again";
        EXPECT_EQ(openFiles(), before + 1);
    }
    EXPECT_EQ(openFiles(), before);
}

TEST(ServantWork, LeavesOutWhatTheConversionThrowsAwayAndNothingElse) {
    const TemporaryFolder folder;
    const ImageShape shape{.rows = 200, .columns = 300};
    Bytes pixels(shape.frameBytes());
    for (size_t i = 0; i < pixels.size(); ++i)
        pixels[i] = static_cast<unsigned char>(i * 5 + i / 300);
    TestObject object(shape, pixels);
    DcmDataset& data = object.dataset();
    const auto put = [&data](Uint16 group, Uint16 element, DcmEVR vr, const std::string& value) {
        ASSERT_TRUE(data.putAndInsertString(DcmTag(group, element, DcmVR(vr)), value.c_str()).good());
    };
    put(0x0009, 0x0010, EVR_LO, "SOMEBODY");
    put(0x0009, 0x1001, EVR_UT, std::string(40000, 'x'));  // beyond the part of the file that is read ahead
    put(0x0011, 0x0010, EVR_LO, "SOMEBODY");
    put(0x0011, 0x1001, EVR_LO, "");
    put(0x0019, 0x0010, EVR_LO, "SOMEBODY");
    DcmItem* item = nullptr;
    ASSERT_TRUE(data.findOrCreateSequenceItem(DcmTag(0x0019, 0x1002, DcmVR(EVR_SQ)), item).good());
    ASSERT_TRUE(item->putAndInsertString(DcmTag(0x0019, 0x0010, DcmVR(EVR_LO)), "INSIDE").good());
    put(kPrivateGroup, 0x0010, EVR_LO, kPrivateCreator);
    put(0x7FE1, 0x0010, EVR_LO, "SOMEBODY");  // behind the pixels

    for (const E_TransferSyntax syntax :
         {EXS_LittleEndianExplicit, EXS_LittleEndianImplicit, EXS_DeflatedLittleEndianExplicit}) {
        const std::string path = folder / ("object" + std::to_string(syntax));
        ASSERT_TRUE(object.file().saveFile(path.c_str(), syntax).good());
        DcmFileFormat whole, converted;
        loadObject(whole, path, 256, ObjectValues::onDemand);
        loadObject(converted, path, 256, ObjectValues::withoutForeign);
        EXPECT_EQ(converted.getDataset()->tagExists(DcmTagKey(0x0009, 0x1001)),
                  syntax == EXS_DeflatedLittleEndianExplicit);
        EXPECT_TRUE(converted.getDataset()->tagExists(DcmTagKey(0x0019, 0x1002)));
        removeForeignValues(*whole.getDataset());
        removeForeignValues(*converted.getDataset());
        EXPECT_EQ(printed(*converted.getDataset()), printed(*whole.getDataset())) << syntax;
        EXPECT_EQ(pixelsOf(converted), pixels);
    }
}

TEST(ServantWork, ParsesForeignElementsThatTellTheEncoding) {
    using namespace objectbytes;
    const TemporaryFolder folder;
    const std::string path = folder / "object";
    constexpr size_t kLengthLikeDate = 'D' | 'A' << 8;  // as bytes the name of a value representation
    writeFile(path, std::string(128, '\0') + "DICM" + implicitElement(0x0009, 0x0010, "SOMEBODY") +
                        implicitElement(0x0008, 0x0070, std::string(kLengthLikeDate, 'x')) +
                        implicitElement(0x0008, 0x0018, "1.2.3.45") +
                        implicitElement(0x0009, 0x1001, "VALUE "));
    DcmFileFormat whole, converted;
    loadObject(whole, path, 256, ObjectValues::onDemand);
    ASSERT_NO_THROW(loadObject(converted, path, 256, ObjectValues::withoutForeign));
    EXPECT_FALSE(converted.getDataset()->tagExists(DcmTagKey(0x0009, 0x1001)));
    removeForeignValues(*whole.getDataset());
    removeForeignValues(*converted.getDataset());
    EXPECT_EQ(printed(*converted.getDataset()), printed(*whole.getDataset()));

    // Or the end of the meta header, behind which nothing belongs to it.
    const std::string syntax = element(0x0002, 0x0010, "UI", kImplicitLittle + std::string(1, '\0'));
    writeFile(path, std::string(128, '\0') + "DICM" + element(0x0009, 0x0010, "LO", "SOMEBODY") + syntax +
                        element(0x0008, 0x0018, "UI", "1.2.3.45"));
    DcmFileFormat sound;
    ASSERT_NO_THROW(loadObject(sound, path, 256, ObjectValues::withoutForeign));
    EXPECT_TRUE(sound.getDataset()->tagExists(DCM_SOPInstanceUID));
}

TEST(ServantWork, KeepsTheHeapOfAnOrdinaryRequestAndNotThatOfAHugeOne) {
    if (kSanitized) GTEST_SKIP() << "the sanitizer has an allocator of its own";
    constexpr size_t kMega = size_t{1} << 20;
    keepHeapForNextRequest();
    useHeap(4, kMega);
    giveBackSurplusHeap();
    const long before = pageFaults();
    useHeap(4, kMega);
    giveBackSurplusHeap();
    EXPECT_LT(pageFaults() - before, 100) << "4 MiB are 1024 pages";

    useHeap(300, kMega);
    const auto last = std::make_unique<char[]>(kMega);  // the heap's end is in use
    giveBackSurplusHeap();
    std::ifstream status("/proc/self/statm");
    size_t total = 0, resident = 0;
    status >> total >> resident;
    EXPECT_LT(resident * 4096, 150 * kMega);
}
