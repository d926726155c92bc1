#include "imgproc/fileitems.h"

#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcerror.h>
#include <dcmtk/dcmdata/dcostrma.h>
#include <dcmtk/dcmdata/dcwcache.h>
#include <dcmtk/dcmdata/dcxfer.h>

#include <array>
#include <utility>

#include "imgproc/byteorder.h"

namespace {

/// Tag and length, which items have in every encoding.
struct ItemHeader {
    DcmTagKey tag;
    uint32_t length = 0;
};
constexpr size_t kItemHeaderSize = 8;

bool readHeader(DcmInputStream& stream, bool bigEndian, ItemHeader& header) {
    std::array<uint8_t, kItemHeaderSize> bytes{};
    if (stream.read(bytes.data(), bytes.size()) != static_cast<offile_off_t>(bytes.size())) return false;
    const std::span<const uint8_t> all(bytes);
    header.tag = DcmTagKey(twoBytes(all, bigEndian), twoBytes(all.subspan(2), bigEndian));
    header.length = fourBytes(all.subspan(4), bigEndian);
    return true;
}

}  // namespace

FileItems::FileItems(const DcmTag& tag, Open open, uint64_t bytes, E_TransferSyntax xfer,
                     Uint32 maxReadLength)
    : DcmSequenceOfItems(tag, DCM_UndefinedLength, OFFalse),
      m_open(std::move(open)),
      m_bytes(bytes),
      m_xfer(xfer),
      m_maxReadLength(maxReadLength) {}

OFCondition FileItems::eachItem(const std::function<OFCondition(DcmItem&)>& take) const {
    const std::unique_ptr<DcmInputStream> stream = m_open();
    const bool bigEndian = DcmXfer(m_xfer).getByteOrder() == EBO_BigEndian;
    const auto end = static_cast<offile_off_t>(m_bytes);
    while (stream->tell() < end) {
        ItemHeader header;
        if (!readHeader(*stream, bigEndian, header)) return EC_StreamNotifyClient;
        if (header.tag != DCM_Item) return EC_CorruptedData;
        DcmItem item(DCM_ItemTag, header.length);
        OFCondition result = readItem(*stream, item);
        if (result.good()) result = take(item);
        if (result.bad()) return result;
    }
    return stream->tell() == end ? EC_Normal : EC_CorruptedData;
}

OFCondition FileItems::readItem(DcmInputStream& stream, DcmItem& item) const {
    item.transferInit();
    const OFCondition result = item.read(stream, m_xfer, EGL_noChange, m_maxReadLength);
    item.transferEnd();
    return result;
}

OFCondition FileItems::write(DcmOutputStream& stream, E_TransferSyntax xfer, E_EncodingType encoding,
                             DcmWriteCache*) {
    if (encoding != EET_UndefinedLength) return EC_IllegalCall;
    setLengthField(DCM_UndefinedLength);
    Uint32 written = 0;
    OFCondition result = writeTagAndLength(stream, xfer, written);
    if (result.bad()) return result;
    result = eachItem([&](DcmItem& item) {
        // A cache knows the value in work by the address of its element, which the next item's may have.
        DcmWriteCache cache;
        item.transferInit();
        OFCondition done = item.computeGroupLengthAndPadding(EGL_recalcGL, EPD_noChange, xfer, encoding);
        if (done.good()) done = item.write(stream, xfer, encoding, &cache);
        item.transferEnd();
        return done;
    });
    if (result.good()) result = writeTag(stream, DcmTag(DCM_SequenceDelimitationItemTag), xfer);
    if (result.bad()) return result;
    constexpr Uint32 kNoLength = 0;
    stream.write(&kNoLength, sizeof kNoLength);
    return stream.status();
}
