#include <algorithm>
#include <map>
#include <numeric>

#include "pack/PackIndex.h"
#include "pack/unpack.h"
#include "tests/shared/daemon_process.h"
#include "tests/shared/objectbytes.h"
#include "tests/shared/testobject.h"

namespace {

constexpr int kSize = 8;
constexpr int kFrames = 3;

class ConvertTest : public testing::Test {
protected:
    ConvertTest() {
        m_object.describe(
            {.rows = kSize, .columns = kSize, .allocated = 16, .stored = 12, .frames = kFrames});
        Words samples;
        for (int frame = 1; frame <= kFrames; ++frame)
            for (int i = 0; i < kSize * kSize; ++i)
                samples.push_back(static_cast<uint16_t>(100 * frame + i));
        m_object.pixels(samples);
        const std::pair<DcmTagKey, const char*> texts[] = {{DCM_SpecificCharacterSet, "ISO_IR 100"},
                                                           {DCM_PatientName, "Phantom^Chest"},
                                                           {DCM_Modality, "CT"},
                                                           {DCM_InstanceNumber, "1"},
                                                           {DCM_WindowCenter, "40.5"},
                                                           {DCM_WindowWidth, "400"},
                                                           {DCM_RescaleIntercept, "-1000"},
                                                           {DCM_RescaleSlope, "0.5"}};
        for (const auto& [tag, text] : texts)
            m_object.text(tag, text);
        save("chest.dcm");
    }

    void save(const char* name) {
        EXPECT_TRUE(m_object.file().saveFile((m_folder / name).c_str(), EXS_LittleEndianExplicit).good());
    }

    /// The pixels of each frame: they begin with its smallest sample, which becomes 0.
    static std::string raw() {
        std::string bytes(kSize * kSize, '\0');
        std::iota(bytes.begin(), bytes.end(), '\0');
        return bytes;
    }

    TestRequest request() {
        TestRequest request{.input = m_folder / "chest.dcm", .output = m_folder / "out"};
        return request;
    }

    std::vector<std::string> filesInFolder() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(m_folder.path())) {
            if (entry.path().filename() != "chest.dcm") names.push_back(entry.path().filename());
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    std::map<std::string, std::string> filesIn(const char* folder) const {
        std::map<std::string, std::string> files;
        for (const auto& entry : std::filesystem::directory_iterator(m_folder / folder))
            files[entry.path().filename()] = readFile(entry.path());
        return files;
    }

    DaemonProcess m_daemon;
    TemporaryFolder m_folder;
    TestObject m_object;
};

}  // namespace

TEST_F(ConvertTest, ConversionWritesPixelsDescriptorAndCopy) {
    EXPECT_EQ(request().send(m_daemon.gateway()), "<<<ISO_IR 100>>>");
    EXPECT_EQ(filesInFolder(),
              (std::vector<std::string>{"out.desc", "out.pdcm", "out_1.raw", "out_2.raw", "out_3.raw"}));
    for (const char* name : {"out_1.raw", "out_2.raw", "out_3.raw"})
        EXPECT_EQ(readFile(m_folder / name), raw()) << name;
    EXPECT_EQ(readFile(m_folder / "out.desc"),
              "1 8 8 mono 8 6 -950 0.5 400 40.5 0 0    \n"
              "2 8 8 mono 8 6 -900 0.5 400 40.5 0 0    \n"
              "3 8 8 mono 8 6 -850 0.5 400 40.5 0 0    \n");

    DcmFileFormat copy;
    ASSERT_TRUE(copy.loadFile((m_folder / "out.pdcm").c_str()).good());
    DcmDataset& dataset = *copy.getDataset();
    EXPECT_EQ(dataset.getOriginalXfer(), EXS_LittleEndianExplicit);
    EXPECT_FALSE(dataset.tagExists(DCM_PixelData));
    EXPECT_EQ(textAt(dataset, 0x0010), "PB group A");
    EXPECT_EQ(textAt(dataset, 0x101D), "1\\2\\3");
    DcmElement* element = nullptr;
    ASSERT_TRUE(dataset.findAndGetElement(DcmTagKey(0xF215, 0x1013), element).good());
    for (unsigned i = 0; i < kFrames; ++i) {
        Sint32 minimum = 0;
        EXPECT_TRUE(element->getSint32(minimum, i).good());
        EXPECT_EQ(minimum, 100 * (static_cast<int>(i) + 1));
    }
}

TEST_F(ConvertTest, OneFrameAndNoCacheWriteWhatTheyShould) {
    TestRequest one = request();
    one.specificFrame = 2;
    one.send(m_daemon.gateway());
    EXPECT_EQ(filesInFolder(), std::vector<std::string>{"out_2.raw"});
    EXPECT_EQ(readFile(m_folder / "out_2.raw"), raw());

    TestRequest uncached = request();
    uncached.output = m_folder / "nc";
    uncached.noCached = true;
    uncached.send(m_daemon.gateway());
    EXPECT_EQ(filesInFolder(), (std::vector<std::string>{"nc.desc", "out_2.raw"}));

    one.specificFrame = 4;
    const std::string error = one.error(m_daemon.gateway());
    EXPECT_TRUE(contains(error, "ImageProcess error (1) processing file: " + (m_folder / "chest.dcm")));
    EXPECT_TRUE(contains(error, "4"));
}

TEST_F(ConvertTest, CacheFilesGoUnderTheirOwnPrefix) {
    TestRequest split = request();
    std::filesystem::create_directory(m_folder / "cache");
    split.cache = m_folder / "cache/c";
    split.send(m_daemon.gateway());
    EXPECT_TRUE(std::filesystem::exists(m_folder / "cache/c_3.raw"));
    EXPECT_TRUE(std::filesystem::exists(m_folder / "out.pdcm"));
    EXPECT_FALSE(std::filesystem::exists(m_folder / "out_1.raw"));
}

TEST_F(ConvertTest, FailedConversionLeavesNothingOfAnEarlierOne) {
    using namespace objectbytes;
    const std::string base = metaHeader(kRunLength) + grey(8, 8, "3 "), head = metaHeader(kExplicitLittle);
    const std::string runs = four(1) + four(64) + std::string(56, '\0') + std::string("\xC1\0", 2);
    const std::pair<const char*, std::string> failures[] = {
        {"no object", "text"},
        {"refused by its bits", head + number(0x28, 2, 1) + number(0x28, 0x10, 2) + number(0x28, 0x11, 2) +
                                    number(0x28, 0x100, 32) +
                                    element(0x7FE0, 0x10, "OW", std::string(16, 'x'))},
        {"refused by its length", head + grey(64, 64) + element(0x7FE0, 0x10, "OB", "xx")},
        {"first frame is damaged", base + fragments(item("ab") + item(runs) + item(runs))},
        {"a document that is empty",
         head + element(8, 0x16, "UI", "1.2.840.10008.5.1.4.1.1.104.1") + element(0x42, 0x11, "OB", "")},
        {"missing", ""}};
    TestRequest good = request();
    good.writeMask = 3;
    for (const auto& [name, bytes] : failures) {
        good.send(m_daemon.gateway());
        for (const char* side : {"out.obsinfo", "out.fingerprint", "out.pdf"})
            writeFile(m_folder / side, "earlier");
        std::filesystem::create_symlink("/dev/null", m_folder / "out_4.raw");  // no file of ours
        TestRequest bad = good;
        bad.input = m_folder / name;
        if (!bytes.empty()) writeFile(bad.input, bytes);
        EXPECT_NE(bad.error(m_daemon.gateway()), "") << name;
        std::filesystem::remove(bad.input);
        EXPECT_TRUE(std::filesystem::remove(m_folder / "out_4.raw"));
        // Opened when the walk begins, it stays; nothing of the earlier one is in it.
        EXPECT_EQ(readFile(m_folder / "out.desc"), "") << name;
        std::filesystem::remove(m_folder / "out.desc");
        EXPECT_EQ(filesInFolder(), std::vector<std::string>()) << name;
    }
}

// Those of many frames stay in the file, unless the private block may have to be moved in them.
TEST_F(ConvertTest, FramesHaveTheirGroupsWhetherTheyAreLoadedOrNot) {
    constexpr int kMany = 400;
    const ImageShape shape{.rows = 2, .columns = 2, .frames = kMany};
    TestObject object;
    object.describe(shape);
    object.pixels(Bytes(shape.frameBytes() * kMany, 7));
    DcmItem* item = nullptr;
    const auto put = [&](int frame, const DcmTagKey& macro, const DcmTagKey& key, const std::string& value) {
        object.dataset().findOrCreateSequenceItem(DCM_PerFrameFunctionalGroupsSequence, item, frame);
        DcmItem* member = nullptr;
        item->findOrCreateSequenceItem(macro, member, 0);
        ASSERT_TRUE(member->putAndInsertString(key, value.c_str()).good());
    };
    for (int frame = 0; frame < kMany; ++frame) {
        put(frame, DCM_PlanePositionSequence, DCM_ImagePositionPatient, "1\\2.125\\" + std::to_string(frame));
        if (frame % 2 == 0) put(frame, DCM_FrameVOILUTSequence, DCM_WindowCenter, std::to_string(-frame));
        if (frame % 3 == 0) put(frame, DCM_PixelMeasuresSequence, DCM_PixelSpacing, "0.5\\0.25");
    }
    TestRequest left{.input = object.save(EXS_LittleEndianExplicit), .output = m_folder / "left"};
    left.writeMask = 0x14;
    ASSERT_EQ(left.error(m_daemon.gateway()), "");
    ASSERT_TRUE(item->putAndInsertString(DcmTag(0xF215, 0x10, EVR_LO), "Harbourscope").good());
    TestRequest loaded = left;
    loaded.input = object.save(EXS_LittleEndianExplicit);
    loaded.output = m_folder / "loaded";
    ASSERT_EQ(loaded.error(m_daemon.gateway()), "");

    const std::string lines = readFile(m_folder / "left.desc");
    EXPECT_EQ(lines, readFile(m_folder / "loaded.desc"));
    for (int frame = 0; frame < kMany; ++frame)
        EXPECT_NE(lines.find(" 1\\2.125\\" + std::to_string(frame) + " "), std::string::npos) << frame;
    DcmFileFormat copy;
    ASSERT_TRUE(copy.loadFile((m_folder / "left.pdcm").c_str()).good());
    EXPECT_EQ(
        copy.getDataset()->findAndGetSequenceItem(DCM_PerFrameFunctionalGroupsSequence, item, kMany - 1),
        EC_Normal);
    EXPECT_EQ(item->card(), 2U) << "frame 400 has position and spacing";
}

TEST_F(ConvertTest, PackedHoldsWhatSeparateFilesDo) {
    const ImageShape shapes[] = {
        {.rows = 40, .columns = 60, .frames = 3},
        {.rows = 40, .columns = 60, .allocated = 16, .stored = 12, .photometric = "MONOCHROME1", .frames = 3},
        {.rows = 40, .columns = 60, .samples = 3, .photometric = "RGB", .frames = 2, .planar = 0},
        {.rows = 9, .columns = 300, .allocated = 16, .stored = 16, .representation = 1}};
    for (const ImageShape& shape : shapes) {
        TestObject object;
        object.describe(shape);
        Bytes bytes(shape.frameBytes() * static_cast<size_t>(shape.frames));
        for (size_t i = 0; i < bytes.size(); ++i)
            bytes[i] =
                shape.allocated == 16 && i % 2 == 1 ? i / 99 % 16 : static_cast<uint8_t>(i * 7 + i / 31);
        object.pixels(bytes);
        for (const int mask : {0x03, 0x13, 0x17, 0x01, 0x00}) {
            const std::string name = m_folder / "o/o";
            std::filesystem::create_directory(m_folder / "o");
            TestRequest separate{.input = object.save(EXS_LittleEndianExplicit), .output = name};
            separate.writeMask = mask;
            ASSERT_EQ(separate.error(m_daemon.gateway()), "");
            const auto files = filesIn("o");
            // Bits that say nothing never did anything.
            separate.writeMask |= 0x60;
            ASSERT_EQ(separate.error(m_daemon.gateway()), "");
            EXPECT_EQ(filesIn("o"), files);

            TestRequest packed = separate;
            std::filesystem::create_directory(m_folder / "p");
            packed.output = packed.cache = m_folder / "p/o";
            packed.writeMask = mask | 0x20;
            ASSERT_EQ(packed.error(m_daemon.gateway()), "");
            const auto packs = filesIn("p");
            EXPECT_LE(packs.size(), 7u);
            EXPECT_EQ(packs.count("o.index"), 1u);
            EXPECT_EQ(packs.at("o.pdcm"), files.at("o.pdcm"));
            std::filesystem::create_directory(m_folder / "u");
            const pack::PackIndex index(m_folder / "p/o.index");
            index.walk({});
            pack::unpack(m_folder / "p/o.index", m_folder / "u/");
            auto again = filesIn("u");
            again["o.pdcm"] = packs.at("o.pdcm");
            EXPECT_EQ(again, files);

            packed.specificFrame = 1;
            EXPECT_EQ(packed.error(m_daemon.gateway()), "A single frame is not packed");
            packed.specificFrame = 0;
            packed.input = m_folder / "missing.dcm";
            EXPECT_NE(packed.error(m_daemon.gateway()), "");
            EXPECT_EQ(filesIn("p"), decltype(packs)()) << "nothing of an earlier pack stays";
            for (const char* folder : {"o", "p", "u"})
                std::filesystem::remove_all(m_folder / folder);
        }
    }
}

TEST_F(ConvertTest, FailedConversionLeavesWhatIsNotItsOwn) {
    TestRequest good = request();
    good.writeMask = 3;
    good.send(m_daemon.gateway());
    std::vector<std::string> names = filesInFolder();
    TestRequest bad = good;
    bad.input = m_folder / "missing";
    const auto lost = [&](const TestRequest& wanted) {
        EXPECT_NE(TestRequest(wanted).error(m_daemon.gateway()), "");
        std::vector<std::string> gone;
        const std::vector<std::string> now = filesInFolder();
        std::set_difference(names.begin(), names.end(), now.begin(), now.end(), std::back_inserter(gone));
        names = now;
        return gone;
    };
    using Names = std::vector<std::string>;
    TestRequest dump = bad, one = bad, preview = bad, copy = bad;
    dump.dumponly = true;
    EXPECT_EQ(lost(dump), Names());
    one.specificFrame = 2;
    one.writeMask = 4;
    EXPECT_EQ(lost(one), Names{"out_2.raw"}) << "one frame, pixels alone";
    preview.noCached = true;
    preview.writeMask = 5;
    EXPECT_EQ(lost(preview), (Names{"out.desc", "out_1.p.qi4", "out_2.p.qi4", "out_3.p.qi4"}));
    writeFile(m_folder / "out.pdcm", "no object");
    copy.input = m_folder / "out.pdcm";
    lost(copy);
    EXPECT_EQ(readFile(copy.input), "no object") << "what is read is not removed";
}

TEST_F(ConvertTest, QueryChangesNothingOfTheConversionBesideIt) {
    DcmDataset& dataset = m_object.dataset();
    for (const Uint16 group : {0x6000, 0x6002, 0x6004}) {
        m_object.overlay(group, 1, 0, kSize, kSize);
        m_object.bytes(group, 0x3000, EVR_OB, Bytes(kSize * kSize / 8, static_cast<uint8_t>(group)));
    }
    dataset.putAndInsertString(DcmTag(0x0009, 0x0010, DcmVR(EVR_LO)), "Somebody");
    dataset.putAndInsertString(DcmTag(0x0009, 0x1001, DcmVR(EVR_LO)), "theirs");
    putPrivate(dataset, 0x1D, "1");
    save("overlays.dcm");

    TestRequest conversion = request();
    conversion.input = m_folder / "overlays.dcm";
    EXPECT_EQ(conversion.error(m_daemon.gateway()), "");
    TestRequest query = conversion;
    query.output = query.cache = m_folder / "query";
    query.tags = {0x6002, 0x0010, 0x5FFF, 0x0010, 0x6001, 0x0010, 0x6004, 0x3000,
                  0x0009, 0x1001, 0xF215, 0x001E, 0x0028, 0x0004, 0x7FE0, 0x0001};
    const std::string answer = query.send(m_daemon.gateway());
    EXPECT_EQ(answer.substr(0, 4), "8;;;");
    EXPECT_TRUE(contains(answer, ";theirs;")) << answer;
    const auto compare = [&](const std::string& other) {
        size_t compared = 0;
        for (const std::string& name : filesInFolder()) {
            if (name.substr(0, 3) != "out") continue;
            EXPECT_EQ(readFile(m_folder / name), readFile(m_folder / (other + name.substr(3)))) << name;
            ++compared;
        }
        EXPECT_EQ(compared, 2 + kFrames) << "descriptor, copy, pixels";
    };
    compare("query");
    query.output = query.cache = m_folder / "public";
    query.tags = {0x0028, 0x0004};  // nothing of somebody's
    EXPECT_TRUE(contains(query.send(m_daemon.gateway()), "MONOCHROME"));
    compare("public");
}

TEST_F(ConvertTest, QueryAnswersOnceTagsFirstAndThenFileByFile) {
    m_object.text(DCM_SpecificCharacterSet, "ISO_IR 192");
    m_object.text(DCM_PatientName, "Other^One");
    m_object.text(DCM_InstanceNumber, "2");
    save("second.dcm");

    TestRequest query{.input = m_folder.path() + "/",
                      .dumponly = true,
                      .tags = {0x0010, 0x0010, 0x0020, 0x0013, 0x0009, 0x0001, 0x0008, 0x0060},
                      .tagsOnce = 1,
                      .files = {"chest.dcm", "second.dcm"}};
    EXPECT_EQ(query.send(m_daemon.gateway()), "Phantom^Chest;1;;CT;2;;CT;<<<ISO_IR 192>>>");

    query.input = m_folder / "second.dcm";
    query.files.clear();
    query.tagsOnce = 9;  // more than there are: all are read once
    EXPECT_EQ(query.send(m_daemon.gateway()), "Other^One;2;;CT;<<<ISO_IR 192>>>");

    query.input = m_folder.path() + "/";
    query.files = {"second.dcm", "missing.dcm", "chest.dcm"};
    EXPECT_EQ(query.error(m_daemon.gateway()),
              "Error loading file: " + (m_folder / "missing.dcm") + ": No such file or directory");
}
