// What a servant does once for a request that it used to do again and again: opening the object, taking
// memory.
#include <malloc.h>
#include <sys/resource.h>

#include "hsutils/Utils.h"
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
