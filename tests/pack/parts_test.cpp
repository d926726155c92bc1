// A pack that is put together from parts is the one that a single writer makes, whatever its frames have of
// raw pixels and whoever else is at their file.
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <numeric>
#include <random>

#include "pack/PackError.h"
#include "pack/PackIndex.h"
#include "pack/PackWriter.h"
#include "tests/shared/testing.h"

namespace {

namespace fs = std::filesystem;
using Sizes = std::vector<int>;  ///< of the raw pixels of a part's frames; -1: there are none
using pack::SharedRaws;

class PartsOfPack : public testing::Test {
protected:
    PartsOfPack() { fs::create_directory(m_folder / "parts"); }

    std::string raws(int size) const { return m_folder / "parts/raws." + std::to_string(size); }
    std::string part(size_t number) const { return m_folder / "parts/" + std::to_string(number); }

    /// The same bytes for the same frame, whoever writes it.
    static void addFrame(pack::PackWriter& writer, int number, int size) {
        std::mt19937 random(static_cast<unsigned>(number));
        const auto bytes = [&random](int count) {
            std::vector<uint8_t> bytes(static_cast<size_t>(count));
            for (uint8_t& byte : bytes)
                byte = static_cast<uint8_t>(random());
            return bytes;
        };
        writer.beginFrame(std::to_string(number) +
                          " 4 2 mono 8 8 -1024 1.5 400 40.5 0.5 0.25 1.2.3 0\\0\\0 1\\0\\0\\0\\1\\0 L\\P\n");
        if (size >= 0) {
            writer.add(pack::Element::raw, bytes(size - size / 10));
            writer.add(pack::Element::thumbnailPixels, bytes(size / 10));
        }
        writer.add(pack::Element::rest, bytes(number * 13 % 700));
        writer.add(pack::Element::preview, bytes(90));
    }
    std::map<std::string, std::string> filesOf(const std::string& prefix) const {
        std::map<std::string, std::string> files;
        for (const char* suffix : {".index", ".small", ".heads", ".rests", ".raws"})
            if (fs::exists(m_folder / prefix + suffix)) files[suffix] = readFile(m_folder / prefix + suffix);
        return files;
    }
    void writeWhole(const std::vector<Sizes>& parts) {
        pack::PackWriter writer(m_folder / "whole", pack::Order::asGiven);
        writer.beginObject("o");
        int number = 0;
        for (const Sizes& sizes : parts)
            for (const int size : sizes)
                addFrame(writer, ++number, size);
        writer.finish();
    }
    SharedRaws writePart(const std::vector<Sizes>& parts, size_t which) {
        uint32_t before = 0;
        for (size_t i = 0; i < which; ++i)
            before += static_cast<uint32_t>(parts[i].size());
        pack::PackWriter writer(part(which + 1), pack::Order::asGiven);
        writer.beginObject("o");
        writer.shareRaws(m_folder / "parts/raws", before, static_cast<uint32_t>(parts[which].size()));
        for (const int size : parts[which])
            addFrame(writer, static_cast<int>(++before), size);
        writer.finish();
        return writer.sharedRaws();
    }
    void join(const std::vector<SharedRaws>& places) {
        pack::PackWriter writer(m_folder / "joined", pack::Order::asGiven);
        writer.beginObject("o");
        writer.shareRaws(m_folder / "parts/raws");
        for (size_t i = 0; i < places.size(); ++i)
            writer.takeOver(part(i + 1), places[i]);
        writer.finish();
    }
    /// Writes the parts in the order of `order`, puts them together and compares. How many shared a file.
    size_t expectSame(const std::vector<Sizes>& parts, const std::vector<size_t>& order) {
        writeWhole(parts);
        std::vector<SharedRaws> places(parts.size());
        for (const size_t which : order)
            places[which] = writePart(parts, which);
        join(places);
        EXPECT_TRUE(filesOf("joined") == filesOf("whole"));
        EXPECT_NO_THROW(pack::PackIndex(m_folder / "joined.index").walk({}));
        return static_cast<size_t>(std::count_if(places.begin(), places.end(),
                                                 [](const SharedRaws& raws) { return raws.identity != 0; }));
    }
    static uint64_t identityOf(const std::string& path) {
        struct stat about {};
        return stat(path.c_str(), &about) == 0 ? about.st_ino : 0;
    }

    TemporaryFolder m_folder;
};

}  // namespace

TEST_F(PartsOfPack, RawPixelsLieWhereTheyBelongFromTheBeginning) {
    const std::vector<Sizes> parts{Sizes(7, 70'000), Sizes(3, 70'000), Sizes(5, 70'000)};
    writeWhole(parts);
    std::vector<SharedRaws> places(3);
    for (const size_t which : {2, 0, 1})
        places[which] = writePart(parts, which);
    const uint64_t identity = identityOf(raws(70'000));
    for (const SharedRaws& place : places)
        EXPECT_EQ(place.identity, identity);
    EXPECT_EQ(places[2].offset, 700'000U);
    join(places);
    EXPECT_TRUE(filesOf("joined") == filesOf("whole"));
    EXPECT_EQ(identityOf(m_folder / "joined.raws"), identity) << "nothing was copied";
    EXPECT_FALSE(fs::exists(raws(70'000)));
}

TEST_F(PartsOfPack, FramesOfOtherSizesComeOutTheSame) {
    const struct {
        std::vector<Sizes> parts;
        size_t shared;
    } cases[] = {
        {{Sizes(4, 500), Sizes(4, 1000)}, 2},
        {{Sizes(4, 1000), Sizes(4, 500)}, 2},
        {{Sizes(4, 90'000), {90'000, 45'000, 90'000}}, 1},   // one frame of a part
        {{{90'000, 90'000, 200'000}, Sizes(3, 90'000)}, 1},  // the last one, which would reach into the next
        {{{90'000, 90'000, 10}, Sizes(3, 90'000)}, 1},
        {{Sizes(3, -1), Sizes(3, -1)}, 0},
        {{{-1, 800, 800}, Sizes(3, 800)}, 1},
        {{Sizes(3, 800), {800, -1, 800}}, 1},
        {{Sizes(3, 0), Sizes(3, 800)}, 1},
        {{Sizes(2, 600), Sizes(2, 300), Sizes(2, 600)}, 3},
        {{Sizes(2, 600), {600, 9000, 600}, Sizes(2, 600), Sizes(2, 600)}, 3},
    };
    for (const auto& [parts, shared] : cases) {
        std::vector<size_t> order(parts.size());
        std::iota(order.begin(), order.end(), size_t{0});
        EXPECT_EQ(expectSame(parts, order), shared) << &parts - &cases[0].parts;
        std::reverse(order.begin(), order.end());
        EXPECT_EQ(expectSame(parts, order), shared) << "from the last one on";
    }
}

TEST_F(PartsOfPack, NobodyWritesWhereAnotherDoes) {
    const std::vector<Sizes> parts{Sizes(3, 80'000), Sizes(3, 80'000)};
    writeFile(raws(80'000), std::string(2'000'000, 'x'));  // of an earlier conversion, and longer
    EXPECT_EQ(expectSame(parts, {0, 1}), 2U);

    std::vector<SharedRaws> places(2);
    {
        const auto other = pack::SharedFile::range(raws(80'000), 100'000, 10);
        ASSERT_NE(other, nullptr);
        places[0] = writePart(parts, 0);
        places[1] = writePart(parts, 1);
    }
    EXPECT_EQ(places[0].identity, 0U) << "somebody is in its range";
    EXPECT_NE(places[1].identity, 0U);
    fs::remove(m_folder / "joined.index");
    join(places);
    EXPECT_TRUE(filesOf("joined") == filesOf("whole"));

    places = {writePart(parts, 0), writePart(parts, 1)};
    fs::rename(raws(80'000), m_folder / "away");
    writeFile(raws(80'000), readFile(m_folder / "away"));
    EXPECT_THROW(join(places), pack::PackError);
    fs::remove(raws(80'000));
    EXPECT_THROW(join(places), pack::PackError);
    fs::rename(m_folder / "away", raws(80'000));
    fs::resize_file(raws(80'000), 479'999);
    EXPECT_THROW(join(places), pack::PackError);
    EXPECT_FALSE(fs::exists(m_folder / "joined.index"));
}
