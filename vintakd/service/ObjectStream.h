#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcistrma.h>

#include <cstdint>
#include <memory>

#include "imgproc/leftout.h"
#include "imgproc/objectfile.h"

/// Gives the toolkit the bytes of an object's file from an offset on, but for what is left out.
class ObjectProducer : public DcmProducer {
public:
    ObjectProducer(std::shared_ptr<ObjectFile> file, uint64_t offset, LeftOut leftOut);

    OFBool good() const override { return m_status.good(); }
    OFCondition status() const override { return m_status; }
    OFBool eos() override { return m_leftOut.visible(m_position) >= m_file->size(); }
    offile_off_t avail() override;
    offile_off_t read(void* buffer, offile_off_t size) override;
    offile_off_t skip(offile_off_t size) override;
    void putback(offile_off_t size) override;

    const std::shared_ptr<ObjectFile>& file() const { return m_file; }
    uint64_t position() const { return m_position; }

private:
    std::shared_ptr<ObjectFile> m_file;
    LeftOut m_leftOut;
    uint64_t m_position;
    OFCondition m_status;
};

/// The toolkit's stream over an object's file. Values that it leaves in the file are read from the same open
/// file later, which lives as long as one of them needs it: the toolkit's own stream would open the path
/// again for each.
class ObjectStream : public DcmInputStream {
public:
    ObjectStream(std::shared_ptr<ObjectFile> file, uint64_t offset, LeftOut leftOut = {});

    /// As the toolkit's: null once a filter unpacks the stream, whose positions say nothing then.
    DcmInputStreamFactory* newFactory() const override;

private:
    ObjectProducer m_producer;
};
