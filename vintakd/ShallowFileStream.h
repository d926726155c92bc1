#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcistrmf.h>

/// A file stream that ends the parse of an object before its nesting ends the stack. The toolkit's parser
/// calls itself for every sequence and item, so a small file of nothing but opening tags would otherwise
/// crash the process; the stream is read at every level, and refuses when the stack below the caller has
/// grown too deep.
class ShallowFileStream : public DcmInputFileStream {
public:
    explicit ShallowFileStream(const OFFilename& path);

    OFBool good() const override { return !m_tooDeep && DcmInputFileStream::good(); }
    OFCondition status() const override;
    offile_off_t avail() override;
    offile_off_t read(void* buffer, offile_off_t size) override;

    bool tooDeep() const { return m_tooDeep; }

private:
    void look();

    const char* m_top;  ///< where the stack stood when the parse began
    bool m_tooDeep = false;
};
