#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcistrma.h>
#include <dcmtk/dcmdata/dcitem.h>
#include <dcmtk/dcmdata/dcsequen.h>

#include <cstdint>
#include <functional>
#include <memory>

/// A sequence whose items stay in the object's file: an enhanced object has one for each of its thousands of
/// frames, whose tree would take more memory than all the rest of the conversion. To the toolkit, and to
/// whoever walks the tree, it holds no items; it is written as one that holds them all, and eachItem() shows
/// them. Reads the items anew each time.
class FileItems : public DcmSequenceOfItems {
public:
    /// A stream from the first item on.
    using Open = std::function<std::unique_ptr<DcmInputStream>()>;

    /// The items take `bytes` bytes of the file, in the encoding of `xfer`; values longer than
    /// `maxReadLength` are not read with their item.
    FileItems(const DcmTag& tag, Open open, uint64_t bytes, E_TransferSyntax xfer, Uint32 maxReadLength);

    /// Gives `take` one item after the other, each for as long as the call takes, until it returns an error;
    /// that, or what is wrong with the items, and nothing else is returned.
    OFCondition eachItem(const std::function<OFCondition(DcmItem&)>& take) const;

    DcmObject* clone() const override { return new FileItems(*this); }
    /// In one call, to a stream that always has room.
    OFCondition write(DcmOutputStream& stream, E_TransferSyntax xfer, E_EncodingType encoding,
                      DcmWriteCache* cache) override;

private:
    OFCondition readItem(DcmInputStream& stream, DcmItem& item) const;

    Open m_open;
    uint64_t m_bytes;
    E_TransferSyntax m_xfer;
    Uint32 m_maxReadLength;
};
