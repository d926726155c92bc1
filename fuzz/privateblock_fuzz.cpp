#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcdatset.h>
#include <dcmtk/dcmdata/dcistrmb.h>
#include <dcmtk/dcmdata/dcostrmb.h>
#include <dcmtk/dcmdata/dcsequen.h>
#include <dcmtk/oflog/oflog.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "fuzz/inputbytes.h"
#include "fuzz/require.h"
#include "privateblock/PBItem.h"
#include "privateblock/privatedictionary.h"
#include "privateblock/privatetags.h"

/// Data sets full of private elements: relocation settles at once, and what is stored under a key is found
/// there. The first byte tells how many operations follow before the data set.
namespace {

bool parse(DcmDataset& dataset, std::span<const uint8_t> bytes) {
    DcmInputBufferStream stream;
    stream.setBuffer(bytes.data(), static_cast<offile_off_t>(bytes.size()));
    stream.setEos();
    dataset.transferInit();
    const OFCondition read = dataset.read(stream, EXS_LittleEndianExplicit);
    dataset.transferEnd();
    return read.good();
}

std::string bytesOf(DcmDataset& dataset) {
    std::vector<char> buffer(1 << 20);
    DcmOutputBufferStream stream(buffer.data(), static_cast<offile_off_t>(buffer.size()));
    dataset.transferInit();
    const OFCondition written =
        dataset.write(stream, EXS_LittleEndianExplicit, EET_UndefinedLength, nullptr, EGL_noChange);
    dataset.transferEnd();
    void* start = nullptr;
    offile_off_t length = 0;
    stream.flushBuffer(start, length);
    if (written.bad()) return {};
    return {static_cast<const char*>(start), static_cast<size_t>(length)};
}

/// Text is found again as it was stored; numbers are what the toolkit makes of their text.
void storeText(PBItem& block, unsigned short key, std::string text) {
    text.resize(std::min(text.find('\0'), text.size()));
    text.resize(text.find_last_not_of(' ') + 1);  // blanks at the end are padding
    if (block.putAndInsertPBString(key, text.c_str()).bad()) return;
    DcmElement* element = nullptr;
    REQUIRE(block.findAndGetPBElement(key, element).good());
    if (!element->isaString()) return;
    const char* value = nullptr;
    REQUIRE(block.findAndGetPBString(key, value).good());
    REQUIRE(std::string(value != nullptr ? value : "").starts_with(text), "key %02x \"%s\" instead of \"%s\"",
            key, value, text.c_str());
}

void operate(DcmItem& item, InputBytes& input) {
    PBItem block(item);
    const uint8_t operation = input.byte();
    const unsigned short key = input.byte();
    DcmElement* element = nullptr;
    DcmItem* sub = nullptr;
    switch (operation % 8) {
        case 0:
            storeText(block, key, input.text());
            break;
        case 1:
            if (block.insertPBEmptyElement(key).good())
                REQUIRE(block.findAndGetPBElement(key, element).good());
            break;
        case 2:
            if (block.removePB(key)) REQUIRE(block.findAndGetPBElement(key, element).bad());
            break;
        case 3:
            if (block.findOrCreatePBSequenceItem(key, sub, input.byte() % 3).good()) operate(*sub, input);
            break;
        case 4:
            if (block.findAndGetPBElement(static_cast<unsigned short>(input.byte()), element, true).good())
                block.copyPrivateElement(*element);
            break;
        case 5: {
            const auto values = input.bytes(16);
            block.putAndInsertPBUint8Array(key, values.data(), values.size());
            break;
        }
        case 6:
            handleCanonicAndOldPrivateTags(&item);
            break;
        default:
            PBItem::getCanonicKey(DcmTag(0xF215, input.number<uint16_t>()));
            break;
    }
}

/// No element of an older block that has a key stands where it stood, and what is there stays there.
void requireSettled(DcmDataset& dataset) {
    handlePrivateTags(&dataset);
    const std::string once = bytesOf(dataset);
    handlePrivateTags(&dataset);
    REQUIRE(bytesOf(dataset) == once);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool prepared =
        (OFLog::configure(OFLogger::OFF_LOG_LEVEL), registerPrivateDictionary(), true);
    if (!prepared || size == 0) return 0;
    InputBytes input(data, size);
    const int operations = input.byte() % 16;
    InputBytes script = input;
    input.bytes(size_t{8} * static_cast<size_t>(operations));
    DcmDataset dataset;
    parse(dataset, input.rest());  // what was read before an error stays
    requireSettled(dataset);
    for (int i = 0; i < operations; ++i)
        operate(dataset, script);
    requireSettled(dataset);
    PBItem(dataset).nukePrivateTags();
    for (DcmObject* object = nullptr; (object = dataset.nextInContainer(object)) != nullptr;)
        REQUIRE(object->getGTag() != 0xF215);
    return 0;
}
