#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dctk.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "tests/shared/daemon_process.h"
#include "tests/shared/objectbytes.h"
#include "tools/phantom/Chest.h"
#include "tools/phantom/phantomobject.h"

namespace {

constexpr unsigned kSize = 32;
constexpr unsigned kFrames = 3;

/// What a frame of the phantom has to become, computed from its slice alone.
struct ExpectedFrame {
    explicit ExpectedFrame(unsigned index)
        : samples(Chest::slice(kSize, -0.9 + 1.8 * index / (kFrames - 1))) {
        const auto [low, high] = std::minmax_element(samples.begin(), samples.end());
        minimum = *low;
        maximum = *high;
        while ((1 << bits) <= maximum - minimum)
            ++bits;
    }

    std::string raw() const {
        std::string bytes;
        for (const uint16_t sample : samples) {
            bytes += static_cast<char>((sample - minimum) & 0xFF);
            bytes += static_cast<char>((sample - minimum) >> 8);
        }
        return bytes;
    }

    std::string line(unsigned number, const std::string& frameOfReference) const {
        char text[512];
        snprintf(text, sizeof text,
                 "%u %u %u mono 16 %d %g 1 1600 -100 12.5 12.5 %s -200\\-200\\%u 1\\0\\0\\0\\1\\0 \n", number,
                 kSize, kSize, bits, minimum - 1024.0, frameOfReference.c_str(), (number - 1) * 5);
        return text;
    }

    std::vector<uint16_t> samples;
    int minimum;
    int maximum;
    int bits = 0;
};

class ConvertTest : public testing::Test {
protected:
    ConvertTest() {
        writePhantom(m_folder / "chest.dcm", {kFrames, kSize});
        DcmFileFormat file;
        file.loadFile((m_folder / "chest.dcm").c_str());
        file.getDataset()->findAndGetOFString(DCM_FrameOfReferenceUID, m_frameOfReference);
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

    DaemonProcess m_daemon;
    TemporaryFolder m_folder;
    OFString m_frameOfReference;
};

}  // namespace

TEST_F(ConvertTest, ConversionWritesPixelsDescriptorAndCopy) {
    EXPECT_EQ(request().send(m_daemon.gateway()), "<<<ISO_IR 100>>>");
    EXPECT_EQ(filesInFolder(),
              (std::vector<std::string>{"out.desc", "out.pdcm", "out_1.raw", "out_2.raw", "out_3.raw"}));
    std::string descriptor;
    for (unsigned i = 0; i < kFrames; ++i) {
        const ExpectedFrame expected(i);
        descriptor += expected.line(i + 1, m_frameOfReference);
        EXPECT_EQ(readFile(m_folder / ("out_" + std::to_string(i + 1) + ".raw")), expected.raw()) << i;
    }
    EXPECT_EQ(readFile(m_folder / "out.desc"), descriptor);

    DcmFileFormat copy;
    ASSERT_TRUE(copy.loadFile((m_folder / "out.pdcm").c_str()).good());
    DcmDataset& dataset = *copy.getDataset();
    EXPECT_EQ(dataset.getOriginalXfer(), EXS_LittleEndianExplicit);
    EXPECT_FALSE(dataset.tagExists(DCM_PixelData));
    OFString text;
    dataset.findAndGetOFStringArray(DcmTagKey(0xF215, 0x0010), text);
    EXPECT_EQ(text, "PB group A");
    dataset.findAndGetOFStringArray(DcmTagKey(0xF215, 0x101D), text);
    EXPECT_EQ(text, "1\\2\\3");
    DcmElement* element = nullptr;
    ASSERT_TRUE(dataset.findAndGetElement(DcmTagKey(0xF215, 0x1013), element).good());
    for (unsigned i = 0; i < kFrames; ++i) {
        Sint32 minimum = 0;
        EXPECT_TRUE(element->getSint32(minimum, i).good());
        EXPECT_EQ(minimum, ExpectedFrame(i).minimum);
    }
}

TEST_F(ConvertTest, OneFrameAndNoCacheWriteWhatTheyShould) {
    TestRequest one = request();
    one.specificFrame = 2;
    one.send(m_daemon.gateway());
    EXPECT_EQ(filesInFolder(), std::vector<std::string>{"out_2.raw"});
    EXPECT_EQ(readFile(m_folder / "out_2.raw"), ExpectedFrame(1).raw());

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
    DcmFileFormat file;
    file.loadFile((m_folder / "chest.dcm").c_str());
    DcmDataset& dataset = *file.getDataset();
    for (const Uint16 group : {0x6000, 0x6002, 0x6004}) {
        dataset.putAndInsertUint16(DcmTag(group, 0x0010, DcmVR(EVR_US)), kSize);
        dataset.putAndInsertUint16(DcmTag(group, 0x0011, DcmVR(EVR_US)), kSize);
        const std::vector<Uint8> bits(kSize * kSize / 8, static_cast<Uint8>(group));
        dataset.putAndInsertUint8Array(DcmTag(group, 0x3000, DcmVR(EVR_OB)), bits.data(), bits.size());
    }
    dataset.putAndInsertString(DcmTag(0x0009, 0x0010, DcmVR(EVR_LO)), "Somebody");
    dataset.putAndInsertString(DcmTag(0x0009, 0x1001, DcmVR(EVR_LO)), "theirs");
    dataset.putAndInsertString(DcmTag(0xF215, 0x0010, DcmVR(EVR_LO)), "PB group A");
    dataset.putAndInsertString(DcmTag(0xF215, 0x101D, DcmVR(EVR_LT)), "1");
    file.saveFile((m_folder / "overlays.dcm").c_str());

    TestRequest conversion = request();
    conversion.input = m_folder / "overlays.dcm";
    EXPECT_EQ(conversion.error(m_daemon.gateway()), "");
    TestRequest query = conversion;
    query.output = query.cache = m_folder / "query";
    query.tags = {0x6002, 0x0010, 0x5FFF, 0x0010, 0x6001, 0x0010, 0x6004, 0x3000,
                  0x0009, 0x1001, 0xF215, 0x001E, 0x0028, 0x0004, 0x7FE0, 0x0001};
    EXPECT_EQ(query.send(m_daemon.gateway()).substr(0, 5), "32;;;");
    size_t compared = 0;
    for (const std::string& name : filesInFolder()) {
        if (name.substr(0, 3) != "out") continue;
        EXPECT_EQ(readFile(m_folder / name), readFile(m_folder / ("query" + name.substr(3)))) << name;
        ++compared;
    }
    EXPECT_EQ(compared, 2 + kFrames) << "descriptor, copy, pixels";
}

TEST_F(ConvertTest, QueryAnswersOnceTagsFirstAndThenFileByFile) {
    DcmFileFormat second;
    second.loadFile((m_folder / "chest.dcm").c_str());
    second.getDataset()->putAndInsertString(DCM_SpecificCharacterSet, "ISO_IR 192");
    second.getDataset()->putAndInsertString(DCM_PatientName, "Other^One");
    second.getDataset()->putAndInsertString(DCM_InstanceNumber, "2");
    second.saveFile((m_folder / "second.dcm").c_str());

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
